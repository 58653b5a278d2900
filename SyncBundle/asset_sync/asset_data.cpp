#include <exception>
#include <utility>

#include "SyncBundle/KVSyncClient.h"
#include "SyncBundle/asset_sync/sync_asset_request.h"
#include "SyncBundle/log.h"
#include "SyncBundle/media_paths.h"
#include "SyncBundle/transfer_records.h"
#include "platform/platform.h"

namespace {

using DataHandler = ORAssetClient::DataHandler;

constexpr std::string_view dataOperation = "getDataForAsset:withCompletion:";
constexpr std::string_view trackOperation = "getDataForTrackAsset:withCompletion:";
constexpr std::string_view artworkOperation = "getDataForArtworkAsset:withCompletion:";

// Bytes; beyond every picture that the artwork service makes.
constexpr std::uint64_t largestResizedPicture = 64 << 20;

platform::OperatingSystem& operatingSystem() {
    return platform::Platform::current().operatingSystem();
}

// Hands on the first answer only. Used by one thread at a time.
DataHandler answeringOnce(DataHandler completion) {
    const auto pending = std::make_shared<DataHandler>(std::move(completion));
    return [pending](const platform::OptionalError& error,
                     std::unique_ptr<platform::InputStream> stream,
                     const std::optional<std::string>& fileName) {
        if (const DataHandler handler = std::exchange(*pending, nullptr))
            handler(error, std::move(stream), fileName);
    };
}

void refuse(const DataHandler& completion) {
    completion(KVAssetUnavailableError(), nullptr, std::nullopt);
}

// Does the work of a queue's or a service's job, which must not throw: an asset whose data cannot
// be looked up cannot be served.
void serve(const std::shared_ptr<ORAsset>& asset, const DataHandler& completion,
           const std::function<void()>& work) {
    try {
        try {
            work();
        } catch (const std::exception& failure) {
            KVLog(Error, dataOperation, "could not provide data of asset %@: %s", asset,
                  failure.what());
            refuse(completion);
        }
    } catch (const std::exception& failure) {
        // Only the host's own handler is left to have thrown.
        KVLog(Error, dataOperation, "could not answer for asset %@: %s", asset, failure.what());
    }
}

// `name` is a path of which the last component is told.
void answer(const DataHandler& completion, std::unique_ptr<platform::InputStream> stream,
            const std::string& name) {
    if (stream)
        completion(std::nullopt, std::move(stream), KVLastPathComponent(name));
    else
        refuse(completion);
}

void answerWithFile(const DataHandler& completion, const std::string& path) {
    answer(completion, operatingSystem().fileSystem().openInputStream(path), path);
}

std::shared_ptr<KV3Track> trackOfAsset(const ORAsset& asset,
                                       const std::shared_ptr<KV3Korvane>& library) {
    return KV3Track::newWithPersistentID(KVPersistentIDFromString(asset.identifier()), library);
}

// The path of the track's media file; absent without one on disk.
std::optional<std::string> mediaFileOnDisk(KV3Track& track) {
    std::optional<std::string> path = track.absoluteFilePath();
    if (path && !operatingSystem().fileSystem().fileExists(*path))
        path.reset();
    return path;
}

// Answers for a track that was waited for. A file that is named but missing gets no answer: the
// host counts the request as failed when its time is over.
void answerAfterDownload(const ORAsset& asset, const std::shared_ptr<KV3Korvane>& library,
                         const DataHandler& completion) {
    const std::shared_ptr<KV3Track> track = trackOfAsset(asset, library);
    const platform::Value fileName = track->valueForProperty(KV3TrackPropertyLocationFileName);
    if (!fileName.string() || fileName.string()->empty())
        refuse(completion);
    else if (const auto path = mediaFileOnDisk(*track))
        answerWithFile(completion, *path);
}

struct Size {
    double width = 0;  // pixels, whole
    double height = 0;
};

// Absent unless two numbers are given.
std::optional<Size> wantedSize(const ORAsset& asset) {
    const platform::Value options = asset.variantOptions();
    const platform::Array* dimensions = options[KVVariantOptionDimensions].array();
    if (!dimensions || dimensions->size() != 2)
        return std::nullopt;
    return Size{static_cast<double>(static_cast<std::int32_t>((*dimensions)[0].int64Value())),
                static_cast<double>(static_cast<std::int32_t>((*dimensions)[1].int64Value()))};
}

// Answers with the resized copy under the name of its source.
void answerWithResizedPicture(const DataHandler& completion, const std::string& resized,
                              const std::string& source) {
    platform::FileSystem& files = operatingSystem().fileSystem();
    auto bytes = files.readFile(resized, largestResizedPicture, nullptr);
    answer(completion, bytes ? files.makeInputStream(std::move(*bytes)) : nullptr, source);
}

// The copy goes through a file that is named after the number alone: an identifier that holds more
// is no name for a file.
void answerResized(const std::shared_ptr<ORAsset>& asset, const std::string& source, Size size,
                   const DataHandler& completion) {
    const std::string resized = KVPathByAppendingComponent(
        KVStageholdTemporaryDirectory,
        KVStringFromPersistentID(KVPersistentIDFromString(asset->identifier())));
    PXVArtworkServiceResizeRequest request(source);
    request.addDestinationWithSize(size.width, size.height, resized);
    PXVArtworkService::sharedService().sendRequest(
        request, [asset, source, resized, completion](const platform::OptionalError& error) {
            if (error) {
                KVLog(Warning, artworkOperation, "failed to resize image. error=%@", error);
                serve(asset, completion, [&] { completion(error, nullptr, std::nullopt); });
                return;
            }
            serve(asset, completion,
                  [&] { answerWithResizedPicture(completion, resized, source); });
            operatingSystem().fileSystem().removeItem(resized);
        });
}

}  // namespace

