#include "YIniSourceRecord.h"

#include <algorithm>
#include <array>
#include <atomic>
#include <cstring>
#include <map>

#if defined(__SSE2__)
#include <emmintrin.h>
#endif

#include "YCharacterSet.h"
#include "YIniComment.h"
#include "YIniOption.h"
#include "YIniSection.h"

namespace {

// A check of an element's identity: its address, folded to 32 bits and
// never 0. Two elements alive at once never share an address; one that
// took over a dead element's address carries another record's salt.
std::uint32_t identityCheck(const YIniElement& element) {
  const auto address = reinterpret_cast<std::uintptr_t>(&element);
  const auto folded = static_cast<std::uint32_t>((address >> 4) ^ (address >> 36));
  return folded ? folded : 1;
}

// Entry numbers stay below bit 30, which every salt has set.
constexpr std::uint32_t kSaltBit = 0x40000000u;

// A new record's salt: distinct from the salts of the records before it in
// the process (a bijective mix of a counter), bit 30 set.
std::uint32_t newSalt() noexcept {
  static std::atomic<std::uint64_t> counter{0};
  std::uint64_t x = counter.fetch_add(1, std::memory_order_relaxed) * 0x9E3779B97F4A7C15ull;
  x = (x ^ (x >> 30)) * 0xBF58476D1CE4E5B9ull;
  x = (x ^ (x >> 27)) * 0x94D049BB133111EBull;
  x ^= x >> 31;
  return (static_cast<std::uint32_t>(x) & (kSaltBit - 1)) | kSaltBit;
}

// The first U+FFFD at or after `from`. Nearly every text has none: blocks
// of 32 units are compared at once (with SSE2, four loads of eight), and
// only a block holding one is searched unit by unit.
std::size_t findReplacementCharacter(std::u16string_view text, std::size_t from = 0) {
  const char16_t* c = text.data();
  std::size_t i = from;
  for (; i + 32 <= text.size(); i += 32) {
#if defined(__SSE2__)
    const __m128i replacement = _mm_set1_epi16(static_cast<short>(0xFFFD));
    auto block = [&](std::size_t at) {
      return _mm_cmpeq_epi16(_mm_loadu_si128(reinterpret_cast<const __m128i*>(c + at)), replacement);
    };
    const __m128i hits =
        _mm_or_si128(_mm_or_si128(block(i), block(i + 8)), _mm_or_si128(block(i + 16), block(i + 24)));
    if (_mm_movemask_epi8(hits)) break;
#else
    unsigned hit = 0;
    for (std::size_t k = 0; k < 32; ++k) hit |= c[i + k] == u'\uFFFD';
    if (hit) break;
#endif
  }
  return text.find(u'\uFFFD', i);
}

// The blanks trimmed from names, values and lines: the whitespace set, or
// the whitespace and newline set.
enum class Blanks { Whitespace, WhitespaceAndNewlines };

// Membership in the set, answered without it for ASCII, where whitespace is
// space and tab, and newlines LF to CR.
template <Blanks set>
constexpr std::array<bool, 0x80> kASCIIBlanks = [] {
  std::array<bool, 0x80> blanks{};
  blanks[' '] = blanks['\t'] = true;
  if (set == Blanks::WhitespaceAndNewlines)
    for (char c = '\n'; c <= '\r'; ++c) blanks[static_cast<unsigned char>(c)] = true;
  return blanks;
}();

template <Blanks set>
inline bool isBlank(char16_t c) {
  if (c < 0x80) return kASCIIBlanks<set>[c];
  return (set == Blanks::Whitespace ? YIniWhitespace() : YIniWhitespaceAndNewlines()).characterIsMember(c);
}

// The helpers below read the text as UTF-16 (std::u16string_view) or as
// ASCII bytes (std::string_view), whose bytes are the code units of the same
// value: see YIniSourceRecord::withText().

// [begin, end) without leading and trailing members of `set`.
template <Blanks set, class Text>
[[gnu::always_inline]] inline void trim(Text text, std::uint32_t& begin, std::uint32_t& end) {
  while (begin < end && isBlank<set>(static_cast<char16_t>(text[begin]))) ++begin;
  while (end > begin && isBlank<set>(static_cast<char16_t>(text[end - 1]))) --end;
}

// The position of the first `unit` at or after `from` and before `end`, or
// `end`. In bytes sixteen at a time (with SSE2), reading on past `end`
// where the text goes on: a line's "=" and line end are near.
inline std::uint32_t findUnit(std::string_view text, char unit, std::uint32_t from, std::uint32_t end) {
  std::uint32_t i = from;
#if defined(__SSE2__)
  const __m128i wanted = _mm_set1_epi8(unit);
  for (; i < end && i + 16 <= text.size(); i += 16) {
    const __m128i block = _mm_loadu_si128(reinterpret_cast<const __m128i*>(text.data() + i));
    if (const unsigned hits = static_cast<unsigned>(_mm_movemask_epi8(_mm_cmpeq_epi8(block, wanted)))) {
      const std::uint32_t at = i + static_cast<std::uint32_t>(__builtin_ctz(hits));
      return at < end ? at : end;
    }
  }
#endif
  for (; i < end; ++i)
    if (text[i] == unit) return i;
  return end;
}
inline std::uint32_t findUnit(std::u16string_view text, char unit, std::uint32_t from, std::uint32_t end) {
  const char16_t* p = text.data();
  for (std::uint32_t i = from; i < end; ++i)
    if (p[i] == static_cast<char16_t>(unit)) return i;
  return end;
}

// The position of the first LF at or after `from` and before `end`, or `end`.
template <class Text>
std::uint32_t findLineFeed(Text text, std::uint32_t from, std::uint32_t end) {
  return findUnit(text, '\n', from, end);
}

// Whether the code units of `units` and `text` are the same: for a few
// units known here (line ends), and for names and values below.
template <class Text>
bool sameFewUnits(std::u16string_view units, Text text) noexcept {
  if (units.size() != text.size()) return false;
  for (std::size_t i = 0; i < units.size(); ++i)
    if (units[i] != static_cast<char16_t>(text[i])) return false;
  return true;
}
inline bool sameUnits(std::u16string_view units, std::u16string_view text) noexcept { return units == text; }
inline bool sameUnits(std::u16string_view units, std::string_view text) noexcept {
  const std::size_t n = units.size();
  if (n != text.size()) return false;
  std::size_t i = 0;
#if defined(__SSE2__)
  // Names and values: eight at a time, the bytes widened to units; the last
  // eight of a piece of eight or more overlap the ones before.
  if (n >= 8) {
    const __m128i zero = _mm_setzero_si128();
    auto block = [&](std::size_t at) {
      const __m128i bytes = _mm_loadl_epi64(reinterpret_cast<const __m128i*>(text.data() + at));
      const __m128i theirs = _mm_loadu_si128(reinterpret_cast<const __m128i*>(units.data() + at));
      return _mm_movemask_epi8(_mm_cmpeq_epi16(_mm_unpacklo_epi8(bytes, zero), theirs)) == 0xFFFF;
    };
    for (; i + 8 <= n; i += 8)
      if (!block(i)) return false;
    return i == n || block(n - 8);
  }
  if (n >= 4) {  // the first four and the last four, which may overlap
    auto four = [&](std::size_t at) {
      std::uint32_t word;
      std::memcpy(&word, text.data() + at, sizeof word);
      const __m128i wide = _mm_unpacklo_epi8(_mm_cvtsi32_si128(static_cast<int>(word)), _mm_setzero_si128());
      const __m128i theirs = _mm_loadl_epi64(reinterpret_cast<const __m128i*>(units.data() + at));
      const __m128i equal = _mm_cmpeq_epi16(wide, theirs);
      return (_mm_movemask_epi8(equal) & 0xFF) == 0xFF;
    };
    return four(0) && four(n - 4);
  }
#endif
  for (; i < n; ++i)
    if (units[i] != static_cast<char16_t>(static_cast<unsigned char>(text[i]))) return false;
  return true;
}

template <class Text>
bool sameText(Text text, std::uint32_t start, std::uint32_t end, const YString& string) {
  return !string.isNull() && string.length() == end - start && sameUnits(string.view(), text.substr(start, end - start));
}

// Whether `text` ends with the code units of `suffix`.
template <class Text>
bool endsWithUnits(Text text, std::u16string_view suffix) {
  return text.size() >= suffix.size() && sameFewUnits(suffix, text.substr(text.size() - suffix.size()));
}

// Whether `piece` is a line end on its own.
template <class Text>
bool isLineEndPiece(Text piece) {
  return sameFewUnits(u"\n", piece) || sameFewUnits(u"\r\n", piece);
}

// The snapshot kept for an entry, or null; nearly always none is kept, and
// the map is not searched then.
template <class Snapshots>
const std::pair<YString, YString>* keptSnapshot(const Snapshots& snapshots, std::size_t index) {
  if (snapshots.empty()) return nullptr;
  const auto kept = snapshots.find(static_cast<std::uint32_t>(index));
  return kept == snapshots.end() ? nullptr : &kept->second;
}

bool isUnicodeEncoding(YStringEncoding encoding) {
  switch (encoding) {
    case YUTF8StringEncoding:
    case YUTF16BigEndianStringEncoding:
    case YUTF16LittleEndianStringEncoding:
    case YUTF32BigEndianStringEncoding:
    case YUTF32LittleEndianStringEncoding:
      return true;
    default:
      return false;
  }
}

bool startsWith(std::string_view bytes, std::string_view prefix) { return bytes.substr(0, prefix.size()) == prefix; }

}  // namespace

