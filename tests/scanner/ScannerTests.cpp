// The scanner: priority, progress, unmatched text, streams and buffers.
#include <gtest/gtest.h>

#include "ScannerTestSupport.h"

using namespace scannertest;

namespace {

// Priority, empty matches and unmatched text; and the filters by which the
// scanner skips a rule (its first code unit, code units every match must
// hold), which may not skip a rule that matches.
TEST(RuleBasedScanner, PriorityEmptyMatchesUnmatchedTextAndFilters) {
  constexpr unsigned caseless = YRegularExpressionCaseInsensitive;
  constexpr unsigned unicode = YRegularExpressionCaseInsensitive | YRegularExpressionUnicode;
  struct {
    std::vector<std::shared_ptr<YRule>> rules;
    YString text;
    const char* tokens;
  } cases[] = {
      // The first rule that matches wins over a longer match of a later one.
      {{regexRule(u"ab", u"short"), regexRule(u"abc", u"long")}, YString(u"abcab"), "short@0+2 unmatched@2+1 short@3+2"},
      // A rule that can match only empty text does not match; unmatched runs become one token.
      {{regexRule(u"a*", u"a")}, YString(u"bbab"), "unmatched@0+2 a@2+1 unmatched@3+1"},
      {{regexRule(u".*", u"dot")}, YString(u"\n\nx\n"), "unmatched@0+2 dot@2+1 unmatched@3+1"},
      {{regexRule(u"b*", u"b"), regexRule(u"a", u"a")}, YString(u"ab"), "a@0+1 b@1+1"},
      {{regexRule(u"(?=a)", u"look")}, YString(u"aa"), "unmatched@0+2"},
      {{}, YString(u"abc"), "unmatched@0+3"},
      {{regexRule(u"x", u"x")}, YString(u"\U0001F600x"), "unmatched@0+2 x@2+1"},
      {{regexRule(u".*", u"dot")}, YString(u""), ""},
      {{regexRule(u".*", u"dot")}, YString(), ""},
      // Filters: the first letter, a letter every match holds, in every case a match may take.
      {{regexRule(u"abc", u"t", caseless)}, YString(u"ABC.abc"), "t@0+3 unmatched@3+1 t@4+3"},
      {{regexRule(u"x.*b", u"t", caseless)}, YString(u"X=B"), "t@0+3"},
      {{regexRule(u"(?i)x.*b", u"t")}, YString(u"X=B"), "t@0+3"},
      {{regexRule(u"a+k", u"t", unicode)}, YString(u"a\u212A"), "t@0+2"},  // KELVIN SIGN folds to k
      {{regexRule(u"k", u"t", unicode)}, YString(u"\u212A"), "t@0+1"},
      {{regexRule(u"s+", u"t", unicode)}, YString(u"\u017Fs"), "t@0+2"},  // LATIN SMALL LETTER LONG S folds to s
      {{regexRule(u"\u00e9t\u00e9", u"t", unicode)}, YString(u"\u00c9T\u00c9"), "t@0+3"},
      {{YEndOfLineRule::ruleWithOpenSequenceTokenClass(YString(u"//"), YTokenClass::tokenClass(YString(u"t")))},
       YString(u"x// c\n"), "unmatched@0+1 t@1+4 unmatched@5+1"},
  };
  for (auto& c : cases) EXPECT_EQ(scanAll(c.text, ruleList(c.rules)), c.tokens) << c.text;
}

// A host's own rule may return any token; the scanner takes only one that
// begins at the position, covers text and ends within it, and otherwise
// goes on with the next rule.
TEST(RuleBasedScanner, HostRuleTokensMustBeginHereAndCoverText) {
  struct FixedRule : YRule {
    std::int32_t offset, length;
    FixedRule(std::int32_t o, std::int32_t l) : YRule(YTokenClass::tokenClass(YString(u"host"))), offset(o), length(l) {}
    std::shared_ptr<YToken> tokenAtPosition(std::u16string_view, std::int32_t position) override {
      return std::make_shared<YToken>(tokenClass(), position + offset, length);
    }
  };
  struct {
    std::int32_t offset, length;
    const char* tokens;
  } cases[] = {
      {0, 1, "host@0+1 host@1+1"},
      {0, 0, "dot@0+1 dot@1+1"},  // empty
      {1, 1, "dot@0+1 dot@1+1"},  // elsewhere
      {0, 3, "dot@0+1 dot@1+1"},  // past the end
  };
  for (const auto& c : cases) {
    auto rules = ruleList({std::make_shared<FixedRule>(c.offset, c.length), regexRule(u".", u"dot")});
    EXPECT_EQ(scanAll(YString(u"ab"), rules, 3), c.tokens) << c.offset << "+" << c.length;
  }
}

// A host may move the stream back; nothing found ahead of the old position
// (a token kept from an unmatched run, a search for required code units)
// may be used at the new one.
TEST(RuleBasedScanner, MovingTheStreamBackScansAgain) {
  struct {
    std::shared_ptr<YRule> rule;
    const char16_t* text;
    int tokensBeforeMove;
  } cases[] = {
      {regexRule(u"b", u"b"), u"aab", 1},    // "b" kept while "aa" was measured
      {regexRule(u"x+b", u"xb"), u"xbxx", 2},  // no "b" after position 2 (found again from 0)
  };
  for (const auto& c : cases) {
    auto rules = ruleList({c.rule});
    auto scanner = scannerFor(YString(c.text), rules);
    for (int i = 0; i < c.tokensBeforeMove; ++i) ASSERT_NE(scanner->nextToken(), nullptr);
    scanner->stream()->setPosition(0);
    EXPECT_EQ(drain(*scanner), scanAll(YString(c.text), rules)) << YString(c.text);
  }
}

// Where a scanner starts, which rules it uses, where a failed match leaves it.
TEST(RuleBasedScanner, StartsAtTheStreamPositionReadsRulesOnceAndKeepsItsPlaceOnErrors) {
  auto stream = YUnicharStream::streamWithBuffer(YStringBuffer::bufferFromString(YString(u"xxab")));
  stream->setPosition(2);
  auto scanner = YRuleBasedScanner::scannerForStreamWithRules(stream, ruleList({regexRule(u"^a", u"a")}));
  EXPECT_EQ(drain(*scanner, 1), "a@2+1");  // caret at the stream position
  EXPECT_EQ(scanner->position(), 3);
  EXPECT_THROW(stream->setPosition(5), YRangeException);

  auto rules = YArray<YRule>::mutableArrayWithObjects({regexRule(u"a", u"a")});
  scanner = scannerFor(YString(u"ab"), rules);
  rules->addObject(regexRule(u"b", u"b"));  // read at creation: too late
  EXPECT_EQ(drain(*scanner), "a@0+1 unmatched@1+1");

  scanner = scannerFor(YString(std::u16string(40, u'a')), ruleList({regexRule(u"(a+)+[bc]", u"t")}));
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
  auto rules = ruleList({std::make_shared<PairRule>(), groupRule(u"\\[(?<name>.+)\\]", {{u"name", u"key"}}, u"section"),
                         regexRule(u"\n", u"newline")});
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
      EXPECT_EQ(match.subtokens.size(), token->subtokens()->count());  // nothing left from the last match
    } else if (!(token = mixed->nextToken())) {
      break;
    }
    if (!viaBoth.empty()) viaBoth += ' ';
    viaBoth += dump(*token);
  }
  EXPECT_EQ(viaBoth, scanAll(text, rules));
  EXPECT_EQ(viaBoth, "pair@0+2[part@1+1] section@2+3[key@1+1] newline@5+1 pair@6+2[part@1+1]");
  EXPECT_FALSE(mixed->nextMatch(match));
}

