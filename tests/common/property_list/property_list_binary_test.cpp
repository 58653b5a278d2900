#include <gtest/gtest.h>

#include <chrono>
#include <limits>

#include "common/property_list/property_list.h"
#include "tests/support/time_limit.h"

namespace {

using common::PropertyListErrorCode;
using platform::Array;
using platform::Data;
using platform::Dictionary;
using platform::PropertyListFormat;
using platform::Value;

std::optional<Value> parse(const Data& bytes, platform::OptionalError* error = nullptr) {
    return common::parsePropertyList(bytes, error);
}

PropertyListErrorCode refusal(const Data& bytes) {
    platform::OptionalError error;
    EXPECT_FALSE(parse(bytes, &error));
    return error ? static_cast<PropertyListErrorCode>(error->code) : PropertyListErrorCode{};
}

Data written(const Value& value) {
    const auto bytes = common::serializePropertyList(value, PropertyListFormat::Binary, nullptr);
    return bytes ? *bytes : Data();
}

void append(Data& bytes, std::uint64_t number, int size) {
    for (int shift = size * 8 - 8; shift >= 0; shift -= 8)
        bytes.push_back(static_cast<std::uint8_t>(shift < 64 ? number >> shift : 0));
}

// A document of hand-made objects, with the fields of its trailer open to lies.
struct Document {
    std::vector<Data> objects;
    int offsetSize = 4;
    int referenceSize = 1;
    std::uint64_t topObject = 0;
    std::optional<std::uint64_t> objectCount{};
    std::optional<std::uint64_t> tableOffset{};

