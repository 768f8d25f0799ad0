#include "YStringEncoding.h"

#include "YException.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>
#include <unicode/ucnv.h>
#include <unicode/ucsdet.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <limits>
#include <vector>

namespace {

struct EncodingInfo {
  YStringEncoding encoding;
  const char* name;     // our display name
  const char* icuName;  // null: converted by hand
};

constexpr EncodingInfo kEncodings[] = {
    {YASCIIStringEncoding, "US-ASCII", "US-ASCII"},
    {YNEXTSTEPStringEncoding, "NEXTSTEP", nullptr},
    {YJapaneseEUCStringEncoding, "EUC-JP", "EUC-JP"},
    {YUTF8StringEncoding, "UTF-8", nullptr},
    {YISOLatin1StringEncoding, "ISO-8859-1", "ISO-8859-1"},
    {YSymbolStringEncoding, "Symbol", nullptr},
    {YNonLossyASCIIStringEncoding, "NonLossyASCII", nullptr},
    {YShiftJISStringEncoding, "Shift_JIS", "Shift_JIS"},
    {YISOLatin2StringEncoding, "ISO-8859-2", "ISO-8859-2"},
    {YUnicodeStringEncoding, "UTF-16", nullptr},
    {YWindowsCP1251StringEncoding, "windows-1251", "windows-1251"},
    {YWindowsCP1252StringEncoding, "windows-1252", "windows-1252"},
    {YWindowsCP1253StringEncoding, "windows-1253", "windows-1253"},
    {YWindowsCP1254StringEncoding, "windows-1254", "windows-1254"},
    {YWindowsCP1250StringEncoding, "windows-1250", "windows-1250"},
    {YISO2022JPStringEncoding, "ISO-2022-JP", "ISO-2022-JP"},
    {YMacOSRomanStringEncoding, "macintosh", "macintosh"},
    {YUTF16BigEndianStringEncoding, "UTF-16BE", nullptr},
    {YUTF16LittleEndianStringEncoding, "UTF-16LE", nullptr},
    {YUTF32StringEncoding, "UTF-32", nullptr},
    {YUTF32BigEndianStringEncoding, "UTF-32BE", nullptr},
    {YUTF32LittleEndianStringEncoding, "UTF-32LE", nullptr},
};

const EncodingInfo* findEncoding(YStringEncoding encoding) {
  for (const auto& e : kEncodings)
    if (e.encoding == encoding) return &e;
  return nullptr;
}

void setError(std::shared_ptr<YError>* error, std::int64_t code, YString description, int err = 0) {
  if (error) *error = YError::errorWithDomainCodeDescription(YFoundationErrorDomain, code, std::move(description), err);
}

bool isHigh(char16_t c) { return c >= 0xD800 && c <= 0xDBFF; }
bool isLow(char16_t c) { return c >= 0xDC00 && c <= 0xDFFF; }

// Finds the first lone surrogate, or npos.
std::size_t firstLoneSurrogate(std::u16string_view s) {
  for (std::size_t i = 0; i < s.size(); ++i) {
    if (isHigh(s[i])) {
      if (i + 1 < s.size() && isLow(s[i + 1])) ++i;
      else return i;
    } else if (isLow(s[i])) {
      return i;
    }
  }
  return std::u16string_view::npos;
}

// False, with the error set, when `s` holds a lone surrogate: no Unicode
// encoding form can represent one.
bool representableInUnicode(std::u16string_view s, const char* encodingName, std::shared_ptr<YError>* error) {
  const std::size_t bad = firstLoneSurrogate(s);
  if (bad == std::u16string_view::npos) return true;
  setError(error, YFileWriteInapplicableStringEncodingError,
           YString::stringWithFormat("The text holds a lone surrogate at position %zu, which %s cannot represent", bad,
                                     encodingName));
  return false;
}

void putUnit16(std::string& out, char16_t c, bool bigEndian) {
  if (bigEndian) out.push_back(static_cast<char>(c >> 8)), out.push_back(static_cast<char>(c & 0xFF));
  else out.push_back(static_cast<char>(c & 0xFF)), out.push_back(static_cast<char>(c >> 8));
}

void putUnit32(std::string& out, char32_t c, bool bigEndian) {
  for (int i = 0; i < 4; ++i) {
    int shift = bigEndian ? 24 - 8 * i : 8 * i;
    out.push_back(static_cast<char>((c >> shift) & 0xFF));
  }
}

std::optional<std::string> encodeICU(std::u16string_view s, const char* icuName, const char* displayName,
                                     std::shared_ptr<YError>* error) {
  UErrorCode status = U_ZERO_ERROR;
  UConverter* conv = ucnv_open(icuName, &status);
  if (U_FAILURE(status)) {
    setError(error, YFileWriteInapplicableStringEncodingError,
             YString::stringWithFormat("The encoding %s is not available", displayName));
    return std::nullopt;
  }
  ucnv_setFromUCallBack(conv, UCNV_FROM_U_CALLBACK_STOP, nullptr, nullptr, nullptr, &status);
  std::string out(static_cast<std::size_t>(UCNV_GET_MAX_BYTES_FOR_STRING(s.size(), ucnv_getMaxCharSize(conv))) + 16,
                  '\0');
  int32_t n = ucnv_fromUChars(conv, out.data(), static_cast<int32_t>(out.size()), s.data(),
                              static_cast<int32_t>(s.size()), &status);
  ucnv_close(conv);
  if (U_FAILURE(status)) {
    setError(error, YFileWriteInapplicableStringEncodingError,
             YString::stringWithFormat("The text cannot be represented in %s", displayName));
    return std::nullopt;
  }
  out.resize(static_cast<std::size_t>(n));
  return out;
}

YString decodeICU(std::string_view bytes, const char* icuName, const char* displayName,
                  std::shared_ptr<YError>* error) {
  UErrorCode status = U_ZERO_ERROR;
  UConverter* conv = ucnv_open(icuName, &status);
  if (U_FAILURE(status)) {
    setError(error, YFileReadInapplicableStringEncodingError,
             YString::stringWithFormat("The encoding %s is not available", displayName));
    return {};
  }
  ucnv_setToUCallBack(conv, UCNV_TO_U_CALLBACK_STOP, nullptr, nullptr, nullptr, &status);
  std::u16string out(bytes.size() * 2 + 16, u'\0');
  int32_t n = ucnv_toUChars(conv, out.data(), static_cast<int32_t>(out.size()), bytes.data(),
                            static_cast<int32_t>(bytes.size()), &status);
  ucnv_close(conv);
  if (U_FAILURE(status)) {
    setError(error, YFileReadInapplicableStringEncodingError,
             YString::stringWithFormat("The bytes are not valid %s", displayName));
    return {};
  }
  out.resize(static_cast<std::size_t>(n));
  return YString(std::u16string_view(out));
}

std::string encodeNonLossyASCII(std::u16string_view s) {
  std::string out;
  char buffer[8];
  for (char16_t c : s) {
    if (c == u'\\') {
      out += "\\\\";
    } else if (c < 0x80) {
      out.push_back(static_cast<char>(c));
    } else {
      std::snprintf(buffer, sizeof buffer, "\\u%04x", static_cast<unsigned>(c));
      out += buffer;
    }
  }
  return out;
}

std::optional<std::u16string> decodeNonLossyASCII(std::string_view bytes) {
  std::u16string out;
  for (std::size_t i = 0; i < bytes.size(); ++i) {
    auto c = static_cast<unsigned char>(bytes[i]);
    if (c >= 0x80) return std::nullopt;
    if (c != '\\') {
      out.push_back(c);
      continue;
    }
    if (i + 1 < bytes.size() && bytes[i + 1] == '\\') {
      out.push_back(u'\\');
      ++i;
    } else if (i + 5 < bytes.size() && bytes[i + 1] == 'u') {
      unsigned value = 0;
      for (std::size_t k = i + 2; k < i + 6; ++k) {
        char h = bytes[k];
        unsigned digit = (h >= '0' && h <= '9') ? h - '0' : (h >= 'a' && h <= 'f') ? h - 'a' + 10
                                                        : (h >= 'A' && h <= 'F')   ? h - 'A' + 10
                                                                                    : 16;
        if (digit == 16) return std::nullopt;
        value = value * 16 + digit;
      }
      out.push_back(static_cast<char16_t>(value));
      i += 5;
    } else {
      out.push_back(u'\\');
    }
  }
  return out;
}

YString decodeUTF16(std::string_view bytes, bool bigEndian, std::shared_ptr<YError>* error) {
  if (bytes.size() % 2) {
    setError(error, YFileReadInapplicableStringEncodingError, YString(u"UTF-16 text has an odd number of bytes"));
    return {};
  }
  std::u16string out(bytes.size() / 2, u'\0');
  for (std::size_t i = 0; i < out.size(); ++i) {
    auto a = static_cast<unsigned char>(bytes[2 * i]);
    auto b = static_cast<unsigned char>(bytes[2 * i + 1]);
    out[i] = static_cast<char16_t>(bigEndian ? (a << 8) | b : (b << 8) | a);
  }
  return YString(std::u16string_view(out));
}

YString decodeUTF32(std::string_view bytes, bool bigEndian, std::shared_ptr<YError>* error) {
  if (bytes.size() % 4) {
    setError(error, YFileReadInapplicableStringEncodingError, YString(u"UTF-32 text has a partial code point"));
    return {};
  }
  std::u16string out;
  out.reserve(bytes.size() / 4);
  for (std::size_t i = 0; i < bytes.size(); i += 4) {
    char32_t cp = 0;
    for (int k = 0; k < 4; ++k) {
      auto byte = static_cast<unsigned char>(bytes[i + static_cast<std::size_t>(bigEndian ? k : 3 - k)]);
      cp = (cp << 8) | byte;
    }
    if (cp > 0x10FFFF || (cp >= 0xD800 && cp <= 0xDFFF)) {
      setError(error, YFileReadInapplicableStringEncodingError, YString(u"UTF-32 text holds an invalid code point"));
      return {};
    }
    ydetail::appendUTF16(out, cp);
  }
  return YString(std::u16string_view(out));
}

bool startsWith(std::string_view bytes, std::string_view prefix) { return bytes.substr(0, prefix.size()) == prefix; }

const std::string_view kBOM8("\xEF\xBB\xBF", 3);
const std::string_view kBOM16LE("\xFF\xFE", 2);
const std::string_view kBOM16BE("\xFE\xFF", 2);
const std::string_view kBOM32LE("\xFF\xFE\x00\x00", 4);
const std::string_view kBOM32BE("\x00\x00\xFE\xFF", 4);

}  // namespace

