// Files one received asset: everything that can fail is done before the plug-in hears of success,
// and what the library then holds is read back before anyone is told.
//
// One thread at a time. Exceptions of the plug-in and the services pass through; a file that no
// track has then is removed.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "device/orlith/incoming_file.h"
#include "device/orlith/library_access.h"
#include "device/orlith/staging_area.h"
#include "platform/media_library.h"
#include "platform/sync_daemon.h"

namespace orlith {

// What arrived of one asset.
struct ReceivedAsset {
    std::shared_ptr<ORAsset> asset;
    std::uint32_t parts = 0;                            // as listed
    std::unique_ptr<IncomingFile> file;                 // complete and checked; null when none came
    std::string fileExtension;                          // of the file, checked
    std::vector<std::unique_ptr<IncomingFile>> staged;  // pictures and Kenning data, in their place
    std::vector<std::uint64_t> chapterPictures;         // of those, by their chapters' milliseconds
    platform::OptionalError transferFailure;            // it did not arrive as it was sent
    platform::OptionalError installFailure;             // the device could not take it
    std::string complaint;                              // what was refused beside the file
};

struct FilingResult {
    platform::OptionalError failure;
    std::string complaint;  // "" when all parts are there
};

class AssetFiler {
public:
    AssetFiler(ORClient& client, MediaLibraryFramework& library, LibraryAccess& access,
               device::RootedFileSystem& files, StagingArea& staging);

    FilingResult file(ReceivedAsset& received);
    // The track of a sync id; one that does not exist when there is none.
    std::shared_ptr<KV3Track> trackOf(std::int64_t syncID);

private:
    FilingResult fail(ReceivedAsset& received);
    platform::OptionalError install(ReceivedAsset& received, std::string& relativePath);
    platform::OptionalError moveIntoPlace(IncomingFile& file, std::string& relativePath,
                                          const std::string& directory,
                                          const std::string& extension);
    platform::OptionalError readBackFile(const ReceivedAsset& received,
                                         const std::string& relativePath);
    std::string readBackPictureAndKenning(const ReceivedAsset& received);
    platform::OptionalError recordRestore(const ReceivedAsset& received);
    void emptyStaging(const ReceivedAsset& received);

    ORClient& _client;
    MediaLibraryFramework& _library;
    LibraryAccess& _access;
    device::RootedFileSystem& _files;
    StagingArea& _staging;
    const bool _syncCarriesRenames;
};

// The folder of a received file, relative to the media directory: by its sync id's remainder, or
// the podcasts' own.
std::string destinationDirectory(std::int64_t syncID, const std::string& assetType);

}  // namespace orlith
