// Purpose: tracks that the owner gets on this device, without a host: an entry at first, then with
//          its file. They carry the owner's claim, so no sync takes them away.
// Calling thread: any.
// Failure: an error of LibraryErrorDomain (or the database's) says in plain words what is wrong.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "platform/errors.h"

namespace korvane {

class Library;

struct Purchase {
    std::int64_t storeItem = 0;  // not 0
    std::int64_t storeAccount = 0;
    std::uint32_t mediaType = 0;  // KV3MediaType bits
    std::string title;
    std::string fileExtension;  // without dot, lower case
    bool isTemporary = false;   // a download from the cloud that is not meant to stay
    std::int64_t track = 0;     // of the library, that the file is for; 0: the store item's own
};

struct PurchasedTrack {
    std::int64_t persistentID = 0;
    bool isNew = false;    // the entry was made just now
    bool hasFile = false;  // on this device
};

// The track that is meant. The one of a store's item is made, without a file, when there is none.
std::optional<PurchasedTrack> findOrMakePurchase(Library& library, const Purchase& purchase,
                                                 platform::OptionalError& error);

// The file that has been put at an absolute device path below the media directory.
struct PurchasedFile {
    std::string path;
    // What the track is called when it had no better title than this guess: only an entry of the
    // owner's that never had a file takes it. "" leaves the title.
    std::string title;
    std::string fileExtension;
    // The address that it came from and the kind of download, remembered for as long as the track
    // is there; "" when there is none.
    std::string source{};
    std::string kind{};
};

// Records the file, and the owner's claim on the track.
platform::OptionalError recordPurchasedFile(Library& library, std::int64_t trackPID,
                                            const PurchasedFile& file);

// A purchase that a device restore has left without its file.
struct LostFile {
    std::int64_t track = 0;
    std::int64_t storeItem = 0;
    std::int64_t storeAccount = 0;
    bool isTemporary = false;
    std::string source;  // where the file came from
    std::string kind;    // of download
};

// Those whose address is known, in order of arrival. Empty, and logged, when the library cannot be
// read.
std::vector<LostFile> filesToFetchAgain(Library& library);

// Tracks that wait for the file that a restore has left behind, wherever it may come from.
std::uint64_t countOfLostFiles(Library& library);

// The file that a restore left behind will never come: the owner's claim on the track goes, and
// without another one the track does, without anybody being told. The track's title; absent for one
// that waits for no restore.
std::optional<std::string> giveUpRestore(Library& library, std::int64_t trackPID);

// Takes an entry that was made for a purchase out of the library, if it never got a file and
// nobody else has a claim on it. One that is gone is no error.
platform::OptionalError removeUnfinishedPurchase(Library& library, std::int64_t trackPID);

}  // namespace korvane
