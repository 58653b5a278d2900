#include "host/scan/rule_file.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "platform/media_library_properties.h"

namespace host {
namespace {

using testing::HasSubstr;

RuleFile rulesOf(std::string_view text) {
    RuleFile rules;
    const auto error = RuleFile::parse(text, rules);
    EXPECT_FALSE(error) << error->text();
    return rules;
}

std::string faultOf(std::string_view text) {
    RuleFile rules;
    const auto error = RuleFile::parse(text, rules);
    EXPECT_TRUE(rules.empty());
    return error ? error->text() : "";
}

TEST(RuleFile, TheLastRuleThatSpeaksDecides) {
    const RuleFile rules = rulesOf(R"(
[[rule]]
match = "Old/**"
ignore = true
kind = "podcast"

[[rule]]
match = "Old/Keep/**"
ignore = false
rental = true
)");
    EXPECT_TRUE(rules.verdictFor("Old/a.mp3").ignore);
    EXPECT_FALSE(rules.verdictFor("Old/Keep/a.mp3").ignore);
    EXPECT_EQ(rules.verdictFor("Old/Keep/a.mp3").mediaType, KV3MediaTypePodcast);
    EXPECT_EQ(rules.verdictFor("Old/Keep/a.mp3").isRental, true);
    EXPECT_FALSE(rules.verdictFor("New/a.mp3").mediaType);
}

TEST(RuleFile, APatternWithoutASlashIsForNamesInEveryFolder) {
    const RuleFile rules = rulesOf("[[rule]]\nmatch = \"*.WAV\"\nignore = true\n");
    EXPECT_TRUE(rules.verdictFor("a/b/c.wav").ignore);
    EXPECT_FALSE(rules.verdictFor("a.wav/c.mp3").ignore);
}

TEST(RuleFile, NamesAreComparedInNfcWithoutCase) {
    const RuleFile rules = rulesOf("[[rule]]\nmatch = \"Évasion/*\"\nignore = true\n");
    EXPECT_TRUE(rules.verdictFor("e\xCC\x81VASION/x.mp3").ignore);
}

TEST(RuleFile, TagsAreSetByName) {
    const RuleFile rules =
        rulesOf("[[rule]]\nmatch = \"*\"\nalbum-artist = \"Various\"\ntrack = 7\nyear = 1999\n");
    const RuleVerdict verdict = rules.verdictFor("a.mp3");
    EXPECT_EQ(verdict.overrides.size(), 3u);
}

TEST(RuleFile, FaultsNameTheLineAndWhatToDo) {
    EXPECT_THAT(faultOf("[[rule]]\nmatch = \"*\"\nkind = \"flim\"\n"),
                HasSubstr("line 3: \"flim\" is no kind; write one of music, audiobook"));
    EXPECT_THAT(faultOf("[[rule]]\nmatch = \"*\"\nkind = 5\n"),
                HasSubstr("line 3: \"kind\" must be text in double quotes"));
    EXPECT_THAT(faultOf("[[rule]]\nkind = \"tv\"\n"), HasSubstr("has no \"match\"; add one"));
    EXPECT_THAT(faultOf("[[rule]]\nmatch = \"*\"\ncolour = \"red\"\n"),
                HasSubstr("line 3: \"colour\" is nothing that a rule can say"));
    EXPECT_THAT(faultOf("[[rule]]\nmatch = \"/a\"\n"), HasSubstr("line 2: \"match\" is relative"));
    EXPECT_THAT(faultOf("[[rule]]\nmatch = \"*\"\nignore = \"yes\"\n"),
                HasSubstr("line 3: \"ignore\" must be true or false"));
    EXPECT_THAT(faultOf("[[rule]]\nmatch = \"*\"\nyear = -4\n"),
                HasSubstr("line 3: \"year\" must be a whole number"));
    EXPECT_THAT(faultOf("rules = 3\n"), HasSubstr("line 1: only rules may stand here"));
    EXPECT_THAT(faultOf("rule = 3\n"), HasSubstr("line 1: only rules may stand here"));
    EXPECT_THAT(faultOf("rule = [3]\n"), HasSubstr("begin each rule with a line [[rule]]"));
    EXPECT_THAT(faultOf("[[rule]]\nmatch = \"open\n"), HasSubstr("line 2: this cannot be read"));
}

TEST(RuleFile, NestingAndSizeAreBounded) {
    EXPECT_THAT(faultOf("x = " + std::string(100'000, '[')), HasSubstr("cannot be read"));
    EXPECT_THAT(faultOf(std::string((1u << 20) + 1, '#')), HasSubstr("larger than 1 MiB"));
    std::string many;
    for (int count = 0; count <= 10'000; ++count)
        many += "[[rule]]\nmatch=\"a\"\n";
    EXPECT_THAT(faultOf(many), HasSubstr("more than 10000 rules"));
}

}  // namespace
}  // namespace host
