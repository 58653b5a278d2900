// Purpose: the rows of the table artwork: which originals lie on disk.
// Calling thread: that of the connection, inside its write transaction.
// Failure: SqliteError.
#pragma once

#include <cstdint>
#include <string>

namespace common {
class Database;
}

namespace korvane {

inline constexpr std::int64_t ArtworkTypeCover = 1;
inline constexpr std::int64_t ArtworkTypeChapter = 3;
inline constexpr std::int64_t ArtworkSourceHost = 2;
// Beside the host's and 1 (a companion), which importers name.
inline constexpr std::int64_t ArtworkSourceSnapshot = 3;

struct OriginalArtwork {
    std::string token;
    std::int64_t artworkType = ArtworkTypeCover;
    std::int64_t sourceType = 0;
    std::uint32_t mediaType = 0;
};

// Makes the row agree; writes nothing when it does already.
void recordArtwork(common::Database& database, const OriginalArtwork& artwork);

}  // namespace korvane
