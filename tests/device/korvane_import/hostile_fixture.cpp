#include "tests/device/korvane_import/hostile_fixture.h"

namespace test {

void HostileChanges::SetUp() {
    HostData data;
    data.add(1, "Mine");
    device.syncWith(data);
    before = device.dump();
}

qorx::Track HostileChanges::track(std::int64_t pid) {
    qorx::Track record;
    record.set_persistent_id(pid);
    record.set_global_id(pid);
    record.set_added_ms(5);
    record.set_title("T");
    return record;
}

qorx::Playlist HostileChanges::playlist(std::int64_t pid, const std::vector<std::int64_t>& tracks) {
    qorx::Playlist record;
    record.set_persistent_id(pid);
    record.set_global_id(pid);
    record.set_name("P");
    for (const std::int64_t id : tracks) {
        record.add_items()->set_persistent_id(id);
    }
    return record;
}

qorx::Deletion HostileChanges::deletion(std::int64_t pid) {
    qorx::Deletion record;
    record.set_persistent_id(pid);
    record.set_global_id(pid);
    record.set_deleted_ms(9);
    return record;
}

void HostileChanges::expectTaken(std::optional<platform::Data> tracks,
                                 std::optional<platform::Data> playlists) {
    const ImportResult result = device.importData(tracks, playlists);
    ASSERT_TRUE(result.success) << result.error->description();
    const std::int64_t revision = device.revision();
    const std::string after = device.dump();
    ASSERT_TRUE(device.importData(tracks, playlists).success);
    EXPECT_EQ(device.revision(), revision);
    EXPECT_EQ(device.dump(), after);
}

void HostileChanges::expectRefused(std::optional<platform::Data> tracks,
                                   std::optional<platform::Data> playlists) {
    const ImportResult result = device.importData(std::move(tracks), std::move(playlists));
    EXPECT_EQ(result.calls, 1);
    EXPECT_FALSE(result.success);
    ASSERT_TRUE(result.error);
    EXPECT_FALSE(result.error->text().empty());
    EXPECT_EQ(device.dump(), before);
}

void HostileChanges::expectTravelsOn() {
    TestDevice other;
    other.pullFrom(device);
    device.pullFrom(other);
    EXPECT_EQ(other.state(), device.state());
    EXPECT_EQ(other.pullFrom(device) + device.pullFrom(other), 0u);
}

}  // namespace test
