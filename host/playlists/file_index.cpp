#include <cstdlib>
#include <unordered_map>

#include "host/playlists/playlists.h"
#include "host/scan/file_names.h"

namespace host {

namespace {

constexpr std::size_t Ambiguous = SIZE_MAX;

std::string resolvedFolder(const std::string& folder) {
    const std::unique_ptr<char, decltype(&std::free)> path(::realpath(folder.c_str(), nullptr),
                                                           &std::free);
    return path ? path.get() : folder;
}

std::optional<std::size_t> placeIn(const std::unordered_map<std::string, std::size_t>& table,
                                   const std::string& key) {
    const auto found = table.find(key);
    if (found == table.end() || found->second == Ambiguous)
        return std::nullopt;
    return found->second;
}

}  // namespace

struct FileIndex::Tables {
    std::vector<std::string> roots;  // the folder as given and without links, no '/' at the end
    std::unordered_map<std::string, std::size_t> exact;
    std::unordered_map<std::string, std::size_t> normalized;  // only names that are not NFC
    std::unordered_map<std::string, std::size_t> folded;
};

FileIndex::FileIndex(std::string_view folder, const std::vector<MediaFile>& files)
    : _tables(std::make_unique<Tables>()) {
    for (std::string root : {std::string(folder), resolvedFolder(std::string(folder))}) {
        while (root.ends_with('/'))
            root.pop_back();
        _tables->roots.push_back(std::move(root));
    }
    for (std::size_t place = 0; place < files.size(); ++place) {
        const std::string& path = files[place].stamp.path;
        _tables->exact.emplace(path, place);
        std::string normalized = normalizedName(path);
        if (normalized != path)
            _tables->normalized.emplace(std::move(normalized), place);
        const auto [entry, added] = _tables->folded.emplace(caseFoldedName(path), place);
        if (!added)
            entry->second = Ambiguous;
    }
}

FileIndex::~FileIndex() = default;
FileIndex::FileIndex(FileIndex&&) noexcept = default;
FileIndex& FileIndex::operator=(FileIndex&&) noexcept = default;

std::optional<std::size_t> FileIndex::find(std::string_view path) const {
    if (const auto place = placeIn(_tables->exact, std::string(path)))
        return place;
    const std::string normalized = normalizedName(path);
    if (const auto place = placeIn(_tables->exact, normalized))
        return place;
    if (const auto place = placeIn(_tables->normalized, normalized))
        return place;
    return placeIn(_tables->folded, caseFoldedName(path));
}

std::optional<std::string> FileIndex::relativePath(std::string_view absolute) const {
    for (const std::string& root : _tables->roots)
        if (absolute.size() > root.size() + 1 && absolute.starts_with(root) &&
            absolute[root.size()] == '/')
            return std::string(absolute.substr(root.size() + 1));
    return std::nullopt;
}

}  // namespace host
