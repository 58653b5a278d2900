#include "device/korvane/smart_rules.h"

#include <gtest/gtest.h>
#include <rapidcheck.h>

#include <algorithm>
#include <iterator>

namespace {

using namespace korvane;

SmartRules someRules() {
    return {true,
            {{SmartField::Rating, SmartOperation::GreaterOrEqual, std::int64_t{60}},
             {SmartField::Genre, SmartOperation::Contains, "jazz"},
             {SmartField::LastPlayed, SmartOperation::NotWithinLast, std::int64_t{86'400}}},
            25,
            SmartField::PlayCount,
            true};
}

TEST(SmartRules, ComeBackAsTheyWere) {
    const auto bytes = encodeSmartRules(someRules());
    ASSERT_TRUE(bytes);
    EXPECT_EQ(decodeSmartRules(*bytes), someRules());
    EXPECT_EQ(decodeSmartRules(*encodeSmartRules({})), SmartRules());
}

TEST(SmartRules, TheBytesAreThoseOfTheFormat) {
    const SmartRules rules{
        false, {{SmartField::Genre, SmartOperation::Equal, "ab"}}, 3, SmartField::Title, true};
    EXPECT_EQ(*encodeSmartRules(rules), (platform::Data{'K', 'V', 'S', 'R', 1, 2, 64, 3, 0, 0, 0, 1,
                                                        0, 68, 1, 2, 0, 'a', 'b'}));
}

TEST(SmartRules, CutShortAnywhereTheyAreRefused) {
    const auto bytes = *encodeSmartRules(someRules());
    for (std::size_t size = 0; size < bytes.size(); ++size)
        EXPECT_FALSE(decodeSmartRules(std::span(bytes).first(size))) << size;
    auto longer = bytes;
    longer.push_back(0);
    EXPECT_FALSE(decodeSmartRules(longer));
}

TEST(SmartRules, WithoutMeaningTheyAreRefused) {
    const auto refuses = [](SmartCondition condition) {
        return !encodeSmartRules({false, {std::move(condition)}, 0, SmartField::Title, false});
    };
    EXPECT_TRUE(refuses({SmartField::Title, SmartOperation::Greater, "a"}));
    EXPECT_TRUE(refuses({SmartField::Title, SmartOperation::Equal, std::int64_t{1}}));
    EXPECT_TRUE(refuses({SmartField::Rating, SmartOperation::Equal, "5"}));
    EXPECT_TRUE(refuses({SmartField::Rating, SmartOperation::WithinLast, std::int64_t{5}}));
    EXPECT_TRUE(refuses({SmartField::Rating, SmartOperation::Contains, std::int64_t{5}}));
    EXPECT_TRUE(refuses({static_cast<SmartField>(40), SmartOperation::Equal, std::int64_t{5}}));
    EXPECT_TRUE(refuses({SmartField::Rating, static_cast<SmartOperation>(99), std::int64_t{5}}));
    EXPECT_TRUE(refuses({SmartField::Title, SmartOperation::Equal, std::string(1'025, 'x')}));
    SmartRules many;
    many.conditions.resize(201);
    EXPECT_FALSE(encodeSmartRules(many));
}

TEST(SmartRules, AnyBytesAreReadWithoutHarm) {
    EXPECT_TRUE(rc::check([](std::vector<std::uint8_t> tail) {
        platform::Data bytes{'K', 'V', 'S', 'R', 1};
        std::ranges::copy(tail, std::back_inserter(bytes));
        if (const auto rules = decodeSmartRules(bytes)) {
            RC_ASSERT(encodeSmartRules(*rules) == bytes);
        }
    }));
}

}  // namespace
