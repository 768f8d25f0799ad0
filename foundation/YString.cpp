#include "YString.h"

#include <algorithm>
#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <new>
#include <ostream>

#if defined(__SSE2__)
#include <emmintrin.h>
#endif
#include "YAllocator.h"
#include "YCharacterSet.h"
#include "YException.h"
#include "YObject.h"
#include "YStringEncoding.h"


using ydetail::YMutableStringRep;
using ydetail::YStringRep;

namespace ydetail {

// Widens `n` Latin-1 characters to code units: with SSE2 sixteen at a time,
// and the last few, or a short string's, as overlapping blocks of eight or
// four (names and values run to tens of characters).
void widenLatin1(char16_t* out, const char* in, std::size_t n) noexcept {
#if defined(__SSE2__)
  const __m128i zero = _mm_setzero_si128();
  auto eight = [&](std::size_t at) {
    const __m128i bytes = _mm_loadl_epi64(reinterpret_cast<const __m128i*>(in + at));
    _mm_storeu_si128(reinterpret_cast<__m128i*>(out + at), _mm_unpacklo_epi8(bytes, zero));
  };
  auto four = [&](std::size_t at) {
    std::int32_t word;
    std::memcpy(&word, in + at, 4);
    _mm_storel_epi64(reinterpret_cast<__m128i*>(out + at), _mm_unpacklo_epi8(_mm_cvtsi32_si128(word), zero));
  };
  if (n >= 8) {
    std::size_t i = 0;
    for (; i + 16 <= n; i += 16) {
      const __m128i bytes = _mm_loadu_si128(reinterpret_cast<const __m128i*>(in + i));
      _mm_storeu_si128(reinterpret_cast<__m128i*>(out + i), _mm_unpacklo_epi8(bytes, zero));
      _mm_storeu_si128(reinterpret_cast<__m128i*>(out + i + 8), _mm_unpackhi_epi8(bytes, zero));
    }
    if (i + 8 <= n) {
      eight(i);
      i += 8;
    }
    if (i < n) eight(n - 8);
    return;
  }
  if (n >= 4) {
    four(0);
    four(n - 4);
    return;
  }
#endif
  for (std::size_t i = 0; i < n; ++i) out[i] = static_cast<unsigned char>(in[i]);
}

}  // namespace ydetail

