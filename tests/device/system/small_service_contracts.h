// What every platform::NamedNotifications and platform::PropertyLists must do. Instantiate with a
// fixture type that is default constructible and has
//     platform::OperatingSystem& operatingSystem();
#pragma once

#include <gtest/gtest.h>

#include <algorithm>

#include "platform/operating_system.h"

namespace test {

template <typename Subject>
class NamedNotificationsContract : public ::testing::Test {
protected:
    Subject subject;
};

TYPED_TEST_SUITE_P(NamedNotificationsContract);

TYPED_TEST_P(NamedNotificationsContract, ARegisteredNameTakesStatesAndPosts) {
    platform::NamedNotifications& names = this->subject.operatingSystem().namedNotifications();
    int token = -1;
    EXPECT_EQ(names.registerCheck("com.example.total", token), 0u);
    EXPECT_EQ(names.setState(token, UINT64_MAX), 0u);
    EXPECT_EQ(names.post("com.example.total"), 0u);
}

TYPED_TEST_P(NamedNotificationsContract, TwoNamesHaveTwoTokens) {
    platform::NamedNotifications& names = this->subject.operatingSystem().namedNotifications();
    int one = -1, two = -1;
    EXPECT_EQ(names.registerCheck("com.example.one", one), 0u);
    EXPECT_EQ(names.registerCheck("com.example.two", two), 0u);
    EXPECT_NE(one, two);
}

TYPED_TEST_P(NamedNotificationsContract, AnUnknownTokenIsRefused) {
    platform::NamedNotifications& names = this->subject.operatingSystem().namedNotifications();
    EXPECT_NE(names.setState(-1, 1), 0u);
    EXPECT_NE(names.setState(1 << 30, 1), 0u);
}

REGISTER_TYPED_TEST_SUITE_P(NamedNotificationsContract, ARegisteredNameTakesStatesAndPosts,
                            TwoNamesHaveTwoTokens, AnUnknownTokenIsRefused);

template <typename Subject>
class PropertyListsContract : public ::testing::Test {
protected:
    // A stream over bytes in memory that hands out a few at a time.
    class Pieces final : public platform::InputStream {
    public:
        Pieces(platform::Data bytes, platform::OptionalError end)
            : _bytes(std::move(bytes)), _end(std::move(end)) {}
        platform::OptionalError read(platform::Data& out, std::size_t count) override {
            const std::size_t taken = std::min({count, std::size_t{7}, _bytes.size() - _at});
            const auto from = _bytes.begin() + static_cast<std::ptrdiff_t>(_at);
            out.insert(out.end(), from, from + static_cast<std::ptrdiff_t>(taken));
            _at += taken;
            return taken == 0 ? _end : platform::OptionalError();
        }
        std::string description() const override { return "pieces"; }

    private:
        const platform::Data _bytes;
        const platform::OptionalError _end;
        std::size_t _at = 0;
    };

    platform::PropertyLists& lists() { return subject.operatingSystem().propertyLists(); }

    const platform::Value value =
        platform::Dictionary{{"list", platform::Array{1, "two", 3.5, true, platform::Data{4}}}};
    Subject subject;
};

TYPED_TEST_SUITE_P(PropertyListsContract);

TYPED_TEST_P(PropertyListsContract, BothFormatsComeBackFromBytesAndStreams) {
    for (const auto format :
         {platform::PropertyListFormat::XML, platform::PropertyListFormat::Binary}) {
        platform::OptionalError error;
        const auto bytes = this->lists().serialize(this->value, format, &error);
        ASSERT_TRUE(bytes);
        EXPECT_EQ(this->lists().parse(*bytes, &error), this->value);
        typename TestFixture::Pieces stream(*bytes, std::nullopt);
        EXPECT_EQ(this->lists().parse(stream, &error), this->value);
        EXPECT_FALSE(error);
    }
}

TYPED_TEST_P(PropertyListsContract, WhatIsMalformedIsAnError) {
    platform::OptionalError error;
    EXPECT_FALSE(this->lists().parse(platform::Data{'x'}, &error));
    EXPECT_TRUE(error);
    EXPECT_FALSE(this->lists().parse(platform::Data{'x'}, nullptr));
    EXPECT_FALSE(this->lists().serialize(platform::Array{nullptr},
                                         platform::PropertyListFormat::Binary, &error));
    EXPECT_TRUE(error);
}

TYPED_TEST_P(PropertyListsContract, AStreamsErrorIsPassedOn) {
    platform::OptionalError error;
    const platform::Error broken("Broken", 5);
    typename TestFixture::Pieces stream({}, broken);
    EXPECT_FALSE(this->lists().parse(stream, &error));
    EXPECT_EQ(error, broken);
}

REGISTER_TYPED_TEST_SUITE_P(PropertyListsContract, BothFormatsComeBackFromBytesAndStreams,
                            WhatIsMalformedIsAnError, AStreamsErrorIsPassedOn);

}  // namespace test