bool YStringEncodingIsSupported(YStringEncoding encoding) {
  const EncodingInfo* info = findEncoding(encoding);
  if (!info) return false;
  if (!info->icuName) return encoding != YNEXTSTEPStringEncoding && encoding != YSymbolStringEncoding;
  UErrorCode status = U_ZERO_ERROR;
  UConverter* conv = ucnv_open(info->icuName, &status);
  if (conv) ucnv_close(conv);
  return U_SUCCESS(status);
}

const char* YStringEncodingName(YStringEncoding encoding) {
  const EncodingInfo* info = findEncoding(encoding);
  return info ? info->name : "unknown";
}

std::optional<YStringEncoding> YStringEncodingFromName(std::string_view name) {
  std::string key;
  for (char c : name)
    if (c != '-' && c != '_' && c != ' ') key.push_back(static_cast<char>(std::tolower(static_cast<unsigned char>(c))));
  static const std::pair<const char*, YStringEncoding> aliases[] = {
      {"ascii", YASCIIStringEncoding},          {"usascii", YASCIIStringEncoding},
      {"utf8", YUTF8StringEncoding},            {"latin1", YISOLatin1StringEncoding},
      {"iso88591", YISOLatin1StringEncoding},   {"latin2", YISOLatin2StringEncoding},
      {"iso88592", YISOLatin2StringEncoding},   {"utf16", YUnicodeStringEncoding},
      {"unicode", YUnicodeStringEncoding},      {"utf16be", YUTF16BigEndianStringEncoding},
      {"utf16le", YUTF16LittleEndianStringEncoding}, {"utf32", YUTF32StringEncoding},
      {"utf32be", YUTF32BigEndianStringEncoding}, {"utf32le", YUTF32LittleEndianStringEncoding},
      {"windows1250", YWindowsCP1250StringEncoding}, {"cp1250", YWindowsCP1250StringEncoding},
      {"windows1251", YWindowsCP1251StringEncoding}, {"cp1251", YWindowsCP1251StringEncoding},
      {"windows1252", YWindowsCP1252StringEncoding}, {"cp1252", YWindowsCP1252StringEncoding},
      {"windows1253", YWindowsCP1253StringEncoding}, {"cp1253", YWindowsCP1253StringEncoding},
      {"windows1254", YWindowsCP1254StringEncoding}, {"cp1254", YWindowsCP1254StringEncoding},
      {"shiftjis", YShiftJISStringEncoding},    {"sjis", YShiftJISStringEncoding},
      {"eucjp", YJapaneseEUCStringEncoding},    {"iso2022jp", YISO2022JPStringEncoding},
      {"macintosh", YMacOSRomanStringEncoding}, {"macroman", YMacOSRomanStringEncoding},
      {"nonlossyascii", YNonLossyASCIIStringEncoding},
  };
  for (const auto& [alias, encoding] : aliases)
    if (key == alias) return encoding;
  return std::nullopt;
}

