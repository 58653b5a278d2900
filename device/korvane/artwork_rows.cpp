#include "device/korvane/artwork_rows.h"

#include "common/sqlite/database.h"
#include "device/korvane/artwork_store.h"

namespace korvane {

void recordArtwork(common::Database& database, const OriginalArtwork& artwork) {
    database.execute(
        "INSERT INTO artwork (artwork_token, relative_path, artwork_type, source_type, "
        "picture_media_type) VALUES (?1, ?2, ?3, ?4, ?5) ON CONFLICT (artwork_token) DO UPDATE SET "
        "relative_path = ?2, artwork_type = ?3, source_type = ?4, picture_media_type = ?5 WHERE "
        "relative_path <> ?2 OR artwork_type <> ?3 OR source_type <> ?4 OR picture_media_type <> "
        "?5",
        artwork.token, artworkRelativePath(artwork.token), artwork.artworkType, artwork.sourceType,
        std::int64_t{artwork.mediaType});
}

}  // namespace korvane
