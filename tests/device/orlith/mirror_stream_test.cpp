// Change streams between real daemons: as a whole, damaged, wrongly described, and cut at any byte.
#include <atomic>
#include <random>

#include "common/property_list/property_list.h"
#include "tests/device/orlith/link_proxy.h"
#include "tests/device/orlith/mirror_fixture.h"

namespace orlith::testing {
namespace {

TEST_F(Mirrors, ChangesCanBeExportedAndImportedAsAStream) {
    first.start();
    companion.start();
    hostSync(first, {2, 1000, {}, {{1, {1, 2}}}});
    std::vector<link::ChangeStream> messages = exportChanges(first);
    ASSERT_GE(messages.size(), 3u);
    EXPECT_TRUE(messages.front().has_params());
    EXPECT_EQ(messages.back().end().revision(), revision(first));
    link::ImportReply reply;
    EXPECT_TRUE(importChanges(companion, messages, reply).ok());
    EXPECT_TRUE(reply.success()) << reply.ShortDebugString();
    EXPECT_EQ(tracksByTitle(companion).size(), 2u);
    EXPECT_EQ(playlists(companion)["List 1"].size(), 2u);

    // A byte that changed on the way is noticed, and nothing is imported.
    (*messages[1].mutable_data())[20] ^= 1;
    const grpc::Status damaged = importChanges(companion, messages, reply);
    EXPECT_EQ(damaged.error_code(), grpc::StatusCode::INTERNAL);
    EXPECT_NE(damaged.error_message().find("did not arrive as they were sent"), std::string::npos)
        << damaged.error_message();
}

TEST_F(Mirrors, APlaylistLengthBeyondTheStreamFailsTheImportAndNothingElse) {
    first.start();
    companion.start();
    const HostLibrary library{2, 1000, {}, {{1, {1, 2}}}};
    hostSync(first, library);
    std::vector<link::ChangeStream> messages = exportChanges(first);
    const std::string& bytes = messages.front().params();
    platform::OptionalError error;
    auto params = common::parsePropertyList(platform::Data(bytes.begin(), bytes.end()), &error);
    ASSERT_TRUE(params && params->isDictionary());
    platform::Dictionary changed = *params->dictionary();
    changed["PlaylistDataLen"] = std::uint64_t{4'000'000'000};
    const auto wrong =
        common::serializePropertyList(changed, platform::PropertyListFormat::Binary, &error);
    messages.front().set_params(std::string(wrong->begin(), wrong->end()));

    const std::string before = contentOf(companion);
    const std::int64_t revisionBefore = revision(companion);
    for (int round = 0; round < 3; ++round) {
        link::ImportReply reply;
        EXPECT_TRUE(importChanges(companion, messages, reply).ok());
        EXPECT_FALSE(reply.success());
        EXPECT_NE(reply.failure().text().find("beyond the change stream"), std::string::npos)
            << reply.ShortDebugString();
    }
    EXPECT_EQ(contentOf(companion), before);
    EXPECT_EQ(revision(companion), revisionBefore);
    mirror(first, companion);
    expectComplete(companion, library);
}

// Every run is cut a few bytes later than the one before; what was cut is as if it had not begun,
// but for files that are here already.
class CutLinks : public Mirrors, public ::testing::WithParamInterface<LinkProxy::Way> {};

TEST_P(CutLinks, ALinkThatIsCutAtAnyByteLeavesTheLibraryAsItWasAndTheNextRunGoesOn) {
    const bool toCompanion = GetParam() == LinkProxy::Way::ToCompanion;
    const unsigned seed = 20261121;
    SCOPED_TRACE("seed " + std::to_string(seed));
    std::mt19937 random(seed);
    first.start();
    companion.start();
    const HostLibrary library{3, 3000, {2}, {{1, {3, 1}}}};
    hostSync(first, library);
    const std::int64_t revisionBefore = revision(companion);
    LinkProxy proxy(first.root);
    const std::size_t step = toCompanion ? 150 : 20;
    std::size_t bytes = 0;
    MirrorRun last;
    int cuts = 0;
    do {
        bytes += 1 + random() % (2 * step);
        SCOPED_TRACE("cut after " + std::to_string(bytes));
        proxy.at(GetParam(), bytes, [] { return false; });
        last = run(requestFrom(proxy.root()), companion);
        if (last.status.ok())
            break;
        ++cuts;
        EXPECT_NE(last.status.error_message().find("broke"), std::string::npos)
            << last.status.error_message();
        const std::size_t tracks = tracksByTitle(companion).size();
        ASSERT_TRUE(tracks == 0 || tracks == 3) << tracks;
        EXPECT_EQ(playlists(companion).size(), tracks / 3);
        EXPECT_EQ(revision(companion) == revisionBefore, tracks == 0);
    } while (cuts < 2000);
    EXPECT_GT(cuts, 10);
    EXPECT_TRUE(last.failures.empty());
    mirror(first, companion);
    expectComplete(companion, library);
    EXPECT_EQ(contentOf(companion), contentOf(first));
    expectQuiet(first, companion);
}

INSTANTIATE_TEST_SUITE_P(Ways, CutLinks,
                         ::testing::Values(LinkProxy::Way::ToCompanion, LinkProxy::Way::ToFirst),
                         [](const auto& way) {
                             return way.param == LinkProxy::Way::ToCompanion ? "ToTheCompanion"
                                                                             : "ToTheFirstDevice";
                         });

TEST_F(Mirrors, AStreamThatIsCutInItsMiddleChangesNothing) {
    first.start();
    companion.start();
    const HostLibrary library{4000, 0, {}, {}};
    // The entries alone make a stream of many pieces.
    hostSyncWithoutFiles(first, library);
    const std::int64_t before = revision(companion);
    LinkProxy proxy(first.root);
    for (const std::size_t bytes : {50'000, 150'000, 250'000}) {
        proxy.at(LinkProxy::Way::ToCompanion, bytes, [] { return false; });
        EXPECT_FALSE(run(requestFrom(proxy.root()), companion).status.ok());
        EXPECT_EQ(tracksOf(companion).size(), 0u);
        EXPECT_EQ(revision(companion), before);
        EXPECT_EQ(companion.filesBelow("/var/mobile/Media/Stagehold"), 0u);
    }
}

TEST_F(Mirrors, AFirstDeviceThatFallsSilentIsLeftWhenTheOwnerLeaves) {
    first.start();
    companion.start();
    const HostLibrary library{2, 500'000, {}, {}};
    hostSync(first, library);
    LinkProxy proxy(first.root);
    std::atomic<bool> isSilent{false};
    std::atomic<bool> goesOn{false};
    proxy.at(LinkProxy::Way::ToCompanion, 300'000, [&] {
        isSilent = true;
        eventually([&] { return goesOn.load(); });
        return true;
    });
    link::MirrorRequest request = requestFrom(proxy.root());
    {
        grpc::ClientContext context;
        const auto stub = mirrorOf(companion);
        const auto reader = stub->Run(&context, request);
        ASSERT_TRUE(eventually([&] { return isSilent.load(); }));
        context.TryCancel();
        link::MirrorEvent event;
        while (reader->Read(&event)) {
        }
        EXPECT_EQ(reader->Finish().error_code(), grpc::StatusCode::CANCELLED);
    }
    waitUntilFree(companion);
    goesOn = true;
    waitUntilFree(first);
    mirror(first, companion);
    expectComplete(companion, library);
}

}  // namespace
}  // namespace orlith::testing
