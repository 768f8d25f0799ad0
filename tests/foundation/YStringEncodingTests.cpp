// Text encodings (conversion, failures, detection) and reading and writing files.
#include <gtest/gtest.h>

#include <cerrno>
#include <string>

#include "FileFaultSupport.h"
#include "YFoundation.h"

namespace {

constexpr YStringEncoding kUnicodeEncodings[] = {
    YUTF8StringEncoding,           YUnicodeStringEncoding,           YUTF16BigEndianStringEncoding,
    YUTF16LittleEndianStringEncoding, YUTF32StringEncoding,          YUTF32BigEndianStringEncoding,
    YUTF32LittleEndianStringEncoding, YNonLossyASCIIStringEncoding};
constexpr YStringEncoding kOtherEncodings[] = {
    YASCIIStringEncoding,         YNEXTSTEPStringEncoding,      YJapaneseEUCStringEncoding,
    YISOLatin1StringEncoding,     YSymbolStringEncoding,        YShiftJISStringEncoding,
    YISOLatin2StringEncoding,     YWindowsCP1251StringEncoding, YWindowsCP1252StringEncoding,
    YWindowsCP1253StringEncoding, YWindowsCP1254StringEncoding, YWindowsCP1250StringEncoding,
    YISO2022JPStringEncoding,     YMacOSRomanStringEncoding};

const YString kMixed("h\xC3\xA9llo \xE2\x82\xAC \xF0\x9F\x98\x80 \\u");  // héllo € 😀 \u
const YString kLatin("Gr\xC3\xBC\xC3\x9F" "e aus M\xC3\xBCnchen, caf\xC3\xA9 \xC3\xA0 la cr\xC3\xA8me");
const YString kJapanese("\xE6\x97\xA5\xE6\x9C\xAC\xE8\xAA\x9E\xE3\x81\xAE\xE3\x83\x86\xE3\x82\xAD\xE3\x82\xB9\xE3\x83\x88");
const YString kLoneSurrogate(std::u16string_view(u"a\xD800" "b", 3));

std::string describe(const std::shared_ptr<YError>& error) { return error ? error->description().UTF8String() : ""; }
/// A failed call's error as "domain code errno"; "no failure" when `succeeded`.
std::string failure(bool succeeded, const std::shared_ptr<YError>& error) {
  if (succeeded || !error) return succeeded ? "no failure" : "no error";
  return error->domain().UTF8String() + " " + std::to_string(error->code()) + " " +
         std::to_string(error->underlyingErrno());
}
/// "YFoundationErrorDomain `code` `errno`".
std::string foundationError(std::int64_t code, int errnum = 0) {
  return "YFoundationErrorDomain " + std::to_string(code) + " " + std::to_string(errnum);
}

void expectRoundTrip(const YString& text, YStringEncoding encoding) {
  SCOPED_TRACE(YStringEncodingName(encoding));
  std::shared_ptr<YError> error;
  auto bytes = YEncodeString(text, encoding, &error);
  ASSERT_TRUE(bytes) << describe(error);
  EXPECT_EQ(YDecodeBytes(*bytes, encoding, &error), text) << describe(error);
}

TEST(YStringEncodingTest, RoundTripOfEverySupportedEncoding) {
  EXPECT_FALSE(YStringEncodingIsSupported(0) || YStringEncodingIsSupported(9999));
  for (YStringEncoding encoding : kUnicodeEncodings) {
    EXPECT_TRUE(YStringEncodingIsSupported(encoding));
    expectRoundTrip(kMixed, encoding);
  }
  for (YStringEncoding encoding : kOtherEncodings)
    if (YStringEncodingIsSupported(encoding)) expectRoundTrip(YString(u"Hello, World 123"), encoding);
  EXPECT_TRUE(YStringEncodingIsSupported(YASCIIStringEncoding) && YStringEncodingIsSupported(YISOLatin1StringEncoding));
  for (YStringEncoding encoding : {YISOLatin1StringEncoding, YWindowsCP1252StringEncoding})
    expectRoundTrip(kLatin, encoding);
  for (YStringEncoding encoding : {YJapaneseEUCStringEncoding, YShiftJISStringEncoding, YISO2022JPStringEncoding})
    if (YStringEncodingIsSupported(encoding)) expectRoundTrip(kJapanese, encoding);

  const YString text("A\xC3\xA9");  // A é: the exact bytes of the common encodings
  const std::pair<YStringEncoding, std::string> cases[] = {
      {YISOLatin1StringEncoding, "A\xE9"},
      {YUnicodeStringEncoding, std::string("\xFF\xFE" "A\0\xE9\0", 6)},
      {YUTF16BigEndianStringEncoding, std::string("\0A\0\xE9", 4)},
      {YUTF32StringEncoding, std::string("\xFF\xFE\0\0" "A\0\0\0\xE9\0\0\0", 12)},
      {YNonLossyASCIIStringEncoding, "A\\u00e9"},
  };
  for (const auto& [encoding, expected] : cases)
    EXPECT_EQ(YEncodeString(text, encoding, nullptr).value_or("<failed>"), expected) << YStringEncodingName(encoding);
}

TEST(YStringEncodingTest, UnrepresentableTextAndInvalidBytesFailWithAnError) {
  const std::pair<YString, YStringEncoding> unrepresentable[] = {
      {YString("\xE2\x82\xAC"), YISOLatin1StringEncoding},  {YString("\xC3\xA9"), YASCIIStringEncoding},
      {kJapanese, YISOLatin1StringEncoding},                {kLoneSurrogate, YUTF8StringEncoding},
      {kLoneSurrogate, YUTF16LittleEndianStringEncoding},   {kLoneSurrogate, YUTF32StringEncoding},
      {YString(u"x"), YSymbolStringEncoding},               {YString(u"x"), 9999},
  };
  for (const auto& [text, encoding] : unrepresentable) {
    std::shared_ptr<YError> error;
    EXPECT_EQ(failure(YEncodeString(text, encoding, &error).has_value(), error),
              foundationError(YFileWriteInapplicableStringEncodingError)) << YStringEncodingName(encoding);
  }
  const std::pair<std::string, YStringEncoding> invalid[] = {
      {"a\x80", YASCIIStringEncoding},
      {"\xC3(", YUTF8StringEncoding},
      {"abc", YUTF16LittleEndianStringEncoding},                      // odd length
      {std::string("\0\x11\0\0", 4), YUTF32BigEndianStringEncoding},  // above U+10FFFF
      {"\xFF", YNonLossyASCIIStringEncoding},
  };
  for (const auto& [bytes, encoding] : invalid) {
    std::shared_ptr<YError> error;
    EXPECT_EQ(failure(!YDecodeBytes(bytes, encoding, &error).isNull(), error),
              foundationError(YFileReadInapplicableStringEncodingError)) << YStringEncodingName(encoding);
  }
}

// A byte-order mark decides (a UTF-8 one with any share of invalid bytes);
// then UTF-8, kept when under 1% of the bytes are invalid (each shown as
// U+FFFD); else the charset detector, and without its evidence ISO-8859-1.
TEST(YStringEncodingTest, DetectionByteOrderMarkFirstThenMostlyValidUTF8) {
  constexpr YStringEncoding kLegacy = 0;  // Latin-1 or Windows-1252, the detector's choice
  constexpr YStringEncoding kNotUTF8 = 1;  // anything but UTF-8, without replacements
  const std::string ascii(198, 'a');
  const std::u16string hi = u"hi\u20AC", replaced = std::u16string(198, u'a') + u"\uFFFD";
  struct Case {
    std::string bytes;
    YStringEncoding used;
    std::u16string text;
  } cases[] = {
      {"\xEF\xBB\xBFhi\xE2\x82\xAC", YUTF8StringEncoding, hi},
      {"hi\xE2\x82\xAC", YUTF8StringEncoding, hi},
      {std::string("\xFF\xFEh\0i\0\xAC\x20", 8), YUnicodeStringEncoding, hi},
      {std::string("\xFE\xFF\0h\0i\x20\xAC", 8), YUnicodeStringEncoding, hi},
      {std::string("\xFF\xFE\0\0h\0\0\0i\0\0\0\xAC\x20\0\0", 16), YUTF32StringEncoding, hi},
      {std::string("\0\0\xFE\xFF\0\0\0h\0\0\0i\0\0\x20\xAC", 16), YUTF32StringEncoding, hi},
      {ascii + "\xE9", YUTF8StringEncoding, replaced},                    // 1 in 199
      {"\xEF\xBB\xBF" + ascii + "\xE9", YUTF8StringEncoding, replaced},  // behind a byte-order mark
      {"\xEF\xBB\xBFM\xFCller", YUTF8StringEncoding, u"M\uFFFDller"},      // 1 in 7: the mark decides
      {std::string(300, 'a') + "gr\xC3\xBC\xC3\x9F \xE9t\xE9", YUTF8StringEncoding,  // 2 in 311
       std::u16string(300, u'a') + u"gr\u00FC\u00DF \uFFFDt\uFFFD"},
      {std::string(98, 'a') + "\xE9", kNotUTF8, u""},  // 1 in 99
      {*YEncodeString(kLatin, YISOLatin1StringEncoding, nullptr), kLegacy, kLatin.u16string()},
      // Too short for evidence: never UTF-16 without NUL bytes, but ISO-8859-1.
      {"a=\xFC\n", YISOLatin1StringEncoding, u"a=\u00FC\n"},
      {"Gr\xF6\xDF" "e=1\n", YISOLatin1StringEncoding, u"Gr\u00F6\u00DFe=1\n"},
      {"[S\xFC" "d]\nk=1\n", YISOLatin1StringEncoding, u"[S\u00FCd]\nk=1\n"},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(testing::PrintToString(c.bytes.substr(0, 40)));
    YStringEncoding used = 0;
    const YString text = YDecodeBytesDetectingEncoding(c.bytes, &used, nullptr);
    if (c.used == kNotUTF8) {
      EXPECT_NE(used, YUTF8StringEncoding);
      EXPECT_EQ(text.view().find(u'\uFFFD'), std::u16string_view::npos);
      continue;
    }
    EXPECT_EQ(text, YString(c.text));
    EXPECT_TRUE(c.used == kLegacy ? used == YISOLatin1StringEncoding || used == YWindowsCP1252StringEncoding
                                  : used == c.used) << used;
  }
  // A mark of the named encoding is dropped as well.
  EXPECT_EQ(YDecodeBytes(std::string("\xFF\xFEh\0", 4), YUTF16LittleEndianStringEncoding, nullptr), YString(u"h"));
}

TEST(YStringEncodingTest, ReplacingDecoderGivesOneReplacementPerInvalidSequence) {
  struct Case {
    std::string bytes;
    std::u16string text;
    std::vector<std::size_t> offsets;
  } cases[] = {
      {"a\xC3\xA9" "b", u"a\u00E9b", {}},
      {"a\xE9" "b", u"a\uFFFDb", {1}},                          // a Latin-1 byte
      {"\xE2\x82x\xE2\x82\xAC", u"\uFFFDx\u20AC", {0}},   // a cut-short sequence is one
      {"\x80\xBF", u"\uFFFD\uFFFD", {0, 1}},                // stray continuation bytes
      {"\xC0\xAF\xED\xA0\x80", u"\uFFFD\uFFFD\uFFFD\uFFFD\uFFFD", {0, 1, 2, 3, 4}},  // overlong, surrogate
      {"\xF4\x90\x80\x80", u"\uFFFD\uFFFD\uFFFD\uFFFD", {0, 1, 2, 3}},  // past U+10FFFF
      {"\xF0\x9F\x98\x80\xF0\x9F\x98", u"\U0001F600\uFFFD", {4}},      // cut short by the end
      {"x\xC3\n", u"x\uFFFD\n", {1}},  // a line end is never swallowed
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(testing::PrintToString(c.bytes));
    std::vector<std::size_t> offsets;
    EXPECT_EQ(YDecodeUTF8Replacing(c.bytes, &offsets), YString(c.text));
    EXPECT_EQ(offsets, c.offsets);
  }
}

// Writes `text` into `path` in `encoding`.
bool writeText(const YString& text, const std::string& path, bool atomically,
               std::shared_ptr<YError>* error = nullptr, YStringEncoding encoding = YUTF8StringEncoding) {
  return text.writeToFileAtomicallyEncodingError(YString(path), atomically, encoding, error);
}

TEST(YFileTest, WritesAndReadsBackWithDetectionAndAMissingFileGivesNullAndAnError) {
  filefault::TempDir dir;
  const YString file(dir / "a.ini");
  // Before it exists: null, the encoding left as it was, and an error.
  std::shared_ptr<YError> missing;
  YStringEncoding untouched = 77;
  EXPECT_EQ(failure(!YString::stringWithContentsOfFileUsedEncodingError(file, &untouched, &missing).isNull(), missing),
            foundationError(4, ENOENT));
  EXPECT_EQ(untouched, 77u);
  // Detected encoding; 0: no mark, not detectable.
  const std::pair<YStringEncoding, YStringEncoding> cases[] = {
      {YUTF8StringEncoding, YUTF8StringEncoding},
      {YUTF16BigEndianStringEncoding, 0},
      {YUnicodeStringEncoding, YUnicodeStringEncoding}};
  for (bool atomically : {false, true}) {
    for (const auto& [encoding, detected] : cases) {
      SCOPED_TRACE(YStringEncodingName(encoding));
      std::shared_ptr<YError> error;
      ASSERT_TRUE(writeText(kMixed, dir / "a.ini", atomically, &error, encoding)) << describe(error);
      EXPECT_EQ(YString::stringWithContentsOfFileEncodingError(file, encoding, &error), kMixed);
      YStringEncoding used = 0;
      if (detected) {
        EXPECT_EQ(YString::stringWithContentsOfFileUsedEncodingError(file, &used, &error), kMixed);
      }
      EXPECT_EQ(used, detected);
    }
  }
  EXPECT_EQ(filefault::listing(dir.path), "a.ini ");
}

TEST(YFileTest, LongUTF8TextIsWrittenWholeOrNotAtAll) {
  filefault::TempDir dir;
  const std::string path = dir / "long.ini";
  // Text is encoded piece by piece while it is written: a surrogate pair on
  // a piece boundary stays whole, and a lone surrogate anywhere, even late in
  // a long text, fails before the target is touched.
  for (std::size_t at : {32767u, 32768u, 70000u}) {
    std::u16string units(100000, u'a');
    units[at] = u'\xD83D';
    units[at + 1] = u'\xDE00';
    const YString text(units);
    for (bool atomically : {false, true}) {
      std::shared_ptr<YError> error;
      ASSERT_TRUE(writeText(text, path, atomically, &error)) << describe(error);
      EXPECT_EQ(filefault::readBytes(path), text.UTF8String()) << at;
    }
    units[at + 1] = u'b';
    std::shared_ptr<YError> error;
    EXPECT_EQ(failure(writeText(YString(units), path, true, &error), error),
              foundationError(YFileWriteInapplicableStringEncodingError));
    EXPECT_EQ(filefault::readBytes(path), text.UTF8String());
  }
  EXPECT_FALSE(writeText(YString(), path, true));  // a null text is no text
  EXPECT_EQ(filefault::listing(dir.path), "long.ini ");
}

}  // namespace
