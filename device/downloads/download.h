// One download: what is kept of it, and the unchanging picture of it that observers get.
#pragma once

#include <cstdint>
#include <string>

#include "platform/store_downloads.h"

namespace downloads {

// Properties beside those that the platform names.
inline constexpr std::string_view PropertyKind = "kind";
inline constexpr std::string_view PropertyStoreItemIdentifier = "storeItemIdentifier";
inline constexpr std::string_view PropertyStoreAccountIdentifier = "storeAccountIdentifier";
// Where the file comes from; a URL.
inline constexpr std::string_view PropertySource = "source";

struct DownloadRecord {
    std::int64_t persistentIdentifier = 0;
    std::string kind;   // a VDDownloadKind
    std::string phase;  // a VDDownloadPhase
    // The library's persistent id of the item, a decimal string.
    std::string libraryItemIdentifier;
    platform::Dictionary properties;  // all others; scalars
};

bool isKnownKind(std::string_view kind);
bool isKnownPhase(std::string_view phase);
// Downloading or installing.
bool isActivePhase(std::string_view phase);

// A download as it was at one moment. Immutable, so any thread may read it.
class Download final : public VDDownload {
public:
    explicit Download(DownloadRecord record) : _record(std::move(record)) {}

    platform::Value valueForProperty(std::string_view property) const override;
    std::int64_t persistentIdentifier() const override { return _record.persistentIdentifier; }

private:
    const DownloadRecord _record;
};

}  // namespace downloads