namespace {

constexpr std::size_t kMaxLength = 0x7FFFFFFF;

inline char16_t* inlineChars(YStringRep* rep) { return reinterpret_cast<char16_t*>(rep + 1); }

inline char16_t* charsOf(YStringRep* rep) {
  return rep->isMutable ? static_cast<YMutableStringRep*>(rep)->buffer : inlineChars(rep);
}

inline std::size_t immutableRepSize(std::size_t length) noexcept {
  return sizeof(YStringRep) + (length + 1) * sizeof(char16_t);
}

// Small strings come from the small-object pool, large ones are mapped.
inline void* allocateBytes(std::size_t size) {
  return size <= ydetail::kSmallObjectLimit ? ydetail::smallAllocate(size) : ydetail::largeAllocate(size);
}
inline void freeBytes(void* p, std::size_t size) noexcept {
  if (size <= ydetail::kSmallObjectLimit) ydetail::smallDeallocate(p, size);
  else ydetail::largeDeallocate(p, size);
}

// `chars` may be null: the caller fills the code units in.
YStringRep* newImmutableRep(const char16_t* chars, std::size_t length) {
  if (length > kMaxLength) throw std::bad_alloc();
  void* memory = allocateBytes(immutableRepSize(length));
  auto* rep = new (memory) YStringRep{{1}, static_cast<std::uint32_t>(length), 0};
  if (chars) ydetail::copyUnits(inlineChars(rep), chars, length);
  inlineChars(rep)[length] = 0;
  return rep;
}

YMutableStringRep* newMutableRep(const char16_t* chars, std::size_t length, std::size_t capacity) {
  if (capacity < length) capacity = length;
  if (capacity < 8) capacity = 8;
  if (capacity > kMaxLength) throw std::bad_alloc();
  auto* buffer = static_cast<char16_t*>(allocateBytes(capacity * sizeof(char16_t)));
  if (length) std::memcpy(buffer, chars, length * sizeof(char16_t));
  YMutableStringRep* rep;
  try {
    rep = new (ydetail::smallAllocate(sizeof(YMutableStringRep))) YMutableStringRep;
  } catch (...) {
    freeBytes(buffer, capacity * sizeof(char16_t));
    throw;
  }
  rep->refs.store(1, std::memory_order_relaxed);
  rep->isMutable = 1;
  rep->length = static_cast<std::uint32_t>(length);
  rep->capacity = capacity;
  rep->buffer = buffer;
  return rep;
}

// Out of line, so that releasing an immutable string needs no saved registers.
[[gnu::noinline]] void freeMutableRep(YMutableStringRep* rep) noexcept {
  freeBytes(rep->buffer, rep->capacity * sizeof(char16_t));
  rep->~YMutableStringRep();
  ydetail::smallDeallocate(rep, sizeof(YMutableStringRep));
}

// A count that releaseSharedRep() did not drop: the last one, or any while
// other threads run.
inline void releaseUnshared(YStringRep* rep) noexcept {
  // The only handle left cannot race with another: no other thread holds
  // one to copy from, so the last release skips the locked decrement.
  if (rep->refs.load(std::memory_order_acquire) != 1 && rep->refs.fetch_sub(1, std::memory_order_acq_rel) != 1)
    return;
  if (rep->isMutable) return freeMutableRep(static_cast<YMutableStringRep*>(rep));
  const std::size_t size = immutableRepSize(rep->length);
  rep->~YStringRep();
  freeBytes(rep, size);
}

void ensureCapacity(YMutableStringRep* rep, std::size_t needed) {
  if (needed <= rep->capacity) return;
  if (needed > kMaxLength) throw std::bad_alloc();
  std::size_t capacity = std::min(rep->capacity * 2, kMaxLength);
  if (capacity < needed) capacity = needed;
  auto* buffer = static_cast<char16_t*>(allocateBytes(capacity * sizeof(char16_t)));
  std::memcpy(buffer, rep->buffer, rep->length * sizeof(char16_t));
  freeBytes(rep->buffer, rep->capacity * sizeof(char16_t));
  rep->buffer = buffer;
  rep->capacity = capacity;
}

// Reads UTF-8 strictly (no overlongs, no surrogates, nothing above
// U+10FFFF). Returns the number of UTF-16 code units, or npos for invalid
// input; with Write, also stores them at `out`. Runs of ASCII go sixteen
// bytes at a time with SSE2, then eight.
template <bool Write>
std::size_t transcodeUTF8(std::string_view in, char16_t* out) {
  const auto* p = reinterpret_cast<const unsigned char*>(in.data());
  const auto* end = p + in.size();
  std::size_t n = 0;
  while (p < end) {
#if defined(__SSE2__)
    while (end - p >= 16) {
      const __m128i bytes = _mm_loadu_si128(reinterpret_cast<const __m128i*>(p));
      if (_mm_movemask_epi8(bytes)) break;
      if constexpr (Write) {
        _mm_storeu_si128(reinterpret_cast<__m128i*>(out + n), _mm_unpacklo_epi8(bytes, _mm_setzero_si128()));
        _mm_storeu_si128(reinterpret_cast<__m128i*>(out + n + 8), _mm_unpackhi_epi8(bytes, _mm_setzero_si128()));
      }
      p += 16;
      n += 16;
    }
#endif
    while (end - p >= 8) {
      std::uint64_t word;
      std::memcpy(&word, p, 8);
      if (word & 0x8080808080808080ull) break;
      if constexpr (Write)
        for (int i = 0; i < 8; ++i) out[n + i] = p[i];
      p += 8;
      n += 8;
    }
    if (p == end) break;
    unsigned c = *p;
    if (c < 0x80) {
      if constexpr (Write) out[n] = static_cast<char16_t>(c);
      ++n;
      ++p;
      continue;
    }
    int extra;
    char32_t cp;
    char32_t min;
    if ((c & 0xE0) == 0xC0) {
      extra = 1, cp = c & 0x1F, min = 0x80;
    } else if ((c & 0xF0) == 0xE0) {
      extra = 2, cp = c & 0x0F, min = 0x800;
    } else if ((c & 0xF8) == 0xF0) {
      extra = 3, cp = c & 0x07, min = 0x10000;
    } else {
      return std::string_view::npos;
    }
    if (end - p <= extra) return std::string_view::npos;
    for (int i = 1; i <= extra; ++i) {
      if ((p[i] & 0xC0) != 0x80) return std::string_view::npos;
      cp = (cp << 6) | (p[i] & 0x3F);
    }
    if (cp < min || cp > 0x10FFFF || (cp >= 0xD800 && cp <= 0xDFFF)) return std::string_view::npos;
    p += extra + 1;
    if (cp >= 0x10000) {
      if constexpr (Write) {
        out[n] = static_cast<char16_t>(0xD800 + ((cp - 0x10000) >> 10));
        out[n + 1] = static_cast<char16_t>(0xDC00 + ((cp - 0x10000) & 0x3FF));
      }
      n += 2;
    } else {
      if constexpr (Write) out[n] = static_cast<char16_t>(cp);
      ++n;
    }
  }
  return n;
}

bool decodeUTF8(std::string_view in, std::u16string& out) {
  const std::size_t n = transcodeUTF8<false>(in, nullptr);
  if (n == std::string_view::npos) return false;
  out.resize(n);
  transcodeUTF8<true>(in, out.data());
  return true;
}

[[noreturn]] void throwRange(const char* operation, std::size_t location, std::size_t length, std::size_t bound) {
  throw YRangeException(YString::stringWithFormat("%s: range {%zu, %zu} out of bounds; string length %zu",
                                                  operation, location, length, bound));
}

}  // namespace

