// A plug-in of which only backups and restores are asked.
#pragma once

#include <functional>
#include <set>
#include <string>
#include <vector>

#include "platform/store_downloads.h"
#include "platform/sync_daemon.h"

namespace test {

class RestoringClient final : public ORClient {
public:
    bool respondsTo(ORClientOperation operation) const override {
        return !lacks.contains(operation);
    }
    std::vector<std::string> supportedDataclasses() override { return {"Media"}; }
    bool reconcileRestore(platform::OptionalError* error) override {
        ++reconciled;
        return !reconcile || reconcile(error);
    }
    void pathsToBackup(std::vector<std::string>* wanted, std::vector<std::string>*) override {
        *wanted = paths;
    }

    std::set<ORClientOperation> lacks;
    std::function<bool(platform::OptionalError*)> reconcile;
    std::vector<std::string> paths;
    int reconciled = 0;
};

class FixedManifest final : public VDDownloadFileManifest {
public:
    void getPathsForFilesWithClass(std::int64_t fileClass, PathsHandler completionBlock) override {
        completionBlock(fileClass == 0 ? std::optional(unowned) : std::nullopt);
    }
    void rebuildManifestWithCompletionBlock(std::function<void()> completionBlock) override {
        completionBlock();
    }

    std::vector<std::string> unowned;
};

}  // namespace test
