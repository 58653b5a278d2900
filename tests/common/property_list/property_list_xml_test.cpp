#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>

#include "common/property_list/property_list.h"
#include "tests/support/time_limit.h"

namespace {

using common::PropertyListErrorCode;
using platform::Array;
using platform::Data;
using platform::Dictionary;
using platform::PropertyListFormat;
using platform::Value;

std::optional<Value> parse(std::string_view text, platform::OptionalError* error = nullptr) {
    return common::parsePropertyList(
        {reinterpret_cast<const std::uint8_t*>(text.data()), text.size()}, error);
}

std::optional<Value> parseBody(const std::string& body) {
    return parse("<plist version=\"1.0\">" + body + "</plist>");
}

std::string written(const Value& value, platform::OptionalError* error = nullptr) {
    const auto bytes = common::serializePropertyList(value, PropertyListFormat::XML, error);
    return bytes ? std::string(bytes->begin(), bytes->end()) : "";
}

PropertyListErrorCode refusal(std::string_view text) {
    platform::OptionalError error;
    EXPECT_FALSE(parse(text, &error)) << text.substr(0, 200);
    EXPECT_EQ(error->domain, common::PropertyListErrorDomain);
    return static_cast<PropertyListErrorCode>(error->code);
}

std::string repeated(std::string_view text, int count) {
    std::string result;
    for (int i = 0; i < count; ++i)
        result += text;
    return result;
}

TEST(PropertyListXml, EveryTypeIsRead) {
    const auto value = parse(
        "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<!DOCTYPE plist SYSTEM \"list.dtd\">\n"
        "<plist version=\"1.0\"><dict><key>a</key><array><true/><false/></array>\n"
        "<key>b &amp; c</key><string>x<![CDATA[<&>]]>y&#228;</string>"
        "<key>data</key><data>\n AQ ID\n</data><key>date</key><date>2001-01-01T00:00:01Z</date>"
        "<key>i</key><integer> -5 </integer><key>r</key><real>1.5e3</real></dict></plist>");
    ASSERT_TRUE(value);
    EXPECT_EQ(*value, Value(Dictionary{{"a", Array{true, false}},
                                       {"b & c", "x<&>y\xc3\xa4"},
                                       {"data", Data{1, 2, 3}},
                                       {"date", platform::Date{978307201}},
                                       {"i", -5},
                                       {"r", 1500.0}}));
}

TEST(PropertyListXml, IntegersSpanSignedAndUnsigned) {
    EXPECT_EQ(*parseBody("<integer>-9223372036854775808</integer>"), Value(INT64_MIN));
    EXPECT_EQ(*parseBody("<integer>18446744073709551615</integer>"), Value(UINT64_MAX));
    EXPECT_EQ(*parseBody("<integer>0xFF</integer>"), Value(255));
    EXPECT_EQ(*parseBody("<integer>-0x10</integer>"), Value(-16));
    EXPECT_EQ(*parseBody("<integer>+7</integer>"), Value(7));
    for (const char* wrong : {"18446744073709551616", "-9223372036854775809", "", "-", "1.5", "1 2",
                              "0x", "--1", "+-1"})
        EXPECT_FALSE(parseBody(std::string("<integer>") + wrong + "</integer>")) << wrong;
}

TEST(PropertyListXml, ScalarsThatMakeNoSenseAreRefused) {
    for (const char* wrong :
         {"<date>2001-02-30T00:00:00Z</date>", "<date>2001-01-01</date>",
          "<date>2001-01-01T24:00:00Z</date>", "<date>-001-01-01T00:00:00Z</date>", "<date/>",
          "<real>1,5</real>", "<real/>", "<data>A</data>", "<data>AQ=</data>", "<data>AQID=</data>",
          "<data>A*==</data>", "<data>AQ==AQ==</data>", "<true>x</true>"})
        EXPECT_FALSE(parseBody(wrong)) << wrong;
    EXPECT_DOUBLE_EQ(parseBody("<date>1970-01-01T00:00:00.25Z</date>")->date()->secondsSince1970,
                     0.25);
}

TEST(PropertyListXml, WhatIsNoPropertyListIsRefused) {
    for (const char* wrong :
         {"", " ", "text", "<plist/>", "<list><true/></list>", "<plist><true/><true/></plist>",
          "<plist>text</plist>", "<plist><key>k</key></plist>", "<plist><what/></plist>",
          "<plist><dict><true/></dict></plist>", "<plist><dict><key>k</key></dict></plist>",
          "<plist><dict><key>k</key><key>l</key></dict></plist>",
          "<plist><array><key>k</key></array></plist>", "<plist><string><true/></string></plist>",
          "<plist><plist/></plist>", "<plist><array>text</array></plist>",
          "<plist><true/></plist><plist/>", "<plist><string>\xff</string></plist>", "bplist01"})
        EXPECT_EQ(refusal(wrong), PropertyListErrorCode::Malformed) << wrong;
    EXPECT_FALSE(parse(std::string_view("\0\0\0", 3)));
}

TEST(PropertyListXml, EntitiesOfItsOwnAreRefused) {
    EXPECT_EQ(refusal("<!DOCTYPE plist [<!ENTITY a \"aaaa\"><!ENTITY b \"&a;&a;\">]>"
                      "<plist><string>&b;</string></plist>"),
              PropertyListErrorCode::Malformed);
    EXPECT_FALSE(
        parse("<!DOCTYPE plist [<!ENTITY f SYSTEM \"/etc/passwd\">]>"
              "<plist><string>&f;</string></plist>"));
    EXPECT_FALSE(parse("<!DOCTYPE plist SYSTEM \"x\"><plist><string>&f;</string></plist>"));
    EXPECT_FALSE(parse("<!DOCTYPE plist [<!ENTITY % p SYSTEM \"x\">%p;]><plist><true/></plist>"));
}

TEST(PropertyListXml, NestingHasALimit) {
    const auto nested = [](int depth) {
        return "<plist>" + repeated("<array>", depth) + repeated("</array>", depth) + "</plist>";
    };
    EXPECT_TRUE(parse(nested(64)));
    EXPECT_EQ(refusal(nested(65)), PropertyListErrorCode::LimitExceeded);
}

TEST(PropertyListXml, AMillionLevelsAreRefusedAtOnce) {
    const std::string document = "<plist>" + repeated("<array>", 1'000'000);
    const auto start = test::processorTime();
    EXPECT_EQ(refusal(document), PropertyListErrorCode::LimitExceeded);
    EXPECT_LT(test::processorTime() - start, test::timeLimit(std::chrono::milliseconds(50)));
}

TEST(PropertyListXml, TooManyValuesAreRefused) {
    EXPECT_EQ(refusal("<plist><array>" + repeated("<true/>", 1'000'001) + "</array></plist>"),
              PropertyListErrorCode::LimitExceeded);
}

TEST(PropertyListXml, ATruncatedDocumentIsRefusedWhereverItEnds) {
    const std::string document =
        written(Dictionary{{"a", Array{1, "two", 3.5, Data{4}}}, {"b", platform::Date{5}}});
    for (std::size_t length = 0; length + 1 < document.size(); ++length)
        EXPECT_FALSE(parse(document.substr(0, length))) << length;
}

TEST(PropertyListXml, ALargeDocumentIsReadInPieces) {
    platform::Array texts;
    for (int i = 0; i < 5; ++i)
        texts.push_back(std::string(700'001, static_cast<char>('a' + i)) + "\xc3\xa4 & ");
    EXPECT_EQ(*parse(written(texts)), Value(texts));
    const auto start = test::processorTime();
    EXPECT_EQ(refusal("<plist><!--" + std::string(60u << 20, '-')),
              PropertyListErrorCode::Malformed);
    EXPECT_EQ(refusal("<plist><string a=\"" + std::string(60u << 20, 'x')),
              PropertyListErrorCode::Malformed);
    EXPECT_LT(test::processorTime() - start, test::timeLimit(std::chrono::seconds(10)));
}

TEST(PropertyListXml, TextSurvivesTheMarkupAroundIt) {
    const Value value = Dictionary{{"<&>", "]]> & \r\n\t\r \xf0\x9d\x84\x9e"}, {"", ""}};
    EXPECT_EQ(*parse(written(value)), value);
}

TEST(PropertyListXml, WhatHasNoFormIsNotWritten) {
    for (const Value& value :
         {Value(), Value(Array{nullptr}), Value(std::string("a\0b", 3)), Value("\x01"),
          Value("\xff"), Value("\xed\xa0\x80"), Value("\xef\xbf\xbe"),
          Value(Dictionary{{"\x02", 1}}), Value(platform::Date{1e18}),
          Value(platform::Date{std::numeric_limits<double>::quiet_NaN()})}) {
        platform::OptionalError error;
        EXPECT_EQ(written(value, &error), "");
        ASSERT_TRUE(error);
        EXPECT_EQ(error->code, static_cast<std::int64_t>(PropertyListErrorCode::NotRepresentable));
    }
}

TEST(PropertyListXml, TheDocumentIsReadable) {
    EXPECT_EQ(written(Dictionary{{"key", Array{1, true}}}),
              "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<plist version=\"1.0\">\n<dict>\n"
              "\t<key>key</key>\n\t<array>\n\t\t<integer>1</integer>\n\t\t<true/>\n\t</array>\n"
              "</dict>\n</plist>\n");
}

TEST(PropertyListXml, AnErrorSlotIsOptionalAndClearedOnSuccess) {
    platform::OptionalError error = platform::Error("old", 1);
    EXPECT_TRUE(parse("<plist><true/></plist>", &error));
    EXPECT_FALSE(error);
    EXPECT_FALSE(parse("<plist>", nullptr));
    EXPECT_FALSE(common::serializePropertyList(Value(), PropertyListFormat::XML, nullptr));
}

}  // namespace