const YCharacterSet& YIniWhitespace() {
  static const YCharacterSet set = YCharacterSet::whitespaceCharacterSet();
  return set;
}

const YCharacterSet& YIniWhitespaceAndNewlines() {
  static const YCharacterSet set = YCharacterSet::whitespaceAndNewlineCharacterSet();
  return set;
}

YIniSourceRecord::YIniSourceRecord(const YString& text)
    : _text(text.copy()), _length(_text.length()), _salt(newSalt()) {
  reserveEntries();
}

YIniSourceRecord::YIniSourceRecord(YFileBytes ascii) : _ascii(std::move(ascii)), _salt(newSalt()) {
  _length = _ascii.size();
  _isASCII = true;
  // ASCII decodes to the same text however it is read, and encodes back to
  // the same bytes: there is nothing to keep beside it.
  _hasBytes = true;
  reserveEntries();
}

void YIniSourceRecord::reserveEntries() {
  // Room for an entry per 16 units spares a typical file's lists their
  // growing copies (and a large file the pages of the copies it drops); the
  // room never used costs address space, not memory.
  const std::size_t expected = _length / 16 + 8;
  _bounds.reserve(expected + 1);
  _kinds.reserve(expected);
  _checks.reserve(expected);
}

std::u16string YIniSourceRecord::unitsOfRange(std::uint32_t start, std::uint32_t end) const {
  return withText([&](auto text) {
    const auto piece = text.substr(start, end - start);
    return std::u16string(piece.begin(), piece.end());
  });
}

