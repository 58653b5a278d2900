#include "device/orlith/mirror/peer_connection.h"

#include <fmt/format.h>
#include <grpcpp/create_channel_posix.h>
#include <grpcpp/grpcpp.h>

#include <cerrno>
#include <filesystem>
#include <mutex>
#include <system_error>
#include <thread>

#include "link/peer.grpc.pb.h"
#include "link/start_daemon.h"

namespace orlith {
namespace {

namespace fs = std::filesystem;
using platform::Error;

class ExchangeStream final : public CompanionStream {
public:
    explicit ExchangeStream(link::Peer::Stub& service) : _stream(service.Exchange(&_context)) {}
    ~ExchangeStream() override {
        _context.TryCancel();
        _stream->Finish();
    }

    bool read(link::FromFirst& message) override { return _stream->Read(&message); }
    bool write(const link::FromCompanion& message) override {
        const std::scoped_lock lock(_writing);
        return _stream->Write(message);
    }
    void cancel() override { _context.TryCancel(); }

private:
    grpc::ClientContext _context;
    std::unique_ptr<grpc::ClientReaderWriter<link::FromCompanion, link::FromFirst>> _stream;
    std::mutex _writing;  // one write at a time
};

class WatchThread final : public PeerConnection::Watch {
public:
    WatchThread(link::Peer::Stub& service, const std::string& ownUID,
                std::function<void(const link::LibraryChanged*)> changed) {
        link::WatchRequest request;
        request.set_library_uid(ownUID);
        _reader = service.Watch(&_context, request);
        _thread = std::thread([this, changed = std::move(changed)] {
            link::LibraryChanged message;
            while (_reader->Read(&message))
                changed(&message);
            changed(nullptr);
        });
    }
    ~WatchThread() override {
        _context.TryCancel();
        _thread.join();
        _reader->Finish();
    }

private:
    grpc::ClientContext _context;
    std::unique_ptr<grpc::ClientReader<link::LibraryChanged>> _reader;
    std::thread _thread;
};

}  // namespace

struct PeerConnection::State {
    std::unique_ptr<link::Peer::Stub> service;
};

PeerConnection::PeerConnection(std::unique_ptr<State> state) : _state(std::move(state)) {}
PeerConnection::~PeerConnection() = default;

std::unique_ptr<PeerConnection> PeerConnection::open(const std::string& directory,
                                                     platform::OptionalError& error) {
    std::error_code status;
    // A disk that is not mounted leaves an empty directory, which starting a daemon would fill.
    if (!fs::is_directory(fs::path(directory) / "var", status)) {
        error = Error(platform::POSIXErrorDomain, ENOENT,
                      fmt::format("there is no device in {}", directory));
        return nullptr;
    }
    link::DaemonStart start;
    start.root = directory;
    common::UniqueFd connection = link::connectOrStart(start, &error);
    if (!connection)
        return nullptr;
    auto state = std::make_unique<State>();
    state->service =
        link::Peer::NewStub(grpc::CreateInsecureChannelFromFd("device", connection.release()));
    return std::unique_ptr<PeerConnection>(new PeerConnection(std::move(state)));
}

std::unique_ptr<CompanionStream> PeerConnection::exchange() {
    return std::make_unique<ExchangeStream>(*_state->service);
}

std::unique_ptr<PeerConnection::Watch> PeerConnection::watch(
    const std::string& ownUID, std::function<void(const link::LibraryChanged*)> changed) {
    return std::make_unique<WatchThread>(*_state->service, ownUID, std::move(changed));
}

}  // namespace orlith
