#include "YStringEncoding.h"

#include "YException.h"
#include "YFile.h"

#include <dlfcn.h>
#include <unicode/ucnv.h>
#include <unicode/ucsdet.h>
#include <unicode/uvernum.h>

#include <algorithm>
#include <cctype>
#include <cstdio>
#include <cstring>
#include <limits>

namespace {

// ICU is loaded when a legacy encoding or a detection first needs it, not
// with the library: a process that reads and writes only UTF-8 (most, and
// most runs of the command-line tool) starts without it. Linking ICU's two
// libraries cost a program 1.05 ms at start on the build machine (an empty
// program: 0.79 ms; linked to them: 1.84 ms), about a third of a tool run.
struct Icu {
  decltype(&ucnv_open) open;
  decltype(&ucnv_close) close;
  decltype(&ucnv_setFromUCallBack) setFromUCallBack;
  decltype(&ucnv_setToUCallBack) setToUCallBack;
  decltype(&ucnv_getMaxCharSize) getMaxCharSize;
  decltype(&ucnv_fromUChars) fromUChars;
  decltype(&ucnv_toUChars) toUChars;
  decltype(&ucnv_compareNames) compareNames;
  decltype(&UCNV_FROM_U_CALLBACK_STOP) fromUCallbackStop;
  decltype(&UCNV_TO_U_CALLBACK_STOP) toUCallbackStop;
  decltype(&ucsdet_open) detectorOpen;
  decltype(&ucsdet_setText) detectorSetText;
  decltype(&ucsdet_detectAll) detectAll;
  decltype(&ucsdet_getName) matchName;
  decltype(&ucsdet_getConfidence) matchConfidence;
  decltype(&ucsdet_close) detectorClose;
};

// ICU's functions carry its version in their names (ucnv_open_72), as its
// headers rename them: the names to look up come from the same macros.
#define Y_ICU_NAME(function) Y_ICU_NAME_OF(function)
#define Y_ICU_NAME_OF(function) #function

void* openIcuLibrary(const char* name) {
  const std::string versioned = std::string(name) + "." U_ICU_VERSION_SHORT;
  void* library = ::dlopen(versioned.c_str(), RTLD_NOW | RTLD_LOCAL);
  return library ? library : ::dlopen(name, RTLD_NOW | RTLD_LOCAL);
}

// The loaded library, or null where it cannot be loaded (encodings it
// converts are then unavailable, and detection finds nothing).
const Icu* icuLibrary() {
  static const Icu* const loaded = []() -> const Icu* {
    void* common = openIcuLibrary("libicuuc.so");
    void* i18n = common ? openIcuLibrary("libicui18n.so") : nullptr;
    if (!i18n) return nullptr;
    static Icu library;
    bool found = true;
    auto find = [&found](void* from, const char* name, auto& slot) {
      void* symbol = ::dlsym(from, name);
      found = found && symbol;
      std::memcpy(&slot, &symbol, sizeof slot);  // an object pointer to a function pointer
    };
    find(common, Y_ICU_NAME(ucnv_open), library.open);
    find(common, Y_ICU_NAME(ucnv_close), library.close);
    find(common, Y_ICU_NAME(ucnv_setFromUCallBack), library.setFromUCallBack);
    find(common, Y_ICU_NAME(ucnv_setToUCallBack), library.setToUCallBack);
    find(common, Y_ICU_NAME(ucnv_getMaxCharSize), library.getMaxCharSize);
    find(common, Y_ICU_NAME(ucnv_fromUChars), library.fromUChars);
    find(common, Y_ICU_NAME(ucnv_toUChars), library.toUChars);
    find(common, Y_ICU_NAME(ucnv_compareNames), library.compareNames);
    find(common, Y_ICU_NAME(UCNV_FROM_U_CALLBACK_STOP), library.fromUCallbackStop);
    find(common, Y_ICU_NAME(UCNV_TO_U_CALLBACK_STOP), library.toUCallbackStop);
    find(i18n, Y_ICU_NAME(ucsdet_open), library.detectorOpen);
    find(i18n, Y_ICU_NAME(ucsdet_setText), library.detectorSetText);
    find(i18n, Y_ICU_NAME(ucsdet_detectAll), library.detectAll);
    find(i18n, Y_ICU_NAME(ucsdet_getName), library.matchName);
    find(i18n, Y_ICU_NAME(ucsdet_getConfidence), library.matchConfidence);
    find(i18n, Y_ICU_NAME(ucsdet_close), library.detectorClose);
    return found ? &library : nullptr;
  }();
  return loaded;
}

// A converter of the loaded ICU for `icuName`, closed when it goes; without
// a handle where ICU or the encoding is missing.
struct Converter {
  explicit Converter(const char* icuName) {
    UErrorCode status = U_ZERO_ERROR;
    if (library) handle = library->open(icuName, &status);  // null on a failure
  }
  ~Converter() {
    if (handle) library->close(handle);
  }
  Converter(const Converter&) = delete;
  Converter& operator=(const Converter&) = delete;

