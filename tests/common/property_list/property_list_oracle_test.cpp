// Property lists compared with those of Python's standard library, in both directions.
#include <gtest/gtest.h>

#include <bit>
#include <cmath>
#include <cstdlib>
#include <fstream>
#include <iterator>
#include <random>

#include <fmt/format.h>

#include "common/property_list/property_list.h"
#include "tests/support/temporary_directory.h"

namespace {

using platform::Data;
using platform::PropertyListFormat;
using platform::Value;

constexpr int documents = 300;

std::string hex(std::string_view bytes) {
    std::string text;
    for (const char byte : bytes)
        text += fmt::format("{:02x}", static_cast<unsigned char>(byte));
    return text;
}

// The same text as text_of in property_list_oracle.py.
std::string textOf(const Value& value) {
    switch (value.type()) {
        case Value::Type::Boolean:
            return value.boolValue() ? "t" : "f";
        case Value::Type::Signed:
            return fmt::format("i{}", value.int64Value());
        case Value::Type::Unsigned:
            return fmt::format("i{}", value.unsignedValue());
        case Value::Type::Double:
            return fmt::format("r{:016x}", std::bit_cast<std::uint64_t>(value.doubleValue()));
        case Value::Type::String:
            return "s" + hex(*value.string());
        case Value::Type::Data:
            return "b" +
                   hex({reinterpret_cast<const char*>(value.data()->data()), value.data()->size()});
        case Value::Type::Date:
            return fmt::format("d{}", std::llround(value.date()->secondsSince1970));
        case Value::Type::Array: {
            std::string text;
            for (const Value& element : *value.array())
                text += (text.empty() ? "" : ",") + textOf(element);
            return "(" + text + ")";
        }
        case Value::Type::Dictionary: {
            std::string text;
            for (const auto& [key, element] : *value.dictionary())
                text += (text.empty() ? "" : ",") + hex(key) + ":" + textOf(element);
            return "{" + text + "}";
        }
        default:
            return "null";
    }
}

class RandomValues {
public:
    explicit RandomValues(std::uint64_t seed) : _random(seed) {}

    Value value(int depth) {
        switch (_random() % (depth < 5 ? 9 : 7)) {
            case 0:
                return Value(_random() % 2 == 0);
            case 1:
                return Value(static_cast<std::int64_t>(_random() >> _random() % 64));
            case 2:
                return Value(_random());
            case 3:
                return Value(static_cast<double>(_random()) / 1e7 - 1e11);
            case 4:
                return Value(text());
            case 5: {
                Data data(_random() % 40);
                for (std::uint8_t& byte : data)
                    byte = static_cast<std::uint8_t>(_random());
                return Value(std::move(data));
            }
            case 6:
                return Value(platform::Date{static_cast<double>(_random() % (1ull << 36)) - 3e10});
            case 7: {
                platform::Array array(_random() % 20);
                for (Value& element : array)
                    element = value(depth + 1);
                return Value(std::move(array));
            }
            default: {
                platform::Dictionary dictionary;
                for (auto count = _random() % 20; count > 0; --count)
                    dictionary.insert_or_assign(text(), value(depth + 1));
                return Value(std::move(dictionary));
            }
        }
    }

private:
    std::string text() {
        static constexpr std::string_view pieces[] = {"a",  " ",  "<", "&",  "]]>",        "\t",
                                                      "\n", "\"", "é", "語", "\U0001d11e", "word"};
        std::string result;
        for (auto count = _random() % 30; count > 0; --count)
            result += pieces[_random() % std::size(pieces)];
        return result;
    }

    std::mt19937_64 _random;
};

std::string read(const std::string& path) {
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
}

std::optional<Value> parse(const std::string& bytes, platform::OptionalError& error) {
    return common::parsePropertyList(
        {reinterpret_cast<const std::uint8_t*>(bytes.data()), bytes.size()}, &error);
}

void runOracle(const std::string& arguments) {
    const std::string command = std::string("exec ") + PYTHON3 + " " + ORACLE + " " + arguments;
    ASSERT_EQ(std::system(command.c_str()), 0);
}

class PropertyListOracle : public ::testing::Test {
protected:
    PropertyListOracle() { RecordProperty("seed", std::to_string(seed)); }

    const unsigned seed = std::random_device()();
    test::TemporaryDirectory directory;
};

TEST_F(PropertyListOracle, WhatPythonWritesIsReadTheSame) {
    runOracle(fmt::format("generate {} {} {}", directory.path(), seed, documents));
    for (int i = 0; i < documents; ++i) {
        const std::string expected = read(directory / fmt::format("{}.txt", i));
        ASSERT_FALSE(expected.empty());
        for (const char* suffix : {"xml", "bin"}) {
            platform::OptionalError error;
            const auto value = parse(read(directory / fmt::format("{}.{}", i, suffix)), error);
            ASSERT_TRUE(value) << error->description() << " seed " << seed << " #" << i << suffix;
            ASSERT_EQ(textOf(*value), expected) << "seed " << seed << " #" << i << suffix;
        }
    }
}

TEST_F(PropertyListOracle, WhatIsWrittenPythonReadsTheSame) {
    RandomValues random(seed);
    std::vector<std::string> expected;
    for (int i = 0; i < documents; ++i) {
        const Value value = random.value(0);
        const auto format = i % 2 == 0 ? PropertyListFormat::XML : PropertyListFormat::Binary;
        platform::OptionalError error;
        const auto bytes = common::serializePropertyList(value, format, &error);
        ASSERT_TRUE(bytes) << error->description() << " seed " << seed << " #" << i;
        EXPECT_EQ(*common::parsePropertyList(*bytes, &error), value);
        std::ofstream(directory / fmt::format("{}.plist", i), std::ios::binary)
            .write(reinterpret_cast<const char*>(bytes->data()),
                   static_cast<std::streamsize>(bytes->size()));
        expected.push_back(textOf(value));
    }
    runOracle("dump " + directory.path());
    for (int i = 0; i < documents; ++i)
        ASSERT_EQ(read(directory / fmt::format("{}.txt", i)), expected[static_cast<std::size_t>(i)])
            << "seed " << seed << " #" << i;
}

}  // namespace
