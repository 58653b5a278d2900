// The daemon's answers about the device's media outside of a session: backups, sizes, accounts,
// disabled kinds, and metadata updates.
//
// Called on threads of the RPC library, several at once; a call that waits for the cloud holds up
// no other. Every call is a boundary: an exception becomes that call's failure. What changes the
// sync's state takes the session's place.
#pragma once

#include <functional>

#include "device/orlith/call_counter.h"
#include "device/orlith/metadata_update.h"
#include "device/orlith/session_slot.h"
#include "link/reports.grpc.pb.h"
#include "platform/log.h"

namespace orlith {

// All of it outlives the service.
struct ReportsParts {
    MetadataUpdateParts device;
    SessionSlot& slot;
    platform::LogService& log;
    CallCounter& calls;
};

class ReportsService final : public link::Reports::Service {
public:
    explicit ReportsService(const ReportsParts& parts) : _parts(parts) {}

    grpc::Status BackupPaths(grpc::ServerContext* context, const link::ReportRequest* request,
                             link::BackupPathsReply* reply) override;
    grpc::Status Metrics(grpc::ServerContext* context, const link::ReportRequest* request,
                         link::MetricsReply* reply) override;
    grpc::Status AccountNames(grpc::ServerContext* context, const link::ReportRequest* request,
                              link::AccountNamesReply* reply) override;
    grpc::Status DisabledTypes(grpc::ServerContext* context, const link::ReportRequest* request,
                               link::DisabledTypesReply* reply) override;
    grpc::Status ClearSyncData(grpc::ServerContext* context, const link::ReportRequest* request,
                               link::ReportDone* reply) override;
    grpc::Status UpdateMetadata(grpc::ServerContext* context,
                                const link::UpdateMetadataRequest* request,
                                link::UpdateMetadataReply* reply) override;
    grpc::Status ListAccounts(grpc::ServerContext* context, const link::ReportRequest* request,
                              link::AccountList* reply) override;
    grpc::Status AddAccount(grpc::ServerContext* context, const link::Account* request,
                            link::ReportDone* reply) override;
    grpc::Status RemoveAccount(grpc::ServerContext* context, const link::Account* request,
                               link::ReportDone* reply) override;

private:
    grpc::Status guarded(const char* call, const std::function<void()>& body);
    // As guarded; unimplemented when the plug-in does not respond to the operation.
    grpc::Status asked(const char* call, ORClientOperation operation,
                       const std::function<void()>& body);

    const ReportsParts _parts;
};

}  // namespace orlith
