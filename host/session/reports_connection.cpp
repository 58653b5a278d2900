#include "host/session/reports_connection.h"

#include <grpcpp/channel.h>

#include "host/session/device_channel.h"
#include "host/session/link_error.h"
#include "link/reports.grpc.pb.h"

namespace host {

namespace link = ::orlith::link;

using platform::OptionalError;

struct ReportsConnection::Impl {
    std::unique_ptr<link::Reports::Stub> reports;
};

std::unique_ptr<ReportsConnection> ReportsConnection::open(const std::string& deviceDirectory,
                                                           OptionalError* error) {
    auto channel = openDeviceChannel(deviceDirectory, error);
    return channel ? std::make_unique<ReportsConnection>(std::move(channel)) : nullptr;
}

ReportsConnection::ReportsConnection(std::shared_ptr<grpc::Channel> channel)
    : _impl(std::make_unique<Impl>()) {
    _impl->reports = link::Reports::NewStub(std::move(channel));
}

ReportsConnection::~ReportsConnection() = default;

OptionalError ReportsConnection::backupPaths(std::vector<std::string>& paths) {
    grpc::ClientContext context;
    link::BackupPathsReply reply;
    if (auto error = errorOfCall(_impl->reports->BackupPaths(&context, {}, &reply)))
        return error;
    paths.assign(reply.paths().begin(), reply.paths().end());
    return std::nullopt;
}

OptionalError ReportsConnection::metrics(link::MetricsReply& reply) {
    grpc::ClientContext context;
    return errorOfCall(_impl->reports->Metrics(&context, {}, &reply));
}

OptionalError ReportsConnection::accountNames(std::vector<std::string>& names) {
    grpc::ClientContext context;
    link::AccountNamesReply reply;
    if (auto error = errorOfCall(_impl->reports->AccountNames(&context, {}, &reply)))
        return error;
    names.assign(reply.names().begin(), reply.names().end());
    return std::nullopt;
}

OptionalError ReportsConnection::disabledTypes(std::optional<std::set<std::string>>& types) {
    grpc::ClientContext context;
    link::DisabledTypesReply reply;
    if (auto error = errorOfCall(_impl->reports->DisabledTypes(&context, {}, &reply)))
        return error;
    if (reply.disables())
        types.emplace(reply.asset_types().begin(), reply.asset_types().end());
    return std::nullopt;
}

OptionalError ReportsConnection::clearSyncData() {
    grpc::ClientContext context;
    link::ReportDone reply;
    const grpc::Status status = _impl->reports->ClearSyncData(&context, {}, &reply);
    return errorOfReply(status, reply.success(), reply.failure());
}

OptionalError ReportsConnection::updateMetadata(const link::UpdateMetadataRequest& request,
                                                link::UpdateMetadataReply& reply) {
    grpc::ClientContext context;
    const grpc::Status status = _impl->reports->UpdateMetadata(&context, request, &reply);
    return errorOfReply(status, reply.success(), reply.failure());
}

OptionalError ReportsConnection::listAccounts(link::AccountList& accounts) {
    grpc::ClientContext context;
    return errorOfCall(_impl->reports->ListAccounts(&context, {}, &accounts));
}

OptionalError ReportsConnection::addAccount(std::int64_t account, const std::string& name) {
    grpc::ClientContext context;
    link::Account request;
    request.set_account(account);
    request.set_name(name);
    link::ReportDone reply;
    const grpc::Status status = _impl->reports->AddAccount(&context, request, &reply);
    return errorOfReply(status, reply.success(), reply.failure());
}

OptionalError ReportsConnection::removeAccount(std::int64_t account) {
    grpc::ClientContext context;
    link::Account request;
    request.set_account(account);
    link::ReportDone reply;
    const grpc::Status status = _impl->reports->RemoveAccount(&context, request, &reply);
    return errorOfReply(status, reply.success(), reply.failure());
}

}  // namespace host
