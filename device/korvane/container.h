// Purpose: a handle on one playlist.
// Calling thread: any.
// Failure: a database error is logged and answered with false.
#pragma once

#include <memory>

#include "platform/media_library.h"

namespace korvane {

class Library;

class Container final : public KV3Container {
public:
    Container(std::int64_t persistentID, std::shared_ptr<Library> library)
        : _persistentID(persistentID), _library(std::move(library)) {}

    // Whether it stands in place of a built-in playlist, or did when it was deleted.
    bool isBuiltInSmartPlaylist() override;

private:
    const std::int64_t _persistentID;
    const std::shared_ptr<Library> _library;
};

}  // namespace korvane