  const Icu* const library = icuLibrary();
  UConverter* handle = nullptr;
};

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
  const Converter conv(icuName);
  if (!conv.handle) {
    setError(error, YFileWriteInapplicableStringEncodingError,
             YString::stringWithFormat("The encoding %s is not available", displayName));
    return std::nullopt;
  }
  const Icu& library = *conv.library;
  // The converter counts in 32 bits: a text whose bytes could pass that fails.
  const auto most = (static_cast<std::uint64_t>(s.size()) + 10) * library.getMaxCharSize(conv.handle) + 16;
  if (most > static_cast<std::uint64_t>(std::numeric_limits<int32_t>::max())) {
    setError(error, YFileWriteInapplicableStringEncodingError,
             YString::stringWithFormat("The text is too long to convert to %s", displayName));
    return std::nullopt;
  }
  UErrorCode status = U_ZERO_ERROR;
  library.setFromUCallBack(conv.handle, library.fromUCallbackStop, nullptr, nullptr, nullptr, &status);
  std::string out(static_cast<std::size_t>(most), '\0');
  int32_t n = library.fromUChars(conv.handle, out.data(), static_cast<int32_t>(out.size()), s.data(),
                                 static_cast<int32_t>(s.size()), &status);
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
  const Converter conv(icuName);
  if (!conv.handle) {
    setError(error, YFileReadInapplicableStringEncodingError,
             YString::stringWithFormat("The encoding %s is not available", displayName));
    return {};
  }
  const Icu& library = *conv.library;
  // The converter counts in 32 bits: bytes whose text could pass that fail.
  if (static_cast<std::uint64_t>(bytes.size()) * 2 + 16 > static_cast<std::uint64_t>(std::numeric_limits<int32_t>::max())) {
    setError(error, YFileReadInapplicableStringEncodingError,
             YString::stringWithFormat("The bytes are too many to convert from %s", displayName));
    return {};
  }
  UErrorCode status = U_ZERO_ERROR;
  library.setToUCallBack(conv.handle, library.toUCallbackStop, nullptr, nullptr, nullptr, &status);
  std::u16string out(bytes.size() * 2 + 16, u'\0');
  int32_t n = library.toUChars(conv.handle, out.data(), static_cast<int32_t>(out.size()), bytes.data(),
                               static_cast<int32_t>(bytes.size()), &status);
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
  return Converter(info->icuName).handle != nullptr;
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
  // UTF-8 with a few stray bytes (a Latin-1 name pasted into a UTF-8 file)
  // stays UTF-8: reading it as a legacy encoding would garble every
  // multi-byte character around them.
  auto mostlyUTF8 = [](std::string_view body) {
    std::vector<std::size_t> invalid;
    YString text = YDecodeUTF8Replacing(body, &invalid);
    return invalid.size() * 100 < body.size() ? text : YString();
  };
  // A UTF-8 mark decides whatever follows it: stray bytes behind it, however
  // many, become U+FFFD, as no other encoding's text begins with the mark.
  if (startsWith(bytes, kBOM8)) {
    YString text = YDecodeBytes(bytes, YUTF8StringEncoding, nullptr);
    if (text.isNull()) text = YDecodeUTF8Replacing(bytes.substr(kBOM8.size()), nullptr);
    return done(text, YUTF8StringEncoding);
  }
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
  if (YString text = mostlyUTF8(bytes); !text.isNull()) return done(text, YUTF8StringEncoding);
  // A statistical guess over (at most) the first 64 KiB. The detector gives
  // its base confidence to several encodings for any bytes at all, UTF-16
  // and UTF-32 among them: a guess at that level is no evidence, and text in
  // UTF-16 or UTF-32 holds NUL bytes (its line ends, "=", any ASCII).
  constexpr int32_t kBaseConfidence = 10;
  const bool holdsNul = bytes.find('\0') != std::string_view::npos;
  UErrorCode status = U_ZERO_ERROR;
  std::string name;
  const Icu* library = icuLibrary();
  if (UCharsetDetector* detector = library ? library->detectorOpen(&status) : nullptr) {
    std::string_view sample = bytes.substr(0, 65536);
    library->detectorSetText(detector, sample.data(), static_cast<int32_t>(sample.size()), &status);
    int32_t found = 0;
    const UCharsetMatch** matches = library->detectAll(detector, &found, &status);
    for (int32_t i = 0; U_SUCCESS(status) && matches && i < found; ++i) {
      const char* detected = library->matchName(matches[i], &status);
      const int32_t confidence = library->matchConfidence(matches[i], &status);
      if (!U_SUCCESS(status) || !detected || confidence < kBaseConfidence) break;
      const std::string_view guess(detected);
      const bool wide = guess.starts_with("UTF-16") || guess.starts_with("UTF-32");
      if (!holdsNul && (wide || confidence == kBaseConfidence)) continue;
      name = detected;
      break;
    }
    library->detectorClose(detector);
  }
  if (!name.empty()) {
    for (const auto& e : kEncodings) {
      if (e.icuName && library->compareNames(e.icuName, name.c_str()) == 0)
        return done(YDecodeBytes(bytes, e.encoding, error), e.encoding);
    }
    if (auto encoding = YStringEncodingFromName(name)) return done(YDecodeBytes(bytes, *encoding, error), *encoding);
  }
  // Without evidence, bytes holding no NUL are read as ISO-8859-1, which
  // takes every byte as one character and writes it back the same.
  if (library && !holdsNul) return done(YDecodeBytes(bytes, YISOLatin1StringEncoding, error), YISOLatin1StringEncoding);
  setError(error, YFileReadInapplicableStringEncodingError, YString(u"The text encoding could not be determined"));
  return {};
}