YString YIniSourceRecord::stringOfRange(std::uint32_t start, std::uint32_t end) const {
  if (_isASCII) return YString::stringWithLatin1Characters(_ascii.view().data() + start, end - start);
  return YString::stringWithCharacters(_text.characters() + start, end - start);
}

void YIniSourceRecord::appendUnitsOfRange(std::uint32_t start, std::uint32_t end, const YString& out) const {
  if (!_isASCII) return out.appendCharacters(_text.characters() + start, end - start);
  // Widened a block at a time.
  char16_t units[1024];
  const char* bytes = _ascii.view().data();
  while (start < end) {
    const std::uint32_t n = std::min<std::uint32_t>(end - start, 1024);
    ydetail::widenLatin1(units, bytes + start, n);
    out.appendCharacters(units, n);
    start += n;
  }
}

// ---- recording ----------------------------------------------------------------

void YIniSourceRecord::appendEntry(Kind kind, std::uint32_t end) {
  _kinds.push_back(kind);
  _bounds.push_back(end);
  _checks.push_back(0);
}

void YIniSourceRecord::noteElement(Kind kind, std::uint32_t start, std::uint32_t end, YIniElement& element,
                                   const YString& first, const YString& second) {
  if (start < _bounds.back() || end < start) return;  // not in text order: the element is kept as new
  if (start > _bounds.back()) appendEntry(Kind::Skipped, start);
  const auto index = static_cast<std::uint32_t>(_kinds.size());
  appendEntry(kind, end);
  if (index + 1 >= kSaltBit) return;  // beyond what an element can carry: kept as new
  element._objectWord = (index + 1) ^ _salt;
  _checks.back() = identityCheck(element);
  if (kind == Kind::Option && ydetail::isExactly<YIniOption>(element)) {
    const auto& option = static_cast<YIniOption&>(element);
    if (!option.name().isMutable() && !option.value().isMutable()) element._objectWord |= kStringsAsNoted;
  }
  // The snapshot is what the element holds now, after the factory ran. It
  // is derived from the text unless the factory changed what it was given.
  if (kind == Kind::Section) {
    const YString& name = static_cast<YIniSection&>(element).name();
    if (!YIniStringsEqual(name, first)) _snapshots.emplace(index, std::make_pair(name.copy(), YString()));
  } else if (kind == Kind::Option) {
    const auto& option = static_cast<YIniOption&>(element);
    if (!YIniStringsEqual(option.name(), first) || !YIniStringsEqual(option.value(), second))
      _snapshots.emplace(index, std::make_pair(option.name().copy(), option.value().copy()));
  } else if (ydetail::isExactly<YIniComment>(element)) {
    // The library's own comment: its text, without a call.
    const YString& text = static_cast<YIniComment&>(element)._string;
    if (!YIniStringsEqual(text, first)) _snapshots.emplace(index, std::make_pair(text.copy(), YString()));
  } else {
    const YString text = element.stringValue();
    if (!YIniStringsEqual(text, first)) _snapshots.emplace(index, std::make_pair(text.copy(), YString()));
  }
}

