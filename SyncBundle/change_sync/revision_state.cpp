#include "SyncBundle/KVSyncClient.h"
#include "SyncBundle/log.h"
#include "SyncBundle/transfer_records.h"

std::string KVSyncClient::syncDataClass() {
    return std::string(KVDataClassMedia);
}

std::int64_t KVSyncClient::currentRevision() {
    return _library->currentRevision();
}

platform::Value KVSyncClient::revisionVersionToken() {
    return _library->libraryUID();
}

void KVSyncClient::resetSyncDataWithCompletion(const ErrorHandler& completionHandler) {
    if (_library->removeSource(KV3SourceSync)) {
        completionHandler(std::nullopt);
        return;
    }
    KVLog(Warning, "resetSyncDataWithCompletion:", "failed to remove sync source from library");
    completionHandler(platform::Error(platform::ORErrorDomain, 0));
}
