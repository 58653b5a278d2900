// The device's cloud client: who is signed in is state on the device, which the daemon changes here
// and clients ask for.
//
// Any thread.
#pragma once

#include <functional>
#include <memory>
#include <mutex>

#include "device/cloud/cloud_state.h"
#include "platform/cloud_client.h"

namespace cloud {

class CloudService final : public CloudServices {
public:
    // Records in the library whether it holds Kenning data from the cloud (its database property
    // "KVPelorinHasCloudKenningData"); false when that fails.
    using RecordKenningData = std::function<bool(bool hasCloudKenningData)>;

    // File system and log must outlive the service and its clients' questions.
    CloudService(device::RootedFileSystem& fileSystem, platform::LogService& log,
                 RecordKenningData recordKenningData);

    // CloudServices. Clients may outlive the service.
    std::shared_ptr<KLCloudClient> makeClient() override;

    CloudState state() const { return _file->read(); }
    // Both may be repeated: after an error it is not known what the library has recorded.
    platform::OptionalError signIn(bool hasKenningData);
    platform::OptionalError signOut();

private:
    platform::OptionalError change(const CloudState& state);

    const std::shared_ptr<const CloudStateFile> _file;  // clients share it
    const RecordKenningData _recordKenningData;
    std::mutex _changing;  // held while file and library are brought to one state
};

}  // namespace cloud
