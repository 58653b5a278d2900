// Two fake devices that mirror in one process, over a link in memory: for what a real plug-in does
// not do at a test's wish.
#pragma once

#include <condition_variable>
#include <deque>
#include <functional>
#include <map>
#include <mutex>
#include <set>
#include <string>
#include <vector>

#include "device/orlith/mirror/mirror_services.h"
#include "device/orlith/mirror/mirror_session.h"
#include "device/orlith/mirror/peer_stream.h"
#include "tests/device/orlith/fake_device.h"

namespace orlith::testing {

// Called before each operation of a fake plug-in, with its name; may throw or block. Any thread.
using OnCall = std::function<void(const std::string& operation)>;

// Gives a change stream through the daemon's stream writer, and takes one through its reader.
class FakeSyncClient final : public ORSyncClient {
public:
    FakeSyncClient(DaemonServices& daemon, std::string uid);

    OnCall onCall;
    std::int64_t revision = 0;
    platform::Data changes;   // what is given
    platform::Data imported;  // what was taken; guarded by the daemon's calls being one at a time

    bool respondsTo(ORSyncClientOperation) const override { return true; }
    void setDelegate(std::shared_ptr<ORSyncClientDelegate>) override {}
    std::string syncDataClass() override { return "Media"; }
    std::int64_t currentRevision() override;
    platform::Value revisionVersionToken() override;
    void resetSyncDataWithCompletion(const ErrorHandler& completionHandler) override;
    void getChangesForSyncType(std::uint32_t syncType, std::uint32_t endpointType,
                               std::int64_t afterRevision, std::int64_t upToRevision,
                               const platform::Dictionary& syncParams,
                               std::shared_ptr<platform::OutputStream> outputStream,
                               const StartHandler& startHandler,
                               const ProgressHandler& progressHandler,
                               const ErrorHandler& completionHandler) override;
    void applyChangesForSyncType(std::uint32_t syncType, std::uint32_t endpointType,
                                 std::shared_ptr<platform::InputStream> stream,
                                 const platform::Dictionary& syncParams,
                                 const ProgressHandler& progressHandler,
                                 const ApplyHandler& completionHandler) override;
    void syncSessionCompletedWithError(const platform::OptionalError& error,
                                       bool allAssetsTransferred) override;

private:
    void call(const std::string& operation) {
        if (onCall)
            onCall(operation);
    }

    DaemonServices& _daemon;
    const std::string _uid;
};

// Wants the files of tracks that have none, gives those of tracks that have one.
class FakeAssetClient final : public ORAssetClient {
public:
    explicit FakeAssetClient(FakeDevice& device) : _device(device) {}

    OnCall onCall;
    // Requests for these get no answer until they are answered below.
    std::set<std::string> silent;
    // Answers what was kept back for an asset, as it would have been answered at once; false when
    // there is none.
    bool answer(const std::string& identifier);
    std::size_t held();

    bool respondsTo(ORAssetClientOperation) const override { return true; }
    std::string assetDataClass() override { return "Media"; }
    void assetsToSyncWithCompletion(const AssetsHandler& completion) override;
    void getDataForAsset(std::shared_ptr<ORAsset> asset, DataHandler completion) override;
    void assetSyncDidCompleteWithError(const std::shared_ptr<ORAsset>& asset,
                                       const platform::OptionalError& error) override;
    void assetSyncDidUpdateProgress(const std::shared_ptr<ORAsset>& asset,
                                    double progress) override;
    // What was told of an asset, in order.
    std::vector<double> progressOf(const std::string& identifier);
    void assetSyncDidComplete() override { call("assetSyncDidComplete"); }

private:
    void call(const std::string& operation) {
        if (onCall)
            onCall(operation);
    }
    void give(const std::string& identifier, const DataHandler& completion);

