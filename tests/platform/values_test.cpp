#include "platform/values.h"

#include <gtest/gtest.h>

#include <limits>

namespace platform {
namespace {

TEST(Value, NumbersAreComparedByValueAcrossTypes) {
    EXPECT_EQ(Value(5), Value(5u));
    EXPECT_EQ(Value(5), Value(5.0));
    EXPECT_NE(Value(-1), Value(std::numeric_limits<std::uint64_t>::max()));
    EXPECT_NE(Value(1), Value(true));
}

TEST(Value, IntegerOfAStringIsItsLeadingNumber) {
    EXPECT_EQ(Value("123abc").int64Value(), 123);
    EXPECT_EQ(Value("-9223372036854775808").int64Value(), std::numeric_limits<std::int64_t>::min());
    EXPECT_EQ(Value("99999999999999999999").int64Value(), std::numeric_limits<std::int64_t>::max());
    EXPECT_EQ(Value("abc").int64Value(), 0);
    EXPECT_EQ(Value().int64Value(), 0);
}

TEST(Value, AKeyOfWhatIsNoDictionaryIsNull) {
    EXPECT_TRUE(Value(5)["key"].isNull());
    EXPECT_EQ(Value(Dictionary{{"key", 7}})["key"], Value(7));
}

TEST(Value, IsPrintedAsALogLinePrintsAnObject) {
    EXPECT_EQ(Value().description(), "(null)");
    EXPECT_EQ(Value(Array{1, "two"}).description(), "(\n    1,\n    two\n)");
    EXPECT_EQ(Value(Dictionary{{"a", Array{}}}).description(), "{\n    a = (\n    );\n}");
    EXPECT_EQ(Value(Data{1, 2, 255}).description(), "{length = 3, bytes = 0x0102ff}");
}

TEST(Value, SharesItsDictionary) {
    const Value value(Dictionary{{"key", 1}});
    const std::shared_ptr<const Dictionary> shared = value.sharedDictionary();
    EXPECT_EQ(shared.get(), value.dictionary());
    EXPECT_EQ(Value(shared), value);
    EXPECT_EQ(Value(1).sharedDictionary(), nullptr);
    EXPECT_TRUE(Value(std::shared_ptr<const Dictionary>()).isNull());
}

TEST(ValueView, ConvertsAsAValueDoes) {
    EXPECT_EQ(ValueView(std::string_view("17")).int64Value(), 17);
    EXPECT_EQ(ValueView().int64Value(), 0);
    EXPECT_EQ(ValueView(std::int64_t{-3}).value(), Value(-3));
    EXPECT_TRUE(ValueView().value().isNull());
}

}  // namespace
}  // namespace platform