    Data bytes() const {
        Data result{'b', 'p', 'l', 'i', 's', 't', '0', '0'};
        std::vector<std::uint64_t> offsets;
        for (const Data& object : objects) {
            offsets.push_back(result.size());
            result.insert(result.end(), object.begin(), object.end());
        }
        const std::uint64_t table = result.size();
        for (const std::uint64_t offset : offsets)
            append(result, offset, offsetSize);
        append(result, 0, 6);
        append(result, static_cast<std::uint64_t>(offsetSize), 1);
        append(result, static_cast<std::uint64_t>(referenceSize), 1);
        append(result, objectCount.value_or(objects.size()), 8);
        append(result, topObject, 8);
        append(result, tableOffset.value_or(table), 8);
        return result;
    }
};

Data document(std::vector<Data> objects) {
    return Document{std::move(objects)}.bytes();
}

TEST(PropertyListBinary, EveryTypeComesBackAsItWas) {
    const Value value = Dictionary{{"numbers", Array{0, -1, 255, 256, INT64_MAX, INT64_MIN}},
                                   {"large", UINT64_MAX},
                                   {"real", -0.1},
                                   {"yes", true},
                                   {"no", false},
                                   {"date", platform::Date{1234567890.25}},
                                   {"data", Data(300, 7)},
                                   {"ascii", std::string("a\0b", 3)},
                                   {"text", "\xc3\xa4\xf0\x9d\x84\x9e"},
                                   {"empty", Array{Array{}, Dictionary{}, "", Data{}}}};
    const auto again = parse(written(value));
    ASSERT_TRUE(again);
    EXPECT_EQ(*again, value);
    EXPECT_EQ((*again)["large"].type(), Value::Type::Unsigned);
    EXPECT_EQ((*again)["numbers"].array()->at(0).type(), Value::Type::Signed);
}

TEST(PropertyListBinary, ManyObjectsTakeWiderReferences) {
    Array array;
    for (int i = 0; i < 70000; ++i)
        array.push_back(std::to_string(i));
    EXPECT_EQ(*parse(written(array)), Value(array));
}

TEST(PropertyListBinary, EqualTextsAreWrittenOnce) {
    const std::string text(1000, 'x');
    EXPECT_LT(written(Array{text, text, Dictionary{{text, text}}}).size(), 1200u);
}

TEST(PropertyListBinary, OtherWritersFormsAreRead) {
    EXPECT_EQ(*parse(document({{0x22, 0x3f, 0xc0, 0, 0}})), Value(1.5));
    EXPECT_EQ(*parse(document({{0x72, 0xc3, 0xa4}})), Value("\xc3\xa4"));
    EXPECT_EQ(*parse(document({{0xc1, 1}, {0x09}})), Value(Array{true}));
    EXPECT_EQ(*parse(document({{0xb1, 1}, {0x08}})), Value(Array{false}));
    EXPECT_EQ(*parse(document({{0x14, 0xff, 0xff, 0xff, 0xff, 0xff, 0xff, 0xff, 0xff, 0xff, 0xff,
                                0xff, 0xff, 0xff, 0xff, 0xff, 0xfe}})),
              Value(-2));
    EXPECT_EQ(*parse(document({{0x5f, 0x11, 0, 1, 'a'}})), Value("a"));
    Document wide{.objects = {{0xa1, 0, 0, 1}, {0x09}}, .offsetSize = 3, .referenceSize = 3};
    EXPECT_EQ(*parse(wide.bytes()), Value(Array{true}));
}

TEST(PropertyListBinary, UnknownObjectsAreRefused) {
    for (const Data& object :
         {Data{0x00}, Data{0x0f}, Data{0x80, 1}, Data{0xf0}, Data{0xe0}, Data{0x15, 0},
          Data{0x21, 0, 0}, Data{0x32, 0, 0, 0, 0}, Data{0x51, 0x80}, Data{0x61, 0xd8, 0x00},
          Data{0x61, 0xdc, 0x00}, Data{0x62, 0xd8, 0x00, 0x00, 0x41}, Data{0x71, 0xff},
          Data{0x5f, 0x22, 1}, Data{0x4f, 0x14, 0}})
        EXPECT_EQ(refusal(document({object})), PropertyListErrorCode::Malformed);
    Data tooWide{0x14};
    append(tooWide, 1, 8);
    append(tooWide, 0, 8);
    EXPECT_EQ(refusal(document({tooWide})), PropertyListErrorCode::Malformed);
    EXPECT_EQ(refusal(document({{0xd1, 1, 1}, {0x09}})), PropertyListErrorCode::Malformed);
}

TEST(PropertyListBinary, AnOffsetBeyondTheEndIsRefused) {
    const Data good = document({{0xa1, 1}, {0x09}});
    ASSERT_TRUE(parse(good));
    const std::size_t table = good.size() - 32 - 8;
    for (const std::uint64_t offset : {0ull, 7ull, 11ull, 100ull, 0xffffffffull}) {
        Data bytes = good;
        for (std::size_t i = 0; i < 4; ++i)
            bytes[table + 4 + i] = static_cast<std::uint8_t>(offset >> (24 - 8 * i));
        EXPECT_EQ(refusal(bytes), PropertyListErrorCode::Malformed) << offset;
    }
}

TEST(PropertyListBinary, ATrailerThatLiesIsRefused) {
    const std::vector<Data> one{{0x09}};
    constexpr std::uint64_t huge = std::numeric_limits<std::uint64_t>::max();
    for (const std::uint64_t lie :
         {std::uint64_t{2}, std::uint64_t{1} << 32, std::uint64_t{1} << 62, huge}) {
        EXPECT_FALSE(parse(Document{.objects = one, .objectCount = lie}.bytes())) << lie;
        EXPECT_FALSE(parse(Document{.objects = one, .topObject = lie}.bytes())) << lie;
    }
    for (const std::uint64_t lie : {std::uint64_t{0}, std::uint64_t{7}, std::uint64_t{14}, huge})
        EXPECT_FALSE(parse(Document{.objects = one, .tableOffset = lie}.bytes())) << lie;
    EXPECT_FALSE(parse(Document{.objects = one, .objectCount = 0}.bytes()));
    EXPECT_FALSE(parse(Document{.objects = one, .referenceSize = 0}.bytes()));
    EXPECT_FALSE(parse(Document{.objects = one, .referenceSize = 9}.bytes()));
    EXPECT_FALSE(parse(Document{.objects = one, .offsetSize = 0}.bytes()));
    EXPECT_FALSE(parse(Document{.objects = one, .offsetSize = 16}.bytes()));
}

TEST(PropertyListBinary, CountsAreCheckedBeforeMemoryIsTaken) {
    for (const std::uint8_t marker : {0x4f, 0x5f, 0x6f, 0x7f, 0xaf, 0xcf, 0xdf}) {
        for (const std::uint64_t count : {std::uint64_t{200}, std::uint64_t{1} << 40,
                                          std::numeric_limits<std::uint64_t>::max()}) {
            Data object{marker, 0x13};
            append(object, count, 8);
            EXPECT_EQ(refusal(document({object})), PropertyListErrorCode::Malformed);
        }
    }
}

TEST(PropertyListBinary, AReferenceToNothingIsRefused) {
    EXPECT_FALSE(parse(document({{0xa1, 2}, {0x09}})));
    EXPECT_FALSE(parse(document({{0xd1, 2, 1}, {0x09}})));
}

TEST(PropertyListBinary, ACycleIsRefused) {
    EXPECT_EQ(refusal(document({{0xa2, 0, 0}})), PropertyListErrorCode::LimitExceeded);
    EXPECT_EQ(refusal(document({{0xa1, 1}, {0xd1, 2, 0}, {0x51, 'k'}})),
              PropertyListErrorCode::LimitExceeded);
}

TEST(PropertyListBinary, SharedObjectsCannotMultiply) {
    std::vector<Data> objects;
    for (std::uint8_t level = 0; level < 60; ++level)
        objects.push_back(
            {0xa2, static_cast<std::uint8_t>(level + 1), static_cast<std::uint8_t>(level + 1)});
    objects.push_back({0x09});
    const auto start = test::processorTime();
    EXPECT_EQ(refusal(document(objects)), PropertyListErrorCode::LimitExceeded);
    EXPECT_LT(test::processorTime() - start, test::timeLimit(std::chrono::seconds(5)));
}

TEST(PropertyListBinary, SharedTextCannotMultiply) {
    Data text{0x5f, 0x12};
    append(text, 1 << 20, 4);
    text.resize(text.size() + (1 << 20), 'x');
    Data array{0xaf, 0x11, 0x10, 0x00};
    array.resize(array.size() + 0x1000, 1);
    EXPECT_EQ(refusal(document({array, text})), PropertyListErrorCode::LimitExceeded);
}

TEST(PropertyListBinary, NestingHasALimit) {
    const auto nested = [](int depth) {
        Value value = Array{};
        for (int i = 1; i < depth; ++i)
            value = Array{value};
        return value;
    };
    EXPECT_EQ(*parse(written(nested(64))), nested(64));
    platform::OptionalError error;
    EXPECT_FALSE(common::serializePropertyList(nested(65), PropertyListFormat::Binary, &error));
    EXPECT_EQ(error->code, static_cast<std::int64_t>(PropertyListErrorCode::LimitExceeded));
}

TEST(PropertyListBinary, AMillionLevelsAreRefusedAtOnce) {
    Document deep{.objects = {}, .referenceSize = 4};
    for (std::uint32_t i = 1; i <= 1'000'000; ++i) {
        Data object{0xa1};
        append(object, i, 4);
        deep.objects.push_back(std::move(object));
    }
    const Data bytes = deep.bytes();
    const auto start = test::processorTime();
    EXPECT_EQ(refusal(bytes), PropertyListErrorCode::LimitExceeded);
    EXPECT_LT(test::processorTime() - start, test::timeLimit(std::chrono::milliseconds(50)));
}

TEST(PropertyListBinary, ATruncatedDocumentIsRefusedWhereverItEnds) {
    const Data bytes =
        written(Dictionary{{"a", Array{1, "two", 3.5, Data{4}}}, {"\xc3\xa4", true}});
    for (std::size_t length = 0; length < bytes.size(); ++length)
        EXPECT_FALSE(parse(Data(bytes.begin(), bytes.begin() + static_cast<long>(length))))
            << length;
}

TEST(PropertyListBinary, EveryFlippedByteIsReadOrRefused) {
    const Data bytes =
        written(Dictionary{{"a", Array{1, "two", 3.5, Data{4}}}, {"\xc3\xa4", true}});
    int refused = 0;
    for (std::size_t i = 0; i < bytes.size(); ++i) {
        for (int bit = 0; bit < 8; ++bit) {
            Data damaged = bytes;
            damaged[i] = static_cast<std::uint8_t>(damaged[i] ^ 1 << bit);
            refused += !parse(damaged);
        }
    }
    EXPECT_GT(refused, 0);
}

TEST(PropertyListBinary, WhatHasNoFormIsNotWritten) {
    for (const Value& value : {Value(), Value(Array{nullptr}), Value("\xff"), Value("\xc0\x80"),
                               Value("\xf4\x90\x80\x80"), Value(Dictionary{{"\xe4", 1}})}) {
        platform::OptionalError error;
        EXPECT_FALSE(common::serializePropertyList(value, PropertyListFormat::Binary, &error));
        EXPECT_EQ(error->code, static_cast<std::int64_t>(PropertyListErrorCode::NotRepresentable));
    }
}

}  // namespace