    FakeDevice& _device;
    std::mutex _mutex;
    std::map<std::string, DataHandler> _held;              // guarded by _mutex
    std::map<std::string, std::vector<double>> _progress;  // guarded by _mutex
};

// Every track has its sync id here as persistent id at every peer.
class FakePeers final : public PeerLibrary {
public:
    std::vector<PeerRecord> peers() override { return {}; }
    PeerRecord peer(const std::string& uid) override;
    platform::OptionalError recordReceived(const std::string& uid, std::int64_t revision,
                                           std::uint32_t mediaTypes) override;
    platform::OptionalError recordAcknowledged(const std::string& uid,
                                               std::int64_t revision) override;
    void setExportTarget(const std::string&) override {}
    std::vector<std::int64_t> lineUpPlaylistDeletions(std::int64_t,
                                                      platform::OptionalError*) override {
        return {};
    }
    void expectFullExchange(const std::string& uid) override { expected = uid; }
    std::optional<ImportRevisions> lastImportRevisions() override { return std::nullopt; }
    ImportEffects lastImportEffects() override { return {}; }
    std::optional<std::int64_t> trackAtPeer(const std::string&, std::int64_t syncID) override {
        return syncID;
    }
    std::string picturePath(const std::string&) override { return {}; }
    std::string hashOfFile(std::int64_t trackPID) override {
        const auto known = hashes.find(trackPID);
        return known == hashes.end() ? std::string() : known->second;
    }

    std::string expected;  // of which peer a full exchange is expected; one session's
    std::map<std::int64_t, std::string> hashes;  // of tracks' files; set while nobody mirrors

private:
    std::mutex _mutex;
    std::map<std::string, PeerRecord> _records;  // guarded by _mutex
};

// A device with all that mirroring works on.
struct MirrorDevice {
    explicit MirrorDevice(const std::string& uid);

    // Sync id and persistent id alike; without bytes it has no file.
    void addTrack(std::int64_t id, const std::optional<std::string>& bytes);

    FakeDevice device;
    FakeSyncClient changes;
    FakeAssetClient assets;
    FakePeers peers;
    DownloadProgress downloads;
    ChangeOperations operations;
    MirrorServices services;
};

// One way of a link.
template <typename Message>
class Pipe {
public:
    bool put(const Message& message) {
        const std::scoped_lock lock(_mutex);
        if (_closed)
            return false;
        _messages.push_back(message);
        _changed.notify_all();
        return true;
    }
    // What was put before the end is still taken.
    bool take(Message& message) {
        std::unique_lock lock(_mutex);
        _changed.wait(lock, [this] { return _closed || !_messages.empty(); });
        if (_messages.empty())
            return false;
        message = std::move(_messages.front());
        _messages.pop_front();
        return true;
    }
    void close() {
        const std::scoped_lock lock(_mutex);
        _closed = true;
        _changed.notify_all();
    }
    std::size_t size() {
        const std::scoped_lock lock(_mutex);
        return _messages.size();
    }

private:
    std::mutex _mutex;
    std::condition_variable _changed;
    std::deque<Message> _messages;  // guarded by _mutex
    bool _closed = false;           // guarded by _mutex
};

// Both ends of a link between a companion and a first device.
class MemoryLink {
public:
    CompanionStream& companion() { return _companion; }
    ServingStream& serving() { return _serving; }
    // Messages that the first device has not read.
    std::size_t unread() { return _toFirst.size(); }
    void close() {
        _toFirst.close();
        _toCompanion.close();
    }

private:
    template <typename Incoming, typename Outgoing>
    class End final : public MessageStream<Incoming, Outgoing> {
    public:
        End(MemoryLink& link, Pipe<Incoming>& in, Pipe<Outgoing>& out)
            : _link(link), _in(in), _out(out) {}
        bool read(Incoming& message) override { return _in.take(message); }
        bool write(const Outgoing& message) override { return _out.put(message); }
        void cancel() override { _link.close(); }

    private:
        MemoryLink& _link;
        Pipe<Incoming>& _in;
        Pipe<Outgoing>& _out;
    };

    Pipe<link::FromCompanion> _toFirst;
    Pipe<link::FromFirst> _toCompanion;
    End<link::FromFirst, link::FromCompanion> _companion{*this, _toCompanion, _toFirst};
    End<link::FromCompanion, link::FromFirst> _serving{*this, _toFirst, _toCompanion};
};

// A whole session between two devices.
MirrorOutcome mirrorBetween(
    MirrorDevice& first, MirrorDevice& companion,
    const MirrorEvents& events = [](const link::MirrorEvent&) {});

}  // namespace orlith::testing