std::optional<std::string> YEncodeString(const YString& string, YStringEncoding encoding,
                                         std::shared_ptr<YError>* error) {
  const EncodingInfo* info = findEncoding(encoding);
  if (!info || !YStringEncodingIsSupported(encoding)) {
    setError(error, YFileWriteInapplicableStringEncodingError,
             YString::stringWithFormat("The encoding %llu is not supported", static_cast<unsigned long long>(encoding)));
    return std::nullopt;
  }
  std::u16string_view s = string.view();
  if (info->icuName) return encodeICU(s, info->icuName, info->name, error);
  if (encoding == YNonLossyASCIIStringEncoding) return encodeNonLossyASCII(s);
  if (!representableInUnicode(s, info->name, error)) return std::nullopt;
  std::string out;
  switch (encoding) {
    case YUTF8StringEncoding:
      return string.UTF8String();
    case YUnicodeStringEncoding:
    case YUTF16LittleEndianStringEncoding:
    case YUTF16BigEndianStringEncoding: {
      bool big = encoding == YUTF16BigEndianStringEncoding;
      out.reserve(s.size() * 2 + 2);
      if (encoding == YUnicodeStringEncoding) putUnit16(out, 0xFEFF, big);
      for (char16_t c : s) putUnit16(out, c, big);
      return out;
    }
    default: {  // UTF-32 kinds
      bool big = encoding == YUTF32BigEndianStringEncoding;
      out.reserve(s.size() * 4 + 4);
      if (encoding == YUTF32StringEncoding) putUnit32(out, 0xFEFF, big);
      for (std::size_t i = 0; i < s.size(); ++i) {
        char32_t cp = s[i];
        if (isHigh(s[i])) cp = 0x10000 + ((cp - 0xD800) << 10) + (s[++i] - 0xDC00);
        putUnit32(out, cp, big);
      }
      return out;
    }
  }
}

