#include "YIniLineRecognizer.h"

#include <atomic>
#include <bit>
#include <cstdint>

#if defined(__SSE2__)
#include <emmintrin.h>
#endif

namespace {

std::atomic<bool> gEnabled{true};
thread_local std::size_t tTokens = 0;

// The searches along a line: the first position in [from, end) holding one
// of the wanted code units, or `end`. Lines run to tens of code units, so
// with SSE2 eight are compared at a time; the last few of the text (and
// every one without SSE2) one by one. Loads stay inside [from, end).
#if defined(__SSE2__)
// Sixteen bytes of the text at `at`: eight UTF-16 units, or sixteen of ASCII.
template <class Unit>
inline __m128i unitsAt(const Unit* text, std::size_t at) noexcept {
  return _mm_loadu_si128(reinterpret_cast<const __m128i*>(text + at));
}
inline __m128i equalUnits(__m128i units, char16_t c, const char16_t*) noexcept {
  return _mm_cmpeq_epi16(units, _mm_set1_epi16(static_cast<short>(c)));
}
inline __m128i equalUnits(__m128i units, char16_t c, const char*) noexcept {
  return _mm_cmpeq_epi8(units, _mm_set1_epi8(static_cast<char>(c)));
}
// `at` plus the lane of the first set lane of `hits`, or -1 when none is set.
template <class Unit>
inline std::size_t firstHit(std::size_t at, __m128i hits) noexcept {
  const auto bits = static_cast<unsigned>(_mm_movemask_epi8(hits));
  return bits == 0 ? std::size_t(-1) : at + static_cast<std::size_t>(std::countr_zero(bits)) / sizeof(Unit);
}
#endif

template <class Unit>
inline std::size_t lineFeedFrom(const Unit* text, std::size_t from, std::size_t end) noexcept {
#if defined(__SSE2__)
  constexpr std::size_t kLanes = 16 / sizeof(Unit);
  for (; end - from >= kLanes; from += kLanes) {
    const std::size_t hit = firstHit<Unit>(from, equalUnits(unitsAt(text, from), u'\n', text));
    if (hit != std::size_t(-1)) return hit;
  }
#endif
  while (from < end && text[from] != '\n') ++from;
  return from;
}

template <class Unit>
inline std::size_t equalsOrLineFeedFrom(const Unit* text, std::size_t from, std::size_t end) noexcept {
#if defined(__SSE2__)
  constexpr std::size_t kLanes = 16 / sizeof(Unit);
  for (; end - from >= kLanes; from += kLanes) {
    const __m128i units = unitsAt(text, from);
    const std::size_t hit =
        firstHit<Unit>(from, _mm_or_si128(equalUnits(units, u'\n', text), equalUnits(units, u'=', text)));
    if (hit != std::size_t(-1)) return hit;
  }
#endif
  while (from < end && text[from] != '=' && text[from] != '\n') ++from;
  return from;
}

using Kind = YIniLineRecognizer::Kind;

inline void setToken(YIniLineRecognizer::Line& line, Kind kind, std::size_t start, std::size_t end) noexcept {
  line.kind = kind;
  line.start = start;
  line.end = end;
}

}  // namespace

void YIniLineRecognizer::setEnabled(bool enabled) noexcept { gEnabled.store(enabled, std::memory_order_relaxed); }

bool YIniLineRecognizer::isEnabled() noexcept { return gEnabled.load(std::memory_order_relaxed); }

std::size_t YIniLineRecognizer::tokensOnThisThread() noexcept { return tTokens; }

