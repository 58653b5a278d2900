#include "host/plan/folder_digest.h"

#include <algorithm>
#include <map>
#include <span>
#include <string_view>
#include <utility>

#include "host/plan/track_record.h"
#include "host/scan/media_record.h"

namespace host {

namespace {

// Raised whenever records are made otherwise than before, so that they are compared again.
constexpr std::uint64_t DigestVersion = 2;

class Digest {
public:
    void add(std::string_view text) {
        add(text.size());
        _hasher.update(std::span(reinterpret_cast<const std::uint8_t*>(text.data()), text.size()));
    }

    void add(std::uint64_t number) {
        _hasher.update(std::span(reinterpret_cast<const std::uint8_t*>(&number), sizeof number));
    }

    void add(const ContentHash& hash) { _hasher.update(hash); }

    void add(const FileStamp& stamp) {
        add(stamp.path);
        add(static_cast<std::uint64_t>(stamp.size));
        add(static_cast<std::uint64_t>(stamp.modifiedNanoseconds));
    }

    ContentHash value() const { return _hasher.digest(); }

private:
    common::XXH3Stream _hasher;
};

// Files stand in the order in which they were found or loaded; the number must not depend on it.
std::vector<std::pair<std::int64_t, std::size_t>> inOrder(
    const std::unordered_map<std::int64_t, std::size_t>& bySyncId) {
    std::vector<std::pair<std::int64_t, std::size_t>> order(bySyncId.begin(), bySyncId.end());
    std::ranges::sort(order);
    return order;
}

}  // namespace

ContentHash folderDigest(const FolderState& state, const std::vector<FileStamp>& playlists,
                         const std::vector<FileStamp>& images, bool withRecommendations) {
    Digest digest;
    digest.add(DigestVersion);
    digest.add(withRecommendations ? 1u : 0u);
    for (const auto& [syncId, place] : inOrder(state.bySyncId)) {
        const KnownFile& file = state.files[place];
        digest.add(static_cast<std::uint64_t>(file.syncId));
        digest.add(static_cast<std::uint64_t>(file.presence));
        digest.add(file.removedByOwner ? 1u : 0u);
        if (!file.owner.empty())
            digest.add(ownerFingerprint(file.owner));
        if (file.presence == Presence::Present)
            digest.add(encodeMediaFile(file.media));
    }
    std::map<std::int64_t, const KnownPlaylist*> playlistsInOrder;
    for (const KnownPlaylist& playlist : state.playlists)
        playlistsInOrder.emplace(playlist.syncId, &playlist);
    for (const auto& [syncId, known] : playlistsInOrder) {
        const KnownPlaylist& playlist = *known;
        digest.add(static_cast<std::uint64_t>(playlist.syncId));
        digest.add(playlist.removedByOwner ? 1u : 0u);
        if (playlist.path.empty())
            digest.add(playlistFingerprint(playlist));
    }
    for (const FileStamp& stamp : playlists)
        digest.add(stamp);
    for (const FileStamp& stamp : images)
        digest.add(stamp);
    return digest.value();
}

}  // namespace host
