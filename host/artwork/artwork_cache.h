// Purpose: what an ArtworkPreparer remembers from run to run: which picture stands at which place,
// and what became of each picture. Prepared images lie in the directory as "<hash>.jpg" or ".png".
// Thread: an object belongs to one thread.
// Failure: a damaged or missing index is an empty one; what cannot be written is prepared again.
#pragma once

#include <map>
#include <optional>
#include <span>
#include <string>
#include <unordered_map>

#include "host/artwork/artwork.h"
#include "host/artwork/prepared_image.h"

namespace host {

class ArtworkCache {
public:
    explicit ArtworkCache(std::string directory);

    // The picture in a file of this path, size and time, where that is known.
    std::optional<ContentHash> hashOf(const FileStamp& image) const;
    void rememberHash(const FileStamp& image, const ContentHash& hash);

    // What became of a picture; nothing when it has to be prepared.
    std::optional<PreparedArtwork> find(const ContentHash& hash) const;
    // Keeps an image, or the reason why there is none. Gives what find() will.
    PreparedArtwork add(const PreparedImage& image);

    // Writes the index where anything is new.
    void save();

private:
    struct Place {
        std::int64_t size = 0;
        std::int64_t modifiedNanoseconds = 0;
        ContentHash hash{};
    };
    struct Outcome {
        std::string reason;
        std::string extension;
        std::int64_t size = 0;
        std::int32_t width = 0;
        std::int32_t height = 0;
    };

    void load();
    PreparedArtwork artworkOf(const ContentHash& hash, const Outcome& outcome) const;
    std::string pathOf(const ContentHash& hash, const std::string& extension) const;

    std::string _directory;
    std::unordered_map<std::string, Place> _places;  // by absolute path
    std::map<ContentHash, Outcome> _outcomes;
    bool _changed = false;
};

}  // namespace host
