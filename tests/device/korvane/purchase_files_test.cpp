#include "device/korvane/purchase_files.h"

#include "tests/device/korvane/library_fixture.h"

namespace {

class PurchaseFiles : public test::LibraryTest {
protected:
    void addFile(const std::string& name) {
        writeFile(std::string(korvane::PurchasesDirectory) + "/" + name, "12345");
    }
    std::vector<korvane::PurchaseFile> settle(const std::vector<std::string>& names) {
        platform::OptionalError error;
        const auto files = korvane::settlePurchaseFiles(*library, names, error);
        EXPECT_TRUE(files) << (error ? error->text() : "");
        return files.value_or(std::vector<korvane::PurchaseFile>(names.size()));
    }
    std::int64_t ownerOf(const std::string& name) { return settle({name})[0].track; }
};

TEST_F(PurchaseFiles, AFileNamedAfterATrackThatLacksItsOwnIsTakenIn) {
    add({.pid = 5});
    execute("UPDATE item SET needs_restore = 1");
    execute("UPDATE item_extra SET file_extension = 'm4a'");
    addFile("5.m4a");
    EXPECT_EQ(ownerOf("5.m4a"), 5);
    EXPECT_EQ(number("SELECT base_location_id FROM item"), 300);
    EXPECT_EQ(number("SELECT needs_restore FROM item"), 0);
    EXPECT_EQ(number("SELECT total_size FROM item_extra"), 5);
}

TEST_F(PurchaseFiles, ATrackThatHasAFileKeepsIt) {
    add({.pid = 5});
    addFile("5.m4a");
    addFile("5.mp3");
    EXPECT_EQ(ownerOf("5.m4a"), 5);
    EXPECT_EQ(ownerOf("5.mp3"), 0);
    EXPECT_EQ(ownerOf("5.m4a"), 5);
}

TEST_F(PurchaseFiles, OfTwoFilesThatWithTheTracksExtensionIsTaken) {
    add({.pid = 5});
    execute("UPDATE item_extra SET file_extension = 'mp3'");
    addFile("5.m4a");
    addFile("5.mp3");
    const auto files = settle({"5.m4a", "5.mp3"});
    EXPECT_EQ(files[0].track, 0);
    EXPECT_EQ(files[1].track, 5);
}

TEST_F(PurchaseFiles, TheExtensionFollowsTheFile) {
    add({.pid = 5});
    execute("UPDATE item_extra SET file_extension = 'mp3'");
    addFile("5.m4a");
    EXPECT_EQ(ownerOf("5.m4a"), 5);
    EXPECT_EQ(number("SELECT file_extension = 'm4a' FROM item_extra"), 1);
}

TEST_F(PurchaseFiles, NamesOfNoTrackAreNobodys) {
    add({.pid = 5});
    for (const char* name : {"6.m4a", "5", "5x.m4a", ".m4a", "99999999999999999999.m4a", "", "x.5"})
        EXPECT_EQ(ownerOf(name), 0) << name;
    EXPECT_EQ(number("SELECT base_location_id FROM item"), 0);
}

TEST_F(PurchaseFiles, ANameWithoutAFileIsNobodysAndTheTrackWaitsOn) {
    add({.pid = 5});
    execute("UPDATE item SET needs_restore = 1");
    EXPECT_EQ(ownerOf("5.m4a"), 0);
    EXPECT_EQ(number("SELECT needs_restore FROM item"), 1);
}

TEST_F(PurchaseFiles, TellsWhereEachCouldComeFromAgain) {
    add({.pid = 5});
    add({.pid = 6, .syncID = 60, .sources = 64});
    add({.pid = 7});
    execute(
        "INSERT INTO purchase (item_pid, source, kind) VALUES (7, 'https://a.example', 'music')");
    for (const char* name : {"5.mp3", "6.mp3", "7.mp3"})
        addFile(name);
    const auto files = settle({"5.mp3", "6.mp3", "7.mp3"});
    EXPECT_EQ(files[0].source, "");
    EXPECT_FALSE(files[0].isFromHost);
    EXPECT_TRUE(files[1].isFromHost);
    EXPECT_EQ(files[2].source, "https://a.example");
}

}  // namespace