void YIniSourceRecord::noteStop(std::uint32_t position) {
  if (_stop == kNoStop) _stop = position;
}

void YIniSourceRecord::finish() {
  const auto length = static_cast<std::uint32_t>(_length);
  // The unread tail is an entry of its own, apart from skipped text right
  // before it (options before the first section), which stays at the head.
  if (_stop != kNoStop && _bounds.back() < _stop && _stop < length) appendEntry(Kind::Skipped, _stop);
  if (_bounds.back() < length) appendEntry(Kind::Skipped, length);
}

// ---- snapshots ---------------------------------------------------------------

std::int64_t YIniSourceRecord::indexOfElement(const YIniElement& element) const noexcept {
  const std::uint32_t carried = element._objectWord & ~kStringsAsNoted;
  if (carried == 0) return -1;
  const std::uint32_t word = carried ^ _salt;
  if (word == 0 || word > _kinds.size() || _checks[word - 1] != identityCheck(element)) return -1;
  return word - 1;
}

std::pair<std::uint32_t, std::uint32_t> YIniSourceRecord::sectionNameRange(std::size_t index) const {
  // "[" name "]": the brackets are the entry's first and last characters.
  std::uint32_t begin = start(index) + 1, finish = end(index) - 1;
  withText([&](auto text) { trim<Blanks::Whitespace>(text, begin, finish); });
  return {begin, finish};
}

bool YIniSourceRecord::sectionNameUnchanged(std::size_t index, const YString& name) const {
  if (const auto* kept = keptSnapshot(_snapshots, index))
    return YIniStringsEqual(name, kept->first);
  const auto range = sectionNameRange(index);
  return withText([&](auto text) { return sameText(text, range.first, range.second, name); });
}

YIniSourceRecord::OptionLayout YIniSourceRecord::optionLayout(std::size_t index) const {
  return optionLayoutOfRange(start(index), end(index));
}

YIniSourceRecord::OptionLayout YIniSourceRecord::optionLayoutOfRange(std::uint32_t s, std::uint32_t e) const {
  return withText([&](auto text) { return optionLayoutOfRangeIn(text, s, e); });
}

template <class Text>
YIniSourceRecord::OptionLayout YIniSourceRecord::optionLayoutOfRangeIn(Text text, std::uint32_t s, std::uint32_t e) {
  OptionLayout layout;
  // The key ends at the first "=" (the reader's lazy match).
  const std::uint32_t equals = findUnit(text, '=', s, e);
  layout.equals = equals;
  layout.nameStart = s;
  layout.nameEnd = equals;
  trim<Blanks::Whitespace>(text, layout.nameStart, layout.nameEnd);
  const std::uint32_t lf = findLineFeed(text, equals, e);
  layout.eolEnd = lf < e ? lf + 1 : e;
  layout.lineEnd = lf < e && lf > equals + 1 && text[lf - 1] == u'\r' ? lf - 1 : lf;
  layout.valueStart = equals + 1;
  layout.valueEnd = layout.lineEnd;
  trim<Blanks::WhitespaceAndNewlines>(text, layout.valueStart, layout.valueEnd);
  if (layout.valueStart == layout.valueEnd) {
    // An empty value: its place is after the blanks that follow "=".
    std::uint32_t p = equals + 1;
    while (p < layout.lineEnd && isBlank<Blanks::Whitespace>(static_cast<char16_t>(text[p]))) ++p;
    layout.valueStart = layout.valueEnd = p;
  }
  layout.contentEnd = layout.valueEnd;
  for (std::uint32_t line = layout.eolEnd; line < e;) {
    const std::uint32_t next = findLineFeed(text, line, e);
    std::uint32_t eol = next;
    if (next < e && next > line && text[next - 1] == u'\r') --eol;
    std::uint32_t cs = line, ce = eol;
    trim<Blanks::WhitespaceAndNewlines>(text, cs, ce);
    if (cs == ce) cs = ce = eol;
    if (layout.continuations++ == 0) {
      layout.firstIndentStart = line;
      layout.firstIndentEnd = cs;
    }
    layout.contentEnd = ce;
    line = next < e ? next + 1 : e;
  }
  return layout;
}

bool YIniSourceRecord::optionNameUnchanged(std::size_t index, const OptionLayout& layout, const YString& name) const {
  if (const auto* kept = keptSnapshot(_snapshots, index))
    return YIniStringsEqual(name, kept->first);
  return withText([&](auto text) { return sameText(text, layout.nameStart, layout.nameEnd, name); });
}

