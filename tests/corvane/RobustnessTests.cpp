// Bad input: huge lines, huge counts, bytes that are not text in the expected
// encoding. Each load must finish (bounded time and memory) with the result
// the reading rules give; sizes shrink under AddressSanitizer.
#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include "ReadingSupport.h"

#if defined(__SANITIZE_ADDRESS__)
#define ROBUSTNESS_ASAN 1
#elif defined(__has_feature)
#if __has_feature(address_sanitizer)
#define ROBUSTNESS_ASAN 1
#endif
#endif

namespace {

#ifdef ROBUSTNESS_ASAN
constexpr std::size_t kScale = 8;
#else
constexpr std::size_t kScale = 1;
#endif

constexpr std::size_t kMiB = 1024 * 1024;

std::shared_ptr<YIniElementFactory> factory() { return YIniStandardElementFactory::standardFactory(); }

/// Counts log lines and keeps only the start of each, so that a log line
/// carrying a 50 MB text costs no second copy.
class LogTally {
 public:
  LogTally() {
    _previous = YSetLogSink([this](const YString& m) {
      lengths.push_back(m.length());
      heads.push_back(m.substringToIndex(std::min<std::size_t>(m.length(), 40)).UTF8String());
    });
  }
  ~LogTally() { YSetLogSink(_previous); }
  std::vector<std::size_t> lengths;
  std::vector<std::string> heads;

 private:
  YLogSink _previous;
};

/// A file in the test's own temporary folder, removed afterwards.
class TempFile {
 public:
  explicit TempFile(const std::string& bytes) {
    std::string templ = (std::filesystem::temp_directory_path() / "corvane-robust-XXXXXX").string();
    int fd = ::mkstemp(templ.data());
    EXPECT_GE(fd, 0);
    _path = templ;
    for (std::size_t done = 0; fd >= 0 && done < bytes.size();) {
      ssize_t n = ::write(fd, bytes.data() + done, bytes.size() - done);
      if (n <= 0) break;
      done += static_cast<std::size_t>(n);
    }
    if (fd >= 0) ::close(fd);
  }
  ~TempFile() { std::filesystem::remove(_path); }
  YString path() const { return YString(_path); }

