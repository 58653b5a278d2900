#include "device/downloads/file_manifest.h"

#include <fmt/format.h>

#include <algorithm>
#include <cerrno>
#include <exception>

#include "common/property_list/property_list.h"
#include "device/downloads/download_list.h"
#include "device/downloads/manifest_list.h"
#include "device/system/rooted_file_system.h"

namespace downloads {
namespace {

class MediaFileManifest final : public VDDownloadFileManifest {
public:
    explicit MediaFileManifest(std::shared_ptr<FileManifest> files) : _files(std::move(files)) {}
    void getPathsForFilesWithClass(std::int64_t fileClass, PathsHandler completionBlock) override {
        _files->paths(static_cast<FileClass>(fileClass), std::move(completionBlock));
    }
    void rebuildManifestWithCompletionBlock(std::function<void()> completionBlock) override {
        _files->rebuild(std::move(completionBlock));
    }

private:
    const std::shared_ptr<FileManifest> _files;
};

// Of a type that nothing on this device is downloaded for.
class EmptyManifest final : public VDDownloadFileManifest {
public:
    explicit EmptyManifest(std::shared_ptr<platform::WorkQueue> queue) : _queue(std::move(queue)) {}
    void getPathsForFilesWithClass(std::int64_t, PathsHandler completionBlock) override {
        _queue->async([completion = std::move(completionBlock)] { completion(std::nullopt); });
    }
    void rebuildManifestWithCompletionBlock(std::function<void()> completionBlock) override {
        _queue->async(std::move(completionBlock));
    }

private:
    const std::shared_ptr<platform::WorkQueue> _queue;
};

}  // namespace

FileManifest::FileManifest(device::RootedFileSystem& files, platform::LogService& log,
                           DownloadInstaller& installer, std::shared_ptr<platform::WorkQueue> queue)
    : _files(files), _log(log), _installer(installer), _queue(std::move(queue)) {}

void FileManifest::paths(FileClass fileClass, VDDownloadFileManifest::PathsHandler completion) {
    _queue->async([self = shared_from_this(), fileClass, completion = std::move(completion)] {
        std::optional<std::vector<std::string>> found;
        try {
            auto classes = self->kept();
            if (!classes)
                classes = self->rebuilt();
            if (classes)
                found.emplace();
            for (const auto& [name, itsClass] : classes.value_or(Classes()))
                if (itsClass == fileClass)
                    found->push_back(fmt::format("{}/{}", PurchasesDirectory, name));
        } catch (const std::exception& exception) {
            found.reset();
            self->log(platform::LogLevel::Error, "paths", exception.what());
        }
        completion(found);
    });
}

void FileManifest::rebuild(std::function<void()> completion) {
    _queue->async([self = shared_from_this(), completion = std::move(completion)] {
        try {
            self->rebuilt();
        } catch (const std::exception& exception) {
            self->log(platform::LogLevel::Error, "rebuild", exception.what());
        }
        completion();
    });
}

void FileManifest::forget() {
    _files.unlink(ManifestPath);
}

std::vector<std::string> FileManifest::presentNames() {
    auto names = _files.contentsOfDirectory(PurchasesDirectory, nullptr)
                     .value_or(std::vector<std::string>());
    std::erase_if(names, [](const std::string& name) { return !isPurchaseFileName(name); });
    std::ranges::sort(names);
    return names;
}

// Absent when it has to be made anew.
std::optional<FileManifest::Classes> FileManifest::kept() {
    platform::OptionalError error;
    const auto bytes = _files.readFile(ManifestPath, common::maxPropertyListBytes, &error);
    if (!bytes) {
        if (error && error->code != ENOENT)
            log(platform::LogLevel::Warning, "read",
                "The manifest of files cannot be read and is made anew: " + error->text());
        return std::nullopt;
    }
    auto classes = parseManifest(*bytes, error);
    if (!classes) {
        log(platform::LogLevel::Warning, "read",
            "The manifest of files is damaged and is made anew: " + error->text());
        return std::nullopt;
    }
    const auto names = presentNames();
    const bool isTrue = std::ranges::equal(names, *classes, {}, {}, &Classes::value_type::first);
    return isTrue ? std::move(classes) : std::nullopt;
}

std::optional<FileManifest::Classes> FileManifest::rebuilt() {
    // Whatever happens, what is not true any more is not believed again.
    forget();
    const auto names = presentNames();
    platform::OptionalError error;
    const auto known = _installer.settleFiles(names, &error);
    if (!known || known->size() != names.size()) {
        log(platform::LogLevel::Error, "rebuild",
            "The library cannot say whose the files are: " + (error ? error->text() : ""));
        return std::nullopt;
    }
    Classes classes;
    for (std::size_t i = 0; i < names.size(); ++i)
        classes.emplace(names[i], (*known)[i]);
    keep(classes);
    return classes;
}

// One that cannot be kept is made anew for the next question.
void FileManifest::keep(const Classes& classes) {
    platform::OptionalError error;
    const auto bytes = serializeManifest(classes, error);
    if (bytes)
        error = _files.writeFileDurably(ManifestPath, *bytes);
    if (error)
        log(platform::LogLevel::Warning, "keep",
            "The manifest of files cannot be kept: " + error->text());
}

void FileManifest::log(platform::LogLevel level, std::string_view operation,
                       std::string_view text) const {
    _log.log({level, LogCategory, "device/downloads/file_manifest", std::string(operation),
              __LINE__, std::string(text)});
}

std::shared_ptr<VDDownloadFileManifest> manifestOfType(std::int64_t manifestType,
                                                       std::shared_ptr<FileManifest> mediaFiles,
                                                       std::shared_ptr<platform::WorkQueue> queue) {
    if (manifestType == 0)
        return std::make_shared<MediaFileManifest>(std::move(mediaFiles));
    return std::make_shared<EmptyManifest>(std::move(queue));
}

}  // namespace downloads
