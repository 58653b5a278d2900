// Change streams as messages: how parameters and failures go over the link, and how what arrives is
// collected in a file.
//
// One thread at a time.
#pragma once

#include <memory>
#include <string>

#include "common/hash.h"
#include "common/unique_fd.h"
#include "device/system/rooted_file_system.h"
#include "link/peer.pb.h"
#include "platform/operating_system.h"

namespace orlith {

// As a message carries a dictionary: a binary property list. Throws SessionError when there is no
// such form.
std::string parameterBytes(platform::PropertyLists& lists, const platform::Dictionary& parameters);
// Throws SessionError for bytes that hold no dictionary; empty bytes are an empty one.
platform::Dictionary parametersOf(platform::PropertyLists& lists, const std::string& bytes);

// As exports name the media types that are wanted: a number of bits, nothing for all.
platform::Dictionary exportParameters(std::uint32_t mediaTypes);

platform::Error errorOf(const link::Failure& failure);

// A change stream that arrives, piece by piece. Its file is removed when this goes.
class ChangeSpool {
public:
    // Throws SessionError when the file cannot be made.
    explicit ChangeSpool(device::RootedFileSystem& files);
    ~ChangeSpool();
    ChangeSpool(const ChangeSpool&) = delete;
    ChangeSpool& operator=(const ChangeSpool&) = delete;

    // True at the end of the stream. Throws SessionError for what breaks the order, is too long or
    // not whole, for a full disk, and for a stream that failed at its source.
    bool take(const link::ChangeStream& message);

    const std::string& path() const { return _path; }
    // The property list as it came; "" before it has.
    const std::string& params() const { return _params; }
    std::uint64_t size() const { return _size; }
    // Which the stream reaches; known at its end.
    std::int64_t revision() const { return _revision; }

private:
    void append(const std::string& data);
    void finish(const link::ChangesEnd& end);

    device::RootedFileSystem& _files;
    std::string _path;
    common::UniqueFd _fd;
    bool _hasParams = false;
    bool _ended = false;
    std::string _params;
    std::uint64_t _size = 0;
    std::int64_t _revision = 0;
    common::XXH3Stream _hasher;
};

// Whether a change stream holds any record. Throws SessionError for one that is damaged anywhere:
// it is worth nothing as a whole.
bool holdsChanges(device::RootedFileSystem& files, const ChangeSpool& spool,
                  std::uint64_t playlistLength);

}  // namespace orlith