 private:
  std::string _path;
};

std::shared_ptr<YIniDocument> loadFile(const std::string& bytes) {
  TempFile file(bytes);
  return YIniDocument::documentWithContentsOfFileFactory(file.path(), factory());
}

std::string repeat(const std::string& piece, std::size_t times) {
  std::string out;
  out.reserve(piece.size() * times);
  for (std::size_t i = 0; i < times; ++i) out += piece;
  return out;
}

// ---- one huge line ------------------------------------------------------------

struct HugeLineCase {
  const char* name;
  std::string prefix;
  char fill;
  std::string suffix;
  /// "comment": the line is one comment and round-trips; "section": a
  /// section named by what stands between the brackets; "unknown": one empty
  /// comment and one log line.
  const char* expect;
};

class HugeLineTest : public ::testing::TestWithParam<HugeLineCase> {};

TEST_P(HugeLineTest, FiftyMegabyteLineIsReadByTheRules) {
  const HugeLineCase& c = GetParam();
  const std::size_t size = 50 * kMiB / kScale;
  std::string text = c.prefix + std::string(size, c.fill) + c.suffix;
  LogTally log;
  auto document = loadFile(text);
  ASSERT_NE(document, nullptr);
  auto elements = document->elements();
  ASSERT_EQ(elements->count(), 1u);
  std::string expect = c.expect;
  if (expect == "unknown") {
    auto comment = std::dynamic_pointer_cast<YIniComment>(elements->objectAtIndex(0));
    ASSERT_NE(comment, nullptr);
    EXPECT_EQ(comment->stringValue().length(), 0u);
    ASSERT_EQ(log.lengths.size(), 1u);
    EXPECT_EQ(log.heads[0].rfind("Unrecognized text sequence ", 0), 0u);
    EXPECT_EQ(log.lengths[0], std::string("Unrecognized text sequence ").size() + text.size());
    EXPECT_EQ(document->stringValue().length(), 0u);
  } else if (expect == "section") {
    auto section = std::dynamic_pointer_cast<YIniSection>(elements->objectAtIndex(0));
    ASSERT_NE(section, nullptr);
    EXPECT_EQ(section->name().length(), text.size() - 2);
    EXPECT_TRUE(log.lengths.empty());
    EXPECT_TRUE(document->stringValue().isEqualToString(YString(text)));
  } else {
    auto comment = std::dynamic_pointer_cast<YIniComment>(elements->objectAtIndex(0));
    ASSERT_NE(comment, nullptr);
    EXPECT_TRUE(log.lengths.empty());
    EXPECT_TRUE(document->stringValue().isEqualToString(YString(text)));
  }
}

INSTANTIATE_TEST_SUITE_P(Robustness, HugeLineTest,
                         ::testing::Values(HugeLineCase{"Letters", "", 'x', "", "unknown"},
                                           HugeLineCase{"Comment", "#", 'x', "", "comment"},
                                           HugeLineCase{"SectionHeader", "[", 'x', "]", "section"}),
                         [](const auto& info) { return std::string(info.param.name); });

// ---- huge counts ------------------------------------------------------------------

TEST(RobustnessTest, MillionOptionsBeforeAnySectionAreDropped) {
  const std::size_t count = 1000000 / kScale;
  std::string text;
  text.reserve(count * 14 + 16);
  for (std::size_t i = 0; i < count; ++i) text += "key" + std::to_string(i) + "=v\n";
  LogTally log;
  auto document = load(text);
  EXPECT_EQ(document->elements()->count(), 0u);

  auto withSection = load(text + "[s]\nk=v\n");
  EXPECT_EQ(describeAll(withSection->elements(), true), (std::vector<std::string>{"S:s", "  C:\\n", "  O:k=v"}));
  EXPECT_TRUE(log.lengths.empty());
}

class BlankLinesTest : public ::testing::TestWithParam<std::string> {};

TEST_P(BlankLinesTest, MillionBlankLinesBecomeMillionCommentsAndRoundTrip) {
  const std::size_t count = 1000000 / kScale;
  const std::string text = repeat(GetParam(), count);
  auto document = loadFile(text);
  auto elements = document->elements();
  ASSERT_EQ(elements->count(), count);
  EXPECT_TRUE(elements->objectAtIndex(count - 1)->stringValue().isEqualToString(YString(GetParam())));
  EXPECT_TRUE(document->stringValue().isEqualToString(YString(text)));
}

INSTANTIATE_TEST_SUITE_P(Robustness, BlankLinesTest, ::testing::Values("\n", "\r\n"),
                         [](const auto& info) { return info.param == "\n" ? "LF" : "CRLF"; });

// ---- brackets -------------------------------------------------------------------

TEST(RobustnessTest, MegabyteOfOpeningBracketsIsOneUnknownLine) {
  const std::string text(kMiB / kScale, '[');
  LogTally log;
  auto document = load(text);
  EXPECT_EQ(describeAll(document->elements(), true), (std::vector<std::string>{"C:"}));
  EXPECT_EQ(log.lengths, (std::vector<std::size_t>{std::string("Unrecognized text sequence ").size() + text.size()}));
}

TEST(RobustnessTest, BracketRunsClosedOnceAreOneSectionNamedByTheOutermostPair) {
  struct Case {
    std::string text;
    std::string name;
  };
  const std::size_t n = kMiB / kScale;
  const std::vector<Case> cases = {
      {std::string(n, '[') + "]", std::string(n - 1, '[')},
      {repeat("[]", n / 2), repeat("][", n / 2 - 1)},
      {std::string(n / 2, '[') + std::string(n / 2, ']'), std::string(n / 2 - 1, '[') + std::string(n / 2 - 1, ']')},
  };
  for (const Case& c : cases) {
    LogTally log;
    auto document = load(c.text + "\nk=v\n");
    auto elements = document->elements();
    ASSERT_EQ(elements->count(), 1u);
    auto section = std::dynamic_pointer_cast<YIniSection>(elements->objectAtIndex(0));
    ASSERT_NE(section, nullptr);
    EXPECT_TRUE(section->name().isEqualToString(YString(c.name))) << c.text.substr(0, 8);
    EXPECT_TRUE(section->valueForOptionWithName(YString(u"k")).isEqualToString(YString(u"v")));
    EXPECT_TRUE(document->stringValue().isEqualToString(YString(c.text + "\nk=v\n")));
    EXPECT_TRUE(log.lengths.empty());
  }
}

// ---- bytes that are not the expected text ----------------------------------------

std::string pseudoRandomBytes(std::size_t size, std::uint32_t seed) {
  std::string bytes(size, '\0');
  std::uint64_t state = seed;
  for (char& b : bytes) {
    state = state * 6364136223846793005ull + 1442695040888963407ull;
    b = static_cast<char>(state >> 56);
  }
  return bytes;
}

/// Writing a loaded document twice gives the same text, and reading that text
/// and writing it again never makes it longer.
void expectStableOutput(const std::shared_ptr<YIniDocument>& document) {
  YString first = document->stringValue();
  EXPECT_TRUE(document->stringValue().isEqualToString(first));
  auto again = YIniDocument::documentFromStringFactory(first, factory());
  EXPECT_LE(again->stringValue().length(), first.length());
}

std::string headOfThisProgram(std::size_t size) {
  std::ifstream in("/proc/self/exe", std::ios::binary);
  std::string bytes(size, '\0');
  in.read(bytes.data(), static_cast<std::streamsize>(size));
  bytes.resize(static_cast<std::size_t>(in.gcount()));
  return bytes;
}

TEST(RobustnessTest, BinaryFileLoadsAsDetectedTextOrAsEmptyDocument) {
  // Noise (which the guess may take for some encoding) and an executable
  // (which it may reject): either way a document, empty when undecodable.
  const std::vector<std::string> inputs = {pseudoRandomBytes(kMiB / kScale, 1), pseudoRandomBytes(kMiB / kScale, 2),
                                           headOfThisProgram(kMiB / kScale)};
  for (const std::string& bytes : inputs) {
    ASSERT_FALSE(bytes.empty());
    std::shared_ptr<YError> error;
    YStringEncoding used = 0;
    TempFile file(bytes);
    YString text = YString::stringWithContentsOfFileUsedEncodingError(file.path(), &used, &error);
    LogTally log;
    auto document = YIniDocument::documentWithContentsOfFileFactory(file.path(), factory());
    ASSERT_NE(document, nullptr);
    if (text.isNull()) {
      // Not decodable: the loader reads the absent text as an empty one.
      ASSERT_NE(error, nullptr);
      EXPECT_EQ(error->code(), YFileReadInapplicableStringEncodingError);
      EXPECT_EQ(document->elements()->count(), 0u);
    } else {
      EXPECT_NE(used, YUTF8StringEncoding) << "random bytes are not strict UTF-8";
      EXPECT_GT(document->elements()->count(), 0u);
      expectStableOutput(document);
    }
  }
}

TEST(RobustnessTest, ArbitraryCodeUnitsLoadAndWriteStably) {
  // Every UTF-16 code unit, lone surrogates and NUL included, in a
  // pseudo-random order rich in line ends, "[", "]", "=", "#" and spaces.
  const std::string raw = pseudoRandomBytes(2 * kMiB / kScale, 7);
  std::u16string units(raw.size() / 2, u'\0');
  static const char16_t kSyntax[] = u"\n\r[]=# \t";
  for (std::size_t i = 0; i < units.size(); ++i) {
    auto unit = static_cast<char16_t>(static_cast<unsigned char>(raw[2 * i]) << 8 | static_cast<unsigned char>(raw[2 * i + 1]));
    units[i] = (unit & 0x7) == 0 ? kSyntax[unit % 8] : unit;
  }
  LogTally log;
  auto document = YIniDocument::documentFromStringFactory(YString::stringWithCharacters(units.data(), units.size()),
                                                          factory());
  ASSERT_NE(document, nullptr);
  expectStableOutput(document);
}

TEST(RobustnessTest, InvalidUtf8IsReadInTheDetectedLegacyEncoding) {
  // Latin-1 text: "é" is the single byte 0xE9, which is not UTF-8.
  std::string text = "[donn\xE9" "es]\n";
  for (int i = 0; i < 200; ++i)
    text += "cl\xE9" + std::to_string(i) + "=caf\xE9 cr\xE8me br\xFBl\xE9" "e, d\xE9j\xE0 pr\xEAt\n";
  TempFile file(text);
  YStringEncoding used = 0;
  YString decoded = YString::stringWithContentsOfFileUsedEncodingError(file.path(), &used, nullptr);
  ASSERT_FALSE(decoded.isNull());
  EXPECT_TRUE(used == YISOLatin1StringEncoding || used == YWindowsCP1252StringEncoding) << YStringEncodingName(used);

  auto document = YIniDocument::documentWithContentsOfFileFactory(file.path(), factory());
  auto section = document->sectionForName(YString(u"données"));
  ASSERT_NE(section, nullptr);
  EXPECT_EQ(section->options()->count(), 200u);
  EXPECT_TRUE(section->valueForOptionWithName(YString(u"clé7")).isEqualToString(YString(u"café crème brûlée, déjà prêt")));
}

TEST(RobustnessTest, TruncatedUtf8SequencesNeverDecodeAsUtf8) {
  // Valid text with one broken sequence at the end: a lead byte without its
  // continuation. The file is not strict UTF-8, so it is either guessed as a
  // legacy encoding (every byte one character) or not decoded at all.
  std::string text = "[a]\n";
  for (int i = 0; i < 100; ++i) text += "k" + std::to_string(i) + "=caf\xC3\xA9\n";
  text += "last=\xE2\x82\n";
  TempFile file(text);
  YStringEncoding used = 0;
  YString decoded = YString::stringWithContentsOfFileUsedEncodingError(file.path(), &used, nullptr);
  auto document = YIniDocument::documentWithContentsOfFileFactory(file.path(), factory());
  if (decoded.isNull()) {
    EXPECT_EQ(document->elements()->count(), 0u);
  } else {
    EXPECT_NE(used, YUTF8StringEncoding);
    EXPECT_EQ(decoded.length(), text.size()) << "a single-byte encoding: one character per byte";
    auto section = document->sectionForName(YString(u"a"));
    ASSERT_NE(section, nullptr);
    EXPECT_EQ(section->options()->count(), 101u);
  }
}

TEST(RobustnessTest, Utf16WithoutByteOrderMarkIsDetected) {
  const std::u16string source = u"[a]\nk=v\n";
  for (bool bigEndian : {false, true}) {
    std::string bytes;
    for (char16_t c : source) {
      char low = static_cast<char>(c & 0xFF), high = static_cast<char>(c >> 8);
      bytes += bigEndian ? high : low;
      bytes += bigEndian ? low : high;
    }
    TempFile file(bytes);
    YStringEncoding used = 0;
    YString decoded = YString::stringWithContentsOfFileUsedEncodingError(file.path(), &used, nullptr);
    EXPECT_EQ(used, bigEndian ? YUTF16BigEndianStringEncoding : YUTF16LittleEndianStringEncoding);
    EXPECT_EQ(decoded.u16string(), source);
    auto document = YIniDocument::documentWithContentsOfFileFactory(file.path(), factory());
    EXPECT_EQ(document->stringValue().UTF8String(), "[a]\nk=v\n");
  }
}
}  // namespace
