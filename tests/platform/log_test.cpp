#include "platform/log.h"

#include <gtest/gtest.h>

#include <limits>

namespace platform {
namespace {

template <typename... Arguments>
std::string format(std::string_view text, const Arguments&... arguments) {
    const std::vector<LogArgument> list{LogArgument(arguments)...};
    return formatMessage(text, list);
}

TEST(FormatMessage, ReplacesEveryConversionInOrder) {
    EXPECT_EQ(
        format("%@ %d %lld %lu %s", "a", -1, std::numeric_limits<std::int64_t>::min(), 7u, "end"),
        "a -1 -9223372036854775808 7 end");
    EXPECT_EQ(format("%f%%", 1.5), "1.500000%");
}

TEST(FormatMessage, AnAbsentObjectPrintsNull) {
    EXPECT_EQ(format("err=%@", OptionalError()), "err=(null)");
    EXPECT_EQ(format("%@ and %@", "one"), "one and (null)");
}

TEST(FormatMessage, AnErrorPrintsDomainCodeAndText) {
    EXPECT_EQ(format("%@", Error("ORError", 5, "no")), "Error Domain=ORError Code=5 \"no\"");
}

TEST(FormatMessage, AnArgumentIsNeverReadAsAFormat) {
    EXPECT_EQ(format("%@ %@", "%@%n", "x"), "%@%n x");
    EXPECT_EQ(format("100%", 1), "100%");
    EXPECT_EQ(format("%n", 1), "%n");
}

}  // namespace
}  // namespace platform
