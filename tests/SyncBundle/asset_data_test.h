// What the tests of asset data share: a host that asks for data and keeps the answers.
#pragma once

#include "SyncBundle/asset_sync/sync_asset_request.h"
#include "tests/SyncBundle/sync_client_test.h"

namespace sync_bundle_tests {

class AssetDataTest : public SyncClientTest {
protected:
    struct Answer {
        OptionalError error;
        std::optional<std::string> stream;  // its description
        std::optional<Data> content;        // what it gives
        std::optional<std::string> name;
        bool isOnQueue = false;
    };

    // A handler that keeps what it is told.
    ORAssetClient::DataHandler handler() {
        return [this](const OptionalError& error, std::unique_ptr<platform::InputStream> stream,
                      const std::optional<std::string>& name) {
            Answer answer{error, std::nullopt, std::nullopt, name, _queue->isCurrent()};
            if (stream) {
                answer.stream = stream->description();
                EXPECT_EQ(stream->read(answer.content.emplace(), 1000), std::nullopt);
            }
            _answers.push_back(std::move(answer));
        };
    }
    // Asks, and runs what is due; the calls and lines before are forgotten.
    void ask(const std::shared_ptr<ORAsset>& asset) {
        _queue = inspector().queue;
        forget();
        client().getDataForAsset(asset, handler());
        scheduler().runDueJobs();
    }
    void addTrack(std::int64_t persistentID) { library().tracks[persistentID] = {}; }
    // The only answer so far.
    const Answer& answer() {
        EXPECT_EQ(_answers.size(), 1u);
        static const Answer none;
        return _answers.empty() ? none : _answers.front();
    }
    void expectRefused() {
        ASSERT_EQ(_answers.size(), 1u);
        EXPECT_EQ(_answers[0].error, Error("ORError", 3));
        EXPECT_TRUE(_answers[0].error->userInfo.empty());
        EXPECT_EQ(_answers[0].stream, std::nullopt);
        EXPECT_EQ(_answers[0].name, std::nullopt);
    }
    void expectServed(const Data& content, const std::string& name) {
        ASSERT_EQ(_answers.size(), 1u);
        EXPECT_EQ(_answers[0].error, std::nullopt);
        EXPECT_EQ(_answers[0].content, content);
        EXPECT_EQ(_answers[0].name, name);
    }

    std::vector<Answer> _answers;
    std::shared_ptr<platform::WorkQueue> _queue;
};

}  // namespace sync_bundle_tests
