#include "tests/device/orlith/fake_mirror.h"

#include <gtest/gtest.h>

#include <thread>

#include "common/qorx/writer.h"
#include "device/orlith/asset.h"
#include "device/orlith/mirror/serving_session.h"

namespace orlith::testing {

namespace {

constexpr char Music[] = "/var/mobile/Media/Tessel_Control/Music/F00";

// One track, so that there is something to import.
platform::Data someChanges() {
    platform::Data bytes;
    common::QorxWriter writer([&](std::span<const std::uint8_t> piece) {
        bytes.insert(bytes.end(), piece.begin(), piece.end());
        return platform::OptionalError();
    });
    qorx::Header header;
    header.set_purpose(qorx::Header::CHANGES);
    header.set_exporter_uid("first");
    EXPECT_FALSE(writer.begin(header));
    qorx::Track track;
    track.set_persistent_id(1);
    EXPECT_FALSE(writer.write(track));
    EXPECT_FALSE(writer.end());
    return bytes;
}

}  // namespace

FakeSyncClient::FakeSyncClient(DaemonServices& daemon, std::string uid)
    : changes(someChanges()), _daemon(daemon), _uid(std::move(uid)) {}

std::int64_t FakeSyncClient::currentRevision() {
    call("currentRevision");
    return revision;
}

platform::Value FakeSyncClient::revisionVersionToken() {
    call("revisionVersionToken");
    return _uid;
}

void FakeSyncClient::resetSyncDataWithCompletion(const ErrorHandler& completionHandler) {
    completionHandler(std::nullopt);
}

void FakeSyncClient::getChangesForSyncType(std::uint32_t, std::uint32_t, std::int64_t, std::int64_t,
                                           const platform::Dictionary&,
                                           std::shared_ptr<platform::OutputStream> outputStream,
                                           const StartHandler& startHandler, const ProgressHandler&,
                                           const ErrorHandler& completionHandler) {
    call("getChanges");
    startHandler({{std::string(PlaylistLengthKey), std::uint64_t{0}}});
    const auto writer = _daemon.makeStreamWriter(outputStream, nullptr);
    writer->writeAllData(changes, [this, completionHandler](const platform::OptionalError& error) {
        call("written");
        completionHandler(error);
    });
}

void FakeSyncClient::applyChangesForSyncType(std::uint32_t, std::uint32_t,
                                             std::shared_ptr<platform::InputStream> stream,
                                             const platform::Dictionary&, const ProgressHandler&,
                                             const ApplyHandler& completionHandler) {
    call("applyChanges");
    const auto reader = _daemon.makeStreamReader(stream, nullptr);
    reader->readAllDataWithCompletion(
        [this, completionHandler](platform::Data data, const platform::OptionalError& error) {
            call("read");
            imported = std::move(data);
            completionHandler(error, revision);
        });
}

void FakeSyncClient::syncSessionCompletedWithError(const platform::OptionalError&, bool) {
    call("syncSessionCompleted");
}

bool FakeAssetClient::answer(const std::string& identifier) {
    DataHandler completion;
    {
        const std::scoped_lock lock(_mutex);
        const auto found = _held.find(identifier);
        if (found == _held.end())
            return false;
        completion = std::move(found->second);
        _held.erase(found);
    }
    give(identifier, completion);
    return true;
}

std::size_t FakeAssetClient::held() {
    const std::scoped_lock lock(_mutex);
    return _held.size();
}

void FakeAssetClient::assetSyncDidUpdateProgress(const std::shared_ptr<ORAsset>& asset,
                                                 double progress) {
    const std::scoped_lock lock(_mutex);
    _progress[asset->identifier()].push_back(progress);
}

std::vector<double> FakeAssetClient::progressOf(const std::string& identifier) {
    const std::scoped_lock lock(_mutex);
    return _progress[identifier];
}

void FakeAssetClient::assetsToSyncWithCompletion(const AssetsHandler& completion) {
    call("assetsToSync");
    std::vector<std::shared_ptr<ORAsset>> assets;
    {
        const std::scoped_lock lock(_device.tracks.mutex);
        for (const FakeTrack& track : _device.tracks.all) {
            if (track.path)
                continue;
            assets.push_back(
                _device.daemon.makeAsset(std::to_string(track.syncID), "Media", "a title"));
            assets.back()->setVariantOptions(
                platform::Dictionary{{std::string(AssetPartsKey), std::uint64_t{PartFile}}});
        }
    }
    completion(std::nullopt, assets);
}

void FakeAssetClient::getDataForAsset(std::shared_ptr<ORAsset> asset, DataHandler completion) {
    call("getData");
    const std::string identifier = asset->identifier();
    if (silent.contains(identifier)) {
        const std::scoped_lock lock(_mutex);
        _held[identifier] = std::move(completion);
        return;
    }
    _device.system.globalQueue(platform::QueuePriority::Default)
        ->async([this, identifier, completion] { give(identifier, completion); });
}

void FakeAssetClient::give(const std::string& identifier, const DataHandler& completion) {
    const FakeTrack track = _device.tracks.get(std::stoll(identifier));
    if (!track.path)
        return completion(platform::Error(platform::ORErrorDomain, 3, "there is no file"), nullptr,
                          std::nullopt);
    completion(std::nullopt, _device.files.openInputStream(*track.path),
               track.path->substr(track.path->rfind('/') + 1));
}

void FakeAssetClient::assetSyncDidCompleteWithError(const std::shared_ptr<ORAsset>& asset,
                                                    const platform::OptionalError& error) {
    call("assetSyncDidComplete:");
    if (error)
        return;
    const std::string from = asset->path().value_or(std::string());
    const std::string to = Music + from.substr(from.rfind('/'));
    _device.files.createDirectory(Music);
    EXPECT_FALSE(_device.files.renameReplacing(from, to));
    const std::scoped_lock lock(_device.tracks.mutex);
    if (FakeTrack* track = _device.tracks.bySyncID(std::stoll(asset->identifier())))
        track->path = to;
}

PeerRecord FakePeers::peer(const std::string& uid) {
    const std::scoped_lock lock(_mutex);
    const auto found = _records.find(uid);
    return found != _records.end() ? found->second : PeerRecord{uid, 0, 0, 0};
}

platform::OptionalError FakePeers::recordReceived(const std::string& uid, std::int64_t revision,
                                                  std::uint32_t mediaTypes) {
    const std::scoped_lock lock(_mutex);
    PeerRecord& record = _records[uid];
    record.received = revision;
    record.mediaTypes = mediaTypes;
    return std::nullopt;
}

platform::OptionalError FakePeers::recordAcknowledged(const std::string& uid,
                                                      std::int64_t revision) {
    const std::scoped_lock lock(_mutex);
    _records[uid].acknowledged = revision;
    return std::nullopt;
}

MirrorDevice::MirrorDevice(const std::string& uid)
    : changes(device.daemon, uid),
      assets(device),
      operations(changes, device.files),
      services{device.services(), assets, operations, peers, downloads, uid} {
    EXPECT_FALSE(device.daemon.stagehold().makeDirectories());
}

void MirrorDevice::addTrack(std::int64_t id, const std::optional<std::string>& bytes) {
    FakeTrack track;
    track.syncID = track.persistentID = id;
    if (bytes) {
        track.path = std::string(Music) + "/" + std::to_string(id) + ".mp3";
        device.write(*track.path, *bytes);
    }
    device.tracks.all.push_back(track);
}

MirrorOutcome mirrorBetween(MirrorDevice& first, MirrorDevice& companion,
                            const MirrorEvents& events) {
    MemoryLink link;
    std::thread serving([&] { ServingSession(first.services, link.serving()).run(); });
    MirrorOutcome outcome = MirrorSession(companion.services, link.companion(), events, 0).run();
    link.close();
    serving.join();
    return outcome;
}

}  // namespace orlith::testing