// ---- construction and lifetime --------------------------------------------

YString::YString(const char16_t* utf16) {
  if (utf16) _rep = newImmutableRep(utf16, std::char_traits<char16_t>::length(utf16));
}

YString::YString(std::u16string_view utf16) : _rep(newImmutableRep(utf16.data(), utf16.size())) {}

YString::YString(const char* utf8) {
  if (utf8) *this = fromUTF8(utf8);
}

// The destructor has already tried to drop a shared count inline.
void YString::releaseRep() noexcept { releaseUnshared(_rep); }

YString YString::fromUTF8(std::string_view utf8) {
  // Measured first, then decoded straight into the string's own storage.
  const std::size_t n = transcodeUTF8<false>(utf8, nullptr);
  if (n == std::string_view::npos) throw YInvalidArgumentException(YString(u"invalid UTF-8 in string conversion"));
  YStringRep* rep = newImmutableRep(nullptr, n);
  transcodeUTF8<true>(utf8, inlineChars(rep));
  return YString(rep);
}

YString YString::stringWithCharacters(const char16_t* characters, std::size_t length) {
  return YString(newImmutableRep(characters, length));
}

YString YString::stringWithLatin1Characters(const char* characters, std::size_t length) {
  YStringRep* rep = newImmutableRep(nullptr, length);
  ydetail::widenLatin1(inlineChars(rep), characters, length);
  return YString(rep);
}

YString YString::stringByConcatenating(std::initializer_list<std::u16string_view> pieces) {
  std::size_t total = 0;
  for (auto piece : pieces) total += piece.size();
  YStringRep* rep = newImmutableRep(nullptr, total);
  char16_t* out = inlineChars(rep);
  for (auto piece : pieces) {
    if (!piece.empty()) std::memcpy(out, piece.data(), piece.size() * sizeof(char16_t));
    out += piece.size();
  }
  *out = 0;
  return YString(rep);
}

YString YString::mutableString(std::size_t capacity) { return YString(newMutableRep(nullptr, 0, capacity)); }

YString YString::mutableStringWithString(const YString& string) {
  return YString(newMutableRep(string.characters(), string.length(), string.length()));
}

