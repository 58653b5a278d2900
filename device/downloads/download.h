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
// The library item was made for this download.
inline constexpr std::string_view PropertyIsNewItem = "isNewItem";
inline constexpr std::string_view PropertyTitle = "title";  // as asked for; absent: by its file
inline constexpr std::string_view PropertyIsTemporary = "isTemporary";
// What the source calls the file, made harmless; absent until it answered.
inline constexpr std::string_view PropertyFileName = "fileName";
// Which version of the source the staged bytes are of; absent when the source does not tell.
inline constexpr std::string_view PropertyValidator = "validator";
// Staged bytes that survive a power cut, and how many there are to be (absent: not known).
inline constexpr std::string_view PropertyBytes = "bytes";
inline constexpr std::string_view PropertyTotalBytes = "totalBytes";
// Every byte is staged; what remains is to install it.
inline constexpr std::string_view PropertyIsReceived = "isReceived";
// Why it failed, or why it waits to be tried again; plain words.
inline constexpr std::string_view PropertyError = "error";

struct DownloadRecord {
    std::int64_t persistentIdentifier = 0;
    std::string kind;   // a VDDownloadKind
    std::string phase;  // a VDDownloadPhase
    // The library's persistent id of the item, a decimal string.
    std::string libraryItemIdentifier;
    platform::Dictionary properties;  // all others; scalars

    // "" and 0 for what is absent.
    std::string text(std::string_view property) const;
    std::int64_t number(std::string_view property) const;
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
    std::string downloadPhaseIdentifier() const override { return _record.phase; }
    // As "<download 12: music, library item 5, waiting>".
    std::string description() const override;

private:
    const DownloadRecord _record;
};

}  // namespace downloads
