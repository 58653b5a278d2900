#include "host/plan/owner_changes.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "common/qorx/writer.h"
#include "host/plan/track_record.h"
#include "tests/host_sync/folder_maker.h"

namespace host {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

class OwnerChange : public testing::Test {
protected:
    OwnerChange() : device(state.devices["device"]) {
        state.add(test::knownFile(1, "Song"));
        device.tracks[1].delivered = true;
    }

    template <typename... Records>
    static std::string stream(const Records&... records) {
        std::string bytes;
        common::QorxWriter writer([&](std::span<const std::uint8_t> piece) {
            bytes.append(reinterpret_cast<const char*>(piece.data()), piece.size());
            return platform::OptionalError();
        });
        qorx::Header header;
        header.set_purpose(qorx::Header::SAVED_METADATA);
        EXPECT_FALSE(writer.begin(header));
        (void)(... && !writer.write(records));
        EXPECT_FALSE(writer.end());
        return bytes;
    }

    static qorx::Track rated(std::uint32_t value, std::int64_t when) {
        qorx::Track track;
        track.set_sync_id(1);
        track.mutable_rating()->set_value(value);
        track.mutable_rating()->set_changed_ms(when);
        return track;
    }

    std::vector<std::string> merge(const std::string& bytes) {
        OwnerChanges changes;
        EXPECT_FALSE(mergeOwnerChanges(bytes, state, device, ids, changes));
        return changes.shown;
    }

    FolderState state;
    DeviceState& device;
    IdentitySource ids{3};
};

TEST_F(OwnerChange, ARatingIsTakenOverAndShownOnce) {
    EXPECT_THAT(merge(stream(rated(80, 5))), ElementsAre(HasSubstr("4 stars")));
    EXPECT_EQ(state.files[0].owner.rating->value, 80u);
    EXPECT_TRUE(state.files[0].changed);
    EXPECT_THAT(merge(stream(rated(80, 5))), IsEmpty());
}

TEST_F(OwnerChange, TheLaterRatingWins) {
    merge(stream(rated(80, 5)));
    merge(stream(rated(20, 4)));
    EXPECT_EQ(state.files[0].owner.rating->value, 80u);
    merge(stream(rated(20, 6)));
    EXPECT_EQ(state.files[0].owner.rating->value, 20u);
}

TEST_F(OwnerChange, WhatTheDeviceToldIsNotSentBackToIt) {
    merge(stream(rated(80, 5)));
    EXPECT_EQ(device.tracks.at(1).owner, ownerFingerprint(state.files[0].owner));
}

TEST_F(OwnerChange, CountsOfTwoDevicesAddUp) {
    const auto played = [](const char* origin, std::uint64_t count) {
        qorx::Track track;
        track.set_global_id(1'000'001);
        qorx::PlayStatistics& plays = *track.add_plays();
        plays.set_origin_uid(origin);
        plays.set_play_count(count);
        return track;
    };
    merge(stream(played("one", 2)));
    EXPECT_THAT(merge(stream(played("two", 3))), ElementsAre(HasSubstr("played 5 times")));
    EXPECT_THAT(merge(stream(played("one", 1))), IsEmpty()) << "an older state does no harm";
}

TEST_F(OwnerChange, ARemovedTrackIsRememberedAndTheFileKept) {
    qorx::Deletion deletion;
    deletion.set_entity(qorx::Deletion::TRACK);
    deletion.set_sync_id(1);
    EXPECT_THAT(merge(stream(deletion)), ElementsAre(HasSubstr("not sent again")));
    EXPECT_TRUE(state.files[0].removedByOwner);
    EXPECT_TRUE(device.tracks.empty());
}

TEST_F(OwnerChange, APlaylistMadeOnTheDeviceIsKept) {
    qorx::Playlist playlist;
    playlist.set_global_id(900);
    playlist.set_name("Mine");
    playlist.add_items()->set_sync_id(1);
    EXPECT_THAT(merge(stream(playlist)), ElementsAre(HasSubstr("Mine")));
    ASSERT_EQ(state.playlists.size(), 1u);
    EXPECT_EQ(state.playlists[0].items, std::vector<std::int64_t>{1});
    EXPECT_TRUE(state.playlists[0].path.empty());
    EXPECT_TRUE(device.playlists.contains(state.playlists[0].syncId));
}

TEST_F(OwnerChange, ADamagedStreamChangesNothing) {
    std::string bytes = stream(rated(80, 5));
    bytes[bytes.size() / 2] ^= 1;
    OwnerChanges changes;
    EXPECT_TRUE(mergeOwnerChanges(bytes, state, device, ids, changes));
    EXPECT_FALSE(state.files[0].owner.rating);
}

}  // namespace
}  // namespace host
