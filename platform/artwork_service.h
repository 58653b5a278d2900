// Purpose: the artwork service: pictures made in another size, away from the caller's thread.
// Calling thread: any.
// Callback thread: a thread of the service's own; it may block, the service has others.
// Ownership: the service is one shared object of the process; a request is a plain value.
// Failure: the handler is called exactly once, with an error when the source is no picture, is too
//   large to decode safely, or the destination cannot be written (nothing is left there then).
#pragma once

#include <functional>
#include <string>
#include <utility>
#include <vector>

#include "platform/errors.h"

struct PXVArtworkServiceResizeRequest {
    struct Destination {
        double width = 0;  // pixels; fractions are cut off
        double height = 0;
        std::string path;  // absolute device path; replaced whole when something is there
    };

    explicit PXVArtworkServiceResizeRequest(std::string sourcePath)
        : source(std::move(sourcePath)) {}
    // addDestinationWithSize:url:
    void addDestinationWithSize(double width, double height, std::string path) {
        destinations.push_back({width, height, std::move(path)});
    }

    std::string source;  // absolute device path
    std::vector<Destination> destinations;
};

class PXVArtworkService {
public:
    static PXVArtworkService& sharedService();

    virtual ~PXVArtworkService() = default;
    // sendRequest:completionHandler:
    virtual void sendRequest(
        const PXVArtworkServiceResizeRequest& request,
        std::function<void(const platform::OptionalError&)> completionHandler) = 0;
};
