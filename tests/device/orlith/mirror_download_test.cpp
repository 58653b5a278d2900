// A first device in this process, with the real plug-in and library, that is still downloading what
// a companion asks for; the companion is a daemon of its own.
#include <atomic>
#include <cerrno>
#include <thread>

#include "device/orlith/bundle.h"
#include "device/orlith/embedded_platform.h"
#include "device/orlith/mirror/mirroring.h"
#include "device/orlith/server.h"
#include "link/address.h"
#include "tests/device/downloads/http_server.h"
#include "tests/device/orlith/fake_device.h"
#include "tests/device/orlith/mirror_fixture.h"

namespace orlith::testing {
namespace {

class DownloadingDevice {
public:
    DownloadingDevice() {
        platform::OptionalError error;
        fs::create_directories(root.path + "/var/run");
        _platform = EmbeddedPlatform::open(root.path, _log, _notices, error);
        EXPECT_TRUE(_platform) << error->description();
        EXPECT_FALSE(openBundle(defaultBundlePath(), *_platform, _clients));
        _platform->storeDownloads().start();
        _parts.emplace(SessionServices{*_clients.client, _platform->libraryAccess(),
                                       _platform->mediaLibrary(), _platform->operatingSystem(),
                                       _log, _platform->operatingSystem().fileSystem(),
                                       _platform->syncDaemon().stagehold(), _slot, _notices,
                                       _platform->downloadManager().get()});
        _mirroring.emplace(*_parts, _clients, _platform->peers(), _platform->downloadManager(),
                           "first", _calls);
        _server.emplace(_mirroring->services(), _calls, _log,
                        link::listenOnSocket(link::socketPathOfDevice(root.path), &error));
        _serving = std::thread([this] { _server->serve(-1, std::nullopt); });
    }
    ~DownloadingDevice() {
        _server->stop();
        _serving.join();
        _mirroring->stop();
        _server->shutDown(std::chrono::milliseconds(100));
        _server.reset();
        _mirroring.reset();
        _clients = {};
        EXPECT_TRUE(_platform->shutDown());
        platform::Platform::install(nullptr);
    }

    downloads::DownloadService& downloads() { return _platform->storeDownloads(); }
    std::string phaseOf(std::int64_t number) {
        for (const downloads::DownloadStatus& status : downloads().list())
            if (status.number == number)
                return status.phase;
        return {};
    }
    std::int64_t tracks() {
        return static_cast<std::int64_t>(_platform->libraryAccess().statistics().tracks);
    }
    // How long a request may stay without an answer while nothing moves.
    void setPatience(std::chrono::milliseconds patience) {
        _mirroring->parts().assetPatience = patience;
    }

    TemporaryRoot root;

private:
    SilentLog _log;
    Notices _notices;
    std::unique_ptr<EmbeddedPlatform> _platform;
    ORBundleClients _clients;
    SessionSlot _slot;
    CallCounter _calls;
    std::optional<SessionServices> _parts;
    std::optional<Mirroring> _mirroring;
    std::optional<Server> _server;
    std::thread _serving;
};

class DownloadMirrors : public ::testing::Test {
protected:
    DownloadMirrors()
        : _server([this](const test::HttpRequest& request) { return reply(request); }) {
        companion.start();
    }
    // Returns when the first part of the file is here and nothing more comes.
    void beginDownload() {
        downloads::DownloadRequest request;
        request.url = _server.url("/song.mp3");
        request.title = "Late";
        request.storeItem = 4711;
        request.storeAccount = 77;
        platform::OptionalError error;
        ASSERT_TRUE(first.downloads().request(request, &error)) << error->description();
        ASSERT_TRUE(_server.waitForStall());
        ASSERT_TRUE(eventually([&] { return first.tracks() == 1; }));
    }
    // From now on the whole file comes.
    void letItCome() {
        _stalls = false;
        _server.release();
    }

    const std::string content = "ID3" + std::string(200'000, 's');
    DownloadingDevice first;
    DeviceProcess companion;

private:
    test::HttpReply reply(const test::HttpRequest& request) {
        test::HttpReply reply = test::serveFile(request, content, "\"one\"");
        if (_stalls) {
            reply.sends = 50'000;
            reply.stalls = true;
        }
        return reply;
    }

    std::atomic<bool> _stalls{true};
    test::HttpServer _server;
};

TEST_F(DownloadMirrors, AFileThatIsStillDownloadingComesOnceItIsInstalled) {
    beginDownload();
    std::atomic<bool> isAsked{false};
    std::thread download([&] {
        eventually([&] { return isAsked.load(); });
        letItCome();
    });
    const MirrorRun run = orlith::testing::run(
        requestFrom(first.root.path), companion, [&](const link::MirrorEvent& event) {
            isAsked = isAsked || (event.has_progress() &&
                                  event.progress().phase() == link::MirrorProgress::LISTING_ASSETS);
            return true;
        });
    isAsked = true;
    download.join();
    EXPECT_TRUE(run.status.ok()) << run.status.error_message();
    EXPECT_TRUE(run.failures.empty()) << run.failures[0].ShortDebugString();
    EXPECT_EQ(run.summary().assets(), 1u);
    EXPECT_EQ(companion.read(tracksByTitle(companion)["Late"].path()), content);
}

TEST_F(DownloadMirrors, AFileWhoseDownloadStallsIsListedAndTheNextRunGetsIt) {
    beginDownload();
    first.setPatience(std::chrono::milliseconds(500));
    const MirrorRun stalled = run(requestFrom(first.root.path), companion);
    EXPECT_TRUE(stalled.status.ok()) << stalled.status.error_message();
    ASSERT_EQ(stalled.failures.size(), 1u);
    EXPECT_EQ(stalled.failures[0].title(), "Late");
    EXPECT_EQ(stalled.failures[0].failure().code(), ETIMEDOUT);
    EXPECT_TRUE(stalled.failures[0].recoverable());
    letItCome();
    ASSERT_TRUE(eventually([&] { return first.downloads().list().empty(); }));
    const MirrorRun rest = run(requestFrom(first.root.path), companion);
    EXPECT_TRUE(rest.failures.empty());
    EXPECT_EQ(rest.summary().assets(), 1u);
    EXPECT_EQ(companion.read(tracksByTitle(companion)["Late"].path()), content);
}

}  // namespace
}  // namespace orlith::testing