YString YDecodeBytes(std::string_view bytes, YStringEncoding encoding, std::shared_ptr<YError>* error) {
  const EncodingInfo* info = findEncoding(encoding);
  if (!info || !YStringEncodingIsSupported(encoding)) {
    setError(error, YFileReadInapplicableStringEncodingError,
             YString::stringWithFormat("The encoding %llu is not supported", static_cast<unsigned long long>(encoding)));
    return {};
  }
  if (info->icuName) return decodeICU(bytes, info->icuName, info->name, error);
  switch (encoding) {
    case YUTF8StringEncoding: {
      if (startsWith(bytes, kBOM8)) bytes.remove_prefix(3);
      try {
        return YString::fromUTF8(bytes);
      } catch (const YInvalidArgumentException&) {
        setError(error, YFileReadInapplicableStringEncodingError, YString(u"The bytes are not valid UTF-8"));
        return {};
      }
    }
    case YNonLossyASCIIStringEncoding: {
      auto units = decodeNonLossyASCII(bytes);
      if (!units) {
        setError(error, YFileReadInapplicableStringEncodingError, YString(u"The bytes are not valid non-lossy ASCII"));
        return {};
      }
      return YString(std::u16string_view(*units));
    }
    case YUnicodeStringEncoding:
      if (startsWith(bytes, kBOM16LE)) return decodeUTF16(bytes.substr(2), false, error);
      if (startsWith(bytes, kBOM16BE)) return decodeUTF16(bytes.substr(2), true, error);
      return decodeUTF16(bytes, true, error);
    case YUTF16BigEndianStringEncoding:
      if (startsWith(bytes, kBOM16BE)) bytes.remove_prefix(2);
      return decodeUTF16(bytes, true, error);
    case YUTF16LittleEndianStringEncoding:
      if (startsWith(bytes, kBOM16LE)) bytes.remove_prefix(2);
      return decodeUTF16(bytes, false, error);
    case YUTF32StringEncoding:
      if (startsWith(bytes, kBOM32LE)) return decodeUTF32(bytes.substr(4), false, error);
      if (startsWith(bytes, kBOM32BE)) return decodeUTF32(bytes.substr(4), true, error);
      return decodeUTF32(bytes, true, error);
    case YUTF32BigEndianStringEncoding:
      if (startsWith(bytes, kBOM32BE)) bytes.remove_prefix(4);
      return decodeUTF32(bytes, true, error);
    default:
      if (startsWith(bytes, kBOM32LE)) bytes.remove_prefix(4);
      return decodeUTF32(bytes, false, error);
  }
}

