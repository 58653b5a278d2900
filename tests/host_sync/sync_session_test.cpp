#include "host/session/sync_session.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <fstream>
#include <future>
#include <map>
#include <thread>

#include "host/scan/content_hash.h"
#include "host/session/link_error.h"
#include "host/session/session_stream.h"
#include "host/session/upload_file.h"
#include "tests/host_sync/fake_device.h"
#include "tests/host_sync/folder_maker.h"
#include "tests/support/temporary_directory.h"

namespace host {
namespace {

using test::FakeDevice;
using ::test::TemporaryDirectory;
namespace link = ::orlith::link;

// Serves each asset from a file named like its identifier.
class Files : public AssetSource {
public:
    explicit Files(std::string directory) : _directory(std::move(directory)) {}

    void write(const std::string& name, const std::string& bytes) {
        std::ofstream(_directory + "/" + name, std::ios::binary) << bytes;
        sizes[name] = static_cast<std::int64_t>(bytes.size());
    }

    AssetContent contentOf(const OutstandingAsset& asset) override {
        AssetContent content;
        if (!sizes.contains(asset.identifier)) {
            content.failure = "not here";
            return content;
        }
        AssetPart part;
        part.path = _directory + "/" + asset.identifier;
        part.size = sizes[asset.identifier];
        part.extension = "mp3";
        content.parts.push_back(part);
        return content;
    }

    std::map<std::string, std::int64_t> sizes;  // as they were when the folder was read

private:
    const std::string _directory;
};

class Session : public testing::Test {
protected:
    Session() {
        device.onMessage = [this](const link::FromHost& message, FakeDevice::Stream& stream) {
            if (!receive(message, stream))
                return false;
            FakeDevice::answerOrdinarily(message, stream);
            return true;
        };
        session = std::make_unique<SyncSession>(device.connection->startSession());
    }

    void open() {
        ::test::handOver();
        OpenedSession opened;
        ASSERT_FALSE(session->open({"host", "test", "", "1"}, opened));
        EXPECT_EQ(opened.libraryUid, "device");
    }

    // Keeps what arrives and answers each asset.
    bool receive(const link::FromHost& message, FakeDevice::Stream& stream) {
        if (message.has_transfer()) {
            transfer = message.transfer();
            offsets[transfer.identifier()] = transfer.offset();
            arriving.clear();
        }
        if (message.has_chunk()) {
            arriving += message.chunk().data();
            if (cutAfter != 0 && arriving.size() >= cutAfter)
                return false;
            if (message.chunk().last() && transfer.asset_complete())
                finishAsset(message.chunk(), stream);
        }
        if (message.has_transfer_failed())
            answerAsset(stream, message.transfer_failed().identifier(), false, 0);
        return true;
    }

    void finishAsset(const link::Chunk& last, FakeDevice::Stream& stream) {
        const bool whole = arriving.size() + transfer.offset() == transfer.size();
        if (whole && transfer.offset() == 0) {
            EXPECT_EQ(contentHashOfBytes(last.content_hash()), contentHashOfText(arriving));
        }
        const bool success = whole && failures[transfer.identifier()] == 0;
        if (success)
            stored[transfer.identifier()] = arriving;
        answerAsset(stream, transfer.identifier(), success, failures[transfer.identifier()]);
    }

    static void answerAsset(FakeDevice::Stream& stream, const std::string& identifier, bool success,
                            int error) {
        FakeDevice::answer(stream, [&](link::FromDevice& m) {
            link::AssetResult& result = *m.mutable_asset_result();
            result.set_identifier(identifier);
            result.set_parts(AssetPartFile);
            result.set_success(success);
            if (!success) {
                result.mutable_failure()->set_domain("POSIXErrorDomain");
                result.mutable_failure()->set_code(error);
                result.mutable_failure()->set_text("the device could not");
            }
        });
    }

    platform::OptionalError send(const std::vector<std::string>& identifiers) {
        std::vector<OutstandingAsset> assets;
        for (const std::string& identifier : identifiers) {
            assets.push_back({identifier, AssetPartFile, true, false, "", 0});
            if (identifier == resumed)
                assets.back().resumeFrom = 1000;
        }
        TransferEvents events;
        events.sent = [this](std::uint64_t bytes) { sent = bytes; };
        events.finished = [this](const AssetOutcome& outcome) {
            outcomes[outcome.asset->identifier] = outcome;
            outcomes[outcome.asset->identifier].asset = nullptr;
        };
        const platform::OptionalError error = session->transfer(assets, files, events);
        ::test::takeOver();
        return error;
    }

