#include "device/korvane/track_properties.h"

#include <array>
#include <stdexcept>

namespace korvane {

namespace {

using enum ColumnType;

// In the order of the enumeration; checked below.
constexpr std::array<TrackColumn, KV3TrackPropertyCount_> Columns{{
    {KV3TrackPropertyPersistentID, Integer, 0, "i.item_pid", nullptr, nullptr},
    {KV3TrackPropertySyncID, Integer, JoinsStore, "s.sync_id", "item_store", "sync_id"},
    {KV3TrackPropertyGlobalID, NullableInteger, JoinsExtra, "e.kenning_id", "item_extra",
     "kenning_id"},
    {KV3TrackPropertyMediaType, Integer, 0, "i.media_type", "item", "media_type"},
    {KV3TrackPropertyTitle, NullableText, JoinsExtra, "e.title", "item_extra", "title"},
    {KV3TrackPropertyArtist, NullableText, JoinsItemArtist, "ar.name", nullptr, nullptr},
    {KV3TrackPropertyAlbum, NullableText, JoinsAlbum, "al.name", nullptr, nullptr},
    {KV3TrackPropertyAlbumArtist, NullableText, JoinsAlbumArtist, "aa.name", nullptr, nullptr},
    {KV3TrackPropertyAlbumArtistOrder, Integer, 0, "i.album_artist_order", nullptr, nullptr},
    {KV3TrackPropertyAlbumOrder, Integer, 0, "i.album_order", nullptr, nullptr},
    {KV3TrackPropertyDiscNumber, Integer, 0, "i.disc_number", "item", "disc_number"},
    {KV3TrackPropertyTrackNumber, Integer, 0, "i.track_number", "item", "track_number"},
    {KV3TrackPropertyTotalTime, Integer, JoinsExtra, "e.total_time_ms", "item_extra",
     "total_time_ms"},
    {KV3TrackPropertyTotalSize, Integer, JoinsExtra, "e.total_size", "item_extra", "total_size"},
    {KV3TrackPropertyIsRental, Integer, 0, "i.is_rental", "item", "is_rental"},
    {KV3TrackPropertyUserRating, Integer, JoinsStats, "st.user_rating", "item_stats",
     "user_rating"},
    {KV3TrackPropertyPlayCountUser, Integer, JoinsStats, "st.play_count", nullptr, nullptr},
    {KV3TrackPropertyBaseLocationID, Integer, 0, "i.base_location_id", "item", "base_location_id"},
    {KV3TrackPropertyFilePath, NullableText, JoinsExtra | JoinsBaseLocation,
     "CASE WHEN i.base_location_id <> 0 THEN '/var/mobile/Media/' || bl.path || '/' || "
     "e.location_file_name END",
     nullptr, nullptr},
    {KV3TrackPropertyLocationFileName, Text, JoinsExtra, "e.location_file_name", "item_extra",
     "location_file_name"},
    {KV3TrackPropertyNeedsRestore, Integer, 0, "i.needs_restore", "item", "needs_restore"},
    {KV3TrackPropertyDownloadIdentifier, NullableText, JoinsExtra, "e.download_identifier",
     "item_extra", "download_identifier"},
    {KV3TrackPropertySyncArtworkToken, Text, JoinsArtwork, "w.sync_artwork_token", "item_artwork",
     "sync_artwork_token"},
    {KV3TrackPropertyChapterData, Blob, JoinsExtra, "e.chapter_data", "item_extra", "chapter_data"},
    {KV3TrackPropertyKenningChecksum, NullableInteger, JoinsExtra | JoinsKenningMetadata,
     "km.checksum", nullptr, nullptr},
    {KV3TrackPropertyPendingKenningChecksum, NullableInteger, JoinsExtra,
     "e.pending_kenning_checksum", "item_extra", "pending_kenning_checksum"},
    {KV3TrackPropertyPodcastExternalGUID, NullableText, JoinsStore, "s.podcast_guid", "item_store",
     "podcast_guid"},
    {KV3TrackPropertyStoreAccountID, NullableInteger, JoinsStore, "s.account_id", "item_store",
     "account_id"},
    {KV3TrackPropertyStoreItemID, NullableInteger, JoinsStore, "s.store_item_id", "item_store",
     "store_item_id"},
    {KV3TrackPropertyStoreFlavor, NullableText, JoinsStore, "s.flavor", "item_store", "flavor"},
    {KV3TrackPropertyStoreMatchedStatus, NullableInteger, JoinsStore, "s.matched_status",
     "item_store", "matched_status"},
    {KV3TrackPropertyStoreRedownloadedStatus, NullableInteger, JoinsStore, "s.redownloaded_status",
     "item_store", "redownloaded_status"},
    {KV3TrackPropertyStoreVeskaID, NullableInteger, JoinsStore, "s.veska_id", "item_store",
     "veska_id"},
    {KV3TrackPropertyCloudArtworkToken, Text, JoinsArtwork, "w.cloud_artwork_token", "item_artwork",
     "cloud_artwork_token"},
    {KV3TrackPropertyStoreArtworkToken, Text, JoinsArtwork, "w.store_artwork_token", "item_artwork",
     "store_artwork_token"},
    {KV3TrackPropertyPurchaseHistoryArtworkToken, Text, JoinsArtwork,
     "w.purchase_history_artwork_token", "item_artwork", "purchase_history_artwork_token"},
    {KV3TrackPropertyMatchRedownloadParameters, NullableText, JoinsStore,
     "s.match_redownload_parameters", "item_store", "match_redownload_parameters"},
    {KV3TrackPropertyPurchaseHistoryID, Integer, JoinsStore, "s.purchase_history_id", "item_store",
     "purchase_history_id"},
    {KV3TrackPropertyPurchaseHistoryToken, Integer, JoinsStore, "s.purchase_history_token",
     "item_store", "purchase_history_token"},
    {KV3TrackPropertyPurchaseHistoryRedownloadParameters, NullableText, JoinsStore,
     "s.purchase_history_redownload_parameters", "item_store",
     "purchase_history_redownload_parameters"},
    {KV3TrackPropertyIsTemporaryCloudDownload, Integer, JoinsStore, "s.is_temporary_cloud_download",
     "item_store", "is_temporary_cloud_download"},
    {KV3TrackPropertyIsTesselU, Integer, 0, "((i.media_type & 4128) <> 0)", nullptr, nullptr},
}};

constexpr bool columnsAreInOrder() {
    for (std::size_t i = 0; i < Columns.size(); ++i)
        if (Columns[i].property != static_cast<KV3TrackProperty>(i))
            return false;
    return true;
}
static_assert(columnsAreInOrder());
// As IsTesselU has it.
static_assert((KV3MediaTypeTesselU | KV3MediaTypeTesselUVideo) == 4128);

}  // namespace

const TrackColumn& trackColumn(KV3TrackProperty property) {
    if (property >= KV3TrackPropertyCount_)
        throw std::out_of_range("no such track property");
    return Columns[property];
}

std::string trackTables(unsigned joins, bool scansTable) {
    // CROSS JOIN keeps the tables in this order; the rows of a track share item_id.
    const char* join = scansTable ? " CROSS JOIN " : " JOIN ";
    std::string tables = scansTable ? "item i NOT INDEXED" : "item i";
    const auto addRow = [&](unsigned bit, const char* table, const char* name) {
        if (joins & bit)
            tables.append(join)
                .append(table)
                .append(" ")
                .append(name)
                .append(" ON ")
                .append(name)
                .append(".item_id = i.item_id");
    };
    const auto addName = [&](unsigned bit, const char* text) {
        if (joins & bit)
            tables.append(text);
    };
    addRow(JoinsExtra, "item_extra", "e");
    addRow(JoinsStore, "item_store", "s");
    addRow(JoinsStats, "item_stats", "st");
    addRow(JoinsArtwork, "item_artwork", "w");
    addName(JoinsAlbum, " LEFT JOIN album al ON al.album_pid = i.album_pid");
    addName(JoinsAlbumArtist,
            " LEFT JOIN album_artist aa ON aa.album_artist_pid = i.album_artist_pid");
    addName(JoinsItemArtist, " LEFT JOIN item_artist ar ON ar.item_artist_pid = i.item_artist_pid");
    addName(JoinsBaseLocation,
            " LEFT JOIN base_location bl ON bl.base_location_id = i.base_location_id");
    addName(JoinsKenningMetadata, " LEFT JOIN kenning_metadata km ON km.kenning_id = e.kenning_id");
    return tables;
}

}  // namespace korvane
