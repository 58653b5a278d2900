#include "SyncBundle/waiting.h"

#include <exception>
#include <memory>
#include <utility>

#include "platform/cloud_client.h"
#include "platform/platform.h"

namespace {

platform::OperatingSystem& operatingSystem() {
    return platform::Platform::current().operatingSystem();
}

}  // namespace

void KVRunAndWait(platform::QueuePriority priority,
                  std::function<void(const platform::Job& finished)> job) {
    struct Work {
        std::shared_ptr<platform::Semaphore> finished;
        std::exception_ptr exception;  // read after `finished`
    };
    const auto work = std::make_shared<Work>();
    work->finished = operatingSystem().makeSemaphore(0);
    operatingSystem().globalQueue(priority)->async([work, job = std::move(job)] {
        // A queue's job must not throw.
        try {
            job([work] { work->finished->signal(); });
        } catch (...) {
            work->exception = std::current_exception();
            work->finished->signal();
        }
    });
    work->finished->wait();
    if (work->exception)
        std::rethrow_exception(work->exception);
}

bool KVIsSignedInToCloudLibrary() {
    struct Answer {
        std::shared_ptr<platform::Semaphore> arrived;
        bool isAuthenticated = false;  // read after `arrived`
    };
    const std::shared_ptr<KLCloudClient> cloudClient = KLCloudClient::make();
    const auto answer = std::make_shared<Answer>();
    answer->arrived = operatingSystem().makeSemaphore(0);
    cloudClient->isAuthenticatedWithQueue(
        operatingSystem().globalQueue(platform::QueuePriority::Default),
        [answer](bool isAuthenticated) {
            answer->isAuthenticated = isAuthenticated;
            answer->arrived->signal();
        });
    answer->arrived->wait();
    return answer->isAuthenticated;
}
