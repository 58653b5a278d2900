#include "host/scan/media_record.h"

#include <type_traits>

#include "host/scan/byte_codec.h"

namespace host {

namespace {

// "MF" and the version of the layout. A change of any visit() below takes the next version.
constexpr std::uint32_t RecordMark = 0x4d460002;
constexpr std::size_t TextLimit = 1u << 20;  // bytes
constexpr std::uint32_t ChapterLimit = 10'000;

// One list of fields serves both directions: `codec` either writes each field or reads it.
class Encoder {
public:
    template <typename... Fields>
    void fields(const Fields&... each) {
        (field(each), ...);
    }
    std::string take() { return _out.take(); }

private:
    template <typename T>
    void field(const T& value);

    ByteWriter _out;
};

class Decoder {
public:
    explicit Decoder(std::string_view bytes) : _in(bytes) {}
    template <typename... Fields>
    void fields(Fields&... each) {
        (field(each), ...);
    }
    bool complete() const { return _in.complete(); }

private:
    template <typename T>
    void field(T& value);

    ByteReader _in;
};

template <typename Codec, typename T>
void visit(Codec& codec, T& t) {
    using Record = std::remove_const_t<T>;
    if constexpr (std::is_same_v<Record, Tags>) {
        codec.fields(t.title, t.artist, t.album, t.albumArtist, t.composer, t.genre, t.comment,
                     t.grouping, t.description, t.sortTitle, t.sortArtist, t.sortAlbum,
                     t.sortAlbumArtist, t.sortComposer, t.sortShow, t.show, t.episodeId,
                     t.podcastFeed, t.podcastGuid, t.year, t.discNumber, t.discCount, t.trackNumber,
                     t.trackCount, t.season, t.episode, t.beatsPerMinute, t.releaseDate,
                     t.compilation, t.podcast, t.rental, t.kind);
    } else if constexpr (std::is_same_v<Record, FileStamp>) {
        codec.fields(t.path, t.size, t.modifiedNanoseconds, t.inode, t.device);
    } else if constexpr (std::is_same_v<Record, Chapter>) {
        codec.fields(t.startMilliseconds, t.title, t.picture);
    } else if constexpr (std::is_same_v<Record, EmbeddedArtwork>) {
        codec.fields(t.hash, t.size);
    } else {
        static_assert(std::is_same_v<Record, MediaFile>);
        codec.fields(t.stamp, t.reason, t.readAgain, t.tags, t.tagsInFile, t.mediaType, t.isRental,
                     t.durationMilliseconds, t.bitRate, t.sampleRate, t.channels, t.width, t.height,
                     t.hasVideo, t.container, t.audioCodec, t.videoCodec, t.chapters, t.artwork,
                     t.contentHash);
    }
}

template <typename T>
inline constexpr bool isOptional = false;
template <typename T>
inline constexpr bool isOptional<std::optional<T>> = true;

template <typename T>
void Encoder::field(const T& value) {
    if constexpr (std::is_same_v<T, std::string>) {
        _out.text(value);
    } else if constexpr (std::is_same_v<T, bool>) {
        _out.number<std::uint8_t>(value ? 1 : 0);
    } else if constexpr (std::is_enum_v<T>) {
        _out.number(static_cast<std::underlying_type_t<T>>(value));
    } else if constexpr (std::is_integral_v<T>) {
        _out.number(value);
    } else if constexpr (std::is_same_v<T, ContentHash>) {
        _out.raw(bytesOfContentHash(value));
    } else if constexpr (std::is_same_v<T, std::vector<Chapter>>) {
        _out.number(static_cast<std::uint32_t>(value.size()));
        for (const Chapter& chapter : value)
            visit(*this, chapter);
    } else if constexpr (isOptional<T>) {
        field(value.has_value());
        if (value)
            field(*value);
    } else {
        visit(*this, value);
    }
}

template <typename T>
void Decoder::field(T& value) {
    if constexpr (std::is_same_v<T, std::string>) {
        value = _in.text(TextLimit);
    } else if constexpr (std::is_same_v<T, bool>) {
        const auto byte = _in.number<std::uint8_t>();
        if (byte > 1)
            _in.fail();
        value = byte == 1;
    } else if constexpr (std::is_enum_v<T>) {
        value = static_cast<T>(_in.number<std::underlying_type_t<T>>());
    } else if constexpr (std::is_integral_v<T>) {
        value = _in.number<T>();
    } else if constexpr (std::is_same_v<T, ContentHash>) {
        value = contentHashOfBytes(_in.raw(sizeof value)).value_or(ContentHash{});
    } else if constexpr (std::is_same_v<T, std::vector<Chapter>>) {
        const auto count = _in.number<std::uint32_t>();
        if (count > ChapterLimit)
            _in.fail();
        for (std::uint32_t i = 0; i < count && _in.ok(); ++i)
            visit(*this, value.emplace_back());
    } else if constexpr (isOptional<T>) {
        bool present = false;
        field(present);
        if (present)
            field(value.emplace());
    } else {
        visit(*this, value);
    }
}

}  // namespace

std::string encodeMediaFile(const MediaFile& file) {
    Encoder encoder;
    encoder.fields(RecordMark);
    visit(encoder, file);
    return encoder.take();
}

std::optional<MediaFile> decodeMediaFile(std::string_view bytes) {
    Decoder decoder(bytes);
    std::uint32_t mark = 0;
    decoder.fields(mark);
    if (mark != RecordMark)
        return std::nullopt;
    std::optional<MediaFile> file(std::in_place);
    visit(decoder, *file);
    if (!decoder.complete())
        return std::nullopt;
    return file;
}

}  // namespace host
