#include "tests/support/track_predicates.h"

#include <algorithm>
#include <array>

namespace support {
namespace {

constexpr std::array<const char*, KV3TrackPropertyCount_> names{
    "PersistentID",
    "SyncID",
    "GlobalID",
    "MediaType",
    "Title",
    "Artist",
    "Album",
    "AlbumArtist",
    "AlbumArtistOrder",
    "AlbumOrder",
    "DiscNumber",
    "TrackNumber",
    "TotalTime",
    "TotalSize",
    "IsRental",
    "UserRating",
    "PlayCountUser",
    "BaseLocationID",
    "FilePath",
    "LocationFileName",
    "NeedsRestore",
    "DownloadIdentifier",
    "SyncArtworkToken",
    "ChapterData",
    "KenningChecksum",
    "PendingKenningChecksum",
    "PodcastExternalGUID",
    "StoreAccountID",
    "StoreItemID",
    "StoreFlavor",
    "StoreMatchedStatus",
    "StoreRedownloadedStatus",
    "StoreVeskaID",
    "CloudArtworkToken",
    "StoreArtworkToken",
    "PurchaseHistoryArtworkToken",
    "MatchRedownloadParameters",
    "PurchaseHistoryID",
    "PurchaseHistoryToken",
    "PurchaseHistoryRedownloadParameters",
    "IsTemporaryCloudDownload",
    "IsTesselU",
};
static_assert(KV3TrackPropertyIsTesselU == 41 && names.back() != nullptr);

std::string symbol(std::int32_t comparison) {
    switch (comparison) {
        case KV3ComparisonEqual:
            return "==";
        case KV3ComparisonNotEqual:
            return "!=";
        case KV3ComparisonGreater:
            return ">";
        case KV3ComparisonGreaterOrEqual:
            return ">=";
        case KV3ComparisonLess:
            return "<";
        case KV3ComparisonLessOrEqual:
            return "<=";
        case KV3ComparisonAnyBits:
            return "&";
        default:
            return "comparison " + std::to_string(comparison);
    }
}

bool compare(std::int32_t comparison, const platform::Value& left, const platform::Value& right) {
    if (left.isString() && right.isString())
        return (*left.string() == *right.string()) == (comparison == KV3ComparisonEqual);
    const std::int64_t a = left.int64Value();
    const std::int64_t b = right.int64Value();
    switch (comparison) {
        case KV3ComparisonEqual:
            return a == b;
        case KV3ComparisonNotEqual:
            return a != b;
        case KV3ComparisonGreater:
            return a > b;
        case KV3ComparisonGreaterOrEqual:
            return a >= b;
        case KV3ComparisonLess:
            return a < b;
        case KV3ComparisonLessOrEqual:
            return a <= b;
        case KV3ComparisonAnyBits:
            return (a & b) != 0;
        default:
            return false;
    }
}

}  // namespace

std::string propertyName(KV3TrackProperty property) {
    return property < names.size() ? names[property] : std::to_string(property);
}

std::string describe(const KV3Predicate& predicate) {
    if (predicate.kind == KV3Predicate::Kind::Comparison)
        return propertyName(predicate.property) + " " + symbol(predicate.comparison) + " " +
               predicate.value.description();
    std::string text = predicate.kind == KV3Predicate::Kind::All ? "all(" : "any(";
    for (std::size_t i = 0; i < predicate.operands.size(); ++i)
        text += (i > 0 ? ", " : "") + describe(predicate.operands[i]);
    return text + ")";
}

bool matches(const KV3Predicate& predicate,
             const std::function<platform::Value(KV3TrackProperty)>& valueOf) {
    const auto operandMatches = [&valueOf](const KV3Predicate& operand) {
        return matches(operand, valueOf);
    };
    switch (predicate.kind) {
        case KV3Predicate::Kind::All:
            return std::all_of(predicate.operands.begin(), predicate.operands.end(),
                               operandMatches);
        case KV3Predicate::Kind::Any:
            return std::any_of(predicate.operands.begin(), predicate.operands.end(),
                               operandMatches);
        case KV3Predicate::Kind::Comparison:
            break;
    }
    return compare(predicate.comparison, valueOf(predicate.property), predicate.value);
}

}  // namespace support
