#include "device/artwork/artwork_service.h"

#include <algorithm>
#include <asio/post.hpp>
#include <asio/thread_pool.hpp>
#include <deque>
#include <exception>
#include <mutex>
#include <vector>

#include "device/artwork/image_resize.h"
#include "device/artwork/picture_files.h"
#include "device/system/rooted_file_system.h"

namespace artwork {
namespace {

// Each holds one picture; more would cost memory and gain little.
constexpr std::size_t WorkerCount = 2;

using Handler = std::function<void(const platform::OptionalError&)>;

// Whole pixels of a size asked for; 0 by 0 for what is no number.
PixelSize wholePixels(const PXVArtworkServiceResizeRequest::Destination& destination) {
    const auto whole = [](double side) {
        return side >= 1 && side < 1e9 ? static_cast<std::uint32_t>(side) : 0U;
    };
    return {whole(destination.width), whole(destination.height)};
}

}  // namespace

// One request that is waiting, in work or being answered, and all who wait for it.
struct ArtworkService::Work {
    std::string source;
    std::vector<PixelSize> sizes;
    std::vector<std::string> paths;
    std::vector<Handler> handlers;  // protected by Schedule::mutex
    bool started = false;           // protected by Schedule::mutex
    bool answering = false;         // protected by Schedule::mutex
    // Written by the worker before it hands the work on for answering.
    std::vector<PictureBytes> pictures;
    platform::OptionalError error;

    bool isEqual(const Work& other) const {
        return source == other.source && sizes == other.sizes && paths == other.paths;
    }
    bool sharesDestination(const Work& other) const {
        return std::any_of(paths.begin(), paths.end(), [&](const std::string& path) {
            return std::find(other.paths.begin(), other.paths.end(), path) != other.paths.end();
        });
    }
};

// What the service's threads and its handlers' jobs share; the jobs may outlive the service.
struct ArtworkService::Schedule : std::enable_shared_from_this<Schedule> {
    Schedule(device::RootedFileSystem& files, std::shared_ptr<platform::WorkQueue> queue)
        : fileSystem(files), answerQueue(std::move(queue)) {}

    device::RootedFileSystem& fileSystem;
    const std::shared_ptr<platform::WorkQueue> answerQueue;
    std::mutex mutex;
    std::deque<std::shared_ptr<Work>> work;  // by age; protected by mutex
    asio::thread_pool* workers = nullptr;    // null once stopped; protected by mutex

    // Starts what no older request stands in the way of. Holding the mutex.
    void startRunnable() {
        for (auto next = work.begin(); workers && next != work.end(); ++next) {
            const bool isBlocked = std::any_of(work.begin(), next, [&](const auto& older) {
                return older->sharesDestination(**next);
            });
            if ((*next)->started || isBlocked)
                continue;
            (*next)->started = true;
            asio::post(*workers, [self = shared_from_this(), item = *next] { self->run(item); });
        }
    }

    void run(const std::shared_ptr<Work>& item) {
        bool isStopped = false;
        {
            const std::lock_guard lock(mutex);
            isStopped = !workers;
        }
        if (isStopped)
            item->error = makeError(ErrorCode::Stopped, "The artwork service has ended.");
        else
            makePictures(*item);
        answerQueue->async([self = shared_from_this(), item] { self->answer(item); });
    }

    void makePictures(Work& item) {
        try {
            const PictureBytes source = readPicture(fileSystem, item.source, item.error);
            if (!item.error)
                item.pictures = resizeImage(source, item.sizes, item.error);
            if (!item.error)
                item.error = writePictures(fileSystem, item.paths, item.pictures);
        } catch (const std::exception& exception) {
            item.error = makeError(ErrorCode::NotAPicture, exception.what());
        }
    }

    void answer(const std::shared_ptr<Work>& item) {
        std::vector<Handler> handlers;
        {
            const std::lock_guard lock(mutex);
            item->answering = true;
            handlers.swap(item->handlers);
        }
        for (std::size_t i = 0; i < handlers.size(); ++i) {
            platform::OptionalError error = item->error;
            // The handler before may have removed the files; each finds its own.
            if (i > 0 && !error)
                error = writePictures(fileSystem, item->paths, item->pictures);
            handlers[i](error);
            handlers[i] = nullptr;
        }
        const std::lock_guard lock(mutex);
        work.erase(std::find(work.begin(), work.end(), item));
        startRunnable();
    }
};

ArtworkService::ArtworkService(device::RootedFileSystem& fileSystem,
                               std::shared_ptr<platform::WorkQueue> answerQueue)
    : _workers(std::make_unique<asio::thread_pool>(WorkerCount)),
      _schedule(std::make_shared<Schedule>(fileSystem, std::move(answerQueue))) {
    _schedule->workers = _workers.get();
}

ArtworkService::~ArtworkService() {
    std::vector<std::shared_ptr<Work>> waiting;
    {
        const std::lock_guard lock(_schedule->mutex);
        _schedule->workers = nullptr;
        for (const auto& item : _schedule->work) {
            if (!item->started)
                waiting.push_back(item);
            item->started = true;
        }
    }
    for (const auto& item : waiting)
        _schedule->run(item);
    _workers->join();
}

void ArtworkService::sendRequest(const PXVArtworkServiceResizeRequest& request,
                                 Handler completionHandler) {
    auto item = std::make_shared<Work>();
    item->source = request.source;
    for (const auto& destination : request.destinations) {
        item->sizes.push_back(wholePixels(destination));
        item->paths.push_back(destination.path);
    }
    item->handlers.push_back(std::move(completionHandler));
    if (!std::all_of(item->sizes.begin(), item->sizes.end(), isPossible)) {
        item->error = makeError(ErrorCode::BadSize, "No picture can have the size asked for.");
        _schedule->answerQueue->async([item] { item->handlers.front()(item->error); });
        return;
    }

    const std::lock_guard lock(_schedule->mutex);
    const auto equal =
        std::find_if(_schedule->work.begin(), _schedule->work.end(),
                     [&](const auto& other) { return !other->answering && other->isEqual(*item); });
    if (equal != _schedule->work.end()) {
        (*equal)->handlers.push_back(std::move(item->handlers.front()));
        return;
    }
    _schedule->work.push_back(item);
    _schedule->startRunnable();
}

}  // namespace artwork
