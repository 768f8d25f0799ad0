// The scanner: priority, progress, unmatched text, streams and buffers.
#include <gtest/gtest.h>

#include "ScannerTestSupport.h"

using namespace scannertest;

namespace {

TEST(RuleBasedScanner, FirstMatchingRuleWinsOverLongerLaterMatch) {
  auto rules = ruleList({regexRule(u"ab", u"short"), regexRule(u"abc", u"long")});
  EXPECT_EQ(scanAll(YString(u"abcab"), rules), "short@0+2 unmatched@2+1 short@3+2");
}

TEST(RuleBasedScanner, ProgressesPastEmptyMatchesAndUnmatchedText) {
  struct {
    std::vector<std::shared_ptr<YRule>> rules;
    const char16_t* text;
    const char* tokens;
  } cases[] = {
      // A rule that can match only empty text does not match; unmatched runs become one token.
      {{regexRule(u"a*", u"a")}, u"bbab", "unmatched@0+2 a@2+1 unmatched@3+1"},
      {{regexRule(u".*", u"dot")}, u"\n\nx\n", "unmatched@0+2 dot@2+1 unmatched@3+1"},
      {{regexRule(u"b*", u"b"), regexRule(u"a", u"a")}, u"ab", "a@0+1 b@1+1"},
      {{regexRule(u"(?=a)", u"look")}, u"aa", "unmatched@0+2"},
      {{}, u"abc", "unmatched@0+3"},
      {{regexRule(u"x", u"x")}, u"\U0001F600x", "unmatched@0+2 x@2+1"},
  };
  for (auto& c : cases) EXPECT_EQ(scanAll(YString(c.text), ruleList(c.rules)), c.tokens) << YString(c.text);
}

TEST(RuleBasedScanner, EmptyAndNullTextsYieldNothing) {
  for (const YString& text : {YString(), YString(u"")}) {
    auto scanner = scannerFor(text, ruleList({regexRule(u".*", u"dot")}));
    EXPECT_EQ(scanner->nextToken(), nullptr);
    EXPECT_EQ(scanner->nextToken(), nullptr);
  }
}

TEST(RuleBasedScanner, StartsAtTheStreamPositionWithCaretThere) {
  auto stream = YUnicharStream::streamWithBuffer(YStringBuffer::bufferFromString(YString(u"xxab")));
  stream->setPosition(2);
  auto scanner = YRuleBasedScanner::scannerForStreamWithRules(stream, ruleList({regexRule(u"^a", u"a")}));
  auto token = scanner->nextToken();
  ASSERT_NE(token, nullptr);
  EXPECT_EQ(dump(*token), "a@2+1");
  EXPECT_EQ(scanner->position(), 3);
  EXPECT_THROW(stream->setPosition(5), YRangeException);
}

TEST(RuleBasedScanner, RuleListIsReadAtCreation) {
  auto rules = YArray<YRule>::mutableArrayWithObjects({regexRule(u"a", u"a")});
  auto scanner = scannerFor(YString(u"ab"), rules);
  rules->addObject(regexRule(u"b", u"b"));
  std::string out;
  while (auto token = scanner->nextToken()) out += dump(*token) + " ";
  EXPECT_EQ(out, "a@0+1 unmatched@1+1 ");
}

TEST(RuleBasedScanner, MatchErrorPassesToCallerAndKeepsPosition) {
  auto scanner = scannerFor(YString(std::u16string(40, u'a')), ruleList({regexRule(u"(a+)+[bc]", u"t")}));
  EXPECT_THROW(scanner->nextToken(), YRegularExpressionMatchException);
  EXPECT_EQ(scanner->position(), 0);
}

// A rule written against tokenAtPosition() alone: each match is a new token
// object with a subtoken, handed to the scanner through the default value path.
struct PairRule : YRule {
  std::shared_ptr<YTokenClass> part = YTokenClass::tokenClass(YString(u"part"));
  PairRule() : YRule(YTokenClass::tokenClass(YString(u"pair"))) {}
  std::shared_ptr<YToken> tokenAtPosition(std::u16string_view text, std::int32_t position) override {
    if (text.size() - static_cast<std::size_t>(position) < 2 || text[position] != text[position + 1]) return nullptr;
    auto sub = std::make_shared<YToken>(part, 1, 1);
    return std::make_shared<YToken>(tokenClass(), position, 2, YArray<YToken>::arrayWithObjects({sub}));
  }
};

TEST(RuleBasedScanner, TokensAndMatchesDescribeTheSameTokens) {
  const YString text(u"aa[x]\ncc");
  IniRules ini;
  std::vector<std::shared_ptr<YRule>> list{std::make_shared<PairRule>()};
  for (const auto& rule : *ini.rules) list.push_back(rule);
  auto rules = ruleList(list);
  // nextMatch() and nextToken() alternate on one scanner; the other scanner
  // makes token objects only.
  auto mixed = scannerFor(text, rules);
  std::string viaBoth;
  YTokenMatch match;
  for (bool useMatch = false;; useMatch = !useMatch) {
    std::shared_ptr<YToken> token;
    if (useMatch) {
      if (!mixed->nextMatch(match)) break;
      token = YToken::tokenWithMatch(match);
    } else if (!(token = mixed->nextToken())) {
      break;
    }
    viaBoth += (viaBoth.empty() ? "" : " ") + dump(*token);
  }
  EXPECT_EQ(viaBoth, scanAll(text, rules));
  EXPECT_EQ(viaBoth, "pair@0+2[part@1+1] section@2+3[key@1+1] newline@5+1 pair@6+2[part@1+1]");
  EXPECT_FALSE(mixed->nextMatch(match));
}

TEST(StringBuffer, SharesImmutableTextAndSnapshotsMutableText) {
  YString text(u"k=v");
  EXPECT_EQ(YStringBuffer::bufferFromString(text)->characters().data(), text.characters());

  YString mutableText = YString::mutableStringWithString(YString(u"ab"));
  auto buffer = YStringBuffer::bufferFromString(mutableText);
  mutableText.appendString(YString(u"cd"));
  EXPECT_EQ(buffer->characters(), u"ab");

  auto null = YStringBuffer::bufferFromString(YString());
  EXPECT_TRUE(null->string().isNull());
  EXPECT_EQ(null->length(), 0);
}

}  // namespace
