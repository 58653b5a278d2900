#include "host/plan/track_record.h"

#include "common/qorx/qorx.pb.h"
#include "host/scan/content_hash.h"
#include "host/scan/file_names.h"

namespace host {

namespace {

std::uint32_t unsignedNumber(std::int64_t value) {
    return value > 0 ? static_cast<std::uint32_t>(value) : 0;
}

void fillTags(const Tags& tags, qorx::Track& record) {
    const auto copy = [](qorx::Track& track, const std::string& text,
                         std::string* (qorx::Track::*field)()) {
        if (!text.empty())
            *(track.*field)() = text;
    };
    copy(record, tags.title, &qorx::Track::mutable_title);
    copy(record, tags.artist, &qorx::Track::mutable_artist);
    copy(record, tags.album, &qorx::Track::mutable_album);
    copy(record, tags.albumArtist, &qorx::Track::mutable_album_artist);
    copy(record, tags.composer, &qorx::Track::mutable_composer);
    copy(record, tags.genre, &qorx::Track::mutable_genre);
    copy(record, tags.comment, &qorx::Track::mutable_comment);
    copy(record, tags.grouping, &qorx::Track::mutable_grouping);
    copy(record, tags.description, &qorx::Track::mutable_description);
    copy(record, tags.sortTitle, &qorx::Track::mutable_sort_title);
    copy(record, tags.sortArtist, &qorx::Track::mutable_sort_artist);
    copy(record, tags.sortAlbum, &qorx::Track::mutable_sort_album);
    copy(record, tags.sortAlbumArtist, &qorx::Track::mutable_sort_album_artist);
    copy(record, tags.show, &qorx::Track::mutable_show);
    copy(record, tags.episodeId, &qorx::Track::mutable_episode_id);
    if (!tags.podcastGuid.empty())
        record.mutable_store()->set_podcast_guid(tags.podcastGuid);
    record.set_year(unsignedNumber(tags.year));
    record.set_disc_number(unsignedNumber(tags.discNumber));
    record.set_disc_count(unsignedNumber(tags.discCount));
    record.set_track_number(unsignedNumber(tags.trackNumber));
    record.set_track_count(unsignedNumber(tags.trackCount));
    record.set_season_number(unsignedNumber(tags.season));
    record.set_episode_number(unsignedNumber(tags.episode));
    record.set_bpm(unsignedNumber(tags.beatsPerMinute));
    record.set_compilation(tags.compilation);
    record.set_release_date(tags.releaseDate.value_or(0));
}

// What the folder alone decides; without the content hash, which is not always known.
void fillMetadata(const KnownFile& file, const TrackMaterial& material, qorx::Track& record) {
    const MediaFile& media = file.media;
    record.set_sync_id(file.syncId);
    record.set_global_id(file.globalId);
    record.set_media_type(media.mediaType);
    fillTags(media.tags, record);
    record.set_total_time_ms(static_cast<std::uint64_t>(media.durationMilliseconds));
    record.set_total_size(static_cast<std::uint64_t>(media.stamp.size));
    record.set_bit_rate(unsignedNumber(media.bitRate));
    record.set_sample_rate(unsignedNumber(media.sampleRate));
    record.set_file_extension(extensionOfPath(media.stamp.path));
    record.set_host_path(media.stamp.path);
    record.set_date_added(file.dateAdded);
    record.set_is_rental(media.isRental);
    if (!material.artworkToken.empty())
        record.set_artwork_token(material.artworkToken);
    if (!material.chapterData.empty())
        record.set_chapter_data(material.chapterData);
}

void fillRecommendation(const KnownFile& file, const TrackMaterial& material, qorx::Track& record) {
    if (material.kenningChecksum) {
        record.set_kenning_id(file.globalId);
        record.set_kenning_checksum(*material.kenningChecksum);
    }
}

void fillOwnerData(const OwnerData& owner, qorx::Track& record) {
    if (const auto& rating = owner.rating) {
        record.mutable_rating()->set_value(rating->value);
        record.mutable_rating()->set_changed_ms(rating->changedMilliseconds);
    }
    if (const auto& bookmark = owner.bookmark) {
        record.mutable_bookmark()->set_position_ms(bookmark->positionMilliseconds);
        record.mutable_bookmark()->set_changed_ms(bookmark->changedMilliseconds);
    }
    for (const auto& [origin, plays] : owner.plays) {
        qorx::PlayStatistics& statistics = *record.add_plays();
        statistics.set_origin_uid(origin);
        statistics.set_play_count(plays.plays);
        statistics.set_skip_count(plays.skips);
        statistics.set_last_played_ms(plays.lastPlayedMilliseconds);
        statistics.set_last_skipped_ms(plays.lastSkippedMilliseconds);
    }
}

}  // namespace

void fillTrackRecord(const KnownFile& file, const TrackMaterial& material, qorx::Track& record) {
    fillMetadata(file, material, record);
    if (file.contentHash)
        record.set_content_hash(bytesOfContentHash(*file.contentHash));
    fillRecommendation(file, material, record);
    fillOwnerData(file.owner, record);
}

ContentHash ownerFingerprint(const OwnerData& owner) {
    qorx::Track record;
    fillOwnerData(owner, record);
    return contentHashOfText(record.SerializeAsString());
}

TrackFingerprints trackFingerprints(const KnownFile& file, const TrackMaterial& material) {
    qorx::Track metadata;
    fillMetadata(file, material, metadata);
    qorx::Track recommendation;
    fillRecommendation(file, material, recommendation);
    return {contentHashOfText(metadata.SerializeAsString()),
            contentHashOfText(recommendation.SerializeAsString()), ownerFingerprint(file.owner)};
}

void fillPlaylistRecord(const KnownPlaylist& playlist, const FolderState& state,
                        qorx::Playlist& record) {
    record.set_sync_id(playlist.syncId);
    record.set_global_id(playlist.globalId);
    record.set_name(playlist.name);
    record.set_changed_ms(playlist.changedMilliseconds);
    for (const std::int64_t syncId : playlist.items) {
        qorx::Playlist::Item& item = *record.add_items();
        item.set_sync_id(syncId);
        if (const KnownFile* file = state.fileWithSyncId(syncId))
            item.set_global_id(file->globalId);
    }
}

ContentHash playlistFingerprint(const KnownPlaylist& playlist) {
    qorx::Playlist record;
    record.set_name(playlist.name);
    for (const std::int64_t syncId : playlist.items)
        record.add_items()->set_sync_id(syncId);
    return contentHashOfText(record.SerializeAsString());
}

}  // namespace host
