#include "LineDiff.h"

#include <gtest/gtest.h>

#include <random>

using corvane::cli::diffMatches;
using Seq = std::vector<std::uint32_t>;

namespace {

// Length of a longest common subsequence, by dynamic programming.
std::size_t lcsLength(const Seq& a, const Seq& b) {
  std::vector<std::vector<std::size_t>> t(a.size() + 1, std::vector<std::size_t>(b.size() + 1, 0));
  for (std::size_t i = a.size(); i-- > 0;)
    for (std::size_t j = b.size(); j-- > 0;)
      t[i][j] = a[i] == b[j] ? t[i + 1][j + 1] + 1 : std::max(t[i + 1][j], t[i][j + 1]);
  return t[0][0];
}

// The matches pair equal elements, strictly increasing on both sides; returns their count.
std::size_t validMatches(const Seq& a, const Seq& b) {
  auto matches = diffMatches(a, b);
  for (std::size_t k = 0; k < matches.size(); ++k) {
    EXPECT_TRUE(matches[k].first < a.size() && matches[k].second < b.size() &&
                a[matches[k].first] == b[matches[k].second]) << k;
    EXPECT_TRUE(k == 0 || (matches[k - 1].first < matches[k].first && matches[k - 1].second < matches[k].second)) << k;
  }
  return matches.size();
}

TEST(LineDiff, MatchesAreALongestCommonSubsequence) {
  // Half of the rounds compare a sequence with an edited copy, as texts of one file are.
  std::mt19937 random(20240611);
  for (int round = 0; round < 400; ++round) {
    std::uniform_int_distribution<int> length(0, 40), symbol(0, round % 2 == 0 ? 2 : 6);
    auto randomSeq = [&] {
      Seq s(static_cast<std::size_t>(length(random)));
      for (auto& x : s) x = static_cast<std::uint32_t>(symbol(random));
      return s;
    };
    Seq a = randomSeq(), b = round % 4 < 2 ? a : randomSeq();
    for (int edits = round % 4 < 2 ? symbol(random) : 0; edits-- > 0;) {
      auto at = b.begin() + static_cast<std::ptrdiff_t>(random() % (b.size() + 1));
      if (random() % 2 == 0 && at != b.end()) b.erase(at);
      else b.insert(at, static_cast<std::uint32_t>(symbol(random)));
    }
    ASSERT_EQ(validMatches(a, b), lcsLength(a, b)) << round;
  }
}

TEST(LineDiff, LongFilesWithFewChangesStayExact) {
  Seq a(20000);
  for (std::size_t i = 0; i < a.size(); ++i) a[i] = static_cast<std::uint32_t>(i % 97);
  auto b = a;
  b.erase(b.begin() + 5000, b.begin() + 5003);
  b.insert(b.begin() + 12000, 1000u);
  b[19999 - 3] = 2000u;
  EXPECT_EQ(validMatches(a, b), a.size() - 4);
}

}  // namespace
