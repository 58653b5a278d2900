// The device's artwork service: pictures of the device in other sizes, beside the originals.
//
// Each destination gets exactly the size asked for: the picture covers it, keeping its proportions,
// and its middle is cut out (see image_resize.h). A destination is written beside and renamed, so
// whoever opens it sees a whole picture; after an error nothing new is at any of them.
//
// Requests are worked off on two threads of the service's own. A request equal to one that has not
// begun to be answered shares its work. Requests that name a common destination are taken one
// after the other, the next only when the handlers of the one before have returned: a handler may
// read its file and remove it. Handlers run on the answer queue and may block.
#pragma once

#include <functional>
#include <memory>

#include "platform/artwork_service.h"
#include "platform/operating_system.h"

namespace asio {
class thread_pool;
}
namespace device {
class RootedFileSystem;
}

namespace artwork {

class ArtworkService final : public PXVArtworkService {
public:
    // `answerQueue` must let a job start while others wait, as a global queue does. The file system
    // must outlive the service and the handlers of its last requests.
    ArtworkService(device::RootedFileSystem& fileSystem,
                   std::shared_ptr<platform::WorkQueue> answerQueue);
    // Ends the request in work; those still waiting are answered with ErrorCode::Stopped. Handlers
    // may still be running on the answer queue when this returns.
    ~ArtworkService() override;

    void sendRequest(
        const PXVArtworkServiceResizeRequest& request,
        std::function<void(const platform::OptionalError&)> completionHandler) override;

private:
    struct Work;
    struct Schedule;

    const std::unique_ptr<asio::thread_pool> _workers;
    const std::shared_ptr<Schedule> _schedule;
};

}  // namespace artwork
