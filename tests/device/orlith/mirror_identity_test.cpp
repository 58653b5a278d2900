// Who is who among several real devices: one host behind two of them, rings, odd numbers, and
// devices that were restored or copied.
#include "common/property_list/property_list.h"
#include "common/qorx/writer.h"
#include "common/sqlite/database.h"
#include "device/korvane/configuration.h"
#include "tests/device/orlith/mirror_fixture.h"

namespace orlith::testing {
namespace {

constexpr char Music[] = "/var/mobile/Media/Tessel_Control/Music/";

// A directory's copy, as people make one.
void copyDirectory(const std::string& from, const std::string& to) {
    fs::remove_all(to);
    const std::string command = "cp -a '" + from + "' '" + to + "'";
    ASSERT_EQ(std::system(command.c_str()), 0);
}

// Changes of a library that no device here has: tracks with these ids.
std::vector<link::ChangeStream> changesOf(const std::string& uid,
                                          const std::vector<std::int64_t>& ids) {
    std::string bytes;
    common::QorxWriter writer([&](std::span<const std::uint8_t> piece) {
        bytes.append(piece.begin(), piece.end());
        return platform::OptionalError();
    });
    qorx::Header header;
    header.set_purpose(qorx::Header::CHANGES);
    header.set_exporter_uid(uid);
    EXPECT_FALSE(writer.begin(header));
    int number = 0;
    for (const std::int64_t id : ids) {
        qorx::Track track;
        track.set_persistent_id(id);
        track.set_global_id(static_cast<std::int64_t>(std::hash<std::string>()(uid) >> 2) +
                            ++number);
        track.set_media_type(8);
        track.set_title(uid + " " + std::to_string(id));
        track.set_added_ms(1);
        EXPECT_FALSE(writer.write(track));
    }
    EXPECT_FALSE(writer.end());
    platform::OptionalError error;
    const auto params = common::serializePropertyList(
        platform::Dictionary{{"FormatType", "QORX"},
                             {"PlaylistDataLen", std::uint64_t{0}},
                             {"SyncItemCount", std::uint64_t{ids.size()}}},
        platform::PropertyListFormat::Binary, &error);
    std::vector<link::ChangeStream> messages(3);
    messages[0].set_params(std::string(params->begin(), params->end()));
    messages[1].set_data(bytes);
    messages[2].mutable_end()->set_size(bytes.size());
    messages[2].mutable_end()->set_content_hash(hashOf(bytes));
    messages[2].mutable_end()->set_revision(1);
    return messages;
}

TEST_F(Mirrors, TwoDevicesOfOneHostAreNotDoubledAndFetchByTheOthersNumbers) {
    first.start();
    companion.start();
    const HostLibrary library{3, 1000, {}, {}};
    hostSync(first, library);
    hostSyncWithoutFiles(companion, library);
    EXPECT_EQ(mirror(first, companion).summary().assets(), 3u);
    expectComplete(companion, library);
}

TEST_F(Mirrors, TwoDevicesOfOneHostThatMirrorBothWaysAreNotDoubled) {
    first.start();
    companion.start();
    HostLibrary library{4, 1000, {1}, {{1, {4, 2}}}};
    hostSync(first, library);
    hostSync(companion, library);
    rate(first, "Title 1", 1);
    rate(companion, "Title 2", 2);
    mirror(first, companion);
    mirror(companion, first);
    expectComplete(first, library);
    expectComplete(companion, library);
    EXPECT_EQ(contentOf(first), contentOf(companion));
    expectQuiet(first, companion);
    // The host goes on with both.
    library.tracks = 5;
    hostSync(companion, library);
    mirror(companion, first);
    hostSync(first, library);
    mirror(first, companion);
    expectComplete(first, library);
    expectComplete(companion, library);
    EXPECT_EQ(contentOf(first), contentOf(companion));
    expectQuiet(first, companion);
}

TEST_F(Mirrors, ARingOfThreeComesToRestWithoutATrackTwice) {
    DeviceProcess third;
    first.start();
    companion.start();
    third.start();
    const HostLibrary library{3, 1000, {2}, {{1, {3, 1}}}};
    hostSync(first, library);
    for (int round = 0; round < 3; ++round) {
        SCOPED_TRACE(round);
        mirror(first, companion);
        mirror(companion, third);
        mirror(third, first);
        rate(round == 0   ? first
             : round == 1 ? companion
                          : third,
             "Title " + std::to_string(round + 1), 3);
    }
    for (int round = 0; round < 2; ++round) {
        mirror(first, companion);
        mirror(companion, third);
        mirror(third, first);
    }
    for (DeviceProcess* device : {&first, &companion, &third}) {
        expectComplete(*device, library);
        EXPECT_EQ(contentOf(*device), contentOf(first));
        EXPECT_EQ(tracksByTitle(*device)["Title 3"].rating(), 60u);
    }
    const std::int64_t before = revision(first) + revision(companion) + revision(third);
    EXPECT_EQ(mirror(first, companion).summary().tracks_changed(), 0u);
    EXPECT_EQ(mirror(companion, third).summary().tracks_changed(), 0u);
    EXPECT_EQ(mirror(third, first).summary().tracks_changed(), 0u);
    EXPECT_EQ(revision(first) + revision(companion) + revision(third), before);
}

TEST_F(Mirrors, NegativeAndSmallestSyncIDsAreFetchedAndFound) {
    first.start();
    companion.start();
    HostLibrary library{3, 1000, {1}, {}};
    library.syncIDs = {{1, -7}, {2, INT64_MIN}, {3, INT64_MAX}};
    hostSync(first, library);
    hostSyncWithoutFiles(companion, library);
    // The cover is its own host's to send.
    EXPECT_EQ(mirror(first, companion).summary().assets(), 3u);
    expectComplete(companion, library);
    EXPECT_EQ(tracksByTitle(companion)["Title 1"].path(), std::string(Music) + "F-7/-7.mp3");
    EXPECT_EQ(tracksByTitle(companion)["Title 2"].path(),
              std::string(Music) + "F-8/-9223372036854775808.mp3");
    // And a companion that has them from the first device alone.
    DeviceProcess other;
    other.start();
    EXPECT_EQ(mirror(first, other).summary().assets(), 4u);
    expectComplete(other, library);
    expectQuiet(first, companion);
}

TEST_F(Mirrors, ForeignIDsOfEveryKindAreKeptApart) {
    first.start();
    companion.start();
    const HostLibrary library{2, 1000, {}, {}};
    hostSync(first, library);
    // Two libraries that have given the same numbers: the second one's cannot be sync ids here.
    const std::vector<std::int64_t> ids{-7, INT64_MIN, INT64_MAX, 1001};
    for (const char* uid : {"STRANGER-A", "STRANGER-B"}) {
        link::ImportReply reply;
        ASSERT_TRUE(importChanges(first, changesOf(uid, ids), reply).ok());
        ASSERT_TRUE(reply.success()) << reply.ShortDebugString();
    }
    link::ImportReply refused;
    EXPECT_TRUE(importChanges(first, changesOf("STRANGER-C", {0}), refused).ok());
    EXPECT_FALSE(refused.success());
    std::multiset<std::int64_t> syncIDs;
    for (const link::TrackRow& row : tracksOf(first))
        syncIDs.insert(row.sync_id());
    EXPECT_EQ(syncIDs.count(0), 5u);
    for (const std::int64_t id : {std::int64_t{-7}, INT64_MIN, INT64_MAX, std::int64_t{1001}})
        EXPECT_EQ(syncIDs.count(id), 1u) << id;

    // Their files are nowhere; the others come all the same.
    const MirrorRun all = run(requestFrom(first.root), companion);
    EXPECT_TRUE(all.status.ok()) << all.status.error_message();
    EXPECT_EQ(all.failures.size(), 8u);
    EXPECT_EQ(all.summary().assets(), 2u);
    EXPECT_EQ(tracksByTitle(companion).size(), 10u);
    const MirrorRun back = run(requestFrom(companion.root), first);
    EXPECT_TRUE(back.status.ok()) << back.status.error_message();
    EXPECT_EQ(tracksByTitle(first).size(), 10u);
    EXPECT_EQ(back.summary().tracks_changed(), 0u);
}

class RestoredDevices : public Mirrors {
protected:
    ~RestoredDevices() override { fs::remove_all(_copy); }
    void keepCopy(DeviceProcess& device) {
        device.end(SIGTERM);
        copyDirectory(device.root, _copy);
        device.start();
    }
    void putBack(DeviceProcess& device) {
        device.end(SIGTERM);
        fs::remove_all(device.root);
        fs::rename(_copy, device.root);
        device.start();
    }
    // What happens after the copy was made is not lost, nor what happens once it was put back.
    void expectNothingIsMissed(DeviceProcess& restored, DeviceProcess& other) {
        HostLibrary library{3, 1000, {2}, {{1, {3, 1}}}};
        hostSync(first, library);
        mirror(first, companion);
        mirror(companion, first);
        keepCopy(restored);
        const std::string uid = revisions(restored).library_uid();
        rate(restored, "Title 1", 4);
        mirror(restored, other);
        rate(other, "Title 2", 5);
        mirror(other, restored);
        putBack(restored);
        EXPECT_NE(revisions(restored).library_uid(), uid);
        EXPECT_EQ(tracksByTitle(restored)["Title 1"].rating(), 0u);
        rate(restored, "Title 3", 3);
        EXPECT_TRUE(mirror(restored, other).summary().full());
        mirror(other, restored);
        for (DeviceProcess* device : {&first, &companion}) {
            expectComplete(*device, library);
            EXPECT_EQ(tracksByTitle(*device)["Title 1"].rating(), 80u);
            EXPECT_EQ(tracksByTitle(*device)["Title 2"].rating(), 100u);
            EXPECT_EQ(tracksByTitle(*device)["Title 3"].rating(), 60u);
        }
        EXPECT_EQ(contentOf(first), contentOf(companion));
        expectQuiet(first, companion);
    }

private:
    const std::string _copy = first.root + "-copy";
};

TEST_F(RestoredDevices, ACompanionThatWasRestoredMissesNothing) {
    first.start();
    companion.start();
    expectNothingIsMissed(companion, first);
}

TEST_F(RestoredDevices, AFirstDeviceThatWasRestoredMissesNothing) {
    first.start();
    companion.start();
    expectNothingIsMissed(first, companion);
}

TEST_F(Mirrors, ACopyOfADeviceIsADeviceOfItsOwn) {
    first.start();
    companion.start();
    const HostLibrary library{3, 1000, {2}, {{1, {3, 1}}}};
    hostSync(first, library);
    mirror(first, companion);
    mirror(companion, first);
    DeviceProcess copy;
    companion.end(SIGTERM);
    copyDirectory(companion.root, copy.root);
    companion.start();
    copy.start();
    EXPECT_NE(revisions(copy).library_uid(), revisions(companion).library_uid());
    rate(companion, "Title 1", 1);
    rate(copy, "Title 2", 2);
    for (int round = 0; round < 2; ++round) {
        mirror(first, copy);
        mirror(copy, companion);
        mirror(companion, first);
        mirror(copy, first);
    }
    for (DeviceProcess* device : {&first, &companion, &copy}) {
        expectComplete(*device, library);
        EXPECT_EQ(contentOf(*device), contentOf(first));
        EXPECT_EQ(tracksByTitle(*device)["Title 2"].rating(), 40u);
    }
    expectQuiet(companion, copy);
    expectQuiet(first, copy);
}

TEST_F(Mirrors, ATrackThatTheCloudHoldsIsPulledAndItsLinkGoes) {
    first.start();
    companion.start();
    const HostLibrary library{2, 1000, {}, {}};
    hostSync(first, library);
    mirror(first, companion);
    const std::string path = tracksByTitle(companion)["Title 1"].path();
    companion.end(SIGTERM);
    const std::string database = companion.root + std::string(korvane::DefaultDatabasePath);
    // Its file goes, and the cloud has it instead.
    fs::remove(companion.root + path);
    common::Database(database, {.create = false})
        .execute(
            "UPDATE item SET base_location_id = 400 WHERE item_pid ="
            " (SELECT item_pid FROM item_extra WHERE title = 'Title 1')");
    companion.start();
    EXPECT_EQ(mirror(first, companion).summary().assets(), 1u);
    expectComplete(companion, library);
    companion.end(SIGTERM);
    EXPECT_EQ(common::Database(database, {.create = false})
                  .int64("SELECT COUNT(*) FROM item WHERE base_location_id = 400"),
              0);
}

}  // namespace
}  // namespace orlith::testing