// ---- queries ---------------------------------------------------------------

char16_t YString::characterAtIndex(std::size_t index) const {
  if (index >= length()) throwRange("characterAtIndex", index, 1, length());
  return charsOf(_rep)[index];
}

bool YString::isEqualToString(const YString& other) const noexcept {
  if (!_rep || !other._rep) return false;
  if (_rep == other._rep) return true;
  if (_rep->length != other._rep->length) return false;
  if (_rep->length == 0) return true;
  const char16_t* a = charsOf(_rep);
  const char16_t* b = charsOf(other._rep);
  return a[0] == b[0] && std::memcmp(a, b, _rep->length * sizeof(char16_t)) == 0;
}

std::size_t YString::hash() const noexcept {
  // FNV-1a over the code units.
  std::size_t h = 1469598103934665603ull;
  for (char16_t c : view()) h = (h ^ c) * 1099511628211ull;
  return h;
}

bool YString::hasPrefix(const YString& prefix) const noexcept {
  return !isNull() && !prefix.isNull() && view().starts_with(prefix.view());
}

bool YString::hasSuffix(const YString& suffix) const noexcept {
  return !isNull() && !suffix.isNull() && view().ends_with(suffix.view());
}

std::size_t YString::indexOfString(const YString& string, std::size_t from) const noexcept {
  if (isNull() || string.isNull()) return npos;
  auto pos = view().find(string.view(), from);
  return pos == std::u16string_view::npos ? npos : pos;
}

YString YString::substringWithRange(std::size_t location, std::size_t len) const {
  std::size_t n = length();
  if (location > n || len > n - location) throwRange("substringWithRange", location, len, n);
  return YString(newImmutableRep(characters() + location, len));
}

YString YString::substringFromIndex(std::size_t index) const {
  if (index > length()) throwRange("substringFromIndex", index, 0, length());
  return substringWithRange(index, length() - index);
}

YString YString::substringToIndex(std::size_t index) const { return substringWithRange(0, index); }

YString YString::stringByTrimmingCharactersInSet(const YCharacterSet& set) const {
  if (isNull()) return {};
  const char16_t* c = characters();
  std::size_t begin = 0;
  std::size_t end = length();
  while (begin < end && set.characterIsMember(c[begin])) ++begin;
  while (end > begin && set.characterIsMember(c[end - 1])) --end;
  if (begin == 0 && end == length() && !isMutable()) return *this;
  return YString(newImmutableRep(c + begin, end - begin));
}

std::size_t ydetail::utf8Length(std::u16string_view units) noexcept {
  const std::size_t n = units.size();
  const char16_t* c = units.data();
  std::size_t bytes = 0;
  for (std::size_t i = 0; i < n; ++i) {
    const char16_t u = c[i];
    if (u < 0x80) bytes += 1;
    else if (u < 0x800) bytes += 2;
    else if (u >= 0xD800 && u <= 0xDBFF && i + 1 < n && c[i + 1] >= 0xDC00 && c[i + 1] <= 0xDFFF) bytes += 4, ++i;
    else bytes += 3;
  }
  return bytes;
}

void ydetail::appendUTF8(std::u16string_view units, std::string& result) {
  // Sized first (a lone surrogate takes three bytes), then filled.
  const std::size_t start = result.size();
  result.resize(start + utf8Length(units));
  writeUTF8(units, result.data() + start);
}

