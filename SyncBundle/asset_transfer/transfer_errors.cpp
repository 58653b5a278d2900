#include "SyncBundle/asset_transfer/transfer_errors.h"

#include <algorithm>
#include <array>

namespace {

// The daemon's codes of failures that a retry may get past.
constexpr std::array<std::int64_t, 9> recoverableDaemonCodes{4, 7, 8, 9, 14, 16, 18, 19, 20};
// The URL-loading code of a file that does not exist.
constexpr std::int64_t fileDoesNotExist = -1100;

}  // namespace

bool KVIsRecoverableTransferError(const platform::OptionalError& error) {
    if (!error)
        return true;
    if (error->domain == platform::ORErrorDomain)
        return std::find(recoverableDaemonCodes.begin(), recoverableDaemonCodes.end(),
                         error->code) != recoverableDaemonCodes.end();
    if (error->domain == platform::FathomErrorDomain)
        return false;
    if (error->domain == platform::URLErrorDomain)
        return error->code != fileDoesNotExist;
    return true;
}
