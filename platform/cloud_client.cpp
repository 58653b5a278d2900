#include "platform/cloud_client.h"

#include "platform/platform.h"

std::shared_ptr<KLCloudClient> KLCloudClient::make() {
    return platform::Platform::current().cloud().makeClient();
}
