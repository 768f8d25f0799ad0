// Bad input: huge lines, huge counts, bytes that are not text in the expected
// encoding. Each load must finish with the result the reading rules give;
// sizes shrink under AddressSanitizer.
#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdint>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include "FileFaultSupport.h"
#include "ReadingSupport.h"

namespace {

#if defined(__SANITIZE_ADDRESS__)
constexpr std::size_t kScale = 8;
#else
constexpr std::size_t kScale = 1;
#endif
constexpr std::size_t kMiB = 1024 * 1024;
const std::string kUnrecognized = "Unrecognized text sequence ";

/// Keeps each log line's length and start only, so that a log line carrying
/// a 50 MB text costs no second copy.
class LogTally {
 public:
  LogTally() { _previous = YSetLogSink([this](const YString& m) { lengths.push_back(m.length()); }); }
  ~LogTally() { YSetLogSink(_previous); }
  std::vector<std::size_t> lengths;

 private:
  YLogSink _previous;
};

/// A temporary file holding `bytes`, removed with its folder.
struct TempFile : filefault::TempDir {
  explicit TempFile(const std::string& bytes) { filefault::writeBytes(file(), bytes, 0644); }
  std::string file() const { return *this / "f.ini"; }
  YString decode(YStringEncoding* used, std::shared_ptr<YError>* error = nullptr) const {
    return YString::stringWithContentsOfFileUsedEncodingError(YString(file()), used, error);
  }
};

std::string repeat(const std::string& piece, std::size_t times) {
  std::string out;
  out.reserve(piece.size() * times);
  for (std::size_t i = 0; i < times; ++i) out += piece;
  return out;
}

TEST(RobustnessTest, MillionOptionsBeforeAnySectionAreDropped) {
  std::string text;
  for (std::size_t i = 0; i < 1000000 / kScale; ++i) text += "key" + std::to_string(i) + "=v\n";
  LogTally log;
  EXPECT_EQ(load(text)->elements()->count(), 0u);
  EXPECT_EQ(describeAll(load(text + "[s]\nk=v\n")->elements(), true),
            (std::vector<std::string>{"S:s", "  C:\\n", "  O:k=v"}));
  EXPECT_TRUE(log.lengths.empty());
}

TEST(RobustnessTest, MillionBlankLinesBecomeMillionCommentsAndRoundTrip) {
  const std::size_t count = 1000000 / kScale;
  for (std::string line : {"\n", "\r\n"}) {
    const std::string text = repeat(line, count);
    auto document = loadFile(TempFile(text).file());
    ASSERT_EQ(document->elements()->count(), count);
    EXPECT_TRUE(document->elements()->objectAtIndex(count - 1)->stringValue().isEqualToString(YString(line)));
    EXPECT_TRUE(document->stringValue().isEqualToString(YString(text)));
  }
}

TEST(RobustnessTest, RepeatedOpeningBrackets) {
  // Unclosed: one unknown line. Closed once: a section named by what stands
  // between the outermost pair.
  const std::size_t n = kMiB / kScale;
  LogTally log;
  EXPECT_EQ(describeAll(load(std::string(n, '['))->elements(), true), (std::vector<std::string>{"C:"}));
  EXPECT_EQ(log.lengths, (std::vector<std::size_t>{kUnrecognized.size() + n}));
  const std::pair<std::string, std::string> closed[] = {
      {std::string(n, '[') + "]", std::string(n - 1, '[')},
      {repeat("[]", n / 2), repeat("][", n / 2 - 1)},
      {std::string(n / 2, '[') + std::string(n / 2, ']'), std::string(n / 2 - 1, '[') + std::string(n / 2 - 1, ']')},
  };
  for (const auto& [text, name] : closed) {
    auto document = load(text + "\nk=v\n");
    const std::vector<std::string> tree = {"S:" + name, "  C:\\n", "  O:k=v"};
    EXPECT_TRUE(describeAll(document->elements(), true) == tree) << text.substr(0, 8);
    EXPECT_TRUE(document->stringValue().isEqualToString(YString(text + "\nk=v\n")));
  }
  EXPECT_EQ(log.lengths.size(), 1u);
}

std::string pseudoRandomBytes(std::size_t size, std::uint32_t seed) {
  std::string bytes(size, '\0');
  std::uint64_t state = seed;
  for (char& b : bytes) {
    state = state * 6364136223846793005ull + 1442695040888963407ull;
    b = static_cast<char>(state >> 56);
  }
  return bytes;
}

TEST(RobustnessTest, BinaryDataLoadsAsDetectedTextOrAsEmptyDocument) {
  std::string program(kMiB / kScale, '\0');
  std::ifstream("/proc/self/exe", std::ios::binary).read(program.data(), static_cast<std::streamsize>(program.size()));
  for (const std::string& bytes : {pseudoRandomBytes(kMiB / kScale, 1), pseudoRandomBytes(kMiB / kScale, 2), program}) {
    TempFile temp(bytes);
    std::shared_ptr<YError> error;
    YStringEncoding used = 0;
    YString text = temp.decode(&used, &error);
    LogTally log;
    auto document = loadFile(temp.file());
    ASSERT_NE(document, nullptr);
    if (text.isNull()) {  // undecodable: loaded as an empty text
      ASSERT_NE(error, nullptr);
      EXPECT_EQ(error->code(), YFileReadInapplicableStringEncodingError);
      EXPECT_EQ(document->elements()->count(), 0u);
    } else {
      EXPECT_NE(used, YUTF8StringEncoding);
      EXPECT_GT(document->elements()->count(), 0u);
      // Writing twice gives the same text; reading and writing it again never grows it.
      YString first = document->stringValue();
      EXPECT_TRUE(document->stringValue().isEqualToString(first));
      EXPECT_LE(load(first.UTF8String())->stringValue().length(), first.length());
    }
  }
}

TEST(RobustnessTest, TruncatedUtf8SequenceIsNeverReadAsUtf8) {
  YStringEncoding used = 0;
  TempFile broken("[a]\nk=caf\xC3\xA9\nlast=\xE2\x82\n");
  YString decoded = broken.decode(&used);
  EXPECT_TRUE(decoded.isNull() || (used != YUTF8StringEncoding && decoded.length() == 20u)) << decoded.length();
}

}  // namespace
