// The eight INI rules through the scanner: what each kind of line becomes.
#include <gtest/gtest.h>

#include "ScannerTestSupport.h"

using namespace scannertest;

namespace {

struct Case {
  const char* name;
  const char16_t* text;
  const char* tokens;
};

class IniRulesTest : public ::testing::TestWithParam<Case> {};

TEST_P(IniRulesTest, ScansToExpectedTokens) {
  IniRules ini;
  EXPECT_EQ(scanAll(YString(GetParam().text), ini.rules), GetParam().tokens) << GetParam().name;
}

const Case kCases[] = {
    // Rule priority: the first matching rule wins even when a later one matches more.
    {"CommentBeatsOption", u"#k=v\n", "comment@0+4 newline@4+1"},
    {"SectionBeatsOption", u"[a=b]\n", "section@0+5[key@1+3] newline@5+1"},
    {"SectionBeatsLongerOption", u"[a]=b\n", "section@0+3[key@1+1] option@3+3[key@0+0 value@1+2]"},
    // ^ holds at the scanning position, also mid-line.
    {"LineEndAfterHeaderIsBlankLine", u"[a]\n", "section@0+3[key@1+1] newline@3+1"},
    {"CrLfAfterHeaderIsBlankLine", u"[a]\r\n", "section@0+3[key@1+1] newline@3+2"},
    {"TextAfterHeaderIsFragment", u"[a] x\n", "section@0+3[key@1+1] fragment@3+3[key@0+3]"},
    {"BlankLines", u"\n\r\n\n", "newline@0+1 newline@1+2 newline@3+1"},
    // \z is the end of the whole text only.
    {"OptionWithLineEnd", u"k=v\n", "option@0+4[key@0+1 value@2+2]"},
    {"OptionAtTextEnd", u"k=v", "optionEnd@0+3[key@0+1 value@2+1]"},
    {"OptionBeforeMoreText", u"k=v\nx", "option@0+4[key@0+1 value@2+2] unknown@4+1"},
    {"FragmentWithLineEnd", u"  x\n", "fragment@0+4[key@0+4]"},
    {"FragmentAtTextEndHasNoMappedGroup", u"  x", "fragmentEnd@0+3"},
    // Lazy key, greedy value and section name, look-ahead against a leading space.
    {"KeyStopsAtFirstEquals", u"k = v = w\n", "option@0+10[key@0+2 value@3+7]"},
    {"SectionNameRunsToLastBracket", u"[a]]\n", "section@0+4[key@1+2] newline@4+1"},
    {"EmptySectionIsUnknown", u"[]\n", "unknown@0+2 newline@2+1"},
    {"LeadingSpaceIsNoKey", u" k=v\n", "fragment@0+5[key@0+5]"},
    {"LeadingTabIsKey", u"\tk=v\n", "option@0+5[key@0+2 value@3+2]"},
    {"OneSpaceLineIsUnknown", u" \n", "unknown@0+1 newline@1+1"},
    {"SpacesOnlyLineIsFragment", u"   \n", "fragment@0+4[key@0+4]"},
    {"NoEqualsIsUnknown", u"k v\n", "unknown@0+3 newline@3+1"},
    // Empty groups give subtokens of length 0.
    {"EmptyKey", u"=v\n", "option@0+3[key@0+0 value@1+2]"},
    {"EmptyValueAtTextEnd", u"k=", "optionEnd@0+2[key@0+1 value@2+0]"},
    // The second alternative of the value group is CR LF alone.
    {"EmptyValueCrLf", u"k=\r\n", "option@0+4[key@0+1 value@2+2]"},
    // `.` takes CR but not LF.
    {"OptionEndedByCrLf", u"k=v\r\n", "option@0+5[key@0+1 value@2+3]"},
    {"LoneCrInsideValue", u"k=a\rb\n", "option@0+6[key@0+1 value@2+4]"},
    {"UnknownKeepsCrLineEndIsBlank", u"x\r\n", "unknown@0+2 newline@2+1"},
    // Code units outside the BMP count two each.
    {"AstralSectionAndOption", u"[\U0001F600]\nk=\U0001F600\n",
     "section@0+4[key@1+2] newline@4+1 option@5+5[key@0+1 value@2+3]"},
    {"AstralComment", u"# \U0001F600\n", "comment@0+4 newline@4+1"},
    {"Document", u"# note\n[main]\npath=/usr\n  /opt\n\n",
     "comment@0+6 newline@6+1 section@7+6[key@1+4] newline@13+1 option@14+10[key@0+4 value@5+5] "
     "fragment@24+7[key@0+7] newline@31+1"},
    {"Empty", u"", ""},
};

INSTANTIATE_TEST_SUITE_P(Lines, IniRulesTest, ::testing::ValuesIn(kCases),
                         [](const auto& info) { return std::string(info.param.name); });

TEST(IniRules, NullTextYieldsNoTokensEver) {
  IniRules ini;
  auto scanner = scannerFor(YString(), ini.rules);
  EXPECT_EQ(scanner->nextToken(), nullptr);
  EXPECT_EQ(scanner->nextToken(), nullptr);
}

TEST(IniRules, EndOfTextStaysNull) {
  IniRules ini;
  auto scanner = scannerFor(YString(u"k=v"), ini.rules);
  ASSERT_NE(scanner->nextToken(), nullptr);
  EXPECT_EQ(scanner->nextToken(), nullptr);
  EXPECT_EQ(scanner->nextToken(), nullptr);
}

// Lines of several million code units of each kind are scanned whole.
TEST(IniRules, VeryLongLines) {
  IniRules ini;
  const std::size_t n = 4u << 20;
  const std::u16string body(n, u'v');
  const int len = static_cast<int>(n);
  struct Long {
    std::u16string text;
    std::string tokens;
  } cases[] = {
      {u"k=" + body + u"\n", "option@0+" + std::to_string(len + 3) + "[key@0+1 value@2+" + std::to_string(len + 1) + "]"},
      {u"k=" + body, "optionEnd@0+" + std::to_string(len + 2) + "[key@0+1 value@2+" + std::to_string(len) + "]"},
      {u"#" + body + u"\r\n", "comment@0+" + std::to_string(len + 1) + " newline@" + std::to_string(len + 1) + "+2"},
      {body, "unknown@0+" + std::to_string(len)},
      {u"[" + body + u"\n", "unknown@0+" + std::to_string(len + 1) + " newline@" + std::to_string(len + 1) + "+1"},
      {u"  " + body + u"\n", "fragment@0+" + std::to_string(len + 3) + "[key@0+" + std::to_string(len + 3) + "]"},
      {body + u"=", "optionEnd@0+" + std::to_string(len + 1) + "[key@0+" + std::to_string(len) + " value@" +
                        std::to_string(len + 1) + "+0]"},
      // Lines that end the text without a line end, where a rule that needs
      // one could otherwise retry its match once per code unit.
      {std::u16string(n, u' '), "fragmentEnd@0+" + std::to_string(len)},
      {std::u16string(n, u'='), "optionEnd@0+" + std::to_string(len) + "[key@0+0 value@1+" + std::to_string(len - 1) + "]"},
  };
  for (const auto& c : cases) EXPECT_EQ(scanAll(YString(c.text), ini.rules), c.tokens) << c.text.size();
}

}  // namespace
