// Purpose: the tracks that match a predicate, in the order of some of their properties.
// Calling thread: any.
// Failure: a database error is logged and the enumeration has no tracks.
#pragma once

#include <memory>
#include <vector>

#include "platform/media_library.h"

namespace korvane {

class Library;

class TrackQuery final : public KV3TrackQuery {
public:
    TrackQuery(std::shared_ptr<Library> library, KV3Predicate predicate,
               std::vector<KV3OrderingTerm> orderingTerms)
        : _library(std::move(library)),
          _predicate(std::move(predicate)),
          _orderingTerms(std::move(orderingTerms)) {}

    // All values are those of one moment. Ties keep the order in which the tracks came to the
    // library. Without an order, and outside of transactions, rows are read while the block runs,
    // so that memory does not grow with their number; a database error then ends the enumeration.
    void enumeratePersistentIDsAndProperties(
        std::span<const KV3TrackProperty> properties,
        const std::function<void(std::int64_t persistentID, KV3TrackRow values)>& block) override;
    bool deleteAllEntitiesFromLibrary() override;

private:
    const std::shared_ptr<Library> _library;
    const KV3Predicate _predicate;
    const std::vector<KV3OrderingTerm> _orderingTerms;
};

}  // namespace korvane
