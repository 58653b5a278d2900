#include <limits>

#include "tests/SyncBundle/sync_client_test.h"

namespace sync_bundle_tests {
namespace {

const std::string settingsDirectory = "/var/mobile/Media/Tessel_Control/Sync/Media/";
const std::string stepOperation = "_evaluateUploadTrackDatabaseChangeStep:";

class UploadOperations : public SyncClientTest {
protected:
    void addSettings(const std::string& name, const Value& settings) {
        files().addFile(settingsDirectory + name, system().propertyLists().bytesFor(settings));
    }
    static Value upload(const Value& pid) {
        return Dictionary{{"operation", "upload_track"}, {"pid", pid}};
    }
    static Value settings(Array operations) {
        return Dictionary{{"operations", std::move(operations)}};
    }
    void addTrack(std::int64_t persistentID, const Value& path, std::int64_t syncID = 0) {
        library().tracks[persistentID] = {{KV3TrackPropertyFilePath, path},
                                          {KV3TrackPropertySyncID, syncID}};
    }
    support::RecordingAsset& pending(const std::string& identifier) {
        return dynamic_cast<support::RecordingAsset&>(*inspector().pendingUploads.at(identifier));
    }
    std::vector<std::string> pendingIdentifiers() {
        std::vector<std::string> identifiers;
        for (const auto& [identifier, asset] : inspector().pendingUploads)
            identifiers.push_back(identifier);
        return identifiers;
    }
};

TEST_F(UploadOperations, OnlyNamesOfBothFormsAreSettingsFiles) {
    for (const char* name : {"sync_1.plist", "Sync_1.plist.bak", "Sync_1.xml", "Sync_.plist",
                             "Sync_1.PLIST", "aSync_1.plist", "Sync.plist", "Sync_3.plist/inner"})
        files().addFile(settingsDirectory + name);
    EXPECT_THAT(inspector().syncPlistFiles(),
                ElementsAre(settingsDirectory + "Sync_.plist", settingsDirectory + "Sync_3.plist"));
}

TEST_F(UploadOperations, SettingsFilesComeInStringOrder) {
    for (const char* name : {"Sync_2.plist", "Sync_10.plist", "Sync_1.plist"})
        files().addFile(settingsDirectory + name);
    EXPECT_THAT(inspector().syncPlistFiles(),
                ElementsAre(settingsDirectory + "Sync_1.plist", settingsDirectory + "Sync_10.plist",
                            settingsDirectory + "Sync_2.plist"));
}

TEST_F(UploadOperations, AnUnreadableDirectoryIsLoggedByTheLibraryAndEmpty) {
    EXPECT_THAT(inspector().syncPlistFiles(), IsEmpty());
    EXPECT_THAT(lines(),
                ElementsAre(LogLine{LogLevel::Info, "com.vantor.Korvane", "_syncPlistFiles",
                                    "Could not read " + settingsDirectory +
                                        ": Error Domain=POSIXErrorDomain Code=2 "
                                        "\"No such file or directory\""}));
}

TEST_F(UploadOperations, MakesItsCallsInTheirOrder) {
    addSettings("Sync_1.plist", settings({upload(5)}));
    addTrack(5, "/var/mobile/Media/a.mp3");
    EXPECT_TRUE(inspector().processUploadTrackOperations());
    EXPECT_EQ(calls(), (Calls{{"FileSystem.contentsOfDirectory", {settingsDirectory}},
                              {"FileSystem.readFile", {settingsDirectory + "Sync_1.plist"}},
                              {"PropertyLists.parse", {}},
                              {"KV3Track.newWithPersistentID", {5}},
                              {"KV3Track.existsInLibrary", {5}},
                              {"KV3Track.existsInLibrary", {5}},
                              {"KV3Track.getValues", {5, Array{"FilePath"}}}}));
    EXPECT_THAT(lines(), ElementsAre(line(LogLevel::Info, stepOperation,
                                          "Enqueuing asset upload request: <ORAsset 5>")));
    EXPECT_EQ(pending("5").identifier(), "5");
    EXPECT_EQ(pending("5").dataclass, "Media");
    EXPECT_EQ(pending("5").sourcePath, "/var/mobile/Media/a.mp3");
    EXPECT_EQ(pending("5").prettyName, std::nullopt);
    EXPECT_FALSE(pending("5").isDownload());
}

TEST_F(UploadOperations, FilesAndOperationsAreTakenInTheirOrder) {
    addSettings("Sync_2.plist", settings({upload(3)}));
    addSettings("Sync_10.plist", settings({upload(1), upload(2)}));
    EXPECT_TRUE(inspector().processUploadTrackOperations());
    EXPECT_EQ(recorder().callsNamed({"KV3Track.newWithPersistentID"}),
              (Calls{{"KV3Track.newWithPersistentID", {1}},
                     {"KV3Track.newWithPersistentID", {2}},
                     {"KV3Track.newWithPersistentID", {3}}}));
}

TEST_F(UploadOperations, WhatIsNoSettingsFileInsideIsSkippedSilently) {
    files().addFile(settingsDirectory + "Sync_1.plist", Data{1, 2, 3});
    addSettings("Sync_2.plist", Array{upload(1)});
    addSettings("Sync_3.plist", Dictionary{});
    addSettings("Sync_4.plist", Dictionary{{"operations", upload(1)}});
    addSettings("Sync_5.plist", settings({upload(7)}));
    files().addDirectory(settingsDirectory + "Sync_6.plist");
    files().addFileOfSize(settingsDirectory + "Sync_7.plist", std::uint64_t{1} << 40);
    addTrack(7, "/a/b");
    EXPECT_TRUE(inspector().processUploadTrackOperations());
    EXPECT_THAT(pendingIdentifiers(), ElementsAre("7"));
    EXPECT_EQ(lines().size(), 1u);
}

TEST_F(UploadOperations, OnlyUploadTrackIsActedOn) {
    addTrack(1, "/a/b");
    addSettings("Sync_1.plist",
                settings({Dictionary{{"operation", "upload"}, {"pid", 1}},
                          Dictionary{{"operation", "upload_tracks"}, {"pid", 1}},
                          Dictionary{{"operation", 5}, {"pid", 1}}, Dictionary{{"pid", 1}}}));
    EXPECT_TRUE(inspector().processUploadTrackOperations());
    EXPECT_THAT(pendingIdentifiers(), IsEmpty());
    EXPECT_THAT(lines(), IsEmpty());
}

TEST_F(UploadOperations, AnElementThatIsNoDictionaryIsSkipped) {
    addTrack(1, "/a/b");
    addSettings("Sync_1.plist",
                settings({"upload_track", 5, Array{"operation"}, Data{1}, true, upload(1)}));
    EXPECT_TRUE(inspector().processUploadTrackOperations());
    EXPECT_THAT(pendingIdentifiers(), ElementsAre("1"));
    EXPECT_EQ(lines().size(), 1u);
}

TEST_F(UploadOperations, APidThatIsNoNumberIsRefused) {
    addTrack(123, "/a/b");
    EXPECT_FALSE(inspector().evaluateUploadTrackStep(upload("123")));
    EXPECT_FALSE(inspector().evaluateUploadTrackStep(upload(Value())));
    EXPECT_FALSE(inspector().evaluateUploadTrackStep(upload(Array{1})));
    EXPECT_THAT(
        lines(),
        ElementsAre(
            line(LogLevel::Error, stepOperation, "Got upload_track with invalid pid: 123"),
            line(LogLevel::Error, stepOperation, "Got upload_track with invalid pid: (null)"),
            line(LogLevel::Error, stepOperation,
                 "Got upload_track with invalid pid: (\n    1\n)")));
    EXPECT_THAT(pendingIdentifiers(), IsEmpty());
}

TEST_F(UploadOperations, ATrackIsFoundBySyncIdWhenNoPersistentIdMatches) {
    addTrack(50, "/other", 77);
    EXPECT_TRUE(inspector().evaluateUploadTrackStep(upload(77)));
    EXPECT_THAT(pendingIdentifiers(), ElementsAre("77"));
    EXPECT_EQ(pending("77").sourcePath, "/other");
    EXPECT_EQ(recorder().callsNamed({"KV3Track.anyInLibrary"}),
              (Calls{{"KV3Track.anyInLibrary", {"SyncID == 77"}}}));
}

TEST_F(UploadOperations, ATrackThatDoesNotExistIsLogged) {
    EXPECT_TRUE(inspector().evaluateUploadTrackStep(upload(77)));
    EXPECT_THAT(lines(), ElementsAre(line(LogLevel::Warning, stepOperation,
                                          "Got upload_track for non-existant track: "
                                          "<KV3Track 0>")));
    EXPECT_THAT(pendingIdentifiers(), IsEmpty());
}

TEST_F(UploadOperations, APathShorterThanTwoCharactersIsNotEnqueued) {
    addTrack(1, "");
    addTrack(2, "/");
    addTrack(3, Value());
    addTrack(4, "\xC3\xA9");  // one character of two bytes
    addTrack(5, "/a");
    for (int pid = 1; pid <= 5; ++pid)
        EXPECT_TRUE(inspector().evaluateUploadTrackStep(upload(pid)));
    EXPECT_THAT(pendingIdentifiers(), ElementsAre("5"));
    EXPECT_THAT(
        lines(),
        ElementsAre(
            line(LogLevel::Error, stepOperation, "Invalid upload source path "),
            line(LogLevel::Error, stepOperation, "Invalid upload source path /"),
            line(LogLevel::Error, stepOperation, "Invalid upload source path (null)"),
            line(LogLevel::Error, stepOperation, "Invalid upload source path \xC3\xA9"),
            line(LogLevel::Info, stepOperation, "Enqueuing asset upload request: <ORAsset 5>")));
}

TEST_F(UploadOperations, OfTwoForOnePidTheLaterStays) {
    addTrack(1, "/a/b");
    addSettings("Sync_1.plist", settings({upload(1), Dictionary{{"operation", "upload_track"},
                                                                {"pid", 1},
                                                                {"delete_after_upload", true}}}));
    EXPECT_TRUE(inspector().processUploadTrackOperations());
    EXPECT_THAT(pendingIdentifiers(), ElementsAre("1"));
    EXPECT_EQ(pending("1").variantOptions(), Dictionary({{"delete_after_upload", true}}));
}

TEST_F(UploadOperations, WithoutDeletionTheVariantOptionsStayUnset) {
    addTrack(1, "/a/b");
    EXPECT_TRUE(inspector().evaluateUploadTrackStep(upload(1)));
    EXPECT_TRUE(pending("1").variantOptions().isNull());
    EXPECT_TRUE(inspector().evaluateUploadTrackStep(
        Dictionary{{"operation", "upload_track"}, {"pid", 1}, {"delete_after_upload", false}}));
    EXPECT_TRUE(pending("1").variantOptions().isNull());
}

TEST_F(UploadOperations, IdentifiersAreDecimalWithoutPadding) {
    addTrack(-5, "/a/b");
    addTrack(std::numeric_limits<std::int64_t>::min(), "/a/c");
    EXPECT_TRUE(inspector().evaluateUploadTrackStep(upload(-5)));
    EXPECT_TRUE(
        inspector().evaluateUploadTrackStep(upload(std::numeric_limits<std::int64_t>::min())));
    EXPECT_THAT(pendingIdentifiers(), ElementsAre("-5", "-9223372036854775808"));
}

}  // namespace
}  // namespace sync_bundle_tests