YString YDecodeBytesDetectingEncoding(std::string_view bytes, YStringEncoding* usedEncoding,
                                      std::shared_ptr<YError>* error) {
  auto done = [&](YString s, YStringEncoding e) {
    if (!s.isNull() && usedEncoding) *usedEncoding = e;
    return s;
  };
  if (startsWith(bytes, kBOM8)) return done(YDecodeBytes(bytes, YUTF8StringEncoding, error), YUTF8StringEncoding);
  if (startsWith(bytes, kBOM32LE) || startsWith(bytes, kBOM32BE))
    return done(YDecodeBytes(bytes, YUTF32StringEncoding, error), YUTF32StringEncoding);
  if (startsWith(bytes, kBOM16LE) || startsWith(bytes, kBOM16BE))
    return done(YDecodeBytes(bytes, YUnicodeStringEncoding, error), YUnicodeStringEncoding);
  // UTF-16 without a mark: text made mostly of ASCII shows NUL bytes at
  // every other position. Checked before UTF-8, which accepts NUL bytes.
  if (bytes.size() >= 2 && bytes.size() % 2 == 0) {
    std::size_t evenNul = 0, oddNul = 0;
    for (std::size_t i = 0; i < bytes.size(); i += 2) {
      evenNul += bytes[i] == '\0';
      oddNul += bytes[i + 1] == '\0';
    }
    const std::size_t units = bytes.size() / 2;
    if (oddNul * 4 >= units * 3 && evenNul * 8 <= units) {
      YString text = YDecodeBytes(bytes, YUTF16LittleEndianStringEncoding, nullptr);
      if (!text.isNull()) return done(text, YUTF16LittleEndianStringEncoding);
    }
    if (evenNul * 4 >= units * 3 && oddNul * 8 <= units) {
      YString text = YDecodeBytes(bytes, YUTF16BigEndianStringEncoding, nullptr);
      if (!text.isNull()) return done(text, YUTF16BigEndianStringEncoding);
    }
  }
  try {
    return done(YString::fromUTF8(bytes), YUTF8StringEncoding);
  } catch (const YInvalidArgumentException&) {
  }
  // A statistical guess over (at most) the first 64 KiB.
  constexpr int32_t kConfidenceFloor = 10;
  UErrorCode status = U_ZERO_ERROR;
  UCharsetDetector* detector = ucsdet_open(&status);
  std::string_view sample = bytes.substr(0, 65536);
  ucsdet_setText(detector, sample.data(), static_cast<int32_t>(sample.size()), &status);
  const UCharsetMatch* match = ucsdet_detect(detector, &status);
  std::string name;
  int32_t confidence = 0;
  if (U_SUCCESS(status) && match) {
    const char* detected = ucsdet_getName(match, &status);
    confidence = ucsdet_getConfidence(match, &status);
    if (U_SUCCESS(status) && detected) name = detected;
  }
  ucsdet_close(detector);
  if (!name.empty() && confidence >= kConfidenceFloor) {
    for (const auto& e : kEncodings) {
      if (e.icuName && ucnv_compareNames(e.icuName, name.c_str()) == 0)
        return done(YDecodeBytes(bytes, e.encoding, error), e.encoding);
    }
    if (auto encoding = YStringEncodingFromName(name)) return done(YDecodeBytes(bytes, *encoding, error), *encoding);
  }
  setError(error, YFileReadInapplicableStringEncodingError, YString(u"The text encoding could not be determined"));
  return {};
}

