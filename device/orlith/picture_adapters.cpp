#include "device/orlith/picture_adapters.h"

#include <fcntl.h>

#include <filesystem>
#include <system_error>

#include "device/artwork/image_check.h"

namespace orlith {

std::optional<platform::Data> FilmFrames::grabFrame(const std::string& path, double seconds,
                                                    platform::OptionalError* error) {
    const common::UniqueFd film = _files.openFile(path, O_RDONLY, 0, error);
    if (!film)
        return std::nullopt;
    platform::OptionalError reason;
    platform::Data picture = _grabber.grab(film.get(), seconds, reason);
    if (error)
        *error = reason;
    if (reason || picture.empty())
        return std::nullopt;
    return picture;
}

bool PictureInspector::isShowablePicture(const std::string& path) {
    const common::UniqueFd picture = _files.openFile(path, O_RDONLY, 0, nullptr);
    return picture && artwork::checkImageFile(picture.get()).info.has_value();
}

std::string frameGrabberProgram() {
    namespace fs = std::filesystem;
    constexpr char Name[] = "orlith-frame-grabber";
    std::error_code ignored;
    const fs::path folder = fs::read_symlink("/proc/self/exe", ignored).parent_path();
    for (const fs::path& path : {folder / Name, folder / ".." / "libexec" / "orlith" / Name,
                                 folder / ".." / "lib" / "orlith" / Name})
        if (fs::exists(path, ignored))
            return path.lexically_normal().string();
    return (folder / Name).string();
}

}  // namespace orlith
