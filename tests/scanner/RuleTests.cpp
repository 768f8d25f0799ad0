// Regular-expression and end-of-line rules on their own.
#include <gtest/gtest.h>

#include <atomic>
#include <thread>

#include "ScannerTestSupport.h"

using namespace scannertest;

namespace {

std::string tokenAt(YRule& rule, const char16_t* text, int position) {
  auto token = rule.tokenAtPosition(std::u16string_view(text), position);
  return token ? dump(*token) : "none";
}

// Each rule matches only at the position it is given; subtokens count from the token's start.
TEST(Rules, MatchAtThePositionOnly) {
  auto re = [](const char16_t* pattern, unsigned options = 0) -> std::shared_ptr<YRule> {
    return regexRule(pattern, u"t", options);
  };
  auto eol = [](const char16_t* open) -> std::shared_ptr<YRule> {
    return YEndOfLineRule::ruleWithOpenSequenceTokenClass(YString(open), YTokenClass::tokenClass(YString(u"t")));
  };
  auto groups = groupRule(u"ab(?<x>c+)(?<y>d?)(?<z>e)?(?<w>f)",
                          {{u"x", u"X"}, {u"y", u"Y"}, {u"z", u"Z"}, {u"absent", u"A"}});
  struct {
    std::shared_ptr<YRule> rule;
    const char16_t* text;
    int position;
    const char* token;
  } cases[] = {
      // Regular expressions: anchors, the dot, options.
      {re(u"b"), u"ab", 0, "none"},                // only at the position
      {re(u"b"), u"ab", 1, "t@1+1"},
      {re(u"^b"), u"ab", 1, "t@1+1"},              // ^ at the scanning position
      {re(u"x\\z"), u"x\nx", 0, "none"},           // \z is not a line end
      {re(u"x\\z"), u"x\nx", 2, "t@2+1"},          // but the end of the text
      {re(u"x$"), u"x\n", 0, "t@0+1"},             // $ before a final LF
      {re(u"x$"), u"x\nx", 0, "none"},
      {re(u".+"), u"a\rb\nc", 0, "t@0+3"},         // . takes CR, stops at LF
      {re(u".+", YRegularExpressionDotMatchesAll), u"a\nb", 0, "t@0+3"},
      {re(u"a.^b", YRegularExpressionMultiline | YRegularExpressionDotMatchesAll), u"a\nb", 0, "t@0+3"},
      {re(u"a?"), u"b", 0, "none"},                // an empty match is no match
      {re(u"a*?"), u"aa", 0, "t@0+1"},             // ... so a lazy rule takes one unit
      {re(u"(?=b)"), u"b", 0, "none"},
      {re(u"K", YRegularExpressionCaseInsensitive), u"k", 0, "t@0+1"},
      {re(u"(?i)k"), u"K", 0, "t@0+1"},            // inline caseless past the start filter
      {re(u"(*NO_JIT)abc"), u"abc", 0, "t@0+3"},   // a pattern that refuses JIT code is interpreted
      {re(u"[ab]x"), u"bx", 0, "t@0+2"},
      {re(u"a b # note", YRegularExpressionExtended), u"ab", 0, "t@0+2"},
      {re(u"a.b", YRegularExpressionLiteral), u"a.b", 0, "t@0+3"},
      {re(u"a.b", YRegularExpressionLiteral), u"axb", 0, "none"},
      {re(u"\u0100"), u"\u0100", 0, "t@0+1"},       // code units above 255
      {re(u"\u00e9", YRegularExpressionCaseInsensitive | YRegularExpressionUnicode), u"\u00c9", 0, "t@0+1"},
      {re(u"."), u"\U0001F600", 0, "t@0+1"},        // code units by default
      {re(u".", YRegularExpressionUnicode), u"\U0001F600", 0, "t@0+2"},
      {re(u".", YRegularExpressionUnicode), u"\xD800", 0, "none"},  // a lone surrogate never matches
      {re(u"\\w+", YRegularExpressionUnicode), u"d\u00e9j\u00e0 vu", 0, "t@0+4"},  // Unicode properties
      {re(u"\\w+"), u"d\u00e9j\u00e0 vu", 0, "t@0+1"},                         // ASCII ones
      {re(u"[[:alpha:]]+", YRegularExpressionUnicode), u"\u00c9t\u00e9", 0, "t@0+3"},
      // Subtokens: a group at p+2 reports 2; an empty group reports length 0; a group that took no part, an
      // unmapped group and a map entry without a group yield nothing; in the pattern's order, not the map's.
      {groups, u"....abccf", 4, "t@4+5[X@2+2 Y@4+0]"},
      {groups, u"abcdef", 0, "t@0+6[X@2+1 Y@3+1 Z@4+1]"},
      {groupRule(u"(?<b>x)(?<a>y)", {{u"a", u"A"}, {u"b", u"B"}}), u"xy", 0, "t@0+2[B@0+1 A@1+1]"},
      // End-of-line rules stop before the line end.
      {eol(u"#"), u"# a\nb", 0, "t@0+3"},        // LF
      {eol(u"#"), u"# a\r\nb", 0, "t@0+3"},      // CR LF
      {eol(u"#"), u"# a\rb\n", 0, "t@0+5"},      // a lone CR is text
      {eol(u"#"), u"# a\r", 0, "t@0+4"},         // ... also at the end
      {eol(u"#"), u"x# a", 1, "t@1+3"},          // end of text
      {eol(u"#"), u"#\n", 0, "t@0+1"},           // just the sequence
      {eol(u"#"), u"#\r\n", 0, "t@0+1"},
      {eol(u"#"), u"a#", 0, "none"},
      {eol(u"//"), u"/x", 0, "none"},
      {eol(u"//"), u"// \U0001F600\n", 0, "t@0+5"},
      {eol(u""), u"ab\n", 0, "t@0+2"},           // empty sequence: rest of a non-empty line
      {eol(u""), u"\n", 0, "none"},
  };
  for (const auto& c : cases) EXPECT_EQ(tokenAt(*c.rule, c.text, c.position), c.token) << "row " << &c - cases;
  // Unicode case folding turned on inside the pattern: the start filter
  // lets the other case of a non-ASCII letter through.
  EXPECT_TRUE(re(u"(*UCP)(?i)\u00e9")->canStartWithCharacter(u'\u00c9'));
  EXPECT_EQ(tokenAt(*re(u"(*UCP)(?i)\u00e9"), u"\u00c9", 0), "t@0+1");
}

TEST(RegularExpressionRule, InvalidPatternFailsEveryTimeNamingMessageAndOffset) {
  struct {
    const char16_t* pattern;
    const char* fragment;
  } cases[] = {
      {u"(?<x>a", "missing closing parenthesis at offset 6"},
      {u"a**", "at offset 2"},
      {u"[a", "missing terminating ] for character class at offset 2"},
      {u"(*UTF)a", "at offset"},  // Unicode matching is asked for by option only
  };
  for (const auto& c : cases) {
    std::vector<std::string> messages;
    for (int attempt = 0; attempt < 2; ++attempt) {
      try {
        regexRule(c.pattern, u"t");
      } catch (const YInvalidArgumentException& e) {
        messages.push_back(e.what());
      }
    }
    ASSERT_EQ(messages.size(), 2u) << "no exception for " << YString(c.pattern);
    EXPECT_NE(messages[0].find(c.fragment), std::string::npos) << messages[0];
    EXPECT_EQ(messages[1], messages[0]);
  }
  EXPECT_THROW(regexRule(u"a", u"t", 1u << 6), YInvalidArgumentException);  // unknown option bits
}

TEST(RegularExpressionRule, RulesOfOnePatternKeepTheirOwnOptionsClassesAndGroups) {
  // Compiled code is shared between rules of one pattern and options; what
  // each rule was made with stays its own.
  auto plain = regexRule(u"k(?<v>[a-z]+)", u"plain");
  auto caseless = regexRule(u"k(?<v>[a-z]+)", u"caseless", YRegularExpressionCaseInsensitive);
  auto grouped = groupRule(u"k(?<v>[a-z]+)", {{u"v", u"V"}}, u"grouped");
  auto regrouped = groupRule(u"k(?<v>[a-z]+)", {{u"v", u"W"}}, u"regrouped");
  EXPECT_EQ(tokenAt(*plain, u"KAB", 0) + " " + tokenAt(*caseless, u"KAB", 0) + " " + tokenAt(*plain, u"kab", 0) + " " +
                tokenAt(*grouped, u"kab", 0) + " " + tokenAt(*regrouped, u"kab", 0),
            "none caseless@0+3 plain@0+3 grouped@0+3[V@1+2] regrouped@0+3[W@1+2]");
  // The start filter and required unit come with the shared code.
  EXPECT_FALSE(plain->canStartWithCharacter(u'x'));
  EXPECT_TRUE(caseless->canStartWithCharacter(u'K'));
}

TEST(RegularExpressionRule, ManyDistinctPatternsStillCompileAndMatch) {
  // More patterns than the process keeps: each rule still holds its own
  // compiled code, and a pattern dropped from the cache compiles again.
  std::vector<std::shared_ptr<YRegularExpressionRule>> rules;
  for (int i = 0; i < 200; ++i)
    rules.push_back(YRegularExpressionRule::ruleWithPatternOptionsTokenClass(
        YString::stringWithFormat("p%d=", i), 0, YTokenClass::tokenClass(YString(u"t"))));
  for (int i = 0; i < 200; ++i) {
    const std::u16string text = YString::stringWithFormat("p%d=", i).u16string();
    ASSERT_EQ(tokenAt(*rules[static_cast<std::size_t>(i)], text.c_str(), 0),
              "t@0+" + std::to_string(text.size()));
  }
  auto again = regexRule(u"p0=", u"t");
  EXPECT_EQ(tokenAt(*again, u"p0=", 0), "t@0+3");
  EXPECT_EQ(tokenAt(*again, u"p1=", 0), "none");
}

TEST(RegularExpressionRule, RulesOfOnePatternMatchIndependentlyOnTwoThreads) {
  // Each thread makes its own rule of one pattern (sharing the compiled code)
  // and matches texts of its own; a shared match state would mix up groups.
  constexpr const char16_t* pattern = u"(?<k>[a-z]+)=(?<v>[0-9]*)";
  std::atomic<int> wrong{0};
  auto work = [&](const std::u16string& key, const std::u16string& value) {
    auto rule = groupRule(pattern, {{u"k", u"K"}, {u"v", u"V"}});
    const std::u16string text = key + u"=" + value;
    const std::string expected = "t@0+" + std::to_string(text.size()) + "[K@0+" + std::to_string(key.size()) +
                                 " V@" + std::to_string(key.size() + 1) + "+" + std::to_string(value.size()) + "]";
    YTokenMatch match;
    for (int i = 0; i < 2000; ++i) {
      if (tokenAt(*rule, text.c_str(), 0) != expected) ++wrong;
      if (!rule->matchAtPosition(text, 0, match) || match.subtokens.size() != 2 ||
          match.subtokens[1].length != static_cast<std::int32_t>(value.size()))
        ++wrong;
    }
  };
  std::thread first(work, u"alpha", u"1");
  std::thread second(work, u"b", u"123456789");
  first.join();
  second.join();
  EXPECT_EQ(wrong.load(), 0);
}

TEST(RegularExpressionRule, ScansOfLongTextsCompleteAndRunawayMatchesStillStop) {
  // The matching budget grows with the text: one lazy pass over 12 million
  // units (beyond the engine's default limit of ten million steps) completes.
  auto lazy = groupRule(u"(?<k>.*?)=", {{u"k", u"K"}});
  std::u16string text(12'000'000, u'k');
  text += u"=";
  EXPECT_EQ(tokenAt(*lazy, text.c_str(), 0), "t@0+12000001[K@0+12000000]");
  text.back() = u'k';
  EXPECT_EQ(tokenAt(*lazy, text.c_str(), 0), "none");
  // Exponential backtracking exhausts any such budget, on a short text and a long one: an error, not "no match".
  auto runaway = regexRule(u"(a+)+[bc]", u"t");
  EXPECT_THROW(runaway->tokenAtPosition(std::u16string(40, u'a'), 0), YRegularExpressionMatchException);
  EXPECT_THROW(runaway->tokenAtPosition(std::u16string(2'000'000, u'a'), 0), YRegularExpressionMatchException);
  // A repeated group keeps a frame per repetition: far beyond what JIT code's
  // first stack holds (about 3,000 here), the stack grows and the match completes.
  auto repeated = regexRule(u"(?:a|b)*c", u"t");
  std::u16string pairs;
  for (int i = 0; i < 100'000; ++i) pairs += u"ab";
  EXPECT_EQ(tokenAt(*repeated, (pairs + u"c").c_str(), 0), "t@0+200001");
  EXPECT_EQ(tokenAt(*repeated, (u"x" + pairs + u"c").c_str(), 1), "t@1+200001");
}

TEST(Rules, NullArgumentsFailPreconditions) {
  auto handler = std::make_shared<RecordingHandler>();
  auto previous = YAssertionHandler::setCurrentHandler(handler);
  auto cls = YTokenClass::tokenClass();
  EXPECT_EQ(YRegularExpressionRule::ruleWithPatternOptionsTokenClass(YString(), 0, cls), nullptr);
  EXPECT_EQ(YRegularExpressionRule::ruleWithPatternOptionsTokenClass(YString(u"a"), 0, nullptr), nullptr);
  EXPECT_EQ(YEndOfLineRule::ruleWithOpenSequenceTokenClass(YString(), cls), nullptr);
  EXPECT_EQ(YUnicharStream::streamWithBuffer(nullptr), nullptr);
  EXPECT_EQ(YRuleBasedScanner::scannerForStreamWithRules(nullptr, ruleList({})), nullptr);
  YAssertionHandler::setCurrentHandler(previous);
  EXPECT_EQ(handler->descriptions,
            (std::vector<std::string>{"Invalid parameter not satisfying: pattern != nil",
                                      "Invalid parameter not satisfying: tokenClass != nil",
                                      "Invalid parameter not satisfying: openSequence != nil",
                                      "Invalid parameter not satisfying: buffer != nil",
                                      "Invalid parameter not satisfying: stream != nil"}));
}

}  // namespace