// ---- files -----------------------------------------------------------------

namespace {

YString describeErrno(const char* what, const YString& path, int err) {
  return YString::stringWithFormat("%s '%@': %s", what, path, std::strerror(err));
}

std::int64_t readCode(int err) {
  switch (err) {
    case ENOENT: case ENOTDIR: return YFileNoSuchFileError;
    case EACCES: case EPERM: return YFileReadNoPermissionError;
    default: return YFileReadUnknownError;
  }
}

std::int64_t writeCode(int err) {
  switch (err) {
    case EACCES: case EPERM: return YFileWriteNoPermissionError;
    case ENOSPC: case EDQUOT: return YFileWriteOutOfSpaceError;
    case EROFS: return YFileWriteVolumeReadOnlyError;
    case ENOENT: case ENOTDIR: return YFileNoSuchFileError;
    default: return YFileWriteUnknownError;
  }
}

bool writeAll(int fd, const std::function<std::string_view()>& next) {
  for (std::string_view bytes = next(); !bytes.empty(); bytes = next()) {
    while (!bytes.empty()) {
      ssize_t n = ::write(fd, bytes.data(), bytes.size());
      if (n < 0) {
        if (errno == EINTR) continue;
        return false;
      }
      bytes.remove_prefix(static_cast<std::size_t>(n));
    }
  }
  return true;
}

// Follows symbolic links so that saving replaces the file a link points to.
std::string resolveLinks(std::string path) {
  for (int hops = 0; hops < 40; ++hops) {
    char target[4096];
    ssize_t n = ::readlink(path.c_str(), target, sizeof target - 1);
    if (n < 0) break;
    std::string next(target, static_cast<std::size_t>(n));
    if (next.empty() || next[0] != '/') {
      auto slash = path.rfind('/');
      next = (slash == std::string::npos ? std::string() : path.substr(0, slash + 1)) + next;
    }
    path = next;
  }
  return path;
}

mode_t currentUmask() {
  mode_t mask = ::umask(022);
  ::umask(mask);
  return mask;
}

}  // namespace

