#include "host/records/qorx_file.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>

#include "common/qorx/reader.h"
#include "common/unique_fd.h"

namespace host {

namespace {

using platform::Error;
using platform::OptionalError;

// Parsed records wait in an arena; it is emptied beyond this size.
constexpr std::size_t ArenaBytesKept = 1u << 20;

Error damaged(const std::string& text) {
    return Error(common::QorxErrorDomain, common::QorxErrorDamaged, text);
}

common::QorxSource sourceOf(int file) {
    return [file](std::span<std::uint8_t> into, OptionalError* error) -> std::size_t {
        for (;;) {
            const ssize_t count = ::read(file, into.data(), into.size());
            if (count >= 0)
                return static_cast<std::size_t>(count);
            if (errno != EINTR) {
                *error = Error::posix(errno);
                return 0;
            }
        }
    };
}

// The streams of a file from its beginning to its end.
class Pass {
public:
    Pass(int file, std::optional<std::uint64_t> playlistBytes)
        : _reader(sourceOf(file)), _playlistBytes(playlistBytes) {
        _reader.letOthersFollow();
    }

    OptionalError run(const QorxListener& listener, QorxTotals& totals) {
        totals = {};
        do {
            if (auto error = readSection(listener, totals))
                return error;
        } while (_reader.beginNext());
        if (auto error = _reader.error())
            return error;
        totals.bytes = _reader.position();
        if (_playlistBytes && *_playlistBytes > totals.bytes)
            return damaged(fmt::format("the playlists are to be {} bytes, but the file has {}",
                                       *_playlistBytes, totals.bytes));
        return std::nullopt;
    }

private:
    OptionalError readSection(const QorxListener& listener, QorxTotals& totals) {
        const std::uint64_t start = _reader.position();
        if (_playlistBytes && start > 0 && start != *_playlistBytes)
            return damaged(
                fmt::format("a stream begins at byte {}, but the playlists are to be {} bytes",
                            start, *_playlistBytes));
        const qorx::Header* header = _reader.header();
        if (header == nullptr)
            return _reader.error();
        ++totals.sections;
        if (listener.header)
            listener.header(*header, totals.sections);
        while (const qorx::Record* record = _reader.next(_arena)) {
            if (listener.record)
                listener.record(*record);
            if (_arena.SpaceUsed() > ArenaBytesKept)
                _arena.Reset();
        }
        totals.tracks += _reader.counts().tracks();
        totals.playlists += _reader.counts().playlists();
        totals.deletions += _reader.counts().deletions();
        return _reader.error();
    }

    common::QorxReader _reader;
    const std::optional<std::uint64_t> _playlistBytes;
    google::protobuf::Arena _arena;
};

}  // namespace

OptionalError readQorxFile(const std::string& path, std::optional<std::uint64_t> playlistBytes,
                           const QorxListener& listener, QorxTotals& totals) {
    const common::UniqueFd file(::open(path.c_str(), O_RDONLY | O_CLOEXEC));
    struct stat status {};
    if (!file || ::fstat(file.get(), &status) != 0)
        return Error::posix(errno);
    if (!S_ISREG(status.st_mode))
        return Error(platform::POSIXErrorDomain, EINVAL, "this is no file");
    // A change stream that carries nothing.
    if (status.st_size == 0 && playlistBytes == 0u)
        return std::nullopt;
    if (auto error = Pass(file.get(), playlistBytes).run({}, totals))
        return error;
    if (::lseek(file.get(), 0, SEEK_SET) != 0)
        return Error::posix(errno);
    return Pass(file.get(), playlistBytes).run(listener, totals);
}

}  // namespace host
