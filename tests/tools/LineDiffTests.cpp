#include "LineDiff.h"

#include <gtest/gtest.h>

#include <random>
#include <string>

using corvane::cli::diffMatches;
using corvane::cli::Match;

namespace {

std::vector<std::uint32_t> seq(const std::string& letters) { return {letters.begin(), letters.end()}; }

// Length of a longest common subsequence, by dynamic programming.
std::size_t lcsLength(const std::vector<std::uint32_t>& a, const std::vector<std::uint32_t>& b) {
  std::vector<std::vector<std::size_t>> t(a.size() + 1, std::vector<std::size_t>(b.size() + 1, 0));
  for (std::size_t i = a.size(); i-- > 0;)
    for (std::size_t j = b.size(); j-- > 0;)
      t[i][j] = a[i] == b[j] ? t[i + 1][j + 1] + 1 : std::max(t[i + 1][j], t[i][j + 1]);
  return t[0][0];
}

// The matches pair equal elements, strictly increasing on both sides.
void expectValid(const std::vector<std::uint32_t>& a, const std::vector<std::uint32_t>& b,
                 const std::vector<Match>& matches) {
  for (std::size_t k = 0; k < matches.size(); ++k) {
    ASSERT_LT(matches[k].first, a.size());
    ASSERT_LT(matches[k].second, b.size());
    ASSERT_EQ(a[matches[k].first], b[matches[k].second]);
    if (k > 0) {
      ASSERT_LT(matches[k - 1].first, matches[k].first);
      ASSERT_LT(matches[k - 1].second, matches[k].second);
    }
  }
}

TEST(LineDiff, SmallCasesAreShortestAndValid) {
  struct Case {
    const char* a;
    const char* b;
    std::size_t common;
  } cases[] = {
      {"", "", 0},          {"abc", "", 0},           {"", "abc", 0},        {"abc", "abc", 3},
      {"abc", "abxc", 3},   {"abcabba", "cbabac", 4}, {"abcd", "dcba", 1},   {"aaaa", "aa", 2},
      {"xaby", "ab", 2},    {"ab", "ba", 1},          {"abcdef", "acf", 3},  {"a", "b", 0},
      {"abcb", "bdcab", 3}, {"kitten", "sitting", 4}, {"abab", "baba", 3},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(std::string(c.a) + " / " + c.b);
    auto a = seq(c.a), b = seq(c.b);
    auto matches = diffMatches(a, b);
    expectValid(a, b, matches);
    EXPECT_EQ(matches.size(), c.common);
  }
}

TEST(LineDiff, RandomSequencesMatchTheLongestCommonSubsequence) {
  std::mt19937 random(20240611);
  for (int round = 0; round < 400; ++round) {
    std::uniform_int_distribution<int> length(0, 40), symbol(0, round % 2 == 0 ? 2 : 6);
    std::vector<std::uint32_t> a(static_cast<std::size_t>(length(random)));
    for (auto& x : a) x = static_cast<std::uint32_t>(symbol(random));
    // Half of the rounds edit a copy of a, as texts of one file are.
    std::vector<std::uint32_t> b;
    if (round % 4 < 2) {
      b = a;
      for (int edits = symbol(random); edits-- > 0;) {
        std::size_t at = b.empty() ? 0 : static_cast<std::size_t>(random() % (b.size() + 1));
        if (random() % 2 == 0 && at < b.size()) b.erase(b.begin() + static_cast<std::ptrdiff_t>(at));
        else b.insert(b.begin() + static_cast<std::ptrdiff_t>(at), static_cast<std::uint32_t>(symbol(random)));
      }
    } else {
      b.resize(static_cast<std::size_t>(length(random)));
      for (auto& x : b) x = static_cast<std::uint32_t>(symbol(random));
    }
    auto matches = diffMatches(a, b);
    SCOPED_TRACE(round);
    expectValid(a, b, matches);
    ASSERT_EQ(matches.size(), lcsLength(a, b));
  }
}

TEST(LineDiff, LongFilesWithFewChangesStayExact) {
  std::vector<std::uint32_t> a(20000);
  for (std::size_t i = 0; i < a.size(); ++i) a[i] = static_cast<std::uint32_t>(i % 97);
  auto b = a;
  b.erase(b.begin() + 5000, b.begin() + 5003);
  b.insert(b.begin() + 12000, 1000u);
  b[19999 - 3] = 2000u;
  auto matches = diffMatches(a, b);
  expectValid(a, b, matches);
  EXPECT_EQ(matches.size(), a.size() - 4);
}

}  // namespace
