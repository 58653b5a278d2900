// Purpose: makes what goes with the tracks beyond their files: pictures, their tokens, chapter
// tables and recommendation data.
// Thread: one at a time, that of the workers given.
// Ownership: prepared pictures lie in the cache directory; a FolderMaterials names them.
// Failure: a picture that cannot be used is listed with its reason, and its track goes without.
#pragma once

#include <cstdint>
#include <functional>
#include <span>
#include <stop_token>
#include <string>
#include <unordered_map>
#include <vector>

#include "host/artwork/artwork.h"
#include "host/kenning/kenning.h"
#include "host/plan/track_record.h"
#include "host/state/folder_state.h"
#include "platform/errors.h"

namespace host {

struct ItemFailure {
    enum class Kind : std::uint8_t { File, Playlist, Picture, Transfer, Space };

    std::string path;  // below the folder, raw bytes
    std::string reason;
    Kind kind = Kind::File;
};

// What helps against it, in plain words.
std::string nextStepAfter(const ItemFailure& failure);

struct Picture {
    std::string path;  // absolute, of the prepared image; empty when there is none
    std::int64_t size = 0;
};

struct ChapterPicture {
    std::uint64_t milliseconds = 0;
    Picture picture;
};

struct FolderMaterials {
    // These three are parallel to FolderState::files.
    std::vector<TrackMaterial> tracks;
    std::vector<Picture> covers;
    std::vector<std::vector<ChapterPicture>> chapterPictures;
    std::unordered_map<std::int64_t, KenningRecord> recommendations;  // by global id
    std::vector<ItemFailure> failures;
};

struct MaterialInput {
    const FolderState& state;
    std::string folder;
    const std::vector<FileStamp>& images;
    std::string cacheDirectory;
    bool withRecommendations = true;
    std::stop_token stop;
};

platform::OptionalError makeMaterials(const MaterialInput& input, MediaWorkers& workers,
                                      FolderMaterials& materials);

}  // namespace host