// Buffers and tokens share immutable input and snapshot mutable input, so a
// caller's later change cannot reach a scanner or a token.
TEST(Snapshots, BuffersAndTokensShareImmutableInputAndCopyMutableInput) {
  YString text(u"k=v");
  EXPECT_EQ(YStringBuffer::bufferFromString(text)->characters().data(), text.characters());

  YString mutableText = YString::mutableStringWithString(YString(u"ab"));
  auto buffer = YStringBuffer::bufferFromString(mutableText);
  mutableText.appendString(YString(u"cd"));
  EXPECT_EQ(buffer->characters(), u"ab");
  EXPECT_EQ(buffer->string().u16string(), u"ab");

  auto cls = YTokenClass::tokenClass();
  auto fixed = YArray<YToken>::arrayWithObjects({std::make_shared<YToken>(cls, 0, 1)});
  EXPECT_EQ(YToken(cls, 0, 2, fixed).subtokens(), fixed);
  auto growing = YArray<YToken>::mutableArrayWithObjects({std::make_shared<YToken>(cls, 0, 1)});
  YToken token(cls, 0, 2, growing);
  growing->addObject(std::make_shared<YToken>(cls, 1, 1));
  EXPECT_EQ(token.subtokens()->count(), 1u);
  EXPECT_THROW(YToken(cls, 0, -1), YInvalidArgumentException);
  EXPECT_THROW(YToken(cls, -1, 1), YInvalidArgumentException);

  auto null = YStringBuffer::bufferFromString(YString());
  EXPECT_TRUE(null->string().isNull());
  EXPECT_EQ(null->length(), 0);
}

}  // namespace
