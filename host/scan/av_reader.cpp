#include "host/scan/av_reader.h"

#include <algorithm>
#include <memory>
#include <span>
#include <string_view>

#include "host/scan/av_input.h"
#include "host/scan/av_tags.h"
#include "host/scan/file_names.h"

extern "C" {
#include <libavcodec/codec_desc.h>
#include <libavformat/avformat.h>
#include <libavutil/mathematics.h>
}

namespace host {

namespace {

constexpr std::size_t ChapterLimit = 10'000;
constexpr std::size_t ChapterTitleLimit = 512;  // bytes
constexpr AVRational Milliseconds{1, 1000};

std::span<AVStream* const> streamsOf(const AVFormatContext& format) {
    return {format.streams, format.nb_streams};
}

std::int64_t startOf(const AVChapter& chapter) {
    return std::max<std::int64_t>(av_rescale_q(chapter.start, chapter.time_base, Milliseconds), 0);
}

// By rising start; the same place always names the same chapter.
std::span<AVChapter* const> chaptersOf(AVFormatContext& format) {
    const std::span<AVChapter*> all(format.chapters, format.nb_chapters);
    std::ranges::stable_sort(all, {}, [](const AVChapter* c) { return startOf(*c); });
    return all.first(std::min(all.size(), ChapterLimit));
}

// A picture that stands for the whole file.
bool isCover(const AVStream& stream) {
    return (stream.disposition & AV_DISPOSITION_ATTACHED_PIC) &&
           !(stream.disposition & AV_DISPOSITION_TIMED_THUMBNAILS) && stream.attached_pic.size > 0;
}

bool isChapterPictures(const AVStream& stream) {
    return (stream.disposition & AV_DISPOSITION_TIMED_THUMBNAILS) != 0;
}

bool isFilm(const AVStream& stream) {
    return stream.codecpar->codec_type == AVMEDIA_TYPE_VIDEO &&
           !(stream.disposition & (AV_DISPOSITION_ATTACHED_PIC | AV_DISPOSITION_TIMED_THUMBNAILS));
}

bool isSound(const AVStream& stream) {
    return stream.codecpar->codec_type == AVMEDIA_TYPE_AUDIO;
}

// The front cover, else the first picture; null when there is none.
const AVStream* coverOf(const AVFormatContext& format) {
    const AVStream* first = nullptr;
    for (const AVStream* stream : streamsOf(format)) {
        if (!isCover(*stream))
            continue;
        const AVDictionaryEntry* role = av_dict_get(stream->metadata, "comment", nullptr, 0);
        if (role && std::string_view(role->value) == "Cover (front)")
            return stream;
        if (!first)
            first = stream;
    }
    return first;
}

std::span<const std::uint8_t> bytesOf(const AVPacket& packet) {
    return {packet.data, static_cast<std::size_t>(std::max(packet.size, 0))};
}

// Calls visitor(chapter's place, picture) for each picture of the chapters, in order, until it
// returns false. A picture belongs to the chapter that begins with it.
template <typename Visitor>
void visitChapterPictures(AvInput& input, const Visitor& visitor) {
    AVFormatContext& format = input.context();
    const AVStream* pictures = nullptr;
    for (AVStream* stream : streamsOf(format)) {
        if (!pictures && isChapterPictures(*stream))
            pictures = stream;
        else
            stream->discard = AVDISCARD_ALL;
    }
    const auto chapters = chaptersOf(format);
    if (!pictures || chapters.empty())
        return;
    struct Free {
        void operator()(AVPacket* packet) const { av_packet_free(&packet); }
    };
    const std::unique_ptr<AVPacket, Free> packet(av_packet_alloc());
    // Opening queues one picture as the stream's own; it comes again at its place.
    avformat_seek_file(&format, pictures->index, INT64_MIN, 0, 0, 0);
    std::size_t chapter = 0;
    for (std::size_t count = 0; count < ChapterLimit && av_read_frame(&format, packet.get()) >= 0;
         ++count) {
        if (packet->stream_index == pictures->index && packet->size > 0) {
            const std::int64_t at = av_rescale_q(packet->pts, pictures->time_base, Milliseconds);
            // Rounding may put picture and chapter one millisecond apart.
            while (chapter < chapters.size() && startOf(*chapters[chapter]) < at - 1)
                ++chapter;
            if (chapter < chapters.size() && startOf(*chapters[chapter]) <= at + 1 &&
                !visitor(chapter, bytesOf(*packet)))
                return;
        }
        av_packet_unref(packet.get());
    }
}

std::string containerOf(const AVFormatContext& format) {
    const std::string_view name = format.iformat->name;
    if (name.starts_with("mov"))
        return "mp4";
    return std::string(name.substr(0, name.find(',')));
}

// Whether the headers told all that a scan wants.
bool headersSuffice(const AVFormatContext& format) {
    bool hasDuration = format.duration > 0;
    for (const AVStream* stream : streamsOf(format)) {
        hasDuration = hasDuration || stream->duration > 0;
        const AVCodecParameters& codec = *stream->codecpar;
        if (isSound(*stream) && (codec.sample_rate <= 0 || codec.ch_layout.nb_channels <= 0))
            return false;
        if (isFilm(*stream) && (codec.width <= 0 || codec.height <= 0))
            return false;
    }
    return hasDuration && format.nb_streams > 0;
}

// An MP4 index that points beyond the end: the file was cut off behind its headers.
bool isCutShort(const AvInput& input, const AVFormatContext& format) {
    if (containerOf(format) != "mp4")
        return false;
    for (AVStream* stream : streamsOf(format)) {
        const int count = avformat_index_get_entries_count(stream);
        const AVIndexEntry* last =
            count > 0 ? avformat_index_get_entry(stream, count - 1) : nullptr;
        if (last && last->pos > input.fileSize() - last->size)
            return true;
    }
    return false;
}

std::int64_t durationOf(const AVFormatContext& format) {
    if (format.duration > 0)
        return av_rescale_q(format.duration, AV_TIME_BASE_Q, Milliseconds);
    std::int64_t longest = 0;
    for (const AVStream* stream : streamsOf(format))
        if (stream->duration > 0 && (isSound(*stream) || isFilm(*stream)))
            longest =
                std::max(longest, av_rescale_q(stream->duration, stream->time_base, Milliseconds));
    return longest;
}

void readStreams(const AvInput& input, const AVFormatContext& format, MediaFile& file) {
    for (const AVStream* stream : streamsOf(format)) {
        const AVCodecParameters& codec = *stream->codecpar;
        if (isSound(*stream) && file.audioCodec.empty()) {
            file.audioCodec = avcodec_get_name(codec.codec_id);
            file.sampleRate = codec.sample_rate;
            file.channels = codec.ch_layout.nb_channels;
            file.bitRate = codec.bit_rate;
        } else if (isFilm(*stream) && !file.hasVideo) {
            file.hasVideo = true;
            file.videoCodec = avcodec_get_name(codec.codec_id);
            file.width = codec.width;
            file.height = codec.height;
        }
    }
    file.container = containerOf(format);
    file.durationMilliseconds = durationOf(format);
    if (file.hasVideo || file.bitRate <= 0)
        file.bitRate = format.bit_rate;
    if (file.bitRate <= 0 && file.durationMilliseconds > 0)
        file.bitRate = av_rescale(input.fileSize(), 8000, file.durationMilliseconds);
}

void readTags(const AVFormatContext& format, Tags& tags) {
    addTags(format.metadata, tags);
    // Ogg keeps tags with the stream; a film's streams have names of their own.
    for (const AVStream* stream : streamsOf(format))
        if (isSound(*stream) && containerOf(format) == "ogg")
            addTags(stream->metadata, tags);
}

void readChapters(AvInput& input, MediaFile& file) {
    for (const AVChapter* chapter : chaptersOf(input.context())) {
        const AVDictionaryEntry* title = av_dict_get(chapter->metadata, "title", nullptr, 0);
        file.chapters.push_back({startOf(*chapter),
                                 title ? displayText(title->value, ChapterTitleLimit) : "",
                                 std::nullopt});
    }
    visitChapterPictures(input, [&](std::size_t chapter, std::span<const std::uint8_t> picture) {
        file.chapters[chapter].picture = common::xxh3(picture);
        return true;
    });
}

}  // namespace

MediaFile readMediaFile(const std::string& path) {
    MediaFile file;
    AvInput input;
    file.reason = input.open(path);
    file.readAgain = input.mayOpenLater();
    if (!file.readable())
        return file;
    AVFormatContext& format = input.context();
    if (!headersSuffice(format))
        input.analyze();
    readStreams(input, format, file);
    if (file.audioCodec.empty() && !file.hasVideo) {
        file.reason = "it holds neither sound nor film";
        return file;
    }
    if (isCutShort(input, format)) {
        file.reason = "the file is cut short";
        return file;
    }
    readTags(format, file.tags);
    if (const AVStream* cover = coverOf(format))
        file.artwork =
            EmbeddedArtwork{common::xxh3(bytesOf(cover->attached_pic)), cover->attached_pic.size};
    readChapters(input, file);
    return file;
}

std::optional<std::vector<std::uint8_t>> readEmbeddedPicture(const std::string& path,
                                                             std::int32_t chapter) {
    AvInput input;
    if (!input.open(path).empty())
        return std::nullopt;
    std::optional<std::vector<std::uint8_t>> bytes;
    const auto keep = [&](std::span<const std::uint8_t> picture) {
        bytes.emplace(picture.begin(), picture.end());
    };
    if (chapter < 0) {
        if (const AVStream* cover = coverOf(input.context()))
            keep(bytesOf(cover->attached_pic));
        return bytes;
    }
    visitChapterPictures(input, [&](std::size_t at, std::span<const std::uint8_t> picture) {
        if (at == static_cast<std::size_t>(chapter))
            keep(picture);
        return !bytes;
    });
    return bytes;
}

}  // namespace host