YString YDecodeUTF8Replacing(std::string_view bytes, std::vector<std::size_t>* invalidOffsets) {
  const auto* p = reinterpret_cast<const unsigned char*>(bytes.data());
  const std::size_t n = bytes.size();
  std::u16string out;
  out.reserve(n);
  auto isContinuation = [](unsigned char b) { return (b & 0xC0) == 0x80; };
  for (std::size_t i = 0; i < n;) {
    const unsigned c = p[i];
    if (c < 0x80) {
      out.push_back(static_cast<char16_t>(c));
      ++i;
      continue;
    }
    // The sequence length a lead byte announces, and the range its second
    // byte must fall in (which rules out overlong forms, surrogates and
    // code points past U+10FFFF).
    std::size_t length = 0;
    unsigned low = 0x80, high = 0xBF;
    if (c >= 0xC2 && c <= 0xDF) length = 2;
    else if (c >= 0xE0 && c <= 0xEF) length = 3, low = c == 0xE0 ? 0xA0 : 0x80, high = c == 0xED ? 0x9F : 0xBF;
    else if (c >= 0xF0 && c <= 0xF4) length = 4, low = c == 0xF0 ? 0x90 : 0x80, high = c == 0xF4 ? 0x8F : 0xBF;
    std::size_t taken = 1;
    if (length > 0 && i + 1 < n && p[i + 1] >= low && p[i + 1] <= high) {
      taken = 2;
      while (taken < length && i + taken < n && isContinuation(p[i + taken])) ++taken;
    }
    if (length == 0 || taken < length) {
      if (invalidOffsets) invalidOffsets->push_back(i);
      out.push_back(u'\uFFFD');
      i += taken;
      continue;
    }
    char32_t cp = c & (length == 2 ? 0x1F : length == 3 ? 0x0F : 0x07);
    for (std::size_t k = 1; k < length; ++k) cp = (cp << 6) | (p[i + k] & 0x3F);
    ydetail::appendUTF16(out, cp);
    i += length;
  }
  return YString(std::u16string_view(out));
}

// ---- YString file operations ---------------------------------------------

YString YString::stringWithContentsOfFileUsedEncodingError(const YString& path, YStringEncoding* usedEncoding,
                                                           std::shared_ptr<YError>* error) {
  auto bytes = YReadFileBytes(path, error);
  if (!bytes) return {};
  std::shared_ptr<YError> decodeError;
  YString text = YDecodeBytesDetectingEncoding(bytes->view(), usedEncoding, &decodeError);
  if (text.isNull() && error)
    *error = YError::errorWithDomainCodeDescription(
        YFoundationErrorDomain, YFileReadInapplicableStringEncodingError,
        YString::stringWithFormat("Cannot decode file '%@': %@", path,
                                  decodeError ? decodeError->localizedDescription() : YString()));
  return text;
}

YString YString::stringWithContentsOfFileEncodingError(const YString& path, YStringEncoding encoding,
                                                       std::shared_ptr<YError>* error) {
  auto bytes = YReadFileBytes(path, error);
  if (!bytes) return {};
  return YDecodeBytes(bytes->view(), encoding, error);
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