    TemporaryDirectory directory;
    Files files{directory.path()};
    // The device's side; read by the test once the session is over or between its steps.
    link::Transfer transfer;
    std::string arriving;
    std::map<std::string, std::string> stored;
    std::map<std::string, std::uint64_t> offsets;
    std::map<std::string, int> failures;
    std::size_t cutAfter = 0;
    // The host's side.
    std::string resumed;
    std::uint64_t sent = 0;
    std::map<std::string, AssetOutcome> outcomes;
    // The device ends before what it writes to, the session before the device.
    FakeDevice device;
    std::unique_ptr<SyncSession> session;
};

TEST_F(Session, FilesArriveInOrderWithTheirHash) {
    const std::string large(700'000, 'x');
    files.write("1", large);
    files.write("2", "small");
    open();
    ASSERT_FALSE(send({"1", "2"}));
    EXPECT_EQ(stored["1"], large);
    EXPECT_EQ(stored["2"], "small");
    EXPECT_EQ(sent, large.size() + 5);
    EXPECT_TRUE(outcomes["1"].success);
    EXPECT_EQ(outcomes["1"].fileHash, contentHashOfText(large));
    std::string anchor;
    EXPECT_FALSE(session->end(true, anchor));
    EXPECT_EQ(anchor, "end");
}

TEST_F(Session, AnEmptyFileIsOneEmptyPiece) {
    files.write("1", "");
    open();
    ASSERT_FALSE(send({"1"}));
    EXPECT_TRUE(outcomes["1"].success);
}

TEST_F(Session, OneBadFileStopsNothing) {
    files.write("1", "one");
    files.write("3", "three");
    open();
    ASSERT_FALSE(send({"1", "2", "3"}));
    EXPECT_FALSE(outcomes["2"].success);
    EXPECT_EQ(outcomes["2"].reason, "not here");
    EXPECT_EQ(stored.size(), 2u);
}

TEST_F(Session, AFileThatChangedSinceTheFolderWasReadFailsAlone) {
    files.write("1", "one");
    files.write("2", "two");
    files.sizes["1"] = 4000;
    open();
    ASSERT_FALSE(send({"1", "2"}));
    EXPECT_FALSE(outcomes["1"].success);
    EXPECT_NE(outcomes["1"].reason.find("changed"), std::string::npos);
    EXPECT_TRUE(outcomes["2"].success);
}

TEST_F(Session, WhatTheDeviceCannotTakeIsToldWithItsReason) {
    files.write("1", "one");
    failures["1"] = ENOSPC;
    open();
    ASSERT_FALSE(send({"1"}));
    EXPECT_TRUE(outcomes["1"].noSpace);
    EXPECT_EQ(outcomes["1"].reason, "the device could not");
}

TEST_F(Session, AStreamThatIsCutWithinAFileIsAnErrorAndWhatCameBeforeCounts) {
    files.write("1", "one");
    files.write("2", std::string(40'000'000, 'x'));
    cutAfter = 1'000'000;
    device.status = grpc::Status(grpc::StatusCode::UNAVAILABLE, "gone");
    open();
    const auto error = send({"1", "2"});
    ASSERT_TRUE(error);
    EXPECT_EQ(error->code, LinkErrorUnreachable);
    session->close();
    EXPECT_EQ(stored.size(), 1u);
    EXPECT_FALSE(outcomes["2"].success);
}

TEST_F(Session, AResumedFileSendsOnlyItsRest) {
    files.write("1", std::string(1000, 'a') + "rest");
    resumed = "1";
    open();
    ASSERT_FALSE(send({"1"}));
    EXPECT_EQ(offsets["1"], 1000u);
    EXPECT_EQ(stored["1"], "rest");
    EXPECT_EQ(sent, 4u);
    EXPECT_EQ(outcomes["1"].fileHash, contentHashOfText(std::string(1000, 'a') + "rest"));
}

TEST_F(Session, ABusyDeviceNamesItsOwner) {
    device.onMessage = [](const link::FromHost&, FakeDevice::Stream& stream) {
        FakeDevice::answer(stream, [](link::FromDevice& m) {
            link::SessionFailed& failed = *m.mutable_failed();
            failed.set_owner("other host, process 4711");
            failed.mutable_failure()->set_domain(std::string(DaemonErrorDomain));
            failed.mutable_failure()->set_code(DaemonErrorBusy);
            failed.mutable_failure()->set_text("the device is busy");
        });
        return false;
    };
    ::test::handOver();
    OpenedSession opened;
    const auto error = session->open({"host", "test", "", "1"}, opened);
    ASSERT_TRUE(error);
    EXPECT_EQ(error->domain, LinkErrorDomain);
    EXPECT_EQ(error->code, LinkErrorBusy);
    EXPECT_NE(error->text().find("4711"), std::string::npos);
}

TEST_F(Session, AnInterruptCancelsTheImportAndTheSessionStillEndsInOrder) {
    std::atomic<bool> cancelled{false};
    std::atomic<bool> ended{false};
    std::promise<void> importing;
    const std::jthread interrupter([&] {
        importing.get_future().wait_for(std::chrono::seconds(30));
        session->interrupt();
    });
    device.onMessage = [&](const link::FromHost& message, FakeDevice::Stream& stream) {
        if (message.has_reconcile()) {
            // The import runs until it is cancelled.
            importing.set_value();
            return true;
        }
        if (message.has_cancel()) {
            cancelled = true;
            FakeDevice::answer(
                stream, [](link::FromDevice& m) { m.mutable_reconciled()->set_success(false); });
        }
        ended = ended || message.has_end();
        FakeDevice::answerOrdinarily(message, stream);
        return true;
    };
    open();
    std::string anchor;
    const auto error = session->reconcile(1, "new", anchor);
    ASSERT_TRUE(error);
    EXPECT_EQ(error->code, LinkErrorCancelled);
    session->close();
    EXPECT_TRUE(cancelled);
    EXPECT_TRUE(ended);
}

TEST_F(Session, AnInterruptedTransferStopsBeforeTheRest) {
    for (int i = 1; i <= 200; ++i)
        files.write(std::to_string(i), std::string(300'000, 'x'));
    std::vector<std::string> all;
    for (int i = 1; i <= 200; ++i)
        all.push_back(std::to_string(i));
    open();
    session->interrupt();
    const auto error = send(all);
    ASSERT_TRUE(error);
    EXPECT_EQ(error->code, LinkErrorCancelled);
    session->close();
    EXPECT_LT(stored.size(), 200u);
}

TEST_F(Session, AnUploadArrivesUnderANameThatIsFree) {
    device.onMessage = [](const link::FromHost& message, FakeDevice::Stream& stream) {
        if (message.has_upload())
            FakeDevice::answer(stream, [](link::FromDevice& m) {
                m.mutable_upload_chunk()->set_identifier("5");
                m.mutable_upload_chunk()->set_data("song");
                m.mutable_upload_chunk()->set_last(true);
                m.mutable_upload_chunk()->set_content_hash(
                    bytesOfContentHash(contentHashOfText("song")));
            });
        if (message.has_upload_done())
            FakeDevice::answer(stream, [&](link::FromDevice& m) {
                m.mutable_upload_closed()->set_deleted(message.upload_done().success());
            });
        FakeDevice::answerOrdinarily(message, stream);
        return true;
    };
    std::ofstream(directory.path() + "/a.mp3") << "already here";
    open();
    UploadOutcome outcome;
    ASSERT_FALSE(
        session->receiveUpload({"5", 0, false, true, "", 0}, directory.path(), "a.mp3", outcome));
    EXPECT_EQ(outcome.failure, "");
    EXPECT_EQ(outcome.path, directory.path() + "/a (2).mp3");
    EXPECT_TRUE(outcome.deleted);
    EXPECT_EQ(fileSize(directory.path() + "/a.mp3"), 12);
}

TEST(UploadFile, ADamagedUploadLeavesNothingBehind) {
    TemporaryDirectory directory;
    {
        UploadFile file(directory.path(), "a.mp3");
        file.write("song");
        file.finish(ContentHash{1, 2});
        EXPECT_FALSE(file.failure().empty());
    }
    EXPECT_TRUE(std::filesystem::is_empty(directory.path()));
}

TEST(UploadFile, NamesCannotLeadElsewhere) {
    EXPECT_EQ(safeFileName("../../etc/passwd"), "_.._etc_passwd");
    EXPECT_EQ(safeFileName(""), "upload");
    EXPECT_EQ(safeFileName("AC/DC.mp3"), "AC_DC.mp3");
}

}  // namespace
}  // namespace host
