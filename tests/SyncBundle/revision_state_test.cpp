#include "tests/SyncBundle/sync_client_test.h"

namespace sync_bundle_tests {
namespace {

class RevisionState : public SyncClientTest {
protected:
    // What the completion handler of a reset was called with before the reset returned.
    std::vector<OptionalError> reset() {
        std::vector<OptionalError> answers;
        bool hasReturned = false;
        client().resetSyncDataWithCompletion([&](const OptionalError& error) {
            EXPECT_FALSE(hasReturned);
            answers.push_back(error);
        });
        hasReturned = true;
        scheduler().runDueJobs();
        return answers;
    }
};

TEST_F(RevisionState, TheDataClassIsMediaBeforeAndAfterASync) {
    EXPECT_EQ(client().syncDataClass(), "Media");
    client().syncSessionCompletedWithError(std::nullopt, true);
    EXPECT_EQ(client().syncDataClass(), "Media");
    EXPECT_EQ(calls(), Calls{});
}

TEST_F(RevisionState, TheRevisionIsTheLibrarysAtTheMomentOfTheCall) {
    library().revision = 5'000'000'000;
    EXPECT_EQ(client().currentRevision(), 5'000'000'000);
    EXPECT_EQ(client().currentRevision(), 5'000'000'000);
    ++library().revision;
    EXPECT_EQ(client().currentRevision(), 5'000'000'001);
    EXPECT_EQ(calls(), (Calls{{"KV3Korvane.currentRevision", {}},
                              {"KV3Korvane.currentRevision", {}},
                              {"KV3Korvane.currentRevision", {}}}));
}

TEST_F(RevisionState, TheVersionTokenIsTheLibrarysIdentifierUnchanged) {
    EXPECT_EQ(client().revisionVersionToken(), Value("library"));
    library().uid = Data{1, 2, 3};
    EXPECT_EQ(client().revisionVersionToken(), Value(Data{1, 2, 3}));
    library().uid = Value();
    EXPECT_TRUE(client().revisionVersionToken().isNull());
    EXPECT_EQ(calls(), (Calls{{"KV3Korvane.libraryUID", {}},
                              {"KV3Korvane.libraryUID", {}},
                              {"KV3Korvane.libraryUID", {}}}));
}

TEST_F(RevisionState, AResetRemovesWhatChangeSyncBroughtIn) {
    EXPECT_THAT(reset(), ElementsAre(std::nullopt));
    EXPECT_EQ(calls(), (Calls{{"KV3Korvane.removeSource", {2}}}));
    EXPECT_THAT(lines(), IsEmpty());
}

TEST_F(RevisionState, ARefusedResetIsAnErrorAndOneWarning) {
    client();
    recorder().failCall("KV3Korvane.removeSource");
    EXPECT_THAT(reset(), ElementsAre(Error("ORError", 0)));
    EXPECT_EQ(calls(), (Calls{{"KV3Korvane.removeSource", {2}}}));
    EXPECT_THAT(lines(), ElementsAre(line(LogLevel::Warning, "resetSyncDataWithCompletion:",
                                          "failed to remove sync source from library")));
}

TEST_F(RevisionState, AResetLeavesTheStreamsAtWorkAlone) {
    inspector().streams.add(std::make_shared<int>(1));
    reset();
    EXPECT_EQ(inspector().streams.size(), 1u);
}

}  // namespace
}  // namespace sync_bundle_tests
