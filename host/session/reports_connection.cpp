#include "host/session/reports_connection.h"

#include <grpcpp/channel.h>

#include "host/session/link_call.h"
#include "link/reports.grpc.pb.h"

namespace host {

namespace link = ::orlith::link;

using platform::OptionalError;

struct ReportsConnection::Impl {
    std::unique_ptr<link::Reports::Stub> calls;
};

ReportsConnection::ReportsConnection(std::shared_ptr<grpc::Channel> channel)
    : _impl(std::make_unique<Impl>(link::Reports::NewStub(std::move(channel)))) {}

ReportsConnection::~ReportsConnection() = default;

OptionalError ReportsConnection::backupPaths(std::vector<std::string>& paths) {
    link::BackupPathsReply reply;
    OptionalError error = unaryCall(*_impl->calls, &link::Reports::Stub::BackupPaths, {}, reply);
    paths.assign(reply.paths().begin(), reply.paths().end());
    return error;
}

OptionalError ReportsConnection::metrics(link::MetricsReply& reply) {
    return unaryCall(*_impl->calls, &link::Reports::Stub::Metrics, {}, reply);
}

OptionalError ReportsConnection::accountNames(std::vector<std::string>& names) {
    link::AccountNamesReply reply;
    OptionalError error = unaryCall(*_impl->calls, &link::Reports::Stub::AccountNames, {}, reply);
    names.assign(reply.names().begin(), reply.names().end());
    return error;
}

OptionalError ReportsConnection::disabledTypes(std::optional<std::set<std::string>>& types) {
    link::DisabledTypesReply reply;
    OptionalError error = unaryCall(*_impl->calls, &link::Reports::Stub::DisabledTypes, {}, reply);
    if (reply.disables())
        types.emplace(reply.asset_types().begin(), reply.asset_types().end());
    return error;
}

OptionalError ReportsConnection::clearSyncData() {
    link::ReportDone reply;
    return unaryCall(*_impl->calls, &link::Reports::Stub::ClearSyncData, {}, reply);
}

OptionalError ReportsConnection::updateMetadata(const link::UpdateMetadataRequest& request,
                                                link::UpdateMetadataReply& reply) {
    return unaryCall(*_impl->calls, &link::Reports::Stub::UpdateMetadata, request, reply);
}

OptionalError ReportsConnection::listAccounts(link::AccountList& accounts) {
    return unaryCall(*_impl->calls, &link::Reports::Stub::ListAccounts, {}, accounts);
}

OptionalError ReportsConnection::addAccount(std::int64_t account, const std::string& name) {
    link::Account request;
    request.set_account(account);
    request.set_name(name);
    link::ReportDone reply;
    return unaryCall(*_impl->calls, &link::Reports::Stub::AddAccount, request, reply);
}

OptionalError ReportsConnection::removeAccount(std::int64_t account) {
    link::Account request;
    request.set_account(account);
    link::ReportDone reply;
    return unaryCall(*_impl->calls, &link::Reports::Stub::RemoveAccount, request, reply);
}

}  // namespace host