char* ydetail::writeUTF8(std::u16string_view units, char* o) noexcept {
  const std::size_t n = units.size();
  const char16_t* c = units.data();
  std::size_t i = 0;
  while (i < n) {
    // Runs of ASCII four units at a time.
    while (n - i >= 4) {
      std::uint64_t word;
      std::memcpy(&word, c + i, 8);
      if (word & 0xFF80FF80FF80FF80ull) break;
      o[0] = static_cast<char>(c[i]);
      o[1] = static_cast<char>(c[i + 1]);
      o[2] = static_cast<char>(c[i + 2]);
      o[3] = static_cast<char>(c[i + 3]);
      o += 4;
      i += 4;
    }
    if (i == n) break;
    char32_t cp = c[i];
    if (cp >= 0xD800 && cp <= 0xDBFF && i + 1 < n && c[i + 1] >= 0xDC00 && c[i + 1] <= 0xDFFF) {
      cp = 0x10000 + ((cp - 0xD800) << 10) + (c[i + 1] - 0xDC00);
      ++i;
    } else if (cp >= 0xD800 && cp <= 0xDFFF) {
      cp = 0xFFFD;
    }
    ++i;
    if (cp < 0x80) {
      *o++ = static_cast<char>(cp);
    } else if (cp < 0x800) {
      *o++ = static_cast<char>(0xC0 | (cp >> 6));
      *o++ = static_cast<char>(0x80 | (cp & 0x3F));
    } else if (cp < 0x10000) {
      *o++ = static_cast<char>(0xE0 | (cp >> 12));
      *o++ = static_cast<char>(0x80 | ((cp >> 6) & 0x3F));
      *o++ = static_cast<char>(0x80 | (cp & 0x3F));
    } else {
      *o++ = static_cast<char>(0xF0 | (cp >> 18));
      *o++ = static_cast<char>(0x80 | ((cp >> 12) & 0x3F));
      *o++ = static_cast<char>(0x80 | ((cp >> 6) & 0x3F));
      *o++ = static_cast<char>(0x80 | (cp & 0x3F));
    }
  }
  return o;
}

std::string YString::UTF8String() const {
  std::string out;
  ydetail::appendUTF8(view(), out);
  return out;
}

YString YString::snapshotOfMutable() const { return YString(newImmutableRep(charsOf(_rep), _rep->length)); }

YString YString::mutableCopy() const {
  if (!_rep) return {};
  return mutableStringWithString(*this);
}

// ---- mutation --------------------------------------------------------------

void YString::throwNotMutable(const char* operation) const {
  throw YInvalidArgumentException(
      stringWithFormat("%s: mutating method sent to %s string", operation, _rep ? "immutable" : "null"));
}

void YString::insertStringAtIndex(const YString& string, std::size_t index) const {
  requireMutable("insertStringAtIndex");
  if (string.isNull()) throw YInvalidArgumentException(YString(u"insertStringAtIndex: nil argument"));
  auto* rep = static_cast<YMutableStringRep*>(_rep);
  if (index > rep->length) throwRange("insertStringAtIndex", index, 0, rep->length);
  std::size_t add = string.length();
  if (add == 0) return;
  // Keep the source stable when it is this very string (growing moves it).
  YString own;
  if (string.isIdenticalTo(*this)) own = string.copy();
  const YString& source = own.isNull() ? string : own;
  ensureCapacity(rep, rep->length + add);
  std::memmove(rep->buffer + index + add, rep->buffer + index, (rep->length - index) * sizeof(char16_t));
  std::memcpy(rep->buffer + index, source.characters(), add * sizeof(char16_t));
  rep->length = static_cast<std::uint32_t>(rep->length + add);
}

void YString::appendString(const YString& string) const {
  requireMutable("appendString");
  if (string.isNull()) throw YInvalidArgumentException(YString(u"appendString: nil argument"));
  insertStringAtIndex(string, _rep->length);
}

void YString::appendCharacters(const char16_t* chars, std::size_t len) const {
  requireMutable("appendCharacters");
  auto* rep = static_cast<YMutableStringRep*>(_rep);
  if (len > kMaxLength - rep->length) throw std::bad_alloc();  // before the sum below could wrap
  std::less<const char16_t*> before;
  if (len && !before(chars, rep->buffer) && before(chars, rep->buffer + rep->capacity)) {
    // The characters are this string's own: growing the buffer would move them.
    std::u16string own(chars, len);
    ensureCapacity(rep, rep->length + len);
    std::memcpy(rep->buffer + rep->length, own.data(), len * sizeof(char16_t));
    rep->length = static_cast<std::uint32_t>(rep->length + len);
    return;
  }
  ensureCapacity(rep, rep->length + len);
  if (len) std::memmove(rep->buffer + rep->length, chars, len * sizeof(char16_t));
  rep->length = static_cast<std::uint32_t>(rep->length + len);
}