bool YIniSourceRecord::optionValueUnchanged(std::size_t index, const OptionLayout& layout,
                                            const YString& value) const {
  if (const auto* kept = keptSnapshot(_snapshots, index))
    return YIniStringsEqual(value, kept->second);
  if (value.isNull()) return false;
  return withText([&](auto text) { return valueUnchangedIn(text, index, layout, value); });
}

template <class Text>
bool YIniSourceRecord::valueUnchangedIn(Text text, std::size_t index, const OptionLayout& layout,
                                        const YString& value) const {
  if (layout.continuations == 0) return sameText(text, layout.valueStart, layout.valueEnd, value);
  // The reader joins continuation lines with LF and one space.
  const std::u16string_view current = value.view();
  const std::uint32_t e = end(index);
  std::size_t at = layout.valueEnd - layout.valueStart;
  if (!sameUnits(current.substr(0, at), text.substr(layout.valueStart, at))) return false;
  for (std::uint32_t line = layout.eolEnd; line < e;) {
    const std::uint32_t next = findLineFeed(text, line, e);
    std::uint32_t cs = line, ce = next;
    trim<Blanks::WhitespaceAndNewlines>(text, cs, ce);
    if (current.substr(at, 2) != u"\n ") return false;
    at += 2;
    if (!sameUnits(current.substr(at, ce - cs), text.substr(cs, ce - cs))) return false;
    at += ce - cs;
    line = next < e ? next + 1 : e;
  }
  return at == current.size();
}

bool YIniSourceRecord::commentUnchanged(std::size_t index, const YString& text) const {
  if (const auto* kept = keptSnapshot(_snapshots, index))
    return YIniStringsEqual(text, kept->first);
  if (kind(index) == Kind::Unknown) return !text.isNull() && text.length() == 0;
  return withText([&](auto source) { return sameText(source, start(index), end(index), text); });
}

bool YIniSourceRecord::isLineEndOfPreviousLine(std::size_t index) const noexcept {
  const std::uint32_t s = start(index);
  if (s == 0 || kind(index) != Kind::Comment) return false;
  return withText([&](auto text) { return isLineEndPiece(text.substr(s, end(index) - s)) && text[s - 1] != '\n'; });
}

std::vector<std::pair<std::uint32_t, std::uint32_t>> YIniSourceRecord::headOptionLines() const {
  // Before the first section, the reader drops option lines: the lines of a
  // skipped entry there, up to the stop, that hold "=" and begin with
  // neither "#" nor a space. A host factory that makes nothing for an
  // element ends the reading without a stop and leaves the rest skipped,
  // headers and comments too: the first header there ends the head.
  std::vector<std::pair<std::uint32_t, std::uint32_t>> lines;
  withText([&](auto text) {
    for (std::size_t i = 0; i < count() && kind(i) != Kind::Section; ++i) {
      if (kind(i) != Kind::Skipped) continue;
      const std::uint32_t e = std::min(end(i), _stop);
      for (std::uint32_t line = start(i); line < e;) {
        const std::uint32_t lf = findLineFeed(text, line, e);
        const std::uint32_t next = lf < e ? lf + 1 : e;
        const auto first = static_cast<char16_t>(text[line]);
        if (first == u'[' && findUnit(text, ']', line, next) < next) return;
        if (first != u'#' && first != u' ' && findUnit(text, '=', line, next) < next)
          lines.emplace_back(line, next);
        line = next;
      }
    }
  });
  return lines;
}

// ---- lines -------------------------------------------------------------------

const std::vector<std::uint32_t>& YIniSourceRecord::lineStarts() const {
  if (!_lineStarts) {
    auto starts = std::make_unique<std::vector<std::uint32_t>>();
    starts->push_back(0);
    withText([&](auto text) {
      for (std::size_t i = 0; i < text.size(); ++i)
        if (text[i] == '\n') starts->push_back(static_cast<std::uint32_t>(i + 1));
    });
    _lineStarts = std::move(starts);
  }
  return *_lineStarts;
}

std::size_t YIniSourceRecord::lineNumberAtPosition(std::uint32_t position) const {
  const auto& starts = lineStarts();
  return static_cast<std::size_t>(std::upper_bound(starts.begin(), starts.end(), position) - starts.begin());
}

std::size_t YIniSourceRecord::stopLineNumber() const { return readingStopped() ? lineNumberAtPosition(_stop) : 0; }

