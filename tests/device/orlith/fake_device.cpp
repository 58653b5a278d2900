#include "tests/device/orlith/fake_device.h"

#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>

#include "common/property_list/property_list.h"
#include "device/orlith/names.h"
#include "tests/support/hand_off.h"

namespace orlith::testing {
namespace {

namespace fs = std::filesystem;
using platform::OptionalError;
using platform::Value;

}  // namespace

std::vector<std::string> FakeClient::calls() {
    const std::scoped_lock lock(_mutex);
    return _calls;
}

void FakeClient::record(const std::string& call) {
    const test::Turn turn;
    {
        const std::scoped_lock lock(_mutex);
        _calls.push_back(call);
    }
    if (onCall)
        onCall(call);
}

bool FakeClient::prepareForSyncWithHostAnchor(const std::string&, const Progress&, std::uint32_t,
                                              const std::string&, OptionalError*) {
    record("prepare");
    return true;
}

bool FakeClient::reconcileSync(std::uint32_t syncType, const std::string& newAnchor,
                               const Progress&, OptionalError* error) {
    record("reconcile " + std::to_string(syncType) + " " + newAnchor);
    if (reconcileFails && error)
        *error = platform::Error(KVMediaLibraryServiceErrorDomain,
                                 KVMediaLibraryServiceErrorDamagedData, "damaged");
    return !reconcileFails;
}

std::vector<std::shared_ptr<ORAsset>> FakeClient::outstandingAssetTransfersWithDownloadManager(
    VDDownloadManager*) {
    record("outstanding");
    const std::scoped_lock lock(_tracks.mutex);
    std::vector<std::shared_ptr<ORAsset>> assets;
    for (const FakeTrack& track : _tracks.all) {
        const std::string identifier =
            std::to_string(track.syncID != 0 ? track.syncID : track.persistentID);
        if (track.path) {
            if (track.deleteAfterUpload) {
                auto asset = _daemon.makeUploadAsset(identifier, "Media", *track.path, {});
                asset->setVariantOptions(
                    platform::Dictionary{{"delete_after_upload", Value(true)}});
                assets.push_back(asset);
            }
            continue;
        }
        std::uint32_t parts = PartFile;
        if (track.artworkToken && !track.hasArtwork)
            parts |= PartArtwork;
        if (track.pendingKenningChecksum != track.kenningChecksum)
            parts |= PartKenning;
        auto asset = _daemon.makeDownloadAsset(identifier, "Media", "title");
        asset->setAssetType(track.assetType);
        asset->setVariantOptions(platform::Dictionary{{"AssetParts", Value(parts)}});
        if (track.needsRestore)
            asset->setIsRestore(true);
        else
            asset->setBypassStore(true);
        assets.push_back(asset);
    }
    return assets;
}

void FakeClient::assetTransferSucceeded(const std::shared_ptr<ORAsset>& asset, bool succeeded,
                                        const OptionalError& error) {
    record("transfer " + asset->identifier() + (succeeded ? " succeeded" : " failed") +
           (error ? " " + std::to_string(error->code) : ""));
    if (succeeded && asset->isDownload())
        file(*asset);
    if (succeeded && !asset->isDownload()) {
        const std::scoped_lock lock(_tracks.mutex);
        std::erase_if(_tracks.all, [&](const FakeTrack& track) {
            return std::to_string(track.syncID) == asset->identifier();
        });
    }
}

void FakeClient::file(ORAsset& asset) {
    const test::Turn turn;
    _daemon.stagehold().processCompletedAsset(asset);
    asset.setPath("/var/mobile/Media/" + asset.path().value_or(""));
    const std::string identifier = asset.identifier();
    const auto picture = _daemon.stagehold().artworkPathForDataclass("Media", identifier);
    const std::scoped_lock lock(_tracks.mutex);
    FakeTrack* track = _tracks.bySyncID(parseIdentifier(identifier).value_or(0));
    if (!track)
        return;
    if ((partsOf(asset) & PartFile) != 0 && asset.bypassStore() && !_tracks.refusesLocations)
        track->path = asset.path();
    if ((partsOf(asset) & PartArtwork) != 0 && picture)
        track->hasArtwork = true;
    if ((partsOf(asset) & PartKenning) != 0)
        track->kenningChecksum = track->pendingKenningChecksum;
}

void FakeClient::assetInstallFailed(const std::shared_ptr<ORAsset>& asset,
                                    const OptionalError& error) {
    record("install " + asset->identifier() + " failed" +
           (error ? " " + std::to_string(error->code) : ""));
}

void FakeClient::assetTransferEndedWithSuccess(bool success) {
    record(success ? "ended 1" : "ended 0");
}

void FakeClient::_processKenningConfigPlist(const Value& plist) {
    record("kenning config " + plist["version"].description());
}

platform::NotificationCenter& FakeOperatingSystem::defaultNotificationCenter() {
    std::abort();
}

std::uint32_t FakeOperatingSystem::post(std::string_view name) {
    posted.emplace_back(name);
    test::handOver();
    return 0;
}

std::optional<Value> FakeOperatingSystem::parse(const platform::Data& bytes, OptionalError* error) {
    return common::parsePropertyList(bytes, error);
}

std::optional<platform::Data> FakeOperatingSystem::serialize(const Value& value,
                                                             platform::PropertyListFormat format,
                                                             OptionalError* error) {
    return common::serializePropertyList(value, format, error);
}

TemporaryRoot::TemporaryRoot() {
    std::string name = fs::temp_directory_path() / "orlith-device-XXXXXX";
    path = ::mkdtemp(name.data());
}

TemporaryRoot::~TemporaryRoot() {
    std::error_code ignored;
    fs::remove_all(path, ignored);
}

FakeDevice::FakeDevice()
    : files(root.path),
      system(files),
      daemon(files, system),
      library(tracks),
      client(tracks, daemon),
      access(tracks) {
    files.createDirectory("/var/mobile/Media");
}

std::string FakeDevice::read(const std::string& devicePath) const {
    std::ifstream file(root.path + devicePath, std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(file), {});
}

void FakeDevice::write(const std::string& devicePath, const std::string& text) const {
    fs::create_directories(fs::path(root.path + devicePath).parent_path());
    std::ofstream(root.path + devicePath, std::ios::binary) << text;
}

bool FakeDevice::exists(const std::string& devicePath) const {
    return fs::exists(root.path + devicePath);
}

std::vector<std::string> FakeDevice::filesBelow(const std::string& devicePath) const {
    std::vector<std::string> names;
    const fs::path top = root.path + devicePath;
    if (fs::exists(top))
        for (const auto& entry : fs::recursive_directory_iterator(top))
            if (entry.is_regular_file())
                names.push_back(fs::relative(entry.path(), top).string());
    std::sort(names.begin(), names.end());
    return names;
}

SessionServices FakeDevice::services() {
    return {client, access,  library, system, log, files, daemon.stagehold(),
            slot,   notices, nullptr};
}

}  // namespace orlith::testing