void YString::appendPiecesSlowly(std::initializer_list<std::u16string_view> pieces) const {
  requireMutable("appendPieces");
  auto* rep = static_cast<YMutableStringRep*>(_rep);
  std::size_t total = 0;
  for (auto piece : pieces) total += piece.size();
  if (total > rep->capacity - rep->length) {
    // The buffer grows, and a piece of this string's own text would move
    // with it: such pieces are copied out first.
    std::less<const char16_t*> before;
    for (auto piece : pieces) {
      if (!piece.empty() && !before(piece.data(), rep->buffer) && before(piece.data(), rep->buffer + rep->capacity)) {
        std::u16string all;
        for (auto each : pieces) all.append(each);
        appendCharacters(all.data(), all.size());
        return;
      }
    }
    if (total > kMaxLength) throw std::bad_alloc();
    ensureCapacity(rep, rep->length + total);
  }
  // Room enough: the pieces, within the text, lie before where they go.
  char16_t* out = rep->buffer + rep->length;
  for (auto piece : pieces) {
    ydetail::copyUnits(out, piece.data(), piece.size());
    out += piece.size();
  }
  rep->length = static_cast<std::uint32_t>(rep->length + total);
}

void YString::deleteCharactersInRange(std::size_t location, std::size_t len) const {
  requireMutable("deleteCharactersInRange");
  auto* rep = static_cast<YMutableStringRep*>(_rep);
  if (location > rep->length || len > rep->length - location) throwRange("deleteCharactersInRange", location, len, rep->length);
  std::memmove(rep->buffer + location, rep->buffer + location + len,
               (rep->length - location - len) * sizeof(char16_t));
  rep->length = static_cast<std::uint32_t>(rep->length - len);
}

void YString::setString(const YString& string) const {
  requireMutable("setString");
  YString source = string.copy();
  static_cast<YMutableStringRep*>(_rep)->length = 0;
  if (!source.isNull()) appendString(source);
}

// ---- formatting ------------------------------------------------------------

