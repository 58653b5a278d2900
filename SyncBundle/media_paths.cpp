#include "SyncBundle/media_paths.h"

std::string KVPathByAppendingComponent(std::string_view directory, std::string_view component) {
    while (directory.ends_with('/'))
        directory.remove_suffix(1);
    while (component.starts_with('/'))
        component.remove_prefix(1);
    while (component.ends_with('/'))
        component.remove_suffix(1);
    std::string path(directory);
    if (!component.empty() || path.empty())
        path.append("/").append(component);
    return path;
}

std::string KVLastPathComponent(std::string_view path) {
    while (path.ends_with('/'))
        path.remove_suffix(1);
    return std::string(path.substr(path.rfind('/') + 1));
}
