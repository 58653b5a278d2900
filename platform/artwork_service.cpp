#include "platform/artwork_service.h"

#include "platform/platform.h"

PXVArtworkService& PXVArtworkService::sharedService() {
    return platform::Platform::current().artworkService();
}
