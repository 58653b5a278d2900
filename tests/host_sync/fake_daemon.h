// A device directory whose daemon a test scripts: it listens where the commands look for it.
#pragma once

#include <grpcpp/grpcpp.h>

#include <filesystem>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "link/address.h"
#include "link/orlith.grpc.pb.h"
#include "link/owner.grpc.pb.h"
#include "link/peer.grpc.pb.h"
#include "link/reports.grpc.pb.h"
#include "tests/support/hand_off.h"
#include "tests/support/temporary_directory.h"

namespace host::test {

namespace link = ::orlith::link;

class FakeDaemon : private link::Device::Service,
                   private link::Mirror::Service,
                   private link::Owner::Service,
                   private link::Reports::Service {
public:
    FakeDaemon() {
        const std::filesystem::path socket = link::socketPathOfDevice(directory.path());
        std::filesystem::create_directories(socket.parent_path());
        grpc::ServerBuilder builder;
        builder.AddListeningPort("unix:" + socket.string(), grpc::InsecureServerCredentials());
        builder.RegisterService(static_cast<link::Device::Service*>(this));
        builder.RegisterService(static_cast<link::Mirror::Service*>(this));
        builder.RegisterService(static_cast<link::Owner::Service*>(this));
        builder.RegisterService(static_cast<link::Reports::Service*>(this));
        _server = builder.BuildAndStart();
    }
    ~FakeDaemon() override { _server->Shutdown(std::chrono::system_clock::now()); }

    ::test::TemporaryDirectory directory;

    // What each call answers; a call without one is unimplemented. Set before the call.
    template <typename Request, typename Reply>
    using Answer = std::function<void(const Request&, Reply&)>;
    Answer<link::EditTrackRequest, link::EditReply> onEditTrack;
    Answer<link::EditPlaylistRequest, link::EditReply> onEditPlaylist;
    Answer<link::DownloadRequest, link::DownloadReply> onDownload;
    Answer<link::ListDownloadsRequest, link::DownloadList> onListDownloads;
    Answer<link::CancelDownloadRequest, link::CancelDownloadReply> onCancelDownload;
    Answer<link::CloudSignInRequest, link::CloudReply> onCloudSignIn;
    Answer<link::CloudSignOutRequest, link::CloudReply> onCloudSignOut;
    Answer<link::ReportRequest, link::BackupPathsReply> onBackupPaths;
    Answer<link::ReportRequest, link::MetricsReply> onMetrics;
    Answer<link::ReportRequest, link::AccountNamesReply> onAccountNames;
    Answer<link::ReportRequest, link::DisabledTypesReply> onDisabledTypes;
    Answer<link::ReportRequest, link::ReportDone> onClear;
    Answer<link::UpdateMetadataRequest, link::UpdateMetadataReply> onUpdate;
    Answer<link::ReportRequest, link::AccountList> onListAccounts;
    Answer<link::Account, link::ReportDone> onAddAccount;
    Answer<link::Account, link::ReportDone> onRemoveAccount;
    Answer<link::RevisionRequest, link::RevisionReply> onRevision;
    Answer<link::ResetChangesRequest, link::ResetChangesReply> onResetChanges;
    Answer<std::vector<link::ChangeStream>, link::ImportReply> onImport;
    std::vector<link::MirrorEvent> events;  // of a run
    std::function<void(const link::MirrorRequest&)> onRun;
    std::vector<link::ChangeStream> exported;
    std::function<void(const link::ExportRequest&)> onExport;
    std::vector<link::WantedAssets> assets;

private:
    using Context = grpc::ServerContext;
    using Status = grpc::Status;

    template <typename Request, typename Reply>
    static Status answer(const Answer<Request, Reply>& with, const Request& request, Reply& reply) {
        const ::test::Turn turn;
        if (!with)
            return Status(grpc::StatusCode::UNIMPLEMENTED, "not scripted");
        with(request, reply);
        return Status::OK;
    }
    template <typename Message>
    static Status stream(const std::vector<Message>& messages, grpc::ServerWriter<Message>& to) {
        for (const Message& message : messages)
            to.Write(message);
        return Status::OK;
    }

    Status BackupPaths(Context*, const link::ReportRequest* request,
                       link::BackupPathsReply* reply) override {
        return answer(onBackupPaths, *request, *reply);
    }
    Status Metrics(Context*, const link::ReportRequest* request,
                   link::MetricsReply* reply) override {
        return answer(onMetrics, *request, *reply);
    }
    Status AccountNames(Context*, const link::ReportRequest* request,
                        link::AccountNamesReply* reply) override {
        return answer(onAccountNames, *request, *reply);
    }
    Status DisabledTypes(Context*, const link::ReportRequest* request,
                         link::DisabledTypesReply* reply) override {
        return answer(onDisabledTypes, *request, *reply);
    }
    Status ClearSyncData(Context*, const link::ReportRequest* request,
                         link::ReportDone* reply) override {
        return answer(onClear, *request, *reply);
    }
    Status UpdateMetadata(Context*, const link::UpdateMetadataRequest* request,
                          link::UpdateMetadataReply* reply) override {
        return answer(onUpdate, *request, *reply);
    }
    Status ListAccounts(Context*, const link::ReportRequest* request,
                        link::AccountList* reply) override {
        return answer(onListAccounts, *request, *reply);
    }
    Status AddAccount(Context*, const link::Account* request, link::ReportDone* reply) override {
        return answer(onAddAccount, *request, *reply);
    }
    Status RemoveAccount(Context*, const link::Account* request, link::ReportDone* reply) override {
        return answer(onRemoveAccount, *request, *reply);
    }
    Status EditTrack(Context*, const link::EditTrackRequest* request,
                     link::EditReply* reply) override {
        return answer(onEditTrack, *request, *reply);
    }
    Status EditPlaylist(Context*, const link::EditPlaylistRequest* request,
                        link::EditReply* reply) override {
        return answer(onEditPlaylist, *request, *reply);
    }
    Status Download(Context*, const link::DownloadRequest* request,
                    link::DownloadReply* reply) override {
        return answer(onDownload, *request, *reply);
    }
    Status ListDownloads(Context*, const link::ListDownloadsRequest* request,
                         link::DownloadList* reply) override {
        return answer(onListDownloads, *request, *reply);
    }
    Status CancelDownload(Context*, const link::CancelDownloadRequest* request,
                          link::CancelDownloadReply* reply) override {
        return answer(onCancelDownload, *request, *reply);
    }
    Status CloudSignIn(Context*, const link::CloudSignInRequest* request,
                       link::CloudReply* reply) override {
        return answer(onCloudSignIn, *request, *reply);
    }
    Status CloudSignOut(Context*, const link::CloudSignOutRequest* request,
                        link::CloudReply* reply) override {
        return answer(onCloudSignOut, *request, *reply);
    }
    Status Revision(Context*, const link::RevisionRequest* request,
                    link::RevisionReply* reply) override {
        return answer(onRevision, *request, *reply);
    }
    Status ResetChanges(Context*, const link::ResetChangesRequest* request,
                        link::ResetChangesReply* reply) override {
        return answer(onResetChanges, *request, *reply);
    }
    Status Import(Context*, grpc::ServerReader<link::ChangeStream>* from,
                  link::ImportReply* reply) override {
        std::vector<link::ChangeStream> messages;
        link::ChangeStream message;
        while (from->Read(&message))
            messages.push_back(message);
        return answer(onImport, messages, *reply);
    }
    Status Run(Context*, const link::MirrorRequest* request,
               grpc::ServerWriter<link::MirrorEvent>* to) override {
        const ::test::Turn turn;
        if (onRun)
            onRun(*request);
        stream(events, *to);
        const bool failed = !events.empty() && events.back().has_failure();
        return failed ? Status(grpc::StatusCode::INTERNAL, "failed") : Status::OK;
    }
    Status Export(Context*, const link::ExportRequest* request,
                  grpc::ServerWriter<link::ChangeStream>* to) override {
        const ::test::Turn turn;
        if (onExport)
            onExport(*request);
        return stream(exported, *to);
    }
    Status ListAssets(Context*, const link::ListAssetsRequest*,
                      grpc::ServerWriter<link::WantedAssets>* to) override {
        return stream(assets, *to);
    }

    std::unique_ptr<grpc::Server> _server;
};

}  // namespace host::test