YString YIniSourceRecord::stopLineText() const {
  if (!readingStopped()) return {};
  const auto& starts = lineStarts();
  const std::uint32_t begin = starts[lineNumberAtPosition(_stop) - 1];
  std::uint32_t finish = withText(
      [&](auto text) { return findLineFeed(text, begin, static_cast<std::uint32_t>(text.size())); });
  if (finish > begin && finish < _length && unitAt(finish - 1) == u'\r') --finish;
  return stringOfRange(begin, finish);
}

// ---- style -------------------------------------------------------------------

const YIniSourceRecord::Style& YIniSourceRecord::fileStyle() const {
  if (_style) return *_style;
  _style = withText([&](auto text) { return styleOf(text); });
  return *_style;
}

template <class Text>
std::unique_ptr<YIniSourceRecord::Style> YIniSourceRecord::styleOf(Text text) const {
  auto style = std::make_unique<Style>();
  std::map<std::pair<Text, Text>, std::size_t> spacing;
  std::map<Text, std::size_t> indents;
  std::size_t sections = 0, sectionsAfterBlankLine = 0;
  for (std::size_t i = 0; i < count(); ++i) {
    if (kind(i) == Kind::Option) {
      // Only the blanks around "=" and, for a value of several lines, the
      // first continuation's indentation: no whole layout.
      const std::uint32_t s = start(i), e = end(i);
      const std::uint32_t equals = findUnit(text, '=', s, e);
      std::uint32_t before = equals, after = equals + 1;
      while (before > s && isBlank<Blanks::Whitespace>(static_cast<char16_t>(text[before - 1]))) --before;
      while (after < e && isBlank<Blanks::Whitespace>(static_cast<char16_t>(text[after]))) ++after;
      if (after < e && text[after] != u'\n' && text[after] != u'\r')
        ++spacing[{text.substr(before, equals - before), text.substr(equals + 1, after - equals - 1)}];
      const std::uint32_t lf = findLineFeed(text, after, e);
      if (lf + 1 < e) {
        std::uint32_t indent = lf + 1;
        while (indent < e && isBlank<Blanks::Whitespace>(static_cast<char16_t>(text[indent]))) ++indent;
        ++indents[text.substr(lf + 1, indent - lf - 1)];
      }
    } else if (kind(i) == Kind::Section && start(i) > 0) {
      ++sections;
      const Text before = text.substr(0, start(i));
      if (endsWithUnits(before, u"\n\n") || endsWithUnits(before, u"\n\r\n")) ++sectionsAfterBlankLine;
    }
  }
  // The most common form wins; ties go to the one that sorts first.
  auto mostCommon = [](const auto& counts) {
    auto best = counts.begin();
    for (auto it = counts.begin(); it != counts.end(); ++it)
      if (it->second > best->second) best = it;
    return best;
  };
  if (!spacing.empty()) {
    auto best = mostCommon(spacing);
    style->beforeEquals = std::u16string(best->first.first.begin(), best->first.first.end());
    style->afterEquals = std::u16string(best->first.second.begin(), best->first.second.end());
  }
  if (indents.empty()) {
    style->continuationIndent = u" ";
  } else {
    const Text indent = mostCommon(indents)->first;
    style->continuationIndent = std::u16string(indent.begin(), indent.end());
  }
  std::size_t lineFeeds = 0, crLineFeeds = 0;
  for (std::size_t i = 0; i < text.size(); ++i) {
    if (text[i] != '\n') continue;
    if (i > 0 && text[i - 1] == '\r') ++crLineFeeds;
    else ++lineFeeds;
  }
  style->lineEnd = crLineFeeds > lineFeeds ? u"\r\n" : u"\n";
  style->blankLineBeforeSections = sectionsAfterBlankLine * 2 > sections;
  return style;
}

// ---- bytes -------------------------------------------------------------------