std::optional<std::string> YReadFile(const YString& path, std::shared_ptr<YError>* error) {
  if (path.isNull()) {
    setError(error, YFileReadUnknownError, YString(u"No file path given"));
    return std::nullopt;
  }
  std::string p = path.UTF8String();
  int fd = ::open(p.c_str(), O_RDONLY | O_CLOEXEC);
  if (fd < 0) {
    int err = errno;
    setError(error, readCode(err), describeErrno("Cannot open file", path, err), err);
    return std::nullopt;
  }
  struct stat st{};
  if (::fstat(fd, &st) == 0 && S_ISDIR(st.st_mode)) {
    ::close(fd);
    setError(error, YFileReadUnknownError, describeErrno("Cannot read file", path, EISDIR), EISDIR);
    return std::nullopt;
  }
  // Positions are 32-bit downstream: refuse what could not be addressed.
  constexpr std::size_t kLimit = std::numeric_limits<int32_t>::max();
  // Read straight into the result; a file that grows meanwhile is read on
  // until its end.
  auto tooLarge = [&]() -> std::optional<std::string> {
    ::close(fd);
    setError(error, YFileReadTooLargeError, YString::stringWithFormat("The file '%@' is too large", path), EFBIG);
    return std::nullopt;
  };
  std::string bytes;
  std::size_t used = 0;
  if (st.st_size > 0) bytes.resize(std::min<std::size_t>(static_cast<std::size_t>(st.st_size), kLimit) + 1);
  for (;;) {
    if (used == bytes.size()) {
      if (bytes.size() > kLimit) return tooLarge();
      bytes.resize(std::min<std::size_t>(std::max<std::size_t>(bytes.size() * 2, 65536), kLimit + 1));
    }
    ssize_t n = ::read(fd, bytes.data() + used, bytes.size() - used);
    if (n < 0) {
      if (errno == EINTR) continue;
      int err = errno;
      ::close(fd);
      setError(error, readCode(err), describeErrno("Cannot read file", path, err), err);
      return std::nullopt;
    }
    if (n == 0) break;
    used += static_cast<std::size_t>(n);
  }
  if (used > kLimit) return tooLarge();
  bytes.resize(used);
  ::close(fd);
  return bytes;
}

bool YWriteFile(const YString& path, std::string_view bytes, bool atomically, std::shared_ptr<YError>* error) {
  bool given = false;
  return YWriteFileChunks(
      path,
      [&]() -> std::string_view {
        if (given) return {};
        given = true;
        return bytes;
      },
      atomically, error);
}

bool YWriteFileChunks(const YString& path, const std::function<std::string_view()>& next, bool atomically,
                      std::shared_ptr<YError>* error) {
  if (path.isNull() || path.length() == 0) {
    setError(error, YFileWriteUnknownError, YString(u"No file path given"));
    return false;
  }
  std::string target = resolveLinks(path.UTF8String());
  if (!atomically) {
    int fd = ::open(target.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0666);
    bool written = false;
    if (fd >= 0) {
      try {
        written = writeAll(fd, next);
      } catch (...) {
        ::close(fd);
        throw;
      }
    }
    if (!written) {
      int err = errno;
      if (fd >= 0) ::close(fd);
      setError(error, writeCode(err), describeErrno("Cannot write file", path, err), err);
      return false;
    }
    if (::close(fd) != 0) {
      int err = errno;
      setError(error, writeCode(err), describeErrno("Cannot write file", path, err), err);
      return false;
    }
    return true;
  }
  auto slash = target.rfind('/');
  std::string folder = slash == std::string::npos ? "." : target.substr(0, slash == 0 ? 1 : slash);
  std::string base = slash == std::string::npos ? target : target.substr(slash + 1);
  // The temporary name must fit wherever the target's does (NAME_MAX): keep
  // at most 200 bytes of the target's name in it.
  std::string temp = folder + "/." + base.substr(0, 200) + ".XXXXXX";
  std::vector<char> templ(temp.begin(), temp.end());
  templ.push_back('\0');
  int fd = ::mkostemp(templ.data(), O_CLOEXEC);
  if (fd < 0) {
    int err = errno;
    setError(error, writeCode(err), describeErrno("Cannot create a temporary file beside", path, err), err);
    return false;
  }
  temp.assign(templ.data());
  auto fail = [&](const char* what) {
    int err = errno;
    ::close(fd);
    ::unlink(temp.c_str());
    setError(error, writeCode(err), describeErrno(what, path, err), err);
    return false;
  };
  struct stat st{};
  mode_t mode = 0666 & ~currentUmask();
  if (::stat(target.c_str(), &st) == 0) {
    mode = st.st_mode & 07777;
    if (::fchown(fd, st.st_uid, st.st_gid) != 0) {
      // Keeping the owner needs privileges; the mode is kept regardless.
    }
  }
  if (::fchmod(fd, mode) != 0) return fail("Cannot set permissions for");
  bool written;
  try {
    written = writeAll(fd, next);
  } catch (...) {
    ::close(fd);
    ::unlink(temp.c_str());
    throw;
  }
  if (!written) return fail("Cannot write file");
  if (::fsync(fd) != 0) return fail("Cannot flush file");
  if (::close(fd) != 0) {
    int err = errno;
    ::unlink(temp.c_str());
    setError(error, writeCode(err), describeErrno("Cannot write file", path, err), err);
    return false;
  }
  if (::rename(temp.c_str(), target.c_str()) != 0) {
    int err = errno;
    ::unlink(temp.c_str());
    setError(error, writeCode(err), describeErrno("Cannot replace file", path, err), err);
    return false;
  }
  int dirfd = ::open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
  if (dirfd >= 0) {
    ::fsync(dirfd);
    ::close(dirfd);
  }
  return true;
}

