// The change-sync operations of a plug-in's client, as calls that return when they are over.
//
// Any thread; those of one client run one at a time, whoever asks. Exceptions of the plug-in are
// caught here, whichever thread they come on, and become the operation's error.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <string>

#include "device/orlith/mirror/change_streams.h"
#include "platform/operating_system.h"
#include "platform/sync_daemon.h"

namespace orlith {

// The endpoint type of another device of the same owner.
inline constexpr std::uint32_t PeerEndpoint = 1;
// An ordinary exchange; ORSyncReset leaves out deletions.
inline constexpr std::uint32_t SyncChanges = 1;

inline constexpr std::string_view PlaylistLengthKey = "PlaylistDataLen";
inline constexpr std::string_view ItemCountKey = "SyncItemCount";
inline constexpr std::string_view SupportedMediaTypesKey = "SupportedMediaTypes";

struct ChangeRange {
    std::uint32_t syncType = SyncChanges;
    std::uint32_t endpointType = PeerEndpoint;
    std::int64_t after = 0;
    std::int64_t upTo = 0;  // bounds the tracks
};

struct ExportedChanges {
    platform::OptionalError error;
    std::uint64_t size = 0;
    common::Hash128 hash{};
};

struct ImportedChanges {
    platform::OptionalError error;
    std::int64_t revision = 0;
};

class ChangeOperations {
public:
    using ParamsSink = std::function<void(const platform::Dictionary&)>;

    // Both outlive this.
    ChangeOperations(ORSyncClient& client, platform::FileSystem& files)
        : _client(client), _files(files) {}

    std::string dataClass();
    std::int64_t revision();
    // What names the library whose revisions are meant.
    std::string versionToken();

    // The parameters go out before the first piece; pieces come in order, on one thread at a time.
    // A sink that says false ends the export.
    ExportedChanges exportChanges(const ChangeRange& range, const platform::Dictionary& syncParams,
                                  ParamsSink params, PieceOutputStream::Sink pieces);
    // From a file that holds a whole change stream (absolute device path).
    ImportedChanges importChanges(std::uint32_t syncType, const std::string& path,
                                  const platform::Dictionary& params);
    platform::OptionalError reset();
    void sessionCompleted(const platform::OptionalError& error, bool allAssetsTransferred);

private:
    ORSyncClient& _client;
    platform::FileSystem& _files;
    std::mutex _oneAtATime;
};

}  // namespace orlith
