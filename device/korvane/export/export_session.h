// Purpose: writes changed entries into a stream as one "QORX" stream of purpose CHANGES.
// Calling thread: any, one at a time.
// Ownership: shares the library and the stream. Holds a reading connection from the first record
//            to the end, so that all records are of one moment.
// Failure: platform errors, after which the stream is never completed: an end that was not reached
//          shows that it is not whole.
#pragma once

#include <memory>

#include "platform/media_library.h"

namespace korvane {

class Library;

class ExportSession final : public KV3QORXExportSession {
public:
    ExportSession(std::shared_ptr<Library> library, std::shared_ptr<platform::OutputStream> stream);
    ~ExportSession() override;

    // The stream gets pieces of about 64 KiB; nothing more is held back.
    bool begin() override;
    bool end() override;
    platform::OptionalError exportPlaylist(std::int64_t persistentID) override;
    platform::OptionalError exportPlaylistDeleted(std::int64_t persistentID) override;
    platform::OptionalError exportTrack(std::int64_t persistentID) override;
    platform::OptionalError exportTrackDeleted(std::int64_t persistentID) override;

private:
    struct State;
    const std::unique_ptr<State> _state;
};

}  // namespace korvane
