#include "YUTF8Writer.h"

#include <algorithm>
#include <cstring>

#if defined(__SSE2__)
#include <emmintrin.h>
#endif

#include "YException.h"
#include "YStringEncoding.h"

namespace {
bool isHigh(char16_t c) { return c >= 0xD800 && c <= 0xDBFF; }
bool isLow(char16_t c) { return c >= 0xDC00 && c <= 0xDFFF; }

// Copies the leading ASCII units of `units` (n of them) to `out` as bytes;
// returns how many were copied. With SSE2, eight at a time, the last eight
// of a piece of eight or more overlapping the ones before; a piece of four
// to seven as its first and last four.
[[gnu::always_inline]] inline std::size_t copyASCII(const char16_t* units, std::size_t n, char* out) noexcept {
  if (n == 1) {  // "=", a line end
    if (units[0] >= 0x80) return 0;
    *out = static_cast<char>(units[0]);
    return 1;
  }
  std::size_t i = 0;
#if defined(__SSE2__)
  const __m128i high = _mm_set1_epi16(static_cast<short>(0xFF80));
  if (n >= 4 && n < 8) {
    const __m128i first = _mm_loadl_epi64(reinterpret_cast<const __m128i*>(units));
    const __m128i last = _mm_loadl_epi64(reinterpret_cast<const __m128i*>(units + n - 4));
    const __m128i either = _mm_and_si128(_mm_or_si128(first, last), high);
    if (_mm_movemask_epi8(_mm_cmpeq_epi16(either, _mm_setzero_si128())) == 0xFFFF) {
      const auto head = static_cast<std::uint32_t>(_mm_cvtsi128_si32(_mm_packus_epi16(first, first)));
      const auto tail = static_cast<std::uint32_t>(_mm_cvtsi128_si32(_mm_packus_epi16(last, last)));
      std::memcpy(out, &head, 4);
      std::memcpy(out + n - 4, &tail, 4);
      return n;
    }
  }
  if (n >= 8) {
    auto block = [&](std::size_t at) {
      const __m128i v = _mm_loadu_si128(reinterpret_cast<const __m128i*>(units + at));
      if (_mm_movemask_epi8(_mm_cmpeq_epi16(_mm_and_si128(v, high), _mm_setzero_si128())) != 0xFFFF) return false;
      _mm_storel_epi64(reinterpret_cast<__m128i*>(out + at), _mm_packus_epi16(v, v));
      return true;
    };
    for (; i + 8 <= n; i += 8)
      if (!block(i)) break;
    if (i + 8 > n && i < n && block(n - 8)) return n;
  }
#endif
  for (; i < n && units[i] < 0x80; ++i) out[i] = static_cast<char>(units[i]);
  return i;
}
}  // namespace

YUTF8Writer::YUTF8Writer(std::size_t capacity) {
  if (capacity) grow(capacity);
}

void YUTF8Writer::grow(std::size_t more) {
  if (more > SIZE_MAX / 2 - _size) throw std::bad_alloc();
  _bytes.resize(std::max(_size + more, _bytes.size() * 2));
}

void YUTF8Writer::encode(std::u16string_view units) {
  char* const out = reserve(ydetail::utf8Length(units));
  _size += static_cast<std::size_t>(ydetail::writeUTF8(units, out) - out);
}

void YUTF8Writer::seek(std::int64_t position) {
  if (position < 0 || static_cast<std::uint64_t>(position) != _units)
    throw YRangeException(YString(u"YUTF8Writer only appends"));
}

