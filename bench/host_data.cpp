#include "bench/host_data.h"

#include <fmt/format.h>

#include <fstream>
#include <random>

#include "common/qorx/qorx.pb.h"
#include "common/qorx/writer.h"

namespace bench {
namespace {

constexpr std::int64_t TracksPerArtist = 40;

qorx::Track track(std::int64_t index, std::int64_t id) {
    const std::string artist = fmt::format("Artist {}", index / TracksPerArtist);
    const std::string album = fmt::format("Album {}", index / TracksPerAlbum);
    qorx::Track track;
    track.set_sync_id(id);
    track.set_global_id(id ^ 0x5555);
    track.set_media_type(8);
    track.set_title(fmt::format("Title of track {}", index));
    track.set_artist(artist);
    track.set_album(album);
    track.set_album_artist(artist);
    track.set_genre(fmt::format("Genre {}", index % 20));
    track.set_year(static_cast<std::uint32_t>(1960 + index % 60));
    track.set_track_number(static_cast<std::uint32_t>(index % TracksPerAlbum + 1));
    track.set_total_time_ms(200'000);
    track.set_total_size(FileSize);
    track.set_file_extension("mp3");
    track.set_content_hash(std::string(16, static_cast<char>(index)));
    track.set_host_path(fmt::format("{}/{}/{}.mp3", artist, album, index));
    track.set_artwork_token(artworkTokenOf(index / TracksPerAlbum));
    track.set_date_added(1'600'000'000 + index);
    return track;
}

}  // namespace

std::string artworkTokenOf(std::int64_t album) {
    return fmt::format("token-{}", album);
}

void writeHostData(const std::string& realPath, std::int64_t tracks) {
    std::ofstream file(realPath, std::ios::binary);
    common::QorxWriter writer([&](std::span<const std::uint8_t> bytes) -> platform::OptionalError {
        file.write(reinterpret_cast<const char*>(bytes.data()),
                   static_cast<std::streamsize>(bytes.size()));
        return std::nullopt;
    });
    qorx::Header header;
    header.set_purpose(qorx::Header::HOST_DATA);
    header.set_exporter_uid("bench");
    writer.begin(header);
    std::mt19937_64 random(1);
    for (std::int64_t index = 0; index < tracks; ++index)
        writer.write(track(index, static_cast<std::int64_t>(random() >> 1)));
    writer.end();
}

}  // namespace bench
