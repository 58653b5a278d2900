#include "device/orlith/mirror/change_messages.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <google/protobuf/arena.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>

#include "common/qorx/reader.h"
#include "device/orlith/incoming_file.h"
#include "device/orlith/mirror/change_operations.h"
#include "device/orlith/session_error.h"
#include "device/orlith/staging_area.h"

namespace orlith {
namespace {

using platform::Error;
using platform::OptionalError;

// Bytes. The plug-in counts a stream's bytes in 32 bits and holds it in memory.
constexpr std::uint64_t LargestStream = std::uint64_t{1} << 30;
constexpr std::size_t LargestPiece = 256 << 10;
constexpr std::size_t LargestParams = 1 << 20;
constexpr std::size_t HashSize = 16;

SessionError brokenStream(const std::string& text) {
    return SessionError(Error(OrlithErrorDomain, OrlithErrorProtocol, text));
}

Error writeError(int errorNumber) {
    if (errorNumber == ENOSPC || errorNumber == EDQUOT)
        return Error(platform::POSIXErrorDomain, errorNumber,
                     "this device is full: there is no room for the changes");
    return Error::posix(errorNumber);
}

// A part of a file as a reader's source; past `end` there is nothing.
common::QorxSource sourceOf(int fd, std::uint64_t begin, std::uint64_t end) {
    return [fd, position = begin, end](std::span<std::uint8_t> into, OptionalError* error) mutable {
        const std::size_t wanted =
            static_cast<std::size_t>(std::min<std::uint64_t>(into.size(), end - position));
        for (;;) {
            const ssize_t count = ::pread(fd, into.data(), wanted, static_cast<off_t>(position));
            if (count < 0 && errno == EINTR)
                continue;
            if (count < 0) {
                *error = Error::posix(errno);
                return std::size_t{0};
            }
            position += static_cast<std::uint64_t>(count);
            return static_cast<std::size_t>(count);
        }
    };
}

// Whether a section holds a record. It is read to its end.
bool sectionHoldsRecords(int fd, std::uint64_t begin, std::uint64_t end) {
    if (begin == end)
        return false;
    common::QorxReader reader(sourceOf(fd, begin, end));
    // The others are counted and passed over.
    reader.handOutOnly(qorx::Record::kDeletion);
    google::protobuf::Arena arena;
    while (reader.next(arena))
        if (arena.SpaceUsed() > LargestParams)
            arena.Reset();
    throwIf(reader.error());
    const auto& counts = reader.counts();
    return counts.playlists() + counts.tracks() + counts.deletions() != 0;
}

}  // namespace

std::string parameterBytes(platform::PropertyLists& lists, const platform::Dictionary& parameters) {
    OptionalError error;
    const auto bytes = lists.serialize(parameters, platform::PropertyListFormat::Binary, &error);
    if (!bytes)
        throw SessionError(error.value_or(internalError("parameters without a form")));
    return std::string(bytes->begin(), bytes->end());
}

platform::Dictionary parametersOf(platform::PropertyLists& lists, const std::string& bytes) {
    if (bytes.empty())
        return {};
    OptionalError error;
    const auto value = lists.parse(platform::Data(bytes.begin(), bytes.end()), &error);
    if (!value || !value->isDictionary())
        throw brokenStream("the parameters of a change stream are no dictionary");
    return *value->dictionary();
}

platform::Dictionary exportParameters(std::uint32_t mediaTypes) {
    if (mediaTypes == 0)
        return {};
    return {{std::string(SupportedMediaTypesKey), platform::Value(mediaTypes)}};
}

Error errorOf(const link::Failure& failure) {
    return Error(failure.domain(), failure.code(), failure.text());
}

ChangeSpool::ChangeSpool(device::RootedFileSystem& files) : _files(files) {
    // Where what a killed daemon leaves is swept away.
    throwIf(files.createDirectory(StagingArea::changesDirectory()));
    OptionalError error;
    _fd = files.openTemporary(StagingArea::changesDirectory(), _path, &error);
    throwIf(error);
}

ChangeSpool::~ChangeSpool() {
    _files.unlink(_path);
}

bool ChangeSpool::take(const link::ChangeStream& message) {
    using Piece = link::ChangeStream::PieceCase;
    if (_ended)
        throw brokenStream("more came after the end of a change stream");
    switch (message.piece_case()) {
        case Piece::kParams:
            if (_hasParams || message.params().size() > LargestParams)
                throw brokenStream("a change stream's parameters came twice or are too long");
            _hasParams = true;
            _params = message.params();
            return false;
        case Piece::kData:
            append(message.data());
            return false;
        case Piece::kEnd:
            finish(message.end());
            return true;
        case Piece::PIECE_NOT_SET:
            break;
    }
    throw brokenStream("a piece of a change stream of a kind that this device does not know");
}

void ChangeSpool::append(const std::string& data) {
    if (!_hasParams || data.size() > LargestPiece)
        throw brokenStream("a change stream begins without parameters or a piece is too long");
    if (data.size() > LargestStream - _size)
        throw SessionError(Error(platform::POSIXErrorDomain, EFBIG,
                                 "the changes are more than the device takes at once"));
    _hasher.update({reinterpret_cast<const std::uint8_t*>(data.data()), data.size()});
    std::size_t done = 0;
    while (done < data.size()) {
        const ssize_t count = ::write(_fd.get(), data.data() + done, data.size() - done);
        if (count < 0 && errno == EINTR)
            continue;
        if (count < 0)
            throw SessionError(writeError(errno));
        done += static_cast<std::size_t>(count);
    }
    _size += data.size();
}

void ChangeSpool::finish(const link::ChangesEnd& end) {
    _ended = true;
    if (end.has_failure())
        throw SessionError(errorOf(end.failure()));
    if (!_hasParams || end.size() != _size || end.content_hash().size() != HashSize ||
        end.content_hash() != hashText(_hasher.digest()))
        throw SessionError(Error(platform::POSIXErrorDomain, EBADMSG,
                                 "the changes did not arrive as they were sent"));
    _revision = end.revision();
}

bool holdsChanges(device::RootedFileSystem& files, const ChangeSpool& spool,
                  std::uint64_t playlistLength) {
    if (playlistLength > spool.size())
        throw SessionError(Error(platform::POSIXErrorDomain, EBADMSG,
                                 "the changes are shorter than their parameters say"));
    OptionalError error;
    const common::UniqueFd fd = files.openFile(spool.path(), O_RDONLY, 0, &error);
    throwIf(error);
    const bool inPlaylists = sectionHoldsRecords(fd.get(), 0, playlistLength);
    const bool inTracks = sectionHoldsRecords(fd.get(), playlistLength, spool.size());
    return inPlaylists || inTracks;
}

}  // namespace orlith
