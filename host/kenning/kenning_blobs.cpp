#include "host/kenning/kenning_blobs.h"

#include <xxhash.h>

#include <bit>
#include <memory>
#include <string_view>

#include "host/scan/byte_codec.h"

namespace host {

namespace {

// The four characters that a blob begins with, read as a little-endian number.
constexpr std::uint32_t mark(const char (&text)[5]) {
    return static_cast<std::uint32_t>(text[0]) | static_cast<std::uint32_t>(text[1]) << 8 |
           static_cast<std::uint32_t>(text[2]) << 16 | static_cast<std::uint32_t>(text[3]) << 24;
}
constexpr std::uint32_t MetadataMark = mark("KNMD");
constexpr std::uint32_t ConfigurationMark = mark("KNCF");

constexpr std::size_t TextLimit = 4096;  // bytes
constexpr std::int64_t DefaultResults = 25;
constexpr std::int64_t MinimumResults = 5;

ByteWriter begin(std::uint32_t blobMark) {
    ByteWriter out;
    out.number(blobMark);
    out.number(static_cast<std::uint16_t>(KenningVersion));
    return out;
}

platform::Data dataOf(const ByteWriter& out) {
    return {out.bytes().begin(), out.bytes().end()};
}

std::string_view viewOf(std::span<const std::uint8_t> blob) {
    return {reinterpret_cast<const char*>(blob.data()), blob.size()};
}

bool beginsWith(ByteReader& in, std::uint32_t blobMark) {
    return in.number<std::uint32_t>() == blobMark &&
           in.number<std::uint16_t>() == static_cast<std::uint16_t>(KenningVersion);
}

}  // namespace

platform::Data encodeKenningMetadata(const KenningMetadata& metadata) {
    ByteWriter out = begin(MetadataMark);
    out.number(metadata.kenningId);
    out.number(metadata.durationMilliseconds);
    out.number(metadata.year);
    out.number(metadata.beatsPerMinute);
    out.text(metadata.artist);
    out.text(metadata.album);
    out.text(metadata.genre);
    return dataOf(out);
}

std::optional<KenningMetadata> decodeKenningMetadata(std::span<const std::uint8_t> blob) {
    ByteReader in(viewOf(blob));
    if (!beginsWith(in, MetadataMark))
        return std::nullopt;
    KenningMetadata metadata;
    metadata.kenningId = in.number<std::int64_t>();
    metadata.durationMilliseconds = in.number<std::int64_t>();
    metadata.year = in.number<std::int32_t>();
    metadata.beatsPerMinute = in.number<std::int32_t>();
    metadata.artist = in.text(TextLimit);
    metadata.album = in.text(TextLimit);
    metadata.genre = in.text(TextLimit);
    return in.complete() ? std::optional(std::move(metadata)) : std::nullopt;
}

std::int64_t kenningChecksum(const platform::Data& metadata, const platform::Data& similarities) {
    const std::unique_ptr<XXH3_state_t, XXH_errorcode (*)(XXH3_state_t*)> state(XXH3_createState(),
                                                                                &XXH3_freeState);
    XXH3_64bits_reset(state.get());
    XXH3_64bits_update(state.get(), metadata.data(), metadata.size());
    XXH3_64bits_update(state.get(), similarities.data(), similarities.size());
    return std::bit_cast<std::int64_t>(XXH3_64bits_digest(state.get()));
}

platform::Value KenningRecord::plist() const {
    return platform::Dictionary{{"kenning_metadata", metadata},
                                {"kenning_similarities", similarities}};
}

platform::Value kenningConfiguration() {
    ByteWriter out = begin(ConfigurationMark);
    out.number(static_cast<std::uint16_t>(KenningMaximumSimilar));
    return platform::Dictionary{{"data", dataOf(out)},
                                {"default_num_results", DefaultResults},
                                {"min_num_results", MinimumResults},
                                {"version", KenningVersion}};
}

}  // namespace host