void YUTF8Writer::append(std::u16string_view units) {
  if (units.empty()) return;
  if (!_high) {
    // ASCII, nearly all of an INI file: copied in one pass. The rest, from
    // the first other unit on, takes the general path below.
    const std::size_t i = copyASCII(units.data(), units.size(), reserve(units.size()));
    _size += i;
    _units += i;
    if (i == units.size()) return;
    units.remove_prefix(i);
  }
  // A pair split between two pieces is joined; a surrogate without its pair
  // is noted (and encoded as U+FFFD, though finish() then fails).
  if (_high) {
    const char16_t pair[2] = {_high, units[0]};
    _high = 0;
    if (isLow(units[0])) {
      encode(std::u16string_view(pair, 2));
      _units += 2;
      units.remove_prefix(1);
    } else {
      if (_loneSurrogate == UINT64_MAX) _loneSurrogate = _units;
      encode(std::u16string_view(pair, 1));
      _units += 1;
    }
  }
  char16_t held = 0;
  if (!units.empty() && isHigh(units.back())) {
    held = units.back();
    units.remove_suffix(1);
  }
  if (_loneSurrogate == UINT64_MAX) {
    for (std::size_t i = 0; i < units.size(); ++i) {
      if (isHigh(units[i]) && i + 1 < units.size() && isLow(units[i + 1])) {
        ++i;
      } else if (isHigh(units[i]) || isLow(units[i])) {
        _loneSurrogate = _units + i;
        break;
      }
    }
  }
  encode(units);
  _units += units.size();
  _high = held;
}

void YUTF8Writer::write(const YString& string) {
  if (string.isNull()) throw YInvalidArgumentException(YString(u"-[YUTF8Writer write:]: nil argument"));
  append(string.view());
}

void YUTF8Writer::writeLine(const YString& string) {
  write(string);
  writeLine();
}

void YUTF8Writer::writeLine() { append(u"\n"); }

void YUTF8Writer::writePieces(std::initializer_list<std::u16string_view> pieces) {
  auto piece = pieces.begin();
  if (!_high) {
    // Room for all of them as ASCII at once; a piece that is not ASCII goes
    // on, from its first other unit, through append(). The end is counted
    // in a local: stores through a char pointer could alias the members.
    std::size_t total = 0;
    for (std::u16string_view each : pieces) total += each.size();
    char* const start = reserve(total);
    char* out = start;
    std::size_t rest = 0;  // of the piece that is not all ASCII, the units after its ASCII start
    for (; piece != pieces.end(); ++piece) {
      const std::size_t i = copyASCII(piece->data(), piece->size(), out);
      out += i;
      if (i != piece->size()) {
        rest = piece->size() - i;
        break;
      }
    }
    const auto written = static_cast<std::size_t>(out - start);
    _size += written;
    _units += written;
    if (piece == pieces.end()) return;
    append(piece->substr(piece->size() - rest));
    ++piece;
  }
  for (; piece != pieces.end(); ++piece) append(*piece);
}

void YUTF8Writer::writeOptionLine(std::u16string_view name, std::u16string_view value) {
  // Both ASCII, as nearly always, with no first half of a pair waiting:
  // copied with the two fixed bytes between and after them, without the
  // general loop over pieces.
  const std::size_t total = name.size() + value.size() + 2;
  char* const out = reserve(total);
  if (!_high && copyASCII(name.data(), name.size(), out) == name.size()) {
    out[name.size()] = '=';
    char* const rest = out + name.size() + 1;
    if (copyASCII(value.data(), value.size(), rest) == value.size()) {
      rest[value.size()] = '\n';
      _size += total;
      _units += total;
      return;
    }
  }
  writePieces({name, u"=", value, u"\n"});
}

bool YUTF8Writer::finish(std::shared_ptr<YError>* error) {
  if (_high) {
    if (_loneSurrogate == UINT64_MAX) _loneSurrogate = _units;
    const char16_t lone[1] = {_high};
    _high = 0;
    encode(std::u16string_view(lone, 1));
    _units += 1;
  }
  if (_loneSurrogate == UINT64_MAX) return true;
  if (error)
    *error = YError::errorWithDomainCodeDescription(
        YFoundationErrorDomain, YFileWriteInapplicableStringEncodingError,
        YString::stringWithFormat("The text holds a lone surrogate at position %llu, which UTF-8 cannot represent",
                                  static_cast<unsigned long long>(_loneSurrogate)));
  return false;
}
