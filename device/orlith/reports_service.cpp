#include "device/orlith/reports_service.h"

#include "device/korvane/account_cache.h"
#include "device/korvane/library.h"
#include "device/orlith/call_boundary.h"
#include "device/orlith/library_session.h"
#include "device/orlith/names.h"
#include "device/orlith/session_error.h"
#include "device/orlith/slot_hold.h"

namespace orlith {
namespace {

using platform::OptionalError;

std::optional<std::uint64_t> sizeIn(const platform::Value& metrics, std::string_view key) {
    const platform::Value& value = metrics[key];
    return value.isNull() ? std::nullopt : std::optional(value.unsignedValue());
}

void fillMetrics(const std::string& assetType, const platform::Value& metrics,
                 link::TypeMetrics& row) {
    row.set_asset_type(cleanUTF8(assetType));
    if (const auto size = sizeIn(metrics, ORMetricsPhysicalSizeKey))
        row.set_physical_size(*size);
    if (const auto count = sizeIn(metrics, ORMetricsCountKey))
        row.set_count(*count);
    if (const auto size = sizeIn(metrics, ORMetricsPurgeableSizeKey))
        row.set_purgeable_size(*size);
}

}  // namespace

grpc::Status ReportsService::guarded(const char* call, const std::function<void()>& body) {
    return guardedCall(_parts.calls, _parts.log, call, body);
}

grpc::Status ReportsService::asked(const char* call, ORClientOperation operation,
                                   const std::function<void()>& body) {
    if (!_parts.device.client.respondsTo(operation))
        return {grpc::StatusCode::UNIMPLEMENTED, "the device's plug-in does not offer this"};
    return guarded(call, body);
}

grpc::Status ReportsService::BackupPaths(grpc::ServerContext*, const link::ReportRequest*,
                                         link::BackupPathsReply* reply) {
    return asked("BackupPaths", ORClientOperation::pathsToBackup, [&] {
        std::vector<std::string> paths;
        _parts.device.client.pathsToBackup(&paths, nullptr);
        for (std::string& path : paths)
            reply->add_paths(cleanUTF8(std::move(path)));
    });
}

grpc::Status ReportsService::Metrics(grpc::ServerContext*, const link::ReportRequest*,
                                     link::MetricsReply* reply) {
    return asked("Metrics", ORClientOperation::installedAssetMetrics, [&] {
        for (const auto& [assetType, metrics] : _parts.device.client.installedAssetMetrics())
            fillMetrics(assetType, metrics, *reply->add_types());
    });
}

grpc::Status ReportsService::AccountNames(grpc::ServerContext*, const link::ReportRequest*,
                                          link::AccountNamesReply* reply) {
    return asked("AccountNames", ORClientOperation::vantorIDsForAssets, [&] {
        for (const std::string& name : _parts.device.client.vantorIDsForAssets())
            reply->add_names(cleanUTF8(name));
    });
}

grpc::Status ReportsService::DisabledTypes(grpc::ServerContext*, const link::ReportRequest*,
                                           link::DisabledTypesReply* reply) {
    return asked("DisabledTypes", ORClientOperation::disabledAssetTypes, [&] {
        const auto types = _parts.device.client.disabledAssetTypes();
        reply->set_disables(types.has_value());
        for (const std::string& type : types.value_or(std::set<std::string>()))
            reply->add_asset_types(cleanUTF8(type));
    });
}

grpc::Status ReportsService::ClearSyncData(grpc::ServerContext* context, const link::ReportRequest*,
                                           link::ReportDone* reply) {
    return asked("ClearSyncData", ORClientOperation::clearSyncData, [&] {
        const SlotHold hold(_parts.slot, "the clearing of its sync state", *context);
        _parts.device.client.clearSyncData();
        reply->set_success(true);
    });
}

grpc::Status ReportsService::UpdateMetadata(grpc::ServerContext* context,
                                            const link::UpdateMetadataRequest* request,
                                            link::UpdateMetadataReply* reply) {
    return asked("UpdateMetadata", ORClientOperation::metadataUpdate, [&] {
        const SlotHold hold(_parts.slot, "a metadata update", *context);
        const LibrarySession session(_parts.device.access);
        std::string title;
        fillOutcome(updateMetadata(_parts.device, *request, title), *reply);
        reply->set_title(cleanUTF8(title));
        reply->set_anchor(cleanUTF8(_parts.device.access.anchor()));
        reply->set_revision(_parts.device.access.revision());
    });
}

grpc::Status ReportsService::ListAccounts(grpc::ServerContext*, const link::ReportRequest*,
                                          link::AccountList* reply) {
    return guarded("ListAccounts", [&] {
        for (const korvane::KnownAccount& known : _parts.device.library.accounts().list()) {
            link::Account& account = *reply->add_accounts();
            account.set_account(known.account);
            account.set_name(cleanUTF8(known.name));
        }
    });
}

grpc::Status ReportsService::AddAccount(grpc::ServerContext*, const link::Account* request,
                                        link::ReportDone* reply) {
    return guarded("AddAccount", [&] {
        fillOutcome(_parts.device.library.accounts().add({request->account(), request->name()}),
                    *reply);
    });
}

grpc::Status ReportsService::RemoveAccount(grpc::ServerContext*, const link::Account* request,
                                           link::ReportDone* reply) {
    return guarded("RemoveAccount", [&] {
        fillOutcome(_parts.device.library.accounts().remove(request->account()), *reply);
    });
}

}  // namespace orlith