namespace {

// One directive as written: "%", flags, width, precision, a length modifier
// (ignored: each argument carries its own type), the conversion.
struct Directive {
  std::string_view text;          // from the percent sign to the conversion
  std::string flags;              // of "-+ #0", in the order written
  std::size_t width = 0;          // 0 when none
  std::size_t precision = YString::npos;  // npos when none
  char conversion = 0;
  bool leftAligned() const noexcept { return flags.find('-') != std::string::npos; }
};

// The directive for naming in a message, cut short when very long.
YString shownDirective(std::string_view text) {
  constexpr std::size_t kShown = 32;
  const YString shown = YString::stringWithLatin1Characters(text.data(), std::min(text.size(), kShown));
  return text.size() <= kShown ? shown : YString::stringWithFormat("%@...", shown);
}

// Reads the directive at `percent`; the conversion is the last character
// read. A directive out of order, with a field above the limit, or cut off by
// the end of the format throws YInvalidArgumentException.
Directive readDirective(const char* percent) {
  Directive d;
  const char* q = percent + 1;
  while (*q && std::strchr("-+ #0", *q)) d.flags.push_back(*q++);
  auto number = [&q] {
    std::size_t value = 0;  // stops growing past the limit, so it cannot overflow
    for (; *q >= '0' && *q <= '9'; ++q)
      if (value <= YString::formatFieldLimit) value = value * 10 + static_cast<std::size_t>(*q - '0');
    return value;
  };
  d.width = number();
  if (*q == '.') {
    ++q;
    d.precision = number();
  }
  if ((q[0] == 'h' && q[1] == 'h') || (q[0] == 'l' && q[1] == 'l')) q += 2;
  else if (*q && std::strchr("hlqLjzt", *q)) ++q;
  d.conversion = *q;
  if (!d.conversion) throw YInvalidArgumentException(YString(u"stringWithFormat: incomplete directive"));
  d.text = std::string_view(percent, static_cast<std::size_t>(q + 1 - percent));
  if (std::strchr("-+ #0123456789.*$hlqLjzt", d.conversion))
    throw YInvalidArgumentException(
        YString::stringWithFormat("stringWithFormat: malformed directive %@", shownDirective(d.text)));
  if (!std::strchr("@sdiuxXocfFeEgGp", d.conversion))
    throw YInvalidArgumentException(
        YString::stringWithFormat("stringWithFormat: unknown directive %@", shownDirective(d.text)));
  if (d.width > YString::formatFieldLimit || (d.precision != YString::npos && d.precision > YString::formatFieldLimit))
    throw YInvalidArgumentException(YString::stringWithFormat("stringWithFormat: width or precision above %zu in %@",
                                                              YString::formatFieldLimit, shownDirective(d.text)));
  return d;
}

// The directive for the C library: its flags and fields, then `conversion`
// (with the length modifier the value passed needs).
std::string cDirective(const Directive& d, std::string_view conversion) {
  std::string f = "%" + d.flags;
  if (d.width) f += std::to_string(d.width);
  if (d.precision != YString::npos) f += "." + std::to_string(d.precision);
  return f.append(conversion);
}

// What snprintf writes for `value`, whole: the fields are bounded, so is it.
template <class Value>
std::string cPrinted(const std::string& format, Value value) {
  char small[128];
  const int n = std::snprintf(small, sizeof small, format.c_str(), value);
  if (n < 0)
    throw YInvalidArgumentException(YString::stringWithFormat("stringWithFormat: cannot print %s", format.c_str()));
  if (static_cast<std::size_t>(n) < sizeof small) return std::string(small, static_cast<std::size_t>(n));
  std::string large(static_cast<std::size_t>(n), '\0');
  std::snprintf(large.data(), large.size() + 1, format.c_str(), value);
  return large;
}

// UTF-8 text as code units; text that is not UTF-8 is taken as Latin-1 bytes.
std::u16string unitsOfText(std::string_view text) {
  std::u16string units;
  if (!decodeUTF8(text, units)) units.assign(text.begin(), text.end());
  return units;
}

// Appends `text` as a field: with a precision, at most that many code units
// (cut before a surrogate pair rather than through it); padded with spaces to
// the width, on the left unless the directive has '-'.
void appendField(std::u16string& out, std::u16string_view text, const Directive& d, bool cuts) {
  if (cuts && d.precision < text.size()) {
    std::size_t n = d.precision;
    if (n > 0 && text[n - 1] >= 0xD800 && text[n - 1] <= 0xDBFF && text[n] >= 0xDC00 && text[n] <= 0xDFFF) --n;
    text = text.substr(0, n);
  }
  const std::size_t pad = d.width > text.size() ? d.width - text.size() : 0;
  if (!d.leftAligned()) out.append(pad, u' ');
  out += text;
  if (d.leftAligned()) out.append(pad, u' ');
}

}  // namespace

