#include <stdexcept>

#include "SyncBundle/KVSyncClient.h"
#include "SyncBundle/change_sync/sync_params.h"
#include "SyncBundle/log.h"
#include "platform/platform.h"

namespace {

constexpr std::string_view operation =
    "applyChangesForSyncType:endpointType:fromStream:withSyncParams:withProgressHandler:"
    "withCompletionHandler:";

// Counts and lengths of a change stream are cut to 32 bits.
std::uint32_t lowBits(std::uint64_t number) {
    return static_cast<std::uint32_t>(number);
}

std::uint32_t numberForKey(const platform::Dictionary& params, std::string_view key) {
    return lowBits(KVSyncParam(params, key).unsignedValue());
}

// A stream's two sections; absent without bytes of that kind.
struct Sections {
    std::optional<platform::Data> trackData;
    std::optional<platform::Data> playlistData;
};

// Throws std::out_of_range when the data ends before the playlists do.
Sections splitSections(platform::Data data, std::uint32_t playlistLength) {
    const std::uint32_t length = lowBits(data.size());
    if (playlistLength == length)
        return {std::nullopt, std::move(data)};
    if (playlistLength == 0)
        return {std::move(data), std::nullopt};
    if (playlistLength > data.size())
        throw std::out_of_range("the playlist section ends beyond the change stream");
    const auto playlistsEnd = data.begin() + static_cast<std::ptrdiff_t>(playlistLength);
    platform::Data playlistData(data.begin(), playlistsEnd);
    // The tracks stay in their buffer, so that most of the bytes are never there twice. Their
    // length is cut to 32 bits too.
    data.erase(data.begin(), playlistsEnd);
    data.resize(length - playlistLength);
    return {std::move(data), std::move(playlistData)};
}

std::size_t sizeOf(const std::optional<platform::Data>& data) {
    return data ? data->size() : 0;
}

}  // namespace

// What an import carries from its call to its end.
struct KVSyncClient::ChangeImport {
    std::uint32_t playlistLength = 0;
    platform::Value playlistSyncSettings;
    ApplyHandler completionHandler;
    Sections sections;  // empty until the stream has been read
};

void KVSyncClient::applyChangesForSyncType(std::uint32_t, std::uint32_t,
                                           std::shared_ptr<platform::InputStream> stream,
                                           const platform::Dictionary& syncParams,
                                           const ProgressHandler& progressHandler,
                                           const ApplyHandler& completionHandler) {
    KVLog(Warning, operation, "writing incoming sync changes from stream %@. params=%@", stream,
          syncParams);
    progressHandler(0, numberForKey(syncParams, KVSyncParamSyncItemCount));

    const auto import = std::make_shared<ChangeImport>();
    import->playlistLength = numberForKey(syncParams, KVSyncParamPlaylistDataLen);
    import->playlistSyncSettings = KVSyncParam(syncParams, KVSyncParamPlaylistSyncSettings);
    import->completionHandler = completionHandler;
    if (!stream) {
        finishImport(*import, std::nullopt);
        return;
    }
    const std::shared_ptr<ORStreamReader> reader =
        ORStreamReader::initWithInputStream(std::move(stream), nullptr);
    _streams.add(reader);
    reader->readAllDataWithCompletion(
        [client = shared_from_this(), key = reader.get(), import](
            platform::Data data, const platform::OptionalError& error) {
            const GuardedStreams::Removal removal(client->_streams, key);
            client->importReadData(import, std::move(data), error);
        });
}

void KVSyncClient::importReadData(const std::shared_ptr<ChangeImport>& import, platform::Data data,
                                  const platform::OptionalError& error) {
    if (error) {
        KVLog(Warning, operation, "failed to read incoming sync data. err=%@", error);
        import->completionHandler(error, _library->currentRevision());
        return;
    }
    const std::uint32_t length = lowBits(data.size());
    KVLog(Info, operation, "read %u bytes of incoming sync data, playlistDataLen=%u", length,
          import->playlistLength);
    if (length == 0) {
        KVLog(Info, operation, "no data to import");
        finishImport(*import, std::nullopt);
        return;
    }
    import->sections = splitSections(std::move(data), import->playlistLength);
    KVLog(Info, operation, "read %lu bytes of track data. %lu bytes of playlist data",
          sizeOf(import->sections.trackData), sizeOf(import->sections.playlistData));
    importSections(import);
}

void KVSyncClient::importSections(const std::shared_ptr<ChangeImport>& import) {
    const auto importCompleted = [client = shared_from_this(), import](
                                     bool success, const platform::OptionalError& error) {
        KVLog(Info, operation, "sync import complete. success=%d, err=%@", success, error);
        client->finishImport(*import, error);
        client->_library->notifyContentsDidChange();
    };
    const auto job = [import, importCompleted] {
        KVMediaLibraryService::sharedMediaLibraryService().performImportFromSource(
            KV3SourceSync, KV3Korvane::sharedLibraryDatabasePath(),
            std::move(import->sections.trackData), std::move(import->sections.playlistData), {},
            importCompleted);
    };
    const std::shared_ptr<platform::WorkQueue> queue =
        platform::Platform::current().operatingSystem().globalQueue(
            platform::QueuePriority::Background);
    queue->async([job, importCompleted] {
        // A queue's job must not throw: what keeps the import from starting is its failure.
        try {
            job();
        } catch (const std::exception& exception) {
            importCompleted(false, platform::Error(platform::ORErrorDomain, 0, exception.what()));
        }
    });
}

// Reports the library's revision as it is now.
void KVSyncClient::finishImport(const ChangeImport& import, const platform::OptionalError& error) {
    _applyPlaylistSyncSettingsParams(import.playlistSyncSettings);
    import.completionHandler(error, _library->currentRevision());
}