void YIniSourceRecord::attachBytes(std::string_view bytes, YStringEncoding encoding) {
  _hasBytes = true;
  _encoding = encoding;
  _bodyEncoding = encoding;
  auto mark = [&](std::string_view bom, YStringEncoding body) {
    if (!startsWith(bytes, bom)) return false;
    _byteOrderMark.assign(bom);
    _bodyEncoding = body;
    bytes.remove_prefix(bom.size());
    return true;
  };
  const std::string_view bom8("\xEF\xBB\xBF", 3), bom16le("\xFF\xFE", 2), bom16be("\xFE\xFF", 2),
      bom32le("\xFF\xFE\x00\x00", 4), bom32be("\x00\x00\xFE\xFF", 4);
  switch (encoding) {
    case YUTF8StringEncoding:
      mark(bom8, YUTF8StringEncoding);
      break;
    case YUTF16StringEncoding:
      if (!mark(bom16le, YUTF16LittleEndianStringEncoding) && !mark(bom16be, YUTF16BigEndianStringEncoding))
        _bodyEncoding = YUTF16BigEndianStringEncoding;
      break;
    case YUTF16BigEndianStringEncoding: mark(bom16be, encoding); break;
    case YUTF16LittleEndianStringEncoding: mark(bom16le, encoding); break;
    case YUTF32StringEncoding:
      if (!mark(bom32le, YUTF32LittleEndianStringEncoding) && !mark(bom32be, YUTF32BigEndianStringEncoding))
        _bodyEncoding = YUTF32BigEndianStringEncoding;
      break;
    case YUTF32BigEndianStringEncoding: mark(bom32be, encoding); break;
    case YUTF32LittleEndianStringEncoding: mark(bom32le, encoding); break;
    default: break;
  }
  if (_bodyEncoding == YUTF8StringEncoding) {
    keepLinesWithReplacements(bytes);
    return;
  }
  if (isUnicodeEncoding(_bodyEncoding)) return;  // strict decoding: encoding again gives the same bytes
  // Other encodings: keep the bytes of each line that does not come back
  // the same. Lines are cut at LF in both, which these encodings write as
  // the byte 0x0A.
  const std::u16string_view text = _text.view();
  std::vector<std::pair<std::uint32_t, std::uint32_t>> textLines;
  std::vector<std::pair<std::size_t, std::size_t>> byteLines;
  for (std::uint32_t b = 0; b < text.size();) {
    const std::uint32_t lf = findLineFeed(text, b, static_cast<std::uint32_t>(text.size()));
    const std::uint32_t e = lf < text.size() ? lf + 1 : lf;
    textLines.emplace_back(b, e);
    b = e;
  }
  for (std::size_t b = 0; b < bytes.size();) {
    const std::size_t lf = bytes.find('\n', b);
    const std::size_t e = lf == std::string_view::npos ? bytes.size() : lf + 1;
    byteLines.emplace_back(b, e);
    b = e;
  }
  if (textLines.size() != byteLines.size()) {
    // Escapes that decode to line ends: the lines do not pair up, so the
    // whole text is one kept line.
    _keptLines.push_back({0, static_cast<std::uint32_t>(text.size()), std::string(bytes)});
    return;
  }
  for (std::size_t i = 0; i < textLines.size(); ++i) {
    auto [ts, te] = textLines[i];
    const std::string_view original = bytes.substr(byteLines[i].first, byteLines[i].second - byteLines[i].first);
    auto encoded = YEncodeString(YString(text.substr(ts, te - ts)), _bodyEncoding, nullptr);
    if (!encoded || *encoded != original) _keptLines.push_back({ts, te, std::string(original)});
  }
}

// UTF-8 is decoded strictly, or with U+FFFD for a few invalid sequences:
// only a line holding U+FFFD can fail to encode back to its bytes. An
// invalid sequence never takes in a line feed, so the lines pair up.
void YIniSourceRecord::keepLinesWithReplacements(std::string_view bytes) {
  const std::u16string_view text = _text.view();
  std::size_t replacement = findReplacementCharacter(text);
  if (replacement == std::u16string_view::npos) return;
  std::uint32_t lineStart = 0;  // the text line holding `replacement`
  std::size_t byteStart = 0;    // where that line begins in the bytes
  while (replacement != std::u16string_view::npos) {
    // Move to the line holding the replacement, in the text and the bytes.
    for (;;) {
      const std::uint32_t lf = findLineFeed(text, lineStart, static_cast<std::uint32_t>(replacement));
      if (lf == replacement) break;
      lineStart = lf + 1;
      byteStart = bytes.find('\n', byteStart) + 1;
    }
    const auto textEnd = static_cast<std::uint32_t>(
        std::min(text.size(), findLineFeed(text, lineStart, static_cast<std::uint32_t>(text.size())) + std::size_t{1}));
    const std::size_t lf = bytes.find('\n', byteStart);
    const std::size_t byteEnd = lf == std::string_view::npos ? bytes.size() : lf + 1;
    std::string encoded;
    ydetail::appendUTF8(text.substr(lineStart, textEnd - lineStart), encoded);
    const std::string_view original = bytes.substr(byteStart, byteEnd - byteStart);
    if (encoded != original) _keptLines.push_back({lineStart, textEnd, std::string(original)});
    // On to the next line.
    lineStart = textEnd;
    byteStart = byteEnd;
    replacement = textEnd < text.size() ? findReplacementCharacter(text, textEnd) : std::u16string_view::npos;
  }
}