namespace {

// The recogniser over UTF-16 units or ASCII bytes: the rules' characters are
// all ASCII, so both read alike.
template <class Unit>
[[gnu::always_inline]] inline bool recognize(const Unit* s, std::size_t n, std::size_t p,
                                             YIniLineRecognizer::Line& line) noexcept {
  if (p >= n) return false;
  ++tTokens;
  const Unit c = s[p];
  if (c == u'#') {  // 1: the end-of-line rule, which leaves a CR LF out ("#" is no CR)
    std::size_t end = lineFeedFrom(s, p + 1, n);
    if (end < n && s[end - 1] == u'\r') --end;
    setToken(line, Kind::comment, p, end);
    return true;
  }
  if (c == u'\n') {  // 2
    setToken(line, Kind::newLine, p, p + 1);
    return true;
  }
  if (c == u'\r' && p + 1 < n && s[p + 1] == u'\n') {
    setToken(line, Kind::newLine, p, p + 2);
    return true;
  }
  if (c == u'[') {  // 3: ".+" is greedy, so the name runs to the line's last "]"
    const std::size_t lf = lineFeedFrom(s, p + 1, n);
    for (std::size_t close = lf; close > p + 2;) {
      if (s[--close] != u']') continue;
      setToken(line, Kind::section, p, close + 1);
      line.keyStart = p + 1;
      line.keyEnd = close;
      return true;
    }
    // Not a header: the line is read by the rules below.
  }
  if (c == u' ') {  // 5, 6; the option rules refuse a leading space
    const std::size_t lf = lineFeedFrom(s, p + 1, n);
    if (lf < n && lf - p >= 2) {
      setToken(line, Kind::fragment, p, lf + 1);
      line.keyStart = p;
      line.keyEnd = lf + 1;
      return true;
    }
    if (lf == n && n - p >= 2) {
      setToken(line, Kind::fragmentTerminating, p, n);  // its map names no group of its pattern
      return true;
    }
    setToken(line, Kind::unknown, p, lf);  // 8
    return true;
  }
  // 4, 7: the lazy key ends at the line's first "=".
  const std::size_t equals = equalsOrLineFeedFrom(s, p, n);
  if (equals < n && s[equals] == u'=') {
    const std::size_t lf = lineFeedFrom(s, equals + 1, n);
    const std::size_t end = lf < n ? lf + 1 : n;
    setToken(line, lf < n ? Kind::option : Kind::optionTerminating, p, end);
    line.keyStart = p;
    line.keyEnd = equals;
    line.valueStart = equals + 1;
    line.valueEnd = end;
    return true;
  }
  setToken(line, Kind::unknown, p, equals);  // 8: `equals` stopped at the line end
  return true;
}

}  // namespace

bool YIniLineRecognizer::lineAtPosition(std::u16string_view text, std::size_t position, Line& line) noexcept {
  return recognize(text.data(), text.size(), position, line);
}

bool YIniLineRecognizer::lineAtPosition(std::string_view ascii, std::size_t position, Line& line) noexcept {
  return recognize(ascii.data(), ascii.size(), position, line);
}

bool YIniLineRecognizer::tokenAtPosition(std::u16string_view text, std::size_t position, const Classes& classes,
                                         YTokenMatch& match) {
  Line line;
  if (!lineAtPosition(text, position, line)) return false;
  const YTokenClass* const byKind[] = {classes.comment,  classes.newLine,          classes.section,
                                       classes.option,   classes.fragment,         classes.fragmentTerminating,
                                       classes.optionTerminating, classes.unknown};
  match.reset();
  match.tokenClass = byKind[static_cast<std::size_t>(line.kind)];
  match.position = static_cast<std::int32_t>(line.start);
  match.length = static_cast<std::int32_t>(line.end - line.start);
  auto group = [&](const YTokenClass* tokenClass, std::size_t start, std::size_t end) {
    match.subtokens.push_back(
        {tokenClass, static_cast<std::int32_t>(start - line.start), static_cast<std::int32_t>(end - start)});
  };
  switch (line.kind) {
    case Kind::section:
    case Kind::fragment:
      group(classes.key, line.keyStart, line.keyEnd);
      break;
    case Kind::option:
    case Kind::optionTerminating:
      group(classes.key, line.keyStart, line.keyEnd);
      group(classes.value, line.valueStart, line.valueEnd);
      break;
    default:
      break;
  }
  return true;
}
