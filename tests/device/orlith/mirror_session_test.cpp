// Both sides of a mirror session over a plug-in that is silent, late, or throws.
#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <stdexcept>
#include <thread>

#include "common/hash.h"
#include "device/orlith/incoming_file.h"
#include "device/orlith/mirror/serving_session.h"
#include "device/orlith/session_error.h"
#include "tests/device/orlith/fake_mirror.h"

namespace orlith::testing {
namespace {

class MirrorSessions : public ::testing::Test {
protected:
    MirrorSessions() {
        first.changes.revision = 5;
        for (const std::int64_t id : {11, 12, 13}) {
            first.addTrack(id, bytesOf(id));
            companion.addTrack(id, std::nullopt);
        }
    }
    static std::string bytesOf(std::int64_t id) {
        return std::string(300'000, static_cast<char>(id));
    }
    MirrorOutcome mirror(std::vector<link::MirrorAsset>& failures) {
        return mirrorBetween(first, companion, [&](const link::MirrorEvent& event) {
            if (event.has_asset() && !event.asset().success())
                failures.push_back(event.asset());
        });
    }
    void expectComplete() {
        for (const std::int64_t id : {11, 12, 13}) {
            const auto path = companion.device.tracks.get(id).path;
            EXPECT_TRUE(path && companion.device.read(*path) == bytesOf(id)) << id;
        }
        EXPECT_TRUE(companion.device.filesBelow("/var/mobile/Media/Stagehold").empty());
        EXPECT_FALSE(first.device.slot.isTaken());
        EXPECT_FALSE(companion.device.slot.isTaken());
    }

    MirrorDevice first{"first"};
    MirrorDevice companion{"companion"};
};

TEST_F(MirrorSessions, ChangesAndFilesComeAcross) {
    const MirrorOutcome outcome = mirrorBetween(first, companion);
    EXPECT_FALSE(outcome.error) << outcome.error->description();
    EXPECT_EQ(outcome.summary.assets(), 3u);
    EXPECT_EQ(companion.changes.imported, first.changes.changes);
    EXPECT_EQ(companion.peers.expected, "");
    expectComplete();
}

TEST_F(MirrorSessions, TheFirstDeviceIsFreeOnceItsCompanionHasHeardOfTheEnd) {
    MemoryLink link;
    std::thread serving([&] { ServingSession(first.services, link.serving()).run(); });
    const MirrorOutcome outcome =
        MirrorSession(
            companion.services, link.companion(), [](const link::MirrorEvent&) {}, 0)
            .run();
    EXPECT_FALSE(outcome.error) << outcome.error->description();
    EXPECT_FALSE(first.device.slot.isTaken());
    link.close();
    serving.join();
}

TEST_F(MirrorSessions, ThePlugInHearsHowMuchOfAFileHasCome) {
    mirrorBetween(first, companion);
    const std::vector<double> told = companion.assets.progressOf("12");
    ASSERT_GE(told.size(), 2u);  // the file is larger than a piece
    EXPECT_GT(told.front(), 0.0);
    EXPECT_TRUE(std::ranges::is_sorted(told));
    EXPECT_EQ(told.back(), 1.0);
}

TEST_F(MirrorSessions, ARequestThatThePlugInLeavesSilentIsTakenForFailedAndTheOthersCome) {
    first.assets.silent = {"11"};
    first.services.assetPatience = std::chrono::milliseconds(150);
    std::vector<link::MirrorAsset> failures;
    const MirrorOutcome outcome = mirror(failures);
    EXPECT_FALSE(outcome.error) << outcome.error->description();
    EXPECT_EQ(outcome.summary.assets(), 2u);
    ASSERT_EQ(failures.size(), 1u);
    EXPECT_EQ(failures[0].identifier(), "11");
    EXPECT_EQ(failures[0].failure().code(), ETIMEDOUT);
    EXPECT_TRUE(failures[0].recoverable());

    first.assets.silent.clear();
    EXPECT_EQ(mirrorBetween(first, companion).summary.assets(), 1u);
    expectComplete();
}

TEST_F(MirrorSessions, AFileThatIsNotWhatCameIsNotPassedOnAndTheOthersCome) {
    const auto hashOf = [](const std::string& bytes) {
        return hashText(
            common::xxh3({reinterpret_cast<const std::uint8_t*>(bytes.data()), bytes.size()}));
    };
    first.peers.hashes = {{11, hashOf(bytesOf(11))}, {12, hashOf("what came once")}};
    std::vector<link::MirrorAsset> failures;
    const MirrorOutcome outcome = mirror(failures);
    EXPECT_FALSE(outcome.error) << outcome.error->description();
    EXPECT_EQ(outcome.summary.assets(), 2u);
    ASSERT_EQ(failures.size(), 1u);
    EXPECT_EQ(failures[0].identifier(), "12");
    EXPECT_EQ(failures[0].failure().code(), EBADMSG);
    EXPECT_TRUE(failures[0].failure().text().starts_with(
        "the other device's file is not what came there: its contents have changed."))
        << failures[0].failure().text();
    EXPECT_FALSE(companion.device.tracks.get(12).path);

    first.peers.hashes[12] = hashOf(bytesOf(12));
    EXPECT_EQ(mirrorBetween(first, companion).summary.assets(), 1u);
    expectComplete();
}

TEST_F(MirrorSessions, AnAnswerThatComesAfterItsDeadlineIsDropped) {
    first.assets.silent = {"11", "12"};
    first.services.assetPatience = std::chrono::milliseconds(150);
    std::atomic<bool> answered{false};
    const MirrorOutcome outcome =
        mirrorBetween(first, companion, [&](const link::MirrorEvent& event) {
            if (event.has_asset() && !event.asset().success() && !answered.exchange(true)) {
                EXPECT_TRUE(first.assets.answer(event.asset().identifier()));
            }
        });
    EXPECT_FALSE(outcome.error) << outcome.error->description();
    EXPECT_EQ(outcome.summary.assets(), 1u);
    EXPECT_EQ(outcome.summary.failed(), 2u);
    // One comes when nobody is there any more.
    EXPECT_EQ(first.assets.held(), 1u);
    EXPECT_TRUE(first.assets.answer("11") || first.assets.answer("12"));
    first.assets.silent.clear();
    EXPECT_EQ(mirrorBetween(first, companion).summary.assets(), 2u);
    expectComplete();
}

// A companion that says what the test wants.
class ScriptedCompanion {
public:
    explicit ScriptedCompanion(MirrorDevice& first)
        : _serving([&] { ended = ServingSession(first.services, _link.serving()).run(); }) {
        link::FromCompanion message;
        message.mutable_open()->set_protocol_version(PeerProtocolVersion);
        message.mutable_open()->set_library_uid("scripted");
        _link.companion().write(message);
        EXPECT_TRUE(receive().has_opened());
    }
    ~ScriptedCompanion() { leave(); }
    void leave() {
        _link.close();
        if (_serving.joinable())
            _serving.join();
    }
    void ask(std::uint32_t request, const std::string& identifier, std::uint32_t parts = PartFile) {
        link::FromCompanion message;
        message.mutable_asset()->set_request(request);
        message.mutable_asset()->set_identifier(identifier);
        message.mutable_asset()->set_parts(parts);
        write(message);
    }
    void write(const link::FromCompanion& message) { _link.companion().write(message); }
    std::size_t unread() { return _link.unread(); }
    void close() { _link.close(); }
    // Of an asset, but for what only tells of waiting.
    link::FromFirst receive() {
        link::FromFirst message;
        do {
            if (!_link.companion().read(message))
                return {};
        } while (message.has_asset() && message.asset().has_waiting());
        return message;
    }

