#include "tests/device/orlith/host_library.h"

#include <algorithm>
#include <optional>
#include <random>

#include "common/chapters/chapters.h"
#include "common/qorx/writer.h"
#include "tests/support/media_maker.h"

namespace orlith::testing {

namespace {

std::int64_t syncIDOf(const HostLibrary& library, int track) {
    const auto given = library.syncIDs.find(track);
    return given != library.syncIDs.end() ? given->second : 1000 + track;
}

}  // namespace

std::string bytesOf(const HostLibrary& library, int track) {
    std::string bytes(library.size + static_cast<std::size_t>(track), '\0');
    std::mt19937 random(static_cast<unsigned>(track));
    std::generate(bytes.begin(), bytes.end(), [&] { return static_cast<char>(random()); });
    return bytes;
}

std::string hostData(const HostLibrary& library) {
    std::string bytes;
    common::QorxWriter writer([&](std::span<const std::uint8_t> piece) {
        bytes.append(piece.begin(), piece.end());
        return platform::OptionalError();
    });
    qorx::Header header;
    header.set_purpose(qorx::Header::HOST_DATA);
    header.set_exporter_uid("host");
    header.set_complete(true);
    EXPECT_FALSE(writer.begin(header));
    for (int i = 1; i <= library.tracks; ++i) {
        qorx::Track track;
        track.set_sync_id(syncIDOf(library, i));
        track.set_global_id(2000 + i);
        const auto mediaType = library.mediaTypes.find(i);
        track.set_media_type(mediaType != library.mediaTypes.end() ? mediaType->second : 8);
        track.set_title("Title " + std::to_string(i));
        track.set_total_size(library.size + static_cast<std::size_t>(i));
        track.set_file_extension("mp3");
        if (library.withCovers.contains(i)) {
            track.set_artwork_token("cover-" + std::to_string(i));
            const auto chapters = common::encodeChapters(
                {{0, "First", "abcdef" + std::to_string(i)}, {5000, "Second", "second"}});
            track.set_chapter_data(std::string(chapters->begin(), chapters->end()));
        }
        EXPECT_FALSE(writer.write(track));
    }
    for (const HostPlaylist& list : library.playlists) {
        qorx::Playlist playlist;
        playlist.set_sync_id(3000 + list.id);
        playlist.set_global_id(4000 + list.id);
        playlist.set_name("List " + std::to_string(list.id));
        for (const int track : list.tracks) {
            qorx::Playlist::Item& item = *playlist.add_items();
            item.set_sync_id(syncIDOf(library, track));
            item.set_global_id(2000 + track);
        }
        EXPECT_FALSE(writer.write(playlist));
    }
    const auto remove = [&](qorx::Deletion::Entity entity, std::int64_t syncID, int globalID) {
        qorx::Deletion deletion;
        deletion.set_entity(entity);
        deletion.set_sync_id(syncID);
        deletion.set_global_id(globalID);
        EXPECT_FALSE(writer.write(deletion));
    };
    for (const int track : library.removedTracks)
        remove(qorx::Deletion::TRACK, syncIDOf(library, track), 2000 + track);
    for (const int list : library.removedPlaylists)
        remove(qorx::Deletion::PLAYLIST, 3000 + list, 4000 + list);
    EXPECT_FALSE(writer.end());
    return bytes;
}

namespace {

void sendPicture(Host& host, const link::Asset& asset, link::Transfer::Part part,
                 const std::string& bytes, std::optional<std::uint64_t> chapterMs = {}) {
    link::FromHost message;
    link::Transfer& transfer = *message.mutable_transfer();
    transfer.set_identifier(asset.identifier());
    transfer.set_part(part);
    transfer.set_size(bytes.size());
    transfer.set_content_hash(hashOf(bytes));
    if (chapterMs)
        transfer.set_chapter_ms(*chapterMs);
    host.send(message);
    host.sendChunks(bytes);
}

}  // namespace

void hostSyncWithoutFiles(DeviceProcess& device, const HostLibrary& library) {
    Host host(*device.stub);
    host.prepare();
    ASSERT_TRUE(
        host.sendFile(link::SessionFile::HOST_DATA, "", hostData(library)).has_file_received());
    ASSERT_TRUE(host.reconcile().reconciled().success());
}

void hostSync(DeviceProcess& device, const HostLibrary& library) {
    std::map<std::string, int> numbers;
    for (int track = 1; track <= library.tracks; ++track)
        numbers[std::to_string(syncIDOf(library, track))] = track;
    Host host(*device.stub);
    host.prepare();
    ASSERT_TRUE(
        host.sendFile(link::SessionFile::HOST_DATA, "", hostData(library)).has_file_received());
    const link::FromDevice reconciled = host.reconcile();
    ASSERT_TRUE(reconciled.reconciled().success()) << reconciled.ShortDebugString();
    for (const link::Asset& asset : host.outstanding()) {
        const int track = numbers.at(asset.identifier());
        if ((asset.parts() & PartArtwork) != 0) {
            sendPicture(host, asset, link::Transfer::ARTWORK, test::plainJpeg(60 + track, 60));
            sendPicture(host, asset, link::Transfer::CHAPTER_ARTWORK,
                        test::plainJpeg(30 + track, 30), 0);
            sendPicture(host, asset, link::Transfer::CHAPTER_ARTWORK, test::plainJpeg(20, 20),
                        5000);
        }
        link::FromHost file;
        if ((asset.parts() & PartFile) != 0) {
            file =
                Host::announce(asset.identifier(), link::Transfer::FILE, bytesOf(library, track));
        } else {
            file.mutable_transfer()->set_identifier(asset.identifier());
            file.mutable_transfer()->set_asset_complete(true);
        }
        file.mutable_transfer()->set_parts(asset.parts());
        host.send(file);
        if ((asset.parts() & PartFile) != 0)
            host.sendChunks(bytesOf(library, track));
        const link::FromDevice answer = host.receive();
        ASSERT_TRUE(answer.asset_result().success() && !answer.asset_result().has_failure())
            << answer.ShortDebugString();
    }
    ASSERT_TRUE(host.end().has_ended());
}

}  // namespace orlith::testing
