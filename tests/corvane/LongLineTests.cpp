// Lines of ten million characters and more load like short ones, whichever
// way the reader cuts the text: the line recogniser, or the scanner's regular
// expressions, whose matching budget grows with the text.
#include <gtest/gtest.h>

#include "ReaderPaths.h"

namespace {

constexpr std::size_t kLong = 10'000'000;

// `text` with every run of 64 or more equal characters written "<N*c>", so
// that expectations and failures stay readable.
std::string abbreviated(const std::string& text) {
  std::string out;
  for (std::size_t i = 0; i < text.size();) {
    std::size_t j = i;
    while (j < text.size() && text[j] == text[i]) ++j;
    out += j - i >= 64 ? "<" + std::to_string(j - i) + "*" + text[i] + ">" : text.substr(i, j - i);
    i = j;
  }
  return out;
}

std::vector<std::string> abbreviated(const std::vector<std::string>& lines) {
  std::vector<std::string> out;
  for (const auto& line : lines) out.push_back(abbreviated(line));
  return out;
}

struct LongLineCase {
  const char* name;
  std::string text;
  std::vector<std::string> tree;
  std::vector<std::string> log;
};

std::vector<LongLineCase> longLineCases() {
  const std::string x(kLong, 'x'), spaces(kLong, ' '), equals(kLong, '=');
  const std::string n = std::to_string(kLong);
  return {
      {"a long value", "[s]\nk=" + x + "\nj=1\n", {"S:s", "  C:\\n", "  O:k=<" + n + "*x>", "  O:j=1"}, {}},
      {"a long comment", "[s]\n#" + x + "\r\nj=1\n",
       {"S:s", "  C:\\n", "  C:#<" + n + "*x>", "  C:\\r\\n", "  O:j=1"}, {}},
      {"a long unrecognised line", "[s]\n" + x + "\nj=1\n", {"S:s", "  C:\\n", "  C:", "  C:\\n", "  O:j=1"},
       {"Unrecognized text sequence <" + n + "*x>"}},
      {"a long name with = at the end", "[s]\n" + x + "=\nj=1\n", {"S:s", "  C:\\n", "  O:<" + n + "*x>=", "  O:j=1"}, {}},
      {"a long name and a value", "[s]\n" + x + "=v\nj=1\n", {"S:s", "  C:\\n", "  O:<" + n + "*x>=v", "  O:j=1"}, {}},
      {"a long line of =", "[s]\n" + equals + "\n", {"S:s", "  C:\\n", "  O:<" + n + "*=>"}, {}},  // the name is empty
      {"a long header", "[" + x + "]\nk=v\n", {"S:<" + n + "*x>", "  C:\\n", "  O:k=v"}, {}},
      {"a long [ line without ]", "[s]\n[" + x + "\nj=1\n", {"S:s", "  C:\\n", "  C:", "  C:\\n", "  O:j=1"},
       {"Unrecognized text sequence [<" + n + "*x>"}},
      {"a long continuation", "[s]\nk=v\n  " + x + "\nj=1\n", {"S:s", "  C:\\n", "  O:k=v\\n <" + n + "*x>", "  O:j=1"},
       {}},
      {"a long line of spaces continues", "[s]\nk=v\n" + spaces + "\nj=1\n", {"S:s", "  C:\\n", "  O:k=v\\n ", "  O:j=1"},
       {}},
      {"a long last line without line end", "[s]\n" + x, {"S:s", "C:\\n", "C:"},
       {"Unrecognized text sequence <" + n + "*x>"}},
      {"a long last option without line end", "[s]\n" + x + "=v", {"S:s", "  C:\\n", "  O:<" + n + "*x>=v"}, {}},
      // Long last lines, where a rule that needs a line end could retry its match at every code unit.
      {"a long last value", "[s]\nk=" + x, {"S:s", "  C:\\n", "  O:k=<" + n + "*x>"}, {}},
      {"a long last name with =", "[s]\n" + x + "=", {"S:s", "  C:\\n", "  O:<" + n + "*x>="}, {}},
      {"a long last line of =", "[s]\n" + equals, {"S:s", "  C:\\n", "  O:<" + n + "*=>"}, {}},
      {"a long last line of spaces", "[s]\nk=v\n" + spaces, {"S:s", "  C:\\n", "  O:k=v\\n "}, {}},
  };
}

void loadsEveryLongLine(bool recognizer) {
  for (const auto& c : longLineCases()) {
    SCOPED_TRACE(c.name);
    const readerpaths::Reading reading = readerpaths::read(YString(c.text), recognizer);
    EXPECT_EQ(reading.failure, "");
    EXPECT_EQ(abbreviated(reading.tree), c.tree);
    // The text is read twice (by a reader, then into a document): each log line comes twice.
    std::vector<std::string> log;
    for (const auto& line : c.log) log.insert(log.end(), 2, line);
    EXPECT_EQ(abbreviated(reading.log), log);
    EXPECT_FALSE(reading.stopped);
    EXPECT_TRUE(reading.preserved == c.text) << abbreviated(reading.preserved.substr(0, 1000));
  }
}

TEST(LongLines, LoadWithTheLineRecognizer) { loadsEveryLongLine(true); }

TEST(LongLines, LoadWithTheRegularExpressionsAlone) { loadsEveryLongLine(false); }

}  // namespace
