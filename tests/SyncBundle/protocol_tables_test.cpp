#include "tests/SyncBundle/sync_client_test.h"

namespace sync_bundle_tests {
namespace {

class ProtocolTables : public SyncClientTest {
protected:
    // The client's answer for each operation of a protocol, in its order.
    template <typename Operation>
    std::vector<bool> answers(Operation last) {
        std::vector<bool> result;
        for (int i = 0; i <= static_cast<int>(last); ++i)
            result.push_back(client().respondsTo(static_cast<Operation>(i)));
        return result;
    }
};

TEST_F(ProtocolTables, TheAnchorProtocol) {
    const std::vector<bool> expected{
        true,   // supportedDataclasses
        false,  // registerMessageHandlersWithLink:
        true,   // currentSyncAnchor
        false,  // prepareForSyncWithHostAnchor:progressCallback:error:
        true,   // prepareForSyncWithHostAnchor:progressCallback:torvelID:hostVersion:error:
        true,   // reconcileSync:withNewAnchor:progressCallback:error:
        false,  // syncEndedWithSuccess:
        true,   // cancelSyncOperations
        true,   // reconcileRestoreWithError:
        false,  // restoreEndedWithError:
        false,  // outstandingAssetTransfers
        true,   // outstandingAssetTransfersWithDownloadManager:
        true,   // assetTransfer:succeeded:withError:
        false,  // assetTransfer:updatedProgress:
        true,   // metadataUpdate:forAsset:withNewAnchor:
        true,   // assetInstallFailed:withError:
        false,  // assetInstallSucceeded:
        true,   // assetTransferEndedWithSuccess:
        false,  // prioritizeAsset:
        false,  // prepareForBackup
        false,  // backupEnded
        true,   // pathsToBackup:pathsNotToBackup:
        true,   // vantorIDsForAssets
        false,  // shouldRestoreFile:backupManager:
        false,  // shouldBackgroundRestorePath:backupManager:
        false,  // shouldBackgroundRestoreFile:backupManager:
        true,   // clearSyncData
        true,   // disabledAssetTypes
        true,   // installedAssetMetrics
        false,  // installedAssets
        true,   // _processKenningConfigPlist:, an extension of the daemon
    };
    EXPECT_EQ(answers(ORClientOperation::_processKenningConfigPlist), expected);
}

TEST_F(ProtocolTables, TheChangeSyncProtocol) {
    const std::vector<bool> expected{
        true,  // setDelegate:
        true,  // syncDataClass
        true,  // currentRevision
        true,  // revisionVersionToken
        true,  // getChangesForSyncType:...
        true,  // applyChangesForSyncType:...
        true,  // resetSyncDataWithCompletion:
        true,  // syncSessionCompletedWithError:allAssetsTransferred:
    };
    EXPECT_EQ(answers(ORSyncClientOperation::syncSessionCompleted), expected);
}

TEST_F(ProtocolTables, TheAssetProtocol) {
    EXPECT_EQ(answers(ORAssetClientOperation::assetSyncDidComplete),
              (std::vector<bool>{true, true, true, true, true, true}));
}

TEST_F(ProtocolTables, TheDownloadManagersObserver) {
    const std::vector<bool> expected{
        true,   // downloadManager:downloadStatesDidChange:
        false,  // downloadManagerActiveDownloadsDidChange:
        false,  // downloadManagerDownloadsDidChange:
        false,  // downloadManagerNetworkUsageDidChange:
    };
    EXPECT_EQ(answers(VDDownloadManagerObserverOperation::networkUsageDidChange), expected);
}

TEST_F(ProtocolTables, TheRolesAreOneObject) {
    ORClient& anchorClient = client();
    EXPECT_EQ(dynamic_cast<ORSyncClient*>(&anchorClient), &client());
    EXPECT_EQ(dynamic_cast<ORAssetClient*>(&anchorClient), &client());
    EXPECT_EQ(dynamic_cast<VDDownloadManagerObserver*>(&anchorClient), &client());
}

}  // namespace
}  // namespace sync_bundle_tests
