#include "LineMerge.h"

#include <gtest/gtest.h>

#include <random>
#include <string>

using namespace corvane::cli;

namespace {

std::u16string u(const std::string& ascii) { return {ascii.begin(), ascii.end()}; }
std::string a(const std::u16string& text) { return {text.begin(), text.end()}; }
Lines lines(const std::string& ascii) { return splitLines(u(ascii)); }

TEST(LineMerge, SplittingKeepsLineEndsAndJoinsBack) {
  EXPECT_EQ(lines(""), Lines{});
  EXPECT_EQ(lines("a\r\nb\nc"), (Lines{u"a\r\n", u"b\n", u"c"}));
  EXPECT_EQ(lines("\n\n"), (Lines{u"\n", u"\n"}));
  EXPECT_EQ(lines("x\ry\n"), (Lines{u"x\ry\n"})) << "a lone CR is no line end";
  for (const char* text : {"", "a", "a\n", "a\r\n\r\nb", "\n x \n"}) EXPECT_EQ(a(joinLines(lines(text))), text);
  EXPECT_EQ(withoutLineEnd(u"k=v\r\n"), u"k=v");
  EXPECT_EQ(withoutLineEnd(u"k=v\r"), u"k=v\r");
  EXPECT_EQ(withoutWhiteSpace(u" k =\tv w\r\n"), u"k=vw");
  EXPECT_TRUE(isBlank(u" \t\r\n") && !isBlank(u" x\n"));
  EXPECT_EQ(dominantLineEnd(lines("a\r\nb\r\nc\nd")), u"\r\n");
  EXPECT_EQ(dominantLineEnd(lines("a\r\nb\nc\n")), u"\n");
  EXPECT_EQ(dominantLineEnd(lines("a")), u"\n");
}

TEST(LineMerge, LostLinesIgnoreWhiteSpaceAndBlankLines) {
  struct Case {
    const char *original, *rewritten;
    std::vector<std::size_t> lost;
  } cases[] = {
      {"[a]\nk = v\n\n\n", "[a]\nk=v\n", {}},
      {"[a]\nk=a\n      b\n", "[a]\nk=a\n b\n", {}},
      {"; c\n[a]\nfoo bar\nk=v\n", "\n[a]\n\nk=v\n", {0, 2}},
      {"[a]\n  x\nk=v\n[b]\n", "[a]\n", {1, 2, 3}},
      {"b=1\na=2\n", "a=2\nb=1\n", {0}},
      {"[ a ]\r\nk\t=\tv\r\n", "[a]\r\nk=v\n", {}},
  };
  for (const Case& c : cases) EXPECT_EQ(lostLines(lines(c.original), lines(c.rewritten)), c.lost) << c.original;
}

TEST(LineMerge, EditsLandOnTheOriginalLines) {
  // The command-line edit tests cover the common cases end to end; these are
  // the ones they cannot reach.
  const std::string base = "[x]\nk=v\n[a]\nk=v\n[b]\nq=1\n", ours = "[x]\nk=v\n\n[a]\nk=v\n\n[b]\nq=1\n";
  const std::string theirs = "[x]\nk=v\n[b]\nq=1\n";
  EXPECT_EQ(a(joinLines(mergeEdit(lines(base), lines(ours), lines(theirs), {u"\n", true}))), "[x]\nk=v\n\n[b]\nq=1\n")
      << "a removed section takes its hidden blank line";
  EXPECT_EQ(a(joinLines(mergeEdit(lines(base), lines(ours), lines(theirs)))), "[x]\nk=v\n\n\n[b]\nq=1\n")
      << "without the section flag that blank line stays";
  EXPECT_EQ(a(joinLines(mergeEdit(lines("[a]\nk=v\n[b]\n"), lines("[a]\nk = v\n\n[b]\n"), lines("[a]\n\n[b]\n")))),
            "[a]\n\n[b]\n")
      << "removing the only option keeps one blank line";
}

TEST(LineMerge, NoEditGivesTheOriginalBack) {
  // Whatever the normalisation was, an edit that changes nothing leaves ours alone.
  std::mt19937 random(7);
  const char* pool[] = {"[a]\n", "k=v\n", "k = v\n", "\n", "  x\n", "; c\n", "# c\n", "\r\n", "z=1\r\n"};
  for (int round = 0; round < 200; ++round) {
    std::string base, ours;
    for (int i = static_cast<int>(random() % 12); i-- > 0;) base += pool[random() % 9];
    for (int i = static_cast<int>(random() % 12); i-- > 0;) ours += pool[random() % 9];
    EXPECT_EQ(a(joinLines(mergeEdit(lines(base), lines(ours), lines(base)))), ours) << base;
  }
}

}  // namespace