std::uint32_t YIniSourceRecord::splitPoint(std::uint32_t from, std::uint32_t limit, std::uint32_t wanted) const {
  if (limit - from <= wanted) return limit;
  std::uint32_t point = withText([&](auto text) { return findLineFeed(text, from + wanted, limit); });
  if (point >= limit) return limit;
  ++point;
  auto line = std::lower_bound(_keptLines.begin(), _keptLines.end(), point,
                               [](const KeptLine& kept, std::uint32_t position) { return kept.end <= position; });
  if (line != _keptLines.end() && line->start < point) point = std::min(line->end, limit);
  return point;
}

// An ASCII byte of UTF-8 is never part of another character's sequence,
// valid or not, and decodes to the same unit: the n-th ASCII unit of a line
// is its n-th ASCII byte. An edit begins and ends next to ASCII ("=",
// blanks, brackets, line ends) nearly always.
std::optional<std::size_t> YIniSourceRecord::keptByteOffset(const KeptLine& line, std::uint32_t at) const {
  if (_bodyEncoding != YUTF8StringEncoding) return std::nullopt;
  if (at <= line.start) return 0;
  if (at >= line.end) return line.bytes.size();
  const std::u16string_view text = _text.view().substr(line.start, line.end - line.start);
  const std::size_t t = at - line.start;
  const bool asciiAt = text[t] < 0x80, asciiBefore = text[t - 1] < 0x80;
  if (!asciiAt && !asciiBefore) return std::nullopt;
  // The ASCII units before `at`: the byte of the next one, or just past the last.
  std::size_t count = 0;
  for (std::size_t i = 0; i < t; ++i) count += text[i] < 0x80;
  std::size_t wanted = asciiAt ? count : count - 1;
  for (std::size_t b = 0; b < line.bytes.size(); ++b) {
    if (static_cast<unsigned char>(line.bytes[b]) >= 0x80) continue;
    if (wanted-- == 0) return asciiAt ? b : b + 1;
  }
  return std::nullopt;
}

bool YIniSourceRecord::appendOriginalBytes(std::uint32_t start, std::uint32_t end, std::string& out,
                                           std::shared_ptr<YError>* error) const {
  // ASCII bytes are their own UTF-8, and none was kept.
  if (_isASCII) {
    out.append(_ascii.view().substr(start, end - start));
    return true;
  }
  const std::u16string_view text = _text.view();
  // The text was decoded from these bytes, so each form is written unit by
  // unit as it was read (a lone surrogate in UTF-16 included).
  auto encode = [&](std::uint32_t a, std::uint32_t b) {
    if (a >= b) return true;
    const std::u16string_view piece = text.substr(a, b - a);
    switch (_bodyEncoding) {
      case YUTF8StringEncoding:
        ydetail::appendUTF8(piece, out);
        return true;
      case YUTF16BigEndianStringEncoding:
      case YUTF16LittleEndianStringEncoding: {
        const bool big = _bodyEncoding == YUTF16BigEndianStringEncoding;
        for (char16_t c : piece) {
          const char high = static_cast<char>(c >> 8), low = static_cast<char>(c & 0xFF);
          out.push_back(big ? high : low);
          out.push_back(big ? low : high);
        }
        return true;
      }
      case YUTF32BigEndianStringEncoding:
      case YUTF32LittleEndianStringEncoding: {
        auto bytes = YEncodeString(YString(piece), _bodyEncoding, error);
        if (!bytes) return false;
        out += *bytes;
        return true;
      }
      default:
        // Each line on its own, as it was compared when loading (stateful
        // encodings end every piece in their initial state).
        for (std::uint32_t line = a; line < b;) {
          const std::uint32_t lf = findLineFeed(text, line, b);
          const std::uint32_t next = lf < b ? lf + 1 : b;
          auto bytes = YEncodeString(YString(text.substr(line, next - line)), _bodyEncoding, error);
          if (!bytes) return false;
          out += *bytes;
          line = next;
        }
        return true;
    }
  };
  auto line = std::lower_bound(_keptLines.begin(), _keptLines.end(), start,
                               [](const KeptLine& kept, std::uint32_t position) { return kept.end <= position; });
  std::uint32_t at = start;
  for (; line != _keptLines.end() && line->start < end; ++line) {
    if (start <= line->start && line->end <= end) {
      if (!encode(at, line->start)) return false;
      out += line->bytes;
      at = line->end;
      continue;
    }
    // A line only partly inside the range is touched by an edit: its part
    // here keeps its bytes where they can be told apart, else is encoded again.
    const std::uint32_t from = std::max(start, line->start), to = std::min(end, line->end);
    const auto first = keptByteOffset(*line, from), last = keptByteOffset(*line, to);
    if (!first || !last) continue;
    if (!encode(at, from)) return false;
    out.append(line->bytes, *first, *last - *first);
    at = to;
  }
  return encode(at, end);
}