YString YString::formatWithArguments(const char* format, const YFormatArg* args, std::size_t count) {
  if (!format) throw YInvalidArgumentException(YString(u"stringWithFormat: nil format"));
  std::u16string out;
  std::size_t next = 0;
  auto take = [&](const char* directive) -> const YFormatArg& {
    if (next >= count)
      throw YInvalidArgumentException(stringWithFormat("stringWithFormat: no argument for %s", directive));
    return args[next++];
  };
  auto appendUTF8Text = [&](std::string_view text) { out += unitsOfText(text); };
  auto wrongKind = [](const char* directive) {
    throw YInvalidArgumentException(stringWithFormat("stringWithFormat: wrong argument kind for %s", directive));
  };
  const char* p = format;
  while (*p) {
    const char* percent = std::strchr(p, '%');
    if (!percent) {
      appendUTF8Text(p);
      break;
    }
    appendUTF8Text(std::string_view(p, static_cast<std::size_t>(percent - p)));
    if (percent[1] == '%') {
      out.push_back(u'%');
      p = percent + 2;
      continue;
    }
    const Directive d = readDirective(percent);
    const char conv = d.conversion;
    p = d.text.data() + d.text.size();
    switch (conv) {
      case '@':
      case 's': {
        const char* name = conv == '@' ? "%@" : "%s";
        const YFormatArg& a = take(name);
        if (a.kind() == YFormatArg::Kind::String) {
          appendField(out, a.string().isNull() ? u"(null)" : a.string().view(), d, true);
        } else if (a.kind() == YFormatArg::Kind::Object && conv == '@') {
          appendField(out, a.object() ? a.object()->description().view() : u"(null)", d, true);
        } else if (a.kind() == YFormatArg::Kind::CString) {
          appendField(out, unitsOfText(a.cstring() ? a.cstring() : "(null)"), d, true);
        } else {
          wrongKind(name);
        }
        break;
      }
      case 'd': case 'i': case 'u': case 'x': case 'X': case 'o': case 'c': {
        const YFormatArg& a = take("an integer directive");
        long long sv = 0;
        unsigned long long uv = 0;
        if (a.kind() == YFormatArg::Kind::Signed) sv = a.signedValue(), uv = static_cast<unsigned long long>(sv);
        else if (a.kind() == YFormatArg::Kind::Unsigned) uv = a.unsignedValue(), sv = static_cast<long long>(uv);
        else wrongKind("an integer directive");
        if (conv == 'c') {
          // A negative char is a byte, as in C; other values are code points.
          const bool isSigned = a.kind() == YFormatArg::Kind::Signed;
          if (isSigned && sv < 0 && a.integerSize() == 1) uv = static_cast<unsigned char>(sv);
          else if ((isSigned && sv < 0) || uv > 0x10FFFF || (uv >= 0xD800 && uv <= 0xDFFF))
            throw YInvalidArgumentException(
                formatWithArguments("stringWithFormat: %%c of %d, which is not a code point", &a, 1));
          std::u16string units;
          ydetail::appendUTF16(units, static_cast<char32_t>(uv));
          appendField(out, units, d, false);
          break;
        }
        if (conv == 'd' || conv == 'i') {
          // An unsigned argument prints unsigned, as printf prints its type.
          if (a.kind() == YFormatArg::Kind::Signed) appendUTF8Text(cPrinted(cDirective(d, "lld"), sv));
          else appendUTF8Text(cPrinted(cDirective(d, "llu"), uv));
          break;
        }
        // The bits of the argument's own type after C's promotion (at least an int's).
        const std::size_t bits = 8 * std::max(a.integerSize(), sizeof(int));
        if (bits < 64) uv &= (1ull << bits) - 1;
        appendUTF8Text(cPrinted(cDirective(d, std::string("ll") + conv), uv));
        break;
      }
      case 'f': case 'g': case 'e': case 'F': case 'G': case 'E': {
        const YFormatArg& a = take("a number directive");
        double v = a.kind() == YFormatArg::Kind::Double     ? a.doubleValue()
                   : a.kind() == YFormatArg::Kind::Signed   ? static_cast<double>(a.signedValue())
                   : a.kind() == YFormatArg::Kind::Unsigned ? static_cast<double>(a.unsignedValue())
                                                            : (wrongKind("a number directive"), 0.0);
        appendUTF8Text(cPrinted(cDirective(d, std::string(1, conv)), v));
        break;
      }
      case 'p': {
        const YFormatArg& a = take("%p");
        const void* ptr = a.kind() == YFormatArg::Kind::Pointer ? a.pointer()
                          : a.kind() == YFormatArg::Kind::Object ? static_cast<const void*>(a.object())
                                                                 : (wrongKind("%p"), nullptr);
        const std::string text = cPrinted(std::string("%p"), ptr);
        appendField(out, unitsOfText(text), d, false);
        break;
      }
    }
  }
  return YString(std::u16string_view(out));
}

// ---- constants and printing ----------------------------------------------


std::ostream& operator<<(std::ostream& os, const YString& s) {
  if (s.isNull()) return os << "(null)";
  return os << '"' << s.UTF8String() << '"';
}