void KVSyncClient::getDataForAsset(std::shared_ptr<ORAsset> asset, DataHandler completion) {
    _queue->async([client = shared_from_this(), asset = std::move(asset),
                   completion = answeringOnce(std::move(completion))] {
        serve(asset, completion, [&] { client->provideData(asset, completion); });
    });
}

// Any other value of the parts gets no answer.
void KVSyncClient::provideData(const std::shared_ptr<ORAsset>& asset,
                               const DataHandler& completion) {
    if (!trackOfAsset(*asset, _library)->existsInLibrary()) {
        KVLog(Warning, dataOperation, "no track for asset %@", asset);
        refuse(completion);
        return;
    }
    switch (KVAssetParts(*asset)) {
        case KVAssetPartFile:
            getDataForTrackAsset(asset, completion);
            break;
        case KVAssetPartArtwork:
            getDataForArtworkAsset(asset, completion);
            break;
        case KVAssetPartKenning:
            getDataForKenningAsset(asset, completion);
            break;
        default:
            break;
    }
}

void KVSyncClient::getDataForTrackAsset(const std::shared_ptr<ORAsset>& asset,
                                        const DataHandler& completion) {
    if (const auto path = mediaFileOnDisk(*trackOfAsset(*asset, _library))) {
        answerWithFile(completion, *path);
        return;
    }
    const std::string identifier = asset->identifier();
    if (!_existingOutstandingAssetTransfersWithDownloadManager(_downloadManager.get())
             .contains(identifier)) {
        KVLog(Warning, trackOperation, "no file for track asset %@", asset);
        refuse(completion);
        return;
    }
    const auto request = std::make_shared<KVSyncAssetRequest>();
    request->asset = asset;
    request->timestamp = operatingSystem().absoluteTime();
    // Holds the library and not the client, which holds the request.
    request->completion = [library = _library, completion](KVSyncAssetRequest& finished,
                                                           const platform::OptionalError& error) {
        KVLog(Warning, trackOperation, "finished downloading data for asset %@. error=%@",
              finished.asset, error);
        serve(finished.asset, completion, [&] {
            if (error)
                completion(error, nullptr, std::nullopt);
            else
                answerAfterDownload(*finished.asset, library, completion);
        });
    };
    KVLog(Warning, trackOperation, "waiting for download manager to fetch track for asset %@",
          asset);
    _requestsByIdentifier[identifier] = request;
    _adjustRequestQueue();
}

void KVSyncClient::getDataForArtworkAsset(const std::shared_ptr<ORAsset>& asset,
                                          const DataHandler& completion) {
    const std::optional<KV3Artwork> artwork =
        _library->fetchItemArtworkForPersistentID(KVPersistentIDFromString(asset->identifier()));
    if (!artwork || !operatingSystem().fileSystem().fileExists(artwork->originalFileURL)) {
        KVLog(Warning, artworkOperation, "no file for artwork asset %@", asset);
        refuse(completion);
        return;
    }
    if (const auto size = wantedSize(*asset))
        answerResized(asset, artwork->originalFileURL, *size, completion);
    else
        answerWithFile(completion, artwork->originalFileURL);
}

void KVSyncClient::getDataForKenningAsset(const std::shared_ptr<ORAsset>&,
                                          const DataHandler& completion) {
    refuse(completion);
}