// ---- YString file operations ---------------------------------------------

YString YString::stringWithContentsOfFileUsedEncodingError(const YString& path, YStringEncoding* usedEncoding,
                                                           std::shared_ptr<YError>* error) {
  auto bytes = YReadFile(path, error);
  if (!bytes) return {};
  std::shared_ptr<YError> decodeError;
  YString text = YDecodeBytesDetectingEncoding(*bytes, usedEncoding, &decodeError);
  if (text.isNull() && error)
    *error = YError::errorWithDomainCodeDescription(
        YFoundationErrorDomain, YFileReadInapplicableStringEncodingError,
        YString::stringWithFormat("Cannot decode file '%@': %@", path,
                                  decodeError ? decodeError->localizedDescription() : YString()));
  return text;
}

YString YString::stringWithContentsOfFileEncodingError(const YString& path, YStringEncoding encoding,
                                                       std::shared_ptr<YError>* error) {
  auto bytes = YReadFile(path, error);
  if (!bytes) return {};
  return YDecodeBytes(*bytes, encoding, error);
}

bool YString::writeToFileAtomicallyEncodingError(const YString& path, bool atomically, YStringEncoding encoding,
                                                 std::shared_ptr<YError>* error) const {
  if (isNull()) {
    if (error) *error = YError::errorWithDomainCodeDescription(YFoundationErrorDomain, YFileWriteUnknownError,
                                                               YString(u"No text to write"));
    return false;
  }
  if (encoding != YUTF8StringEncoding) {
    auto bytes = YEncodeString(*this, encoding, error);
    if (!bytes) return false;
    return YWriteFile(path, *bytes, atomically, error);
  }
  // UTF-8 is encoded piece by piece as it is written, after the one check
  // that can make it fail.
  const std::u16string_view units = view();
  if (!representableInUnicode(units, "UTF-8", error)) return false;
  constexpr std::size_t kPiece = 32768;
  std::size_t done = 0;
  std::string piece;
  return YWriteFileChunks(
      path,
      [&]() -> std::string_view {
        if (done == units.size()) return {};
        std::size_t end = std::min(units.size(), done + kPiece);
        if (end < units.size() && isHigh(units[end - 1])) ++end;  // keep a surrogate pair together
        piece.clear();
        ydetail::appendUTF8(units.substr(done, end - done), piece);
        done = end;
        return piece;
      },
      atomically, error);
}
