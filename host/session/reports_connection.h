// Purpose: what a device's daemon is asked about its media outside of a session.
// Thread: any; gRPC serialises nothing, so calls may run side by side.
// Failure: Errors of LinkErrorDomain, or what the device reported.
#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "platform/errors.h"

namespace grpc {
class Channel;
}

namespace orlith::link {
class AccountList;
class MetricsReply;
class UpdateMetadataReply;
class UpdateMetadataRequest;
}  // namespace orlith::link

namespace host {

class ReportsConnection {
public:
    explicit ReportsConnection(std::shared_ptr<grpc::Channel> channel);
    ~ReportsConnection();
    ReportsConnection(const ReportsConnection&) = delete;
    ReportsConnection& operator=(const ReportsConnection&) = delete;

    platform::OptionalError backupPaths(std::vector<std::string>& paths);
    platform::OptionalError metrics(orlith::link::MetricsReply& reply);
    platform::OptionalError accountNames(std::vector<std::string>& names);
    // Absent when none is disabled. Waits for the device's cloud.
    platform::OptionalError disabledTypes(std::optional<std::set<std::string>>& types);
    platform::OptionalError clearSyncData();
    platform::OptionalError updateMetadata(const orlith::link::UpdateMetadataRequest& request,
                                           orlith::link::UpdateMetadataReply& reply);
    platform::OptionalError listAccounts(orlith::link::AccountList& accounts);
    platform::OptionalError addAccount(std::int64_t account, const std::string& name);
    platform::OptionalError removeAccount(std::int64_t account);

private:
    struct Impl;
    std::unique_ptr<Impl> _impl;
};

}  // namespace host
