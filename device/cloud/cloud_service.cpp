#include "device/cloud/cloud_service.h"

#include <cerrno>

namespace cloud {
namespace {

class CloudClient final : public KLCloudClient {
public:
    explicit CloudClient(std::shared_ptr<const CloudStateFile> file) : _file(std::move(file)) {}

    void isAuthenticatedWithQueue(std::shared_ptr<platform::WorkQueue> queue,
                                  std::function<void(bool)> completionHandler) override {
        queue->async([file = _file, handler = std::move(completionHandler)] {
            handler(file->read().isSignedIn);
        });
    }

private:
    const std::shared_ptr<const CloudStateFile> _file;
};

}  // namespace

CloudService::CloudService(device::RootedFileSystem& fileSystem, platform::LogService& log,
                           RecordKenningData recordKenningData)
    : _file(std::make_shared<CloudStateFile>(fileSystem, log)),
      _recordKenningData(std::move(recordKenningData)) {}

std::shared_ptr<KLCloudClient> CloudService::makeClient() {
    return std::make_shared<CloudClient>(_file);
}

platform::OptionalError CloudService::signIn(bool hasKenningData) {
    return change({true, hasKenningData});
}

platform::OptionalError CloudService::signOut() {
    return change({});
}

platform::OptionalError CloudService::change(const CloudState& state) {
    const std::lock_guard lock(_changing);
    if (platform::OptionalError error = _file->write(state))
        return error;
    if (!_recordKenningData(state.hasKenningData))
        return platform::Error(platform::POSIXErrorDomain, EIO,
                               "The library cannot record where its Kenning data comes from.");
    return std::nullopt;
}

}  // namespace cloud
