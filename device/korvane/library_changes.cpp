// Library's operations on what changed after a revision.
#include "device/korvane/export/change_list.h"
#include "device/korvane/library.h"

namespace korvane {

namespace {

// The last argument of a callback, which has no meaning here.
constexpr std::int64_t NoMeaning = 0;

void enumerate(Library& library, const char* operation, const ChangeQuery& query,
               const KV3Korvane::RevisionBlock& block) {
    std::deque<ListedChange> changes;
    library.read(operation, [&](common::Database& database) {
        changes = changesAfter(database, query);
        return true;
    });
    bool stop = false;
    for (auto change = changes.begin(); change != changes.end() && !stop; ++change)
        block(change->pid(), change->revision(), change->isDeletion() ? 1 : 0, NoMeaning, stop);
}

}  // namespace

std::uint64_t Library::countOfChangedPersistentIdsAfterRevision(std::int64_t revision,
                                                                std::int64_t revisionTrackingCode,
                                                                std::int64_t maximumRevisionType) {
    std::uint64_t count = 0;
    read("countOfChangedPersistentIdsAfterRevision:revisionTrackingCode:maximumRevisionType:",
         [&](common::Database& database) {
             count =
                 countOfChangesAfter(database, {revision, revisionTrackingCode, maximumRevisionType,
                                                std::nullopt, _exportTarget.peerUID()});
             return true;
         });
    return count;
}

void Library::enumeratePersistentIDsAfterRevision(std::int64_t revision,
                                                  std::int64_t revisionTrackingCode,
                                                  std::int64_t maximumRevisionType,
                                                  const RevisionBlock& block) {
    enumerate(*this,
              "enumeratePersistentIDsAfterRevision:revisionTrackingCode:maximumRevisionType:"
              "usingBlock:",
              {revision, revisionTrackingCode, maximumRevisionType, std::nullopt,
               _exportTarget.peerUID()},
              block);
}

void Library::enumeratePersistentIDsAfterRevisionForMediaTypes(std::int64_t revision,
                                                               std::int64_t revisionTrackingCode,
                                                               std::int64_t maximumRevisionType,
                                                               const platform::Value& mediaTypes,
                                                               const RevisionBlock& block) {
    enumerate(*this,
              "enumeratePersistentIDsAfterRevision:revisionTrackingCode:maximumRevisionType:"
              "forMediaTypes:usingBlock:",
              {revision, revisionTrackingCode, maximumRevisionType, mediaTypesOf(mediaTypes),
               _exportTarget.peerUID()},
              block);
}

}  // namespace korvane
