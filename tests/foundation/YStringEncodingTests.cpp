// Text encodings (conversion, failures, detection) and reading and writing files.
#include <gtest/gtest.h>
#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <fstream>
#include <set>
#include <sstream>
#include <string>

#include "YFoundation.h"

namespace {

constexpr YStringEncoding kAllEncodings[] = {
    YASCIIStringEncoding,          YNEXTSTEPStringEncoding,       YJapaneseEUCStringEncoding,
    YUTF8StringEncoding,           YISOLatin1StringEncoding,      YSymbolStringEncoding,
    YNonLossyASCIIStringEncoding,  YShiftJISStringEncoding,       YISOLatin2StringEncoding,
    YUnicodeStringEncoding,        YWindowsCP1251StringEncoding,  YWindowsCP1252StringEncoding,
    YWindowsCP1253StringEncoding,  YWindowsCP1254StringEncoding,  YWindowsCP1250StringEncoding,
    YISO2022JPStringEncoding,      YMacOSRomanStringEncoding,     YUTF16BigEndianStringEncoding,
    YUTF16LittleEndianStringEncoding, YUTF32StringEncoding,       YUTF32BigEndianStringEncoding,
    YUTF32LittleEndianStringEncoding,
};

constexpr YStringEncoding kUnicodeEncodings[] = {
    YUTF8StringEncoding,          YUnicodeStringEncoding, YUTF16BigEndianStringEncoding,
    YUTF16LittleEndianStringEncoding, YUTF32StringEncoding, YUTF32BigEndianStringEncoding,
    YUTF32LittleEndianStringEncoding, YNonLossyASCIIStringEncoding,
};

const YString kMixed("h\xC3\xA9llo \xE2\x82\xAC \xF0\x9F\x98\x80 \\u");  // héllo € 😀 \u
const YString kLatin("Gr\xC3\xBC\xC3\x9F" "e aus M\xC3\xBCnchen, caf\xC3\xA9 \xC3\xA0 la cr\xC3\xA8me");
const YString kJapanese("\xE6\x97\xA5\xE6\x9C\xAC\xE8\xAA\x9E\xE3\x81\xAE\xE3\x83\x86\xE3\x82\xAD\xE3\x82\xB9\xE3\x83\x88");
const YString kLoneSurrogate(std::u16string_view(u"a\xD800" "b", 3));

void expectRoundTrip(const YString& text, YStringEncoding encoding) {
  SCOPED_TRACE(YStringEncodingName(encoding));
  std::shared_ptr<YError> error;
  auto bytes = YEncodeString(text, encoding, &error);
  ASSERT_TRUE(bytes) << (error ? error->description().UTF8String() : "");
  YString back = YDecodeBytes(*bytes, encoding, &error);
  EXPECT_EQ(back, text) << (error ? error->description().UTF8String() : "");
}

TEST(YStringEncodingTest, RoundTripOfEverySupportedEncoding) {
  for (YStringEncoding encoding : kUnicodeEncodings) EXPECT_TRUE(YStringEncodingIsSupported(encoding));
  EXPECT_TRUE(YStringEncodingIsSupported(YASCIIStringEncoding));
  EXPECT_TRUE(YStringEncodingIsSupported(YISOLatin1StringEncoding));
  EXPECT_FALSE(YStringEncodingIsSupported(0));
  EXPECT_FALSE(YStringEncodingIsSupported(9999));

  for (YStringEncoding encoding : kAllEncodings)
    if (YStringEncodingIsSupported(encoding)) expectRoundTrip(YString(u"Hello, World 123"), encoding);
  for (YStringEncoding encoding : kUnicodeEncodings) expectRoundTrip(kMixed, encoding);
  for (YStringEncoding encoding : {YISOLatin1StringEncoding, YWindowsCP1252StringEncoding})
    expectRoundTrip(kLatin, encoding);
  for (YStringEncoding encoding : {YJapaneseEUCStringEncoding, YShiftJISStringEncoding, YISO2022JPStringEncoding})
    if (YStringEncodingIsSupported(encoding)) expectRoundTrip(kJapanese, encoding);
}

TEST(YStringEncodingTest, BytesOfTheCommonEncodings) {
  const YString text("A\xC3\xA9");  // A é
  struct Case {
    YStringEncoding encoding;
    std::string bytes;
  } cases[] = {
      {YUTF8StringEncoding, "A\xC3\xA9"},
      {YISOLatin1StringEncoding, "A\xE9"},
      {YUnicodeStringEncoding, std::string("\xFF\xFE" "A\0\xE9\0", 6)},
      {YUTF16BigEndianStringEncoding, std::string("\0A\0\xE9", 4)},
      {YUTF16LittleEndianStringEncoding, std::string("A\0\xE9\0", 4)},
      {YUTF32StringEncoding, std::string("\xFF\xFE\0\0" "A\0\0\0\xE9\0\0\0", 12)},
      {YUTF32BigEndianStringEncoding, std::string("\0\0\0A\0\0\0\xE9", 8)},
      {YNonLossyASCIIStringEncoding, "A\\u00e9"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(YStringEncodingName(c.encoding));
    auto bytes = YEncodeString(text, c.encoding, nullptr);
    ASSERT_TRUE(bytes);
    EXPECT_EQ(*bytes, c.bytes);
  }
}

TEST(YStringEncodingTest, UnrepresentableTextFailsWithAnError) {
  struct Case {
    YString text;
    YStringEncoding encoding;
  } cases[] = {
      {YString("\xE2\x82\xAC"), YISOLatin1StringEncoding},  // €
      {YString("\xC3\xA9"), YASCIIStringEncoding},
      {kJapanese, YISOLatin1StringEncoding},
      {kLoneSurrogate, YUTF8StringEncoding},
      {kLoneSurrogate, YUTF16LittleEndianStringEncoding},
      {kLoneSurrogate, YUTF32StringEncoding},
      {kLoneSurrogate, YISOLatin1StringEncoding},
      {YString(u"x"), YSymbolStringEncoding},
      {YString(u"x"), 9999},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(YStringEncodingName(c.encoding));
    std::shared_ptr<YError> error;
    EXPECT_FALSE(YEncodeString(c.text, c.encoding, &error));
    ASSERT_TRUE(error);
    EXPECT_EQ(error->domain(), YFoundationErrorDomain);
    EXPECT_EQ(error->code(), YFileWriteInapplicableStringEncodingError);
    EXPECT_FALSE(error->localizedDescription().isNull());
  }
}

TEST(YStringEncodingTest, InvalidBytesFailToDecode) {
  struct Case {
    std::string bytes;
    YStringEncoding encoding;
  } cases[] = {
      {"a\x80", YASCIIStringEncoding},
      {"\xC3(", YUTF8StringEncoding},
      {"abc", YUTF16LittleEndianStringEncoding},  // odd length
      {std::string("\0\x11\0\0", 4), YUTF32BigEndianStringEncoding},  // above U+10FFFF
      {"\xFF", YNonLossyASCIIStringEncoding},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(YStringEncodingName(c.encoding));
    std::shared_ptr<YError> error;
    EXPECT_TRUE(YDecodeBytes(c.bytes, c.encoding, &error).isNull());
    ASSERT_TRUE(error);
    EXPECT_EQ(error->code(), YFileReadInapplicableStringEncodingError);
  }
}

TEST(YStringEncodingTest, ByteOrderMarkComesFirst) {
  const YString text("hi\xE2\x82\xAC");  // hi€
  struct Case {
    std::string bytes;
    YStringEncoding detected;
  } cases[] = {
      {"\xEF\xBB\xBFhi\xE2\x82\xAC", YUTF8StringEncoding},
      {std::string("\xFF\xFEh\0i\0\xAC\x20", 8), YUnicodeStringEncoding},
      {std::string("\xFE\xFF\0h\0i\x20\xAC", 8), YUnicodeStringEncoding},
      {std::string("\xFF\xFE\0\0h\0\0\0i\0\0\0\xAC\x20\0\0", 16), YUTF32StringEncoding},
      {std::string("\0\0\xFE\xFF\0\0\0h\0\0\0i\0\0\x20\xAC", 16), YUTF32StringEncoding},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(testing::PrintToString(c.bytes));
    YStringEncoding used = 0;
    EXPECT_EQ(YDecodeBytesDetectingEncoding(c.bytes, &used, nullptr), text);
    EXPECT_EQ(used, c.detected);
  }
  // A mark of the named encoding is dropped as well.
  EXPECT_EQ(YDecodeBytes(std::string("\xFF\xFEh\0", 4), YUTF16LittleEndianStringEncoding, nullptr), YString(u"h"));
  EXPECT_EQ(YDecodeBytes(std::string("\0\0\xFE\xFF\0\0\0h", 8), YUTF32BigEndianStringEncoding, nullptr),
            YString(u"h"));
}

TEST(YStringEncodingTest, InvalidUTF8FallsToDetection) {
  YStringEncoding used = 0;
  EXPECT_EQ(YDecodeBytesDetectingEncoding("plain \xC3\xA9", &used, nullptr), YString("plain \xC3\xA9"));
  EXPECT_EQ(used, YUTF8StringEncoding);

  std::string latin = *YEncodeString(kLatin, YISOLatin1StringEncoding, nullptr);
  used = 0;
  EXPECT_EQ(YDecodeBytesDetectingEncoding(latin, &used, nullptr), kLatin);
  EXPECT_TRUE(used == YISOLatin1StringEncoding || used == YWindowsCP1252StringEncoding) << used;
}

// A fresh folder per test, removed afterwards.
class YFileTest : public testing::Test {
 protected:
  void SetUp() override {
    std::string templ = testing::TempDir() + "yfiletest.XXXXXX";
    ASSERT_NE(::mkdtemp(templ.data()), nullptr);
    _dir = templ;
  }
  void TearDown() override {
    ::chmod(_dir.c_str(), 0700);
    for (const auto& name : entries()) ::unlink((_dir + "/" + name).c_str());
    ::rmdir(_dir.c_str());
  }
  std::string path(const std::string& name) const { return _dir + "/" + name; }
  std::set<std::string> entries() const {
    std::set<std::string> names;
    if (DIR* d = ::opendir(_dir.c_str())) {
      while (dirent* e = ::readdir(d))
        if (std::string(e->d_name) != "." && std::string(e->d_name) != "..") names.insert(e->d_name);
      ::closedir(d);
    }
    return names;
  }
  static std::string contents(const std::string& file) {
    std::ifstream in(file, std::ios::binary);
    std::ostringstream out;
    out << in.rdbuf();
    return out.str();
  }
  static void put(const std::string& file, const std::string& bytes) {
    std::ofstream(file, std::ios::binary) << bytes;
  }
  static mode_t modeOf(const std::string& file) {
    struct stat st{};
    ::stat(file.c_str(), &st);
    return st.st_mode & 07777;
  }
  std::string _dir;
};

TEST_F(YFileTest, ReadingAMissingFileGivesNullAndAnError) {
  std::shared_ptr<YError> error;
  YStringEncoding used = 77;
  YString text = YString::stringWithContentsOfFileUsedEncodingError(YString(path("missing.ini")), &used, &error);
  EXPECT_TRUE(text.isNull());
  EXPECT_EQ(used, 77u);
  ASSERT_TRUE(error);
  EXPECT_EQ(error->domain(), YFoundationErrorDomain);
  EXPECT_EQ(error->code(), 4);
  EXPECT_EQ(error->underlyingErrno(), ENOENT);
  EXPECT_TRUE(YString::stringWithContentsOfFileUsedEncodingError(YString(path("missing.ini")), nullptr, nullptr)
                  .isNull());

  error.reset();
  EXPECT_TRUE(YString::stringWithContentsOfFileUsedEncodingError(YString(_dir), nullptr, &error).isNull());
  EXPECT_TRUE(error);
}

TEST_F(YFileTest, WritesAndReadsBackWithDetection) {
  const YString file(path("a.ini"));
  struct Case {
    YString text;
    YStringEncoding encoding;
    YStringEncoding detected;
  } cases[] = {
      {kMixed, YUTF8StringEncoding, YUTF8StringEncoding},
      {kMixed, YUTF16BigEndianStringEncoding, 0},  // no mark: not detectable, read with the encoding
      {kMixed, YUnicodeStringEncoding, YUnicodeStringEncoding},
      {kLatin, YISOLatin1StringEncoding, YISOLatin1StringEncoding},
  };
  for (bool atomically : {false, true}) {
    for (const auto& c : cases) {
      SCOPED_TRACE(YStringEncodingName(c.encoding));
      std::shared_ptr<YError> error;
      ASSERT_TRUE(c.text.writeToFileAtomicallyEncodingError(file, atomically, c.encoding, &error))
          << error->description();
      EXPECT_EQ(YString::stringWithContentsOfFileEncodingError(file, c.encoding, &error), c.text);
      if (!c.detected) continue;
      YStringEncoding used = 0;
      EXPECT_EQ(YString::stringWithContentsOfFileUsedEncodingError(file, &used, &error), c.text);
      if (c.detected == YISOLatin1StringEncoding)
        EXPECT_TRUE(used == YISOLatin1StringEncoding || used == YWindowsCP1252StringEncoding) << used;
      else
        EXPECT_EQ(used, c.detected);
    }
  }
  EXPECT_EQ(entries(), std::set<std::string>{"a.ini"});
}

TEST_F(YFileTest, FailedAtomicWriteKeepsTheTarget) {
  const std::string file = path("keep.ini");
  put(file, "old");
  std::shared_ptr<YError> error;
  EXPECT_FALSE(YString("\xE2\x82\xAC").writeToFileAtomicallyEncodingError(YString(file), true,
                                                                           YISOLatin1StringEncoding, &error));
  ASSERT_TRUE(error);
  EXPECT_EQ(error->code(), YFileWriteInapplicableStringEncodingError);
  EXPECT_EQ(contents(file), "old");
  EXPECT_FALSE(YString().writeToFileAtomicallyEncodingError(YString(file), true, YUTF8StringEncoding, &error));
  EXPECT_EQ(contents(file), "old");
  EXPECT_EQ(entries(), std::set<std::string>{"keep.ini"});
}

TEST_F(YFileTest, AtomicWriteIntoAReadOnlyFolderFails) {
  const std::string file = path("keep.ini");
  put(file, "old");
  ASSERT_EQ(::chmod(_dir.c_str(), 0500), 0);
  int probe = ::open(path("probe").c_str(), O_WRONLY | O_CREAT, 0600);
  if (probe >= 0) {
    ::close(probe);
    ::unlink(path("probe").c_str());
    GTEST_SKIP() << "permission checks do not apply to this user";
  }
  std::shared_ptr<YError> error;
  EXPECT_FALSE(YString(u"new").writeToFileAtomicallyEncodingError(YString(file), true, YUTF8StringEncoding, &error));
  ASSERT_TRUE(error);
  EXPECT_EQ(error->code(), YFileWriteNoPermissionError);
  EXPECT_EQ(error->underlyingErrno(), EACCES);
  EXPECT_EQ(contents(file), "old");
  EXPECT_EQ(entries(), std::set<std::string>{"keep.ini"});
}

TEST_F(YFileTest, AtomicWriteKeepsPermissionBitsAndLeavesNoTemporaryFile) {
  const std::string file = path("secret.ini");
  put(file, "old");
  ASSERT_EQ(::chmod(file.c_str(), 0600), 0);
  ASSERT_TRUE(YString(u"new").writeToFileAtomicallyEncodingError(YString(file), true, YUTF8StringEncoding, nullptr));
  EXPECT_EQ(contents(file), "new");
  EXPECT_EQ(modeOf(file), 0600u);
  ASSERT_EQ(::chmod(file.c_str(), 0640), 0);
  ASSERT_TRUE(YString(u"newer").writeToFileAtomicallyEncodingError(YString(file), true, YUTF8StringEncoding, nullptr));
  EXPECT_EQ(modeOf(file), 0640u);

  // A new file gets the usual bits under the process's mask.
  mode_t mask = ::umask(022);
  ASSERT_TRUE(YString(u"x").writeToFileAtomicallyEncodingError(YString(path("fresh.ini")), true,
                                                               YUTF8StringEncoding, nullptr));
  ::umask(mask);
  EXPECT_EQ(modeOf(path("fresh.ini")), 0644u);
  EXPECT_EQ(entries(), (std::set<std::string>{"fresh.ini", "secret.ini"}));
}

TEST_F(YFileTest, WritingThroughASymbolicLinkReplacesItsTarget) {
  put(path("real.ini"), "old");
  ASSERT_EQ(::symlink("real.ini", path("link.ini").c_str()), 0);
  for (bool atomically : {true, false}) {
    YString text = YString::stringWithFormat("new %d", int(atomically));
    ASSERT_TRUE(text.writeToFileAtomicallyEncodingError(YString(path("link.ini")), atomically, YUTF8StringEncoding,
                                                        nullptr));
    struct stat st{};
    ASSERT_EQ(::lstat(path("link.ini").c_str(), &st), 0);
    EXPECT_TRUE(S_ISLNK(st.st_mode));
    EXPECT_EQ(contents(path("real.ini")), text.UTF8String());
  }
  EXPECT_EQ(entries(), (std::set<std::string>{"link.ini", "real.ini"}));
}

TEST_F(YFileTest, NonAtomicWriteAndWriteErrors) {
  const std::string file = path("plain.ini");
  put(file, "a much longer old text");
  ASSERT_TRUE(YString(u"short").writeToFileAtomicallyEncodingError(YString(file), false, YUTF8StringEncoding, nullptr));
  EXPECT_EQ(contents(file), "short");

  std::shared_ptr<YError> error;
  EXPECT_FALSE(YString(u"x").writeToFileAtomicallyEncodingError(YString(path("no/such/folder.ini")), true,
                                                                YUTF8StringEncoding, &error));
  ASSERT_TRUE(error);
  EXPECT_EQ(error->underlyingErrno(), ENOENT);
  EXPECT_FALSE(YString(u"x").writeToFileAtomicallyEncodingError(YString(_dir), true, YUTF8StringEncoding, &error));
  EXPECT_FALSE(YString(u"x").writeToFileAtomicallyEncodingError(YString(), false, YUTF8StringEncoding, &error));
  EXPECT_EQ(entries(), std::set<std::string>{"plain.ini"});
}

}  // namespace
