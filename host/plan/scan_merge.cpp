#include "host/plan/scan_merge.h"

#include <map>
#include <string_view>
#include <tuple>
#include <unordered_map>

namespace host {

namespace {

bool isBelow(std::string_view path, std::string_view folderWithSlash) {
    return path.starts_with(folderWithSlash);
}

class Merge {
public:
    Merge(const ScanResult& scan, FolderState& state, IdentitySource& ids,
          const ScanMergeInput& input)
        : _scan(scan), _state(state), _ids(ids), _input(input) {}

    ScanMergeResult run() {
        for (KnownFile& file : _state.files)
            file.presence = Presence::Missing;
        std::vector<const MediaFile*> strangers;
        for (const MediaFile& file : _scan.files)
            if (!isOwnUpload(file.stamp.path) && !takeKnown(file))
                strangers.push_back(&file);
        hideWhatCannotBeSeen();
        if (!strangers.empty()) {
            indexMissing();
            for (const MediaFile* file : strangers)
                takeStranger(*file);
        }
        for (const KnownFile& file : _state.files)
            if (file.presence == Presence::Missing)
                ++_result.missing;
        return _result;
    }

private:
    using InodeKey = std::tuple<std::uint64_t, std::int64_t, std::int64_t>;

    static InodeKey inodeKey(const FileStamp& stamp) {
        return {stamp.inode, stamp.size, stamp.modifiedNanoseconds};
    }

    static bool isOwnUpload(std::string_view path) {
        return path.starts_with(UploadFolderName) && path.size() > UploadFolderName.size() &&
               path[UploadFolderName.size()] == '/';
    }

    bool takeKnown(const MediaFile& found) {
        KnownFile* known = _state.fileAt(found.stamp.path);
        if (known == nullptr)
            return false;
        if (found.readable())
            update(*known, found);
        else
            known->presence = Presence::Unreadable;
        return true;
    }

    // The file at the identity's path, or the identity's file at a path that it has just taken.
    void update(KnownFile& known, const MediaFile& found) {
        known.presence = Presence::Present;
        known.knownFromDeviceOnly = false;
        if (known.media == found)
            return;
        const FileStamp& before = known.media.stamp;
        const bool sameBytes = before.size == found.stamp.size &&
                               before.modifiedNanoseconds == found.stamp.modifiedNanoseconds;
        if (!sameBytes && known.contentHash)
            known.contentHash = _input.hashFile(found.stamp);
        ++_result.changed;
        known.media = found;
        known.changed = true;
    }

    void hideWhatCannotBeSeen() {
        for (const SkippedPath& skipped : _scan.skipped)
            for (KnownFile& file : _state.files)
                if (file.presence == Presence::Missing &&
                    (skipped.path.ends_with('/') ? isBelow(file.media.stamp.path, skipped.path)
                                                 : file.media.stamp.path == skipped.path))
                    file.presence = Presence::Hidden;
    }

    void indexMissing() {
        for (std::size_t i = 0; i < _state.files.size(); ++i) {
            const KnownFile& file = _state.files[i];
            if (file.presence != Presence::Missing)
                continue;
            if (file.media.stamp.inode != 0)
                _missingByInode.emplace(inodeKey(file.media.stamp), i);
            if (file.contentHash)
                _missingBySize.emplace(file.media.stamp.size, i);
        }
    }

    void takeStranger(const MediaFile& found) {
        std::optional<ContentHash> hash;
        if (KnownFile* moved = movedFile(found.stamp, hash)) {
            ++_result.moved;
            _state.move(*moved, found.stamp.path);
            moved->changed = true;
            if (!found.readable()) {
                moved->presence = Presence::Unreadable;
                return;
            }
            moved->media = found;
            moved->presence = Presence::Present;
            return;
        }
        if (!found.readable())
            return;
        ++_result.added;
        KnownFile file;
        file.syncId = _ids.next();
        file.globalId = _ids.next();
        file.dateAdded = _input.now;
        file.contentHash = hash;
        file.media = found;
        file.presence = Presence::Present;
        file.changed = true;
        _state.add(std::move(file));
    }

    // A missing file that lies here now: the same inode untouched, or the same bytes.
    KnownFile* movedFile(const FileStamp& stamp, std::optional<ContentHash>& hash) {
        const auto sameInode = _missingByInode.find(inodeKey(stamp));
        if (stamp.inode != 0 && sameInode != _missingByInode.end() &&
            stillMissing(sameInode->second))
            return &_state.files[sameInode->second];
        const auto [begin, end] = _missingBySize.equal_range(stamp.size);
        for (auto candidate = begin; candidate != end; ++candidate) {
            if (!stillMissing(candidate->second))
                continue;
            if (!hash)
                hash = _input.hashFile(stamp);
            if (hash && _state.files[candidate->second].contentHash == hash)
                return &_state.files[candidate->second];
        }
        return nullptr;
    }

    bool stillMissing(std::size_t position) const {
        return _state.files[position].presence == Presence::Missing;
    }

    const ScanResult& _scan;
    FolderState& _state;
    IdentitySource& _ids;
    const ScanMergeInput& _input;
    ScanMergeResult _result;
    std::map<InodeKey, std::size_t> _missingByInode;
    std::multimap<std::int64_t, std::size_t> _missingBySize;
};

}  // namespace

ScanMergeResult mergeScan(const ScanResult& scan, FolderState& state, IdentitySource& ids,
                          const ScanMergeInput& input) {
    return Merge(scan, state, ids, input).run();
}

}  // namespace host