    platform::OptionalError ended;  // once it has left

private:
    MemoryLink _link;
    std::thread _serving;
};

TEST_F(MirrorSessions, TheSameAssetAskedForTwiceAtOnceIsAnsweredOnceAndRefusedOnce) {
    first.assets.silent = {"11"};
    ScriptedCompanion scripted(first);
    scripted.ask(1, "11");
    scripted.ask(2, "11");
    const link::FromFirst refused = scripted.receive();
    EXPECT_EQ(refused.asset().request(), 2u);
    EXPECT_EQ(refused.asset().end().failure().code(), EALREADY);
    EXPECT_TRUE(first.assets.answer("11"));
    EXPECT_TRUE(scripted.receive().asset().has_begin());
    std::string bytes;
    link::FromFirst message;
    while ((message = scripted.receive()).asset().has_data())
        bytes += message.asset().data();
    EXPECT_EQ(message.asset().request(), 1u);
    EXPECT_FALSE(message.asset().end().has_failure());
    EXPECT_EQ(bytes, bytesOf(11));
}

TEST_F(MirrorSessions, WhatNoDeviceAsksForEndsTheSessionAndNothingElse) {
    const std::vector<std::function<void(ScriptedCompanion&)>> questions{
        [](ScriptedCompanion& it) { it.ask(0, "11"); },
        [](ScriptedCompanion& it) { it.ask(1, "../../etc/passwd"); },
        [](ScriptedCompanion& it) { it.ask(1, ""); },
        [](ScriptedCompanion& it) { it.ask(1, "99999999999999999999"); },
        [](ScriptedCompanion& it) { it.ask(1, "11", 4); },
        [](ScriptedCompanion& it) { it.ask(1, "11", 3); },
        [](ScriptedCompanion& it) { it.ask(1, "11", 0); },
    };
    for (const auto& question : questions) {
        ScriptedCompanion scripted(first);
        question(scripted);
        EXPECT_EQ(scripted.receive().failed().failure().code(), OrlithErrorProtocol);
        scripted.leave();
        EXPECT_TRUE(scripted.ended);
        EXPECT_FALSE(first.device.slot.isTaken());
    }
    EXPECT_FALSE(mirrorBetween(first, companion).error);
    expectComplete();
}

TEST_F(MirrorSessions, ACompanionThatAsksWithoutEndIsReadOnlyAsFarAsItsQuestionsAreAnswered) {
    std::atomic<bool> goesOn{false};
    std::atomic<bool> isAsked{false};
    first.changes.onCall = [&](const std::string& operation) {
        isAsked = isAsked || operation == "currentRevision";
        while (operation == "currentRevision" && !goesOn)
            std::this_thread::yield();
    };
    {
        ScriptedCompanion scripted(first);
        link::FromCompanion question;
        question.mutable_state();
        for (int i = 0; i < 5000; ++i)
            scripted.write(question);
        while (!isAsked || scripted.unread() > 4800)
            std::this_thread::yield();
        EXPECT_GT(scripted.unread(), 4000u);
        goesOn = true;
        for (int i = 0; i < 5000; ++i)
            ASSERT_TRUE(scripted.receive().has_state());
        EXPECT_EQ(scripted.unread(), 0u);
        // It may leave at any time, also while it waits to be read.
        goesOn = isAsked = false;
        for (int i = 0; i < 5000; ++i)
            scripted.write(question);
        while (!isAsked)
            std::this_thread::yield();
        scripted.close();
        goesOn = true;
    }
    EXPECT_FALSE(first.device.slot.isTaken());
    first.changes.onCall = nullptr;
    EXPECT_FALSE(mirrorBetween(first, companion).error);
    expectComplete();
}

class SomeDownload final : public VDDownload {
public:
    explicit SomeDownload(std::string item) : _item(std::move(item)) {}
    platform::Value valueForProperty(std::string_view) const override { return _item; }
    std::int64_t persistentIdentifier() const override { return 1; }
    std::string downloadPhaseIdentifier() const override { return {}; }
    std::string description() const override { return _item; }

private:
    const std::string _item;
};

class SomeDownloadManager final : public VDDownloadManager {
public:
    std::vector<std::shared_ptr<VDDownload>> downloads() override { return {}; }
    void addObserver(std::weak_ptr<VDDownloadManagerObserver>) override {}
};

// The download of a file keeps its request alive, whatever becomes of requests for its picture.
TEST_F(MirrorSessions, AFileIsWaitedForAsLongAsItsDownloadMovesThoughItsPictureCameMeanwhile) {
    first.assets.silent = {"11"};
    AssetSource source(
        first.services, [](const link::FromFirst&) { return true; }, [](AssetAnswer) {});
    link::AssetRequest request;
    request.set_request(1);
    request.set_identifier("11");
    request.set_parts(PartFile);
    source.ask(request);
    request.set_request(2);
    request.set_parts(PartArtwork);
    source.ask(request);
    source.answer({2, platform::Error(platform::ORErrorDomain, 3, "no picture"), nullptr, {}});
    SomeDownloadManager manager;
    first.downloads.downloadManagerDownloadStatesDidChange(manager,
                                                           {std::make_shared<SomeDownload>("11")});
    EXPECT_TRUE(first.downloads.lastMove("11"));
    source.answer({1, platform::Error(platform::ORErrorDomain, 3, "no file"), nullptr, {}});
    EXPECT_FALSE(first.downloads.lastMove("11"));
}

// ---- What the plug-in throws.

struct Thrower {
    const char* side;
    const char* operation;
};

class PlugInsThatThrow : public MirrorSessions, public ::testing::WithParamInterface<Thrower> {
protected:
    // One that throws at its operation, so many times.
    OnCall throwing(std::atomic<int>& times, bool isKnown) {
        return [&times, isKnown](const std::string& operation) {
            if (operation != GetParam().operation || times <= 0)
                return;
            --times;
            if (isKnown)
                throw std::out_of_range("the plug-in's own words");
            throw 7;
        };
    }
    void setOnCall(const OnCall& onCall) {
        MirrorDevice& device = GetParam().side == std::string("first") ? first : companion;
        device.device.client.onCall = device.changes.onCall = device.assets.onCall = onCall;
    }
};

TEST_P(PlugInsThatThrow, EndThatSessionWithAClearErrorAndTheNextOneIsServed) {
    for (const bool isKnown : {true, false}) {
        std::atomic<int> times{1};
        setOnCall(throwing(times, isKnown));
        const MirrorOutcome outcome = mirrorBetween(first, companion);
        EXPECT_EQ(times, 0) << "it was not called";
        EXPECT_FALSE(first.device.slot.isTaken());
        EXPECT_FALSE(companion.device.slot.isTaken());
        EXPECT_EQ(companion.peers.expected, "");
        // What is thrown once all is done is logged.
        if (outcome.error && isKnown) {
            EXPECT_NE(outcome.error->text().find("the plug-in's own words"), std::string::npos)
                << outcome.error->description();
        }
        setOnCall(nullptr);
    }
    const MirrorOutcome outcome = mirrorBetween(first, companion);
    EXPECT_FALSE(outcome.error) << outcome.error->description();
    expectComplete();
}

INSTANTIATE_TEST_SUITE_P(
    Sides, PlugInsThatThrow,
    ::testing::Values(Thrower{"first", "currentRevision"}, Thrower{"first", "revisionVersionToken"},
                      Thrower{"first", "getChanges"}, Thrower{"first", "written"},
                      Thrower{"first", "getData"}, Thrower{"first", "syncSessionCompleted"},
                      Thrower{"companion", "revisionVersionToken"}, Thrower{"companion", "prepare"},
                      Thrower{"companion", "applyChanges"}, Thrower{"companion", "read"},
                      Thrower{"companion", "assetsToSync"},
                      Thrower{"companion", "assetSyncDidComplete:"},
                      Thrower{"companion", "assetSyncDidComplete"},
                      Thrower{"companion", "syncSessionCompleted"}));

TEST_F(MirrorSessions, ACancelAtWhichThePlugInThrowsEndsTheSession) {
    MemoryLink link;
    std::thread serving([&] { ServingSession(first.services, link.serving()).run(); });
    const MirrorEvents events = [](const link::MirrorEvent&) {};
    MirrorSession session(companion.services, link.companion(), events, 0);
    companion.device.client.onCall = [](const std::string& operation) {
        if (operation == "cancel")
            throw std::runtime_error("no");
    };
    companion.changes.onCall = [&](const std::string& operation) {
        if (operation == "applyChanges")
            session.cancel(platform::Error(platform::POSIXErrorDomain, ECANCELED, "enough"));
    };
    const MirrorOutcome outcome = session.run();
    link.close();
    serving.join();
    ASSERT_TRUE(outcome.error);
    EXPECT_EQ(outcome.error->code, ECANCELED);
    companion.changes.onCall = nullptr;
    EXPECT_FALSE(mirrorBetween(first, companion).error);
    expectComplete();
}

// ---- Streams.

TEST_F(MirrorSessions, AnExportWhoseSinkFailsAtAnyPieceEndsWithThatError) {
    first.changes.changes.assign(10 * PieceOutputStream::PieceSize + 7, 'q');
    for (std::size_t failing = 0; failing < 11; ++failing) {
        std::size_t taken = 0;
        const ExportedChanges exported = first.operations.exportChanges(
            {}, {}, [](const platform::Dictionary&) {},
            [&](std::string) { return taken++ != failing; });
        ASSERT_TRUE(exported.error) << failing;
        EXPECT_EQ(exported.error->code, EPIPE);
        EXPECT_EQ(taken, failing + 1);
    }
    std::size_t bytes = 0;
    const ExportedChanges whole = first.operations.exportChanges(
        {}, {}, [](const platform::Dictionary&) {},
        [&](const std::string& piece) {
            bytes += piece.size();
            return true;
        });
    EXPECT_FALSE(whole.error);
    EXPECT_EQ(bytes, first.changes.changes.size());
    EXPECT_EQ(whole.size, bytes);
}

TEST_F(MirrorSessions, AnExportWaitsForAFarEndThatTakesItsTime) {
    first.changes.changes.assign(10 * PieceOutputStream::PieceSize, 'q');
    std::atomic<bool> isWritten{false};
    first.changes.onCall = [&](const std::string& operation) {
        isWritten = isWritten || operation == "written";
    };
    std::size_t pieces = 0;
    const ExportedChanges exported = first.operations.exportChanges(
        {}, {}, [](const platform::Dictionary&) {},
        [&](std::string) {
            // All has been handed over only when the last piece has been taken.
            EXPECT_FALSE(isWritten);
            ++pieces;
            return true;
        });
    EXPECT_FALSE(exported.error);
    EXPECT_EQ(pieces, 10u);
    EXPECT_TRUE(isWritten);
}

TEST_F(MirrorSessions, AStreamThatIsWrittenToAfterItsOperationRefusesAndLeavesTheSinkAlone) {
    int pieces = 0;
    PieceOutputStream stream([&](std::string) { return ++pieces > 0; }, [](const auto&) {});
    const platform::Data bytes(PieceOutputStream::PieceSize, 'q');
    EXPECT_FALSE(stream.write(bytes));
    EXPECT_FALSE(stream.finish());
    stream.close();
    EXPECT_TRUE(stream.write(bytes));
    EXPECT_EQ(pieces, 1);
    EXPECT_EQ(stream.size(), bytes.size());
}

}  // namespace
}  // namespace orlith::testing
