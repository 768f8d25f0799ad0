// The line recogniser against the scanner's regular expressions: both ways of
// cutting a text must give the same elements, tree, line numbers, log lines
// and saved text, on real files, on the fuzzers' seeds, on lines picked for
// the rules' corners and on generated INI-like text.
#include <gtest/gtest.h>

#include <filesystem>
#include <random>

#include "FileFaultSupport.h"
#include "ReaderPaths.h"

#ifndef CORVANE_REALWORLD_DIR
#define CORVANE_REALWORLD_DIR "tests/corvane/realworld"
#endif
#ifndef CORVANE_FUZZ_CORPUS_DIR
#define CORVANE_FUZZ_CORPUS_DIR "fuzz/corpus"
#endif

namespace {

namespace fs = std::filesystem;

using filefault::readBytes;

// As the fuzzers take their input: UTF-8 where valid, else Latin-1.
YString decoded(const std::string& bytes) {
  YString text = YDecodeBytes(bytes, YUTF8StringEncoding, nullptr);
  return text.isNull() ? YDecodeBytes(bytes, YISOLatin1StringEncoding, nullptr) : text;
}

TEST(ReaderPaths, TheSwitchSelectsTheWay) {
  // Without this, every comparison below could compare one way with itself.
  const YString text(u"[a]\nk=v\n  w\n#c\n");
  const std::size_t before = YIniLineRecognizer::tokensOnThisThread();
  readerpaths::read(text, false);
  EXPECT_EQ(YIniLineRecognizer::tokensOnThisThread(), before);
  EXPECT_TRUE(YIniLineRecognizer::isEnabled());
  readerpaths::read(text, true);
  EXPECT_GT(YIniLineRecognizer::tokensOnThisThread(), before);
}

// Real files are decoded as a file is loaded, the fuzzers' seeds as the fuzzers take them.
TEST(ReaderPaths, RealWorldFilesAndFuzzSeedsReadAlike) {
  const auto realWorld = filesUnder(CORVANE_REALWORLD_DIR), seeds = filesUnder(CORVANE_FUZZ_CORPUS_DIR);
  EXPECT_GE(realWorld.size(), 100u);
  EXPECT_GE(seeds.size(), 30u);
  for (const fs::path& file : realWorld) {
    const YString text = YString::stringWithContentsOfFileUsedEncodingError(YString(file.string()), nullptr, nullptr);
    ASSERT_FALSE(text.isNull()) << file;
    EXPECT_EQ(readerpaths::compare(text), "") << file.filename();
  }
  for (const fs::path& file : seeds) EXPECT_EQ(readerpaths::compare(decoded(readBytes(file))), "") << file;
}

TEST(ReaderPaths, RuleCornersReadAlike) {
  const std::u16string lone(1, static_cast<char16_t>(0xD800));
  const std::vector<std::u16string> texts = {
      u"", u"\n", u"\r", u"\r\n", u"\r\r\n", u"\n\r", u" ", u"  ", u"\t", u"=", u"[", u"]", u"#", u"#\r", u"#\r\n",
      u"##\r\n", u"#\r\r\n", u"[]", u"[]]", u"[]]\n", u"[[]]", u"[a]b]", u"[a", u"[a\n]", u"[a]\r\n", u"[ a ]\n",
      u"[a] x\n", u"[a]=b\n", u"[a]\n=\n", u"[a]\n==\n", u"[a]\n=v", u"[a]\nk=", u"[a]\nk=\r\n", u"[a]\nk=\r",
      u"[a]\nk=v\r\n  x\r\n", u"[a]\nk=v\n \n", u"[a]\nk=v\n  \n", u"[a]\nk=v\n  ", u"[a]\nk=v\n ",
      u"[a]\nk=v\n  x", u"[a]\nk=v\n\t x\n", u"[a]\n k=v\n", u"[a]\n\tk=v\n", u"[a]\nk: v\n", u"[a]\nk v\n",
      u"[a]\n\rk=v\n", u"[a]\nk\r=v\n", u"[a]\n[b\n", u"[a]\n  [b]\n", u"k=v\n  x\n[a]\nk=v\n", u"  x\n  y\n[a]\n",
      u"[\u00e9]\n\u00e9=\u4e2d\n", u"[a]\nk=\U0001F600\n", u"[a\u2028]\nk\u0085=\u2029v\u00a0\n",
      u"[\u3000]\n\u3000=\u3000\n", u"[a]\n" + lone + u"=" + lone + u"\n" + lone + u"\n",
      u"[a]\nk=v\n" + lone + u"\n  " + lone, u"[a]\nk=[x]\n#=\n;k=v\n",
  };
  for (const auto& text : texts) EXPECT_EQ(readerpaths::compare(YString(text)), "") << visible(YString(text));
}

// The recogniser searches a line several code units at a time and the last
// few of the text one by one: lines of every length up to past a few such
// blocks, with the "=" and the line end at every place among them, the text's
// end at every distance, and code units that only one byte of "=" or LF is
// (U+013D, U+3D00, U+010A, U+0A00).
TEST(ReaderPaths, EveryLengthAndPlaceReadsAlike) {
  const std::u16string units[] = {u"k", u"\u013D", u"\u3D00", u"\u010A", u"\u0A00", u" ", u"\t", u"="};
  const std::u16string ends[] = {u"\n", u"\r\n", u"", u"\r"};
  auto repeated = [](const std::u16string& unit, std::size_t count) {
    std::u16string out;
    for (std::size_t i = 0; i < count; ++i) out += unit;
    return out;
  };
  for (std::size_t a = 0; a <= 40; ++a) {
    for (std::size_t b = 0; b <= 40; ++b) {
      const std::u16string key = repeated(units[(a + b) % 7], a), value = repeated(units[(a * 3 + b) % 8], b);
      const std::u16string& end = ends[(a + b / 2) % 4];
      const std::u16string texts[] = {
          u"[s]\n" + key + u"=" + value + end,
          u"[s]\nk" + key + u"=" + value + end + u" " + value + end + u"#" + key + end,
          u"[" + key + u"]" + value + end + u"x" + key + end + u"  " + value,
      };
      for (const auto& text : texts) ASSERT_EQ(readerpaths::compare(YString(text)), "") << visible(YString(text));
    }
  }
}

// INI-like text from a seed: headers with and without "]", options with "="
// and ":" anywhere, continuation lines, comments, blank lines, line ends of
// every kind (and none), tabs, code units beyond ASCII, lone surrogates and
// now and then a very long line.
std::u16string generatedText(std::uint32_t seed) {
  std::mt19937 random(seed);
  auto pick = [&](unsigned bound) { return std::uniform_int_distribution<unsigned>(0, bound - 1)(random); };
  static const std::u16string kPieces[] = {
      u"[", u"]", u"=", u":", u" ", u"  ", u"\t", u"#", u";", u"\r", u"key", u"Value", u"a b", u"\u00e9", u"\u4e2d",
      u"\u00a0", u"\u2028", u"\u3000", u"\u0085", u"\U0001F600", u"\f", u"[x]", u"k=v", u"==", u"\\", u"\""};
  auto pieces = [&](unsigned most) {
    std::u16string out;
    for (unsigned n = pick(most + 1); n > 0; --n) {
      if (pick(30) == 0) out.push_back(static_cast<char16_t>(0xD800 + pick(0x800)));  // a lone surrogate
      else out += kPieces[pick(std::size(kPieces))];
    }
    return out;
  };
  auto indent = [&] { return std::u16string(pick(3) == 0 ? pick(4) : 0, pick(4) == 0 ? u'\t' : u' '); };
  std::u16string text;
  for (unsigned lines = 1 + pick(40); lines > 0; --lines) {
    switch (pick(8)) {
      case 0: text += indent() + u"[" + pieces(3) + (pick(4) ? u"]" : u"") + (pick(5) ? u"" : pieces(2)); break;
      case 1:
      case 2: text += indent() + pieces(2) + (pick(3) ? u"=" : pick(2) ? u" = " : u":") + pieces(4); break;
      case 3: text += std::u16string(1 + pick(3), u' ') + pieces(3); break;
      case 4: text += (pick(2) ? u"#" : u";") + pieces(3); break;
      case 5: break;  // blank
      case 6: text += pieces(6); break;
      default:
        if (pick(8) == 0) {  // a long line of one kind or another
          const std::u16string body(1000 + pick(30000), pick(2) ? u'x' : u' ');
          static const std::u16string kinds[] = {u"k=", u"#", u"[", u" ", u"", u"=", u"k"};
          text += kinds[pick(std::size(kinds))] + body + (pick(2) ? u"=]" : u"");
        } else {
          text += indent() + pieces(1) + u"=" + pieces(1);
        }
    }
    static const std::u16string kEnds[] = {u"\n", u"\n", u"\n", u"\r\n", u"\r\n", u"\r", u"", u"\n\n"};
    if (lines > 1 || pick(3)) text += kEnds[pick(std::size(kEnds))];
  }
  return text;
}

TEST(ReaderPaths, GeneratedTextReadsAlike) {
  for (std::uint32_t seed = 1; seed <= 1500; ++seed) {
    std::u16string text = generatedText(seed);
    const std::string difference = readerpaths::compare(YString(text));
    ASSERT_EQ(difference, "") << "seed " << seed << ": " << visible(YString(text)).substr(0, 400);
    // The same text in ASCII alone, which loading from bytes reads as bytes.
    for (char16_t& c : text)
      if (c >= 0x80) c = u'x';
    const std::string asciiDifference = readerpaths::compare(YString(text));
    ASSERT_EQ(asciiDifference, "") << "seed " << seed << " in ASCII: " << visible(YString(text)).substr(0, 400);
  }
}

}  // namespace
