#include "host/session/file_hashing.h"

#include <algorithm>
#include <atomic>
#include <thread>

#include "host/session/part_reader.h"

namespace host {

namespace {

// Few, because one reader nearly saturates a disk; a second one keeps a core busy meanwhile.
constexpr unsigned MostHelpers = 3;

}  // namespace

HashedFile hashFile(const std::string& folder, const FileStamp& file) {
    AssetPart part;
    part.path = folder + "/" + file.path;
    part.size = file.size;
    part.modifiedNanoseconds = file.modifiedNanoseconds;
    HashedFile result;
    PartReader reader(part);
    result.failure = reader.open(0);
    for (bool last = !result.failure.empty(); !last;) {
        PartReader::Piece piece = reader.next();
        last = piece.last;
        result.failure = std::move(piece.failure);
    }
    if (result.failure.empty())
        result.hash = reader.hash();
    return result;
}

std::vector<HashedFile> hashFiles(const std::string& folder,
                                  std::span<const FileStamp* const> files,
                                  const std::function<void(std::size_t)>& progress,
                                  const std::stop_token& stop) {
    std::vector<HashedFile> results(files.size());
    std::atomic<std::size_t> next{0};
    std::atomic<std::size_t> done{0};
    const auto work = [&](bool tells) {
        for (std::size_t i = next++; i < files.size() && !stop.stop_requested(); i = next++) {
            results[i] = hashFile(folder, *files[i]);
            ++done;
            if (tells)
                progress(done);
        }
    };
    const unsigned cores = std::max(1u, std::thread::hardware_concurrency());
    std::vector<std::jthread> helpers;
    for (unsigned i = 1; i < std::min<std::size_t>({cores, MostHelpers + 1, files.size()}); ++i)
        helpers.emplace_back(work, false);
    work(true);
    helpers.clear();
    return results;
}

}  // namespace host
