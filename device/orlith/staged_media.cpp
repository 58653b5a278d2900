#include "device/orlith/staged_media.h"

#include <string_view>

namespace orlith {
namespace {

constexpr std::string_view Media = "/var/mobile/Media/";
constexpr char Aside[] = "/var/mobile/Media/Stagehold/tmp/";
// The trees that a failed reconcile puts back itself; nothing else may be moved aside.
constexpr std::string_view Trees[] = {"Tessel_Control/Music/", "Podcasts/"};

std::string parentOf(const std::string& path) {
    return path.substr(0, path.rfind('/'));
}

bool isInATree(std::string_view path) {
    if (!path.starts_with(Media))
        return false;
    path.remove_prefix(Media.size());
    for (const std::string_view tree : Trees)
        if (path.starts_with(tree))
            return true;
    return false;
}

bool move(device::RootedFileSystem& files, const std::string& from, const std::string& to) {
    return !files.createDirectory(parentOf(to)) && !files.moveItem(from, to);
}

}  // namespace

std::size_t moveMediaAside(device::RootedFileSystem& files, const std::vector<std::string>& paths) {
    std::size_t moved = 0;
    for (const std::string& path : paths)
        if (isInATree(path) && move(files, path, Aside + path.substr(Media.size())))
            ++moved;
    return moved;
}

std::size_t putMediaBack(device::RootedFileSystem& files) {
    std::size_t restored = 0;
    bool everyFileIsSafe = true;
    for (const std::string_view tree : Trees) {
        const std::string source = Aside + std::string(tree);
        for (const std::string& name : files.subpathsOfDirectory(source)) {
            const auto attributes = files.attributes(source + name, nullptr);
            if (!attributes || !attributes->isRegularFile)
                continue;
            const std::string target = std::string(Media) + std::string(tree) + name;
            if (move(files, source + name, target))
                ++restored;
            else if (!files.fileExists(target))
                everyFileIsSafe = false;
        }
    }
    if (everyFileIsSafe)
        files.removeItem(Aside);
    files.createDirectory(Aside);
    return restored;
}

}  // namespace orlith
