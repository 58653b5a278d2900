#include "host/scan/av_input.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdio>
#include <cstring>

extern "C" {
#include <libavformat/avformat.h>
}

namespace host {

namespace {

constexpr int BufferSize = 32 * 1024;
// What one file may make the reader read: headers, tags, pictures and chapters take far less.
constexpr std::int64_t ReadLimit = 256 << 20;  // bytes
constexpr const char* Formats = "mp3,mov,mp4,m4a,3gp,3g2,mj2,flac,ogg,wav,aac,matroska,webm";
// Decoders that looking into the content may use. Pictures and films are not decoded by a scan.
constexpr const char* Decoders =
    "mp3,mp3float,mp2,mp2float,aac,aac_fixed,aac_latm,flac,opus,vorbis,libopus,libvorbis";

class Options {
public:
    Options() = default;
    ~Options() { av_dict_free(&_entries); }
    Options(const Options&) = delete;
    Options& operator=(const Options&) = delete;
    void set(const char* key, const char* value) { av_dict_set(&_entries, key, value, 0); }
    AVDictionary** get() { return &_entries; }

private:
    AVDictionary* _entries = nullptr;
};

}  // namespace

std::string mediaErrorText(int error) {
    switch (error) {
        case AVERROR(ENOMEM):
            return "reading it takes too much memory";
        case AVERROR(EIO):
            return "the disk could not read it";
        case AVERROR(EFBIG):
            return "its headers are larger than any sensible file's";
        case AVERROR_EOF:
            return "the file is cut short";
        default:
            return "it is damaged, or no media file of a kind that can be synced";
    }
}

AvInput::AvInput() : _file(ReadLimit) {}

namespace {

// A tag before the sound may be longer than what is looked at to tell the format (a large cover
// makes it so), and its bytes may look like anything; so the format is told by what stands behind
// it. Null when there is no such tag.
const AVInputFormat* formatBehindTag(int fd) {
    std::array<std::uint8_t, 10> header{};
    if (::pread(fd, header.data(), header.size(), 0) != static_cast<ssize_t>(header.size()) ||
        std::memcmp(header.data(), "ID3", 3) != 0)
        return nullptr;
    constexpr std::uint8_t HasFooter = 0x10;
    off_t length = header.size() + (header[5] & HasFooter ? header.size() : 0);
    // Seven bits of each byte.
    length += (header[6] & 0x7F) << 21 | (header[7] & 0x7F) << 14 | (header[8] & 0x7F) << 7 |
              (header[9] & 0x7F);
    std::array<std::uint8_t, 4> sound{};
    if (::pread(fd, sound.data(), sound.size(), length) != static_cast<ssize_t>(sound.size()))
        return nullptr;
    if (std::memcmp(sound.data(), "fLaC", 4) == 0)
        return av_find_input_format("flac");
    // The sync word of an ADTS frame; its layer bits are 0, which no MPEG audio frame's are.
    if (sound[0] == 0xFF && (sound[1] & 0xF6) == 0xF0)
        return av_find_input_format("aac");
    return av_find_input_format("mp3");
}

}  // namespace

AvInput::~AvInput() {
    avformat_close_input(&_format);
}

std::string AvInput::open(const std::string& path) {
    _fd.reset(::open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY));
    struct stat status {};
    if (!_fd || ::fstat(_fd.get(), &status) != 0) {
        _mayOpenLater = true;
        return std::string("it cannot be opened: ") + std::strerror(errno);
    }
    if (!S_ISREG(status.st_mode))
        return "it is no file";
    _size = status.st_size;

    if (!_file.open(_fd.get(), BufferSize))
        return mediaErrorText(AVERROR(ENOMEM));
    AVFormatContext* format = avformat_alloc_context();
    if (!format)
        return mediaErrorText(AVERROR(ENOMEM));
    format->pb = _file.context();
    format->flags |= AVFMT_FLAG_CUSTOM_IO;
    format->max_streams = 64;
    Options options;
    options.set("format_whitelist", Formats);
    options.set("codec_whitelist", Decoders);
    options.set("protocol_whitelist", "");
    options.set("probesize", "1048576");
    options.set("formatprobesize", "262144");
    options.set("analyzeduration", "2000000");  // microseconds
    const int error = avformat_open_input(&format, "", formatBehindTag(_fd.get()), options.get());
    if (error < 0) {
        _mayOpenLater = error == AVERROR(ENOMEM) || error == AVERROR(EIO);
        return mediaErrorText(error);
    }
    _format = format;
    return {};
}

void AvInput::analyze() {
    avformat_find_stream_info(_format, nullptr);
}

}  // namespace host
