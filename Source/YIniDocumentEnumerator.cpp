#include "YIniDocumentEnumerator.h"

#include <cstring>
#include <memory>
#include <type_traits>
#include <utility>

#if defined(__SSE2__)
#include <emmintrin.h>
#endif

#include "YAssertionHandler.h"
#include "YCharacterSet.h"
#include "YEndOfLineRule.h"
#include "YIniComment.h"
#include "YIniLineRecognizer.h"
#include "YIniOption.h"
#include "YIniSourceRecord.h"
#include "YLog.h"
#include "YRegularExpressionRule.h"
#include "YRuleBasedScanner.h"
#include "YStringBuffer.h"
#include "YToken.h"
#include "YTokenClass.h"
#include "YUnicharStream.h"

static constexpr const char YUnitName[] = "YIniDocumentEnumerator";

namespace {

using GroupMap = YDictionary<YTokenClass>;

// The rules' patterns hold real LF and CR characters.
const YString kNewLinePattern(u"^(\n|\r\n)");
const YString kSectionPattern(u"\\[(?<section_name>.+)\\]");
const YString kOptionPattern(u"(?<option_key>^(?! ).*?)=(?<option_value>.*\n|\r\n)");
const YString kFragmentPattern(u"(?<option_value_fragment>[ ]+.+\n|\r\n)");
const YString kFragmentTerminatingPattern(u"(?<option_value_fragment>[ ]+.+\\z)");
const YString kOptionTerminatingPattern(u"(?<option_key>^(?! ).*?)=(?<option_value>.*\\z)");
const YString kUnknownPattern(u".*");
// The five rules with a group map match without regard to case (option bit 1).
constexpr unsigned kGroupRuleOptions = YRegularExpressionCaseInsensitive;

const YString kSectionNameGroup(u"section_name");
const YString kOptionKeyGroup(u"option_key");
const YString kOptionValueGroup(u"option_value");
const YString kFragmentGroup(u"option_value_fragment");
const YString kFragmentTerminatingGroup(u"option_value_fragment-terminating");
const YString kCommentOpenSequence(u"#");
const YString kContinuationJoint(u"\n ");
const YString kLineFeed(u"\n");
const YString kCarriageReturnLineFeed(u"\r\n");
const YString kEmpty(u"");

// Membership in the whitespace set (tab and the space separators) and, with
// `lineEnds`, in the whitespace-and-newline set; ASCII is answered without
// the sets, whose ASCII members are space and tab, and LF to CR.
bool isWideBlank(char16_t c, bool lineEnds) {
  static const YCharacterSet whitespace = YCharacterSet::whitespaceCharacterSet();
  static const YCharacterSet whitespaceAndNewlines = YCharacterSet::whitespaceAndNewlineCharacterSet();
  return (lineEnds ? whitespaceAndNewlines : whitespace).characterIsMember(c);
}
template <bool lineEnds>
inline bool isBlank(char16_t c) {
  constexpr std::uint64_t kAsciiBlanks =
      1ULL << u' ' | 1ULL << u'\t' | (lineEnds ? 1ULL << u'\n' | 1ULL << u'\v' | 1ULL << u'\f' | 1ULL << u'\r' : 0);
  if (c < 64) return (kAsciiBlanks >> c) & 1;
  return c >= 0x80 && isWideBlank(c, lineEnds);
}

// Narrows the piece [begin, end) of `text` (in range) to leave out leading
// and trailing whitespace, and line ends too with `lineEnds`.
template <bool lineEnds, class Unit>
inline void trim(const Unit* text, std::size_t& begin, std::size_t& end) {
  while (begin < end && isBlank<lineEnds>(static_cast<char16_t>(text[begin]))) ++begin;
  while (end > begin && isBlank<lineEnds>(static_cast<char16_t>(text[end - 1]))) --end;
}

// A string of the n units at `units`: UTF-16, or ASCII bytes widened.
inline YString stringOfUnits(const char16_t* units, std::size_t n) { return YString::stringWithCharacters(units, n); }
inline YString stringOfUnits(const char* units, std::size_t n) { return YString::stringWithLatin1Characters(units, n); }

// The piece [begin, end) of `text` (in range) trimmed as trim() does, cut
// out in one copy.
template <bool lineEnds, class Unit>
inline YString trimmed(const Unit* text, std::size_t begin, std::size_t end) {
  trim<lineEnds>(text, begin, end);
  return stringOfUnits(text + begin, end - begin);
}

using Line = YIniLineRecognizer::Line;
using Kind = YIniLineRecognizer::Kind;

// The class of a token the rules made that none of theirs is: it ends the
// reading like a stray continuation line.
constexpr Kind kForeign = static_cast<Kind>(0xFF);

// The kinds of YIniSourceRecord entries, as record() takes them.
constexpr int kRecordedSection = static_cast<int>(YIniSourceRecord::Kind::Section);
constexpr int kRecordedOption = static_cast<int>(YIniSourceRecord::Kind::Option);
constexpr int kRecordedComment = static_cast<int>(YIniSourceRecord::Kind::Comment);
constexpr int kRecordedUnknown = static_cast<int>(YIniSourceRecord::Kind::Unknown);

bool isFragment(Kind kind) noexcept { return kind == Kind::fragment || kind == Kind::fragmentTerminating; }

// The piece [start, end) of `text` trimmed as trimmed() does; a piece out
// of range throws YRangeException.
template <bool lineEnds>
[[gnu::always_inline]] inline YString trimmedPiece(const YString& text, std::size_t start, std::size_t end) {
  if (start > end || end > text.length()) return text.substringWithRange(start, end - start);  // throws
  return trimmed<lineEnds>(text.characters(), start, end);
}

// Throws YRangeException, as a string's substring would, for a piece
// [start, end) out of the ASCII text's range (the recogniser makes none).
inline void checkPiece(std::string_view ascii, std::size_t start, std::size_t end) {
  if (start > end || end > ascii.size())
    throw YRangeException(YString::stringWithFormat(
        "substringWithRange: range {%zu, %zu} out of bounds; string length %zu", start, end - start, ascii.size()));
}

// trimmedPiece() over ASCII text.
template <bool lineEnds>
[[gnu::always_inline]] inline YString trimmedPiece(std::string_view ascii, std::size_t start, std::size_t end) {
  checkPiece(ascii, start, end);
  return trimmed<lineEnds>(ascii.data(), start, end);
}

// The shared string of a blank line's token, or null.
template <class Text>
YString lineEndText(const Text& text, const Line& line) {
  const std::size_t length = line.end - line.start;
  // Blank lines are the most common comment: they share one string each.
  if (length == 1 && line.start < text.size() && text[line.start] == '\n') return kLineFeed;
  if (length == 2 && line.start + 1 < text.size() && text[line.start] == '\r' && text[line.start + 1] == '\n')
    return kCarriageReturnLineFeed;
  return YString();
}

// The text of a comment or unrecognised token.
YString tokenText(const YString& document, const Line& line) {
  if (YString shared = lineEndText(document.view(), line); !shared.isNull()) return shared;
  return document.substringWithRange(line.start, line.end - line.start);
}
YString tokenText(std::string_view ascii, const Line& line) {
  if (YString shared = lineEndText(ascii, line); !shared.isNull()) return shared;
  checkPiece(ascii, line.start, line.end);
  return YString::stringWithLatin1Characters(ascii.data() + line.start, line.end - line.start);
}

}  // namespace

std::shared_ptr<YArray<YRule>> YIniReaderRules(const YIniReaderClasses& classes) {
  auto rules = YArray<YRule>::mutableArray(8);
  rules->addObject(YEndOfLineRule::ruleWithOpenSequenceTokenClass(kCommentOpenSequence, classes.comment));
  rules->addObject(YRegularExpressionRule::ruleWithPatternOptionsTokenClass(kNewLinePattern, 0, classes.newLine));
  rules->addObject(YRegularExpressionRule::ruleWithPatternOptionsTokenClassGroupClasses(
      kSectionPattern, kGroupRuleOptions, classes.section,
      GroupMap::dictionaryWithObjectsAndKeys({{kSectionNameGroup, classes.key}})));
  rules->addObject(YRegularExpressionRule::ruleWithPatternOptionsTokenClassGroupClasses(
      kOptionPattern, kGroupRuleOptions, classes.option,
      GroupMap::dictionaryWithObjectsAndKeys({{kOptionKeyGroup, classes.key}, {kOptionValueGroup, classes.value}})));
  rules->addObject(YRegularExpressionRule::ruleWithPatternOptionsTokenClassGroupClasses(
      kFragmentPattern, kGroupRuleOptions, classes.fragment,
      GroupMap::dictionaryWithObjectsAndKeys({{kFragmentGroup, classes.key}})));
  rules->addObject(YRegularExpressionRule::ruleWithPatternOptionsTokenClassGroupClasses(
      kFragmentTerminatingPattern, kGroupRuleOptions, classes.fragmentTerminating,
      GroupMap::dictionaryWithObjectsAndKeys({{kFragmentTerminatingGroup, classes.key}})));
  rules->addObject(YRegularExpressionRule::ruleWithPatternOptionsTokenClassGroupClasses(
      kOptionTerminatingPattern, kGroupRuleOptions, classes.optionTerminating,
      GroupMap::dictionaryWithObjectsAndKeys({{kOptionKeyGroup, classes.key}, {kOptionValueGroup, classes.value}})));
  rules->addObject(YRegularExpressionRule::ruleWithPatternOptionsTokenClass(kUnknownPattern, 0, classes.unknown));
  return rules;
}

struct YIniDocumentEnumerator::Reading {
  // The text scanned: the document string, or a snapshot of a mutable one.
  std::shared_ptr<YStringBuffer> buffer;
  std::u16string_view text;
  // Or else ASCII text, read as bytes (the recogniser reads all of it).
  std::string_view ascii;
  bool readsASCII = false;
  bool recognizesLines = false;  // tokens come from YIniLineRecognizer
  std::size_t position = 0;      // where it reads on
  Line lines[2]{};
  Line* current = &lines[0];  // the token being read
  Line* other = &lines[1];    // the one read ahead, when hasAhead
  bool hasAhead = false;
  // The rules' way: their classes, their scanner and its latest match,
  // made when first needed.
  YIniReaderClasses classes;
  std::shared_ptr<YUnicharStream> stream;
  std::shared_ptr<YRuleBasedScanner> scanner;
  YTokenMatch match;
  // In a long text, the option names read so far, by a hash of their text:
  // the sections of a file mostly repeat the same keys, and options of equal
  // names share one string, which saves a string per option. A short text
  // has too few names for the table to pay for itself.
  std::unique_ptr<YString[]> names;

  Reading() = default;
  Reading(const Reading&) = delete;  // `current` and `other` point into it
  Reading& operator=(const Reading&) = delete;

  Line& line() noexcept { return *current; }
  Line& ahead() noexcept { return *other; }
  // The next token of the text into `into`.
  bool next(Line& into);
  // Whether the next token may be a continuation line. Only a line that
  // opens with a space is one: where the recogniser reads, any other is
  // left to the next call unread rather than read ahead.
  bool mayContinue() const noexcept {
    if (readsASCII) return position < ascii.size() && ascii[position] == ' ';
    return !recognizesLines || (position < text.size() && text[position] == u' ');
  }
  std::size_t size() const noexcept { return readsASCII ? ascii.size() : text.size(); }
  // The pieces of the text as strings: a token's whole text, or a piece
  // trimmed as trimmedPiece() does. `document` is the UTF-16 text, when read.
  template <bool lineEnds>
  [[gnu::always_inline]] YString piece(const YString& document, std::size_t start, std::size_t end) const {
    return readsASCII ? trimmedPiece<lineEnds>(ascii, start, end) : trimmedPiece<lineEnds>(document, start, end);
  }
  YString token(const YString& document, const Line& line) const {
    return readsASCII ? tokenText(ascii, line) : tokenText(document, line);
  }
  void makeScanner();
  void lineFromMatch(Line& into) const;
  // The name in [begin, end) of the text (in range), trimmed of spaces and
  // tabs: an equal name read before, or a new string. Needs `names`.
  YString name(std::size_t begin, std::size_t end);
  template <class Unit>
  YString sharedName(const Unit* units, std::size_t begin, std::size_t end);
};

namespace {
constexpr unsigned kNameSlotBits = 12;
// Texts of at least this many code units share their option names.
constexpr std::size_t kSharedNamesFrom = std::size_t(32) << 10;

// Four code units at `units` as the 64 bits they take in UTF-16: four
// ASCII bytes are spread to the low byte of each 16-bit lane.
inline std::uint64_t fourUnits(const char16_t* units) noexcept {
  std::uint64_t word;
  std::memcpy(&word, units, sizeof word);
  return word;
}
inline std::uint64_t fourUnits(const char* bytes) noexcept {
  std::uint32_t four;
  std::memcpy(&four, bytes, sizeof four);
  std::uint64_t word = four;
  word = (word | word << 16) & 0x0000FFFF0000FFFFULL;
  return (word | word << 8) & 0x00FF00FF00FF00FFULL;
}

// A hash of the units of a short name: its first and last four units, its
// length, folded into kNameSlotBits bits. ASCII bytes hash as the same text
// in UTF-16 does, so that names meet in the table, and share their strings,
// alike whichever way a text is read.
template <class Unit>
inline unsigned nameSlot(const Unit* units, std::size_t n) noexcept {
  auto unit = [&](std::size_t i) -> std::uint64_t { return static_cast<std::make_unsigned_t<Unit>>(units[i]); };
  std::uint64_t first = 0, last = 0;
  if (n >= 4) {
    first = fourUnits(units);
    last = fourUnits(units + n - 4);
  } else if (n) {
    first = unit(0);
    last = unit(n - 1) << 16 | unit(n / 2);
  }
  const std::uint64_t h = (first * 0x9E3779B97F4A7C15ULL) ^ (last * 0xC2B2AE3D27D4EB4FULL) ^ n;
  return static_cast<unsigned>((h ^ (h >> 29)) * 0x165667B19E3779F9ULL >> (64 - kNameSlotBits));
}

// Whether the n units at `a` and `b` are the same. Names of 4 to 16 units,
// most of them, are compared as their first and last 8 or 16 bytes.
inline bool sameUnits(const char16_t* a, const char16_t* b, std::size_t n) noexcept {
  auto differs = [](const char16_t* x, const char16_t* y) {
    std::uint64_t u, v;
    std::memcpy(&u, x, 8);
    std::memcpy(&v, y, 8);
    return u ^ v;
  };
  if (n >= 4 && n <= 8) return (differs(a, b) | differs(a + n - 4, b + n - 4)) == 0;
  if (n > 8 && n <= 16)
    return (differs(a, b) | differs(a + 4, b + 4) | differs(a + n - 8, b + n - 8) | differs(a + n - 4, b + n - 4)) == 0;
  return std::memcmp(a, b, n * sizeof(char16_t)) == 0;
}

// Whether the n code units at `a` are the n ASCII bytes at `b`.
inline bool sameUnits(const char16_t* a, const char* b, std::size_t n) noexcept {
#if defined(__SSE2__)
  // Names of 8 to 16 units, most of them: their first and last eight bytes
  // widened, against their first and last eight units.
  if (n >= 8 && n <= 16) {
    const __m128i zero = _mm_setzero_si128();
    auto widened = [&](const char* at) {
      return _mm_unpacklo_epi8(_mm_loadl_epi64(reinterpret_cast<const __m128i*>(at)), zero);
    };
    auto units = [](const char16_t* at) { return _mm_loadu_si128(reinterpret_cast<const __m128i*>(at)); };
    const __m128i same =
        _mm_and_si128(_mm_cmpeq_epi16(widened(b), units(a)), _mm_cmpeq_epi16(widened(b + n - 8), units(a + n - 8)));
    return _mm_movemask_epi8(same) == 0xFFFF;
  }
#endif
  for (std::size_t i = 0; i < n; ++i)
    if (a[i] != static_cast<unsigned char>(b[i])) return false;
  return true;
}
}  // namespace

YString YIniDocumentEnumerator::Reading::name(std::size_t begin, std::size_t end) {
  return readsASCII ? sharedName(ascii.data(), begin, end) : sharedName(text.data(), begin, end);
}

template <class Unit>
YString YIniDocumentEnumerator::Reading::sharedName(const Unit* units, std::size_t begin, std::size_t end) {
  trim<false>(units, begin, end);
  const std::size_t n = end - begin;
  YString& slot = names[nameSlot(units + begin, n)];
  if (!slot.isNull() && slot.length() == n && sameUnits(slot.characters(), units + begin, n)) return slot;
  slot = stringOfUnits(units + begin, n);
  return slot;
}

bool YIniDocumentEnumerator::Reading::next(Line& into) {
  if (readsASCII) {  // the recogniser reads every line of ASCII text
    if (!YIniLineRecognizer::lineAtPosition(ascii, position, into)) return false;
    position = into.end;
    return true;
  }
  if (recognizesLines) {
    if (position >= text.size()) return false;
    if (YIniLineRecognizer::lineAtPosition(text, position, into)) {
      position = into.end;
      return true;
    }
    // Declined: the rules read on from the same place.
    if (!scanner) makeScanner();
    stream->setPosition(static_cast<std::int32_t>(position));
  } else if (!scanner) {
    makeScanner();
  }
  if (!scanner->nextMatch(match)) return false;
  lineFromMatch(into);
  position = into.end;
  return true;
}

void YIniDocumentEnumerator::Reading::makeScanner() {
  for (auto* tokenClass : {&classes.comment, &classes.newLine, &classes.section, &classes.option, &classes.fragment,
                           &classes.fragmentTerminating, &classes.optionTerminating, &classes.unknown, &classes.key,
                           &classes.value})
    *tokenClass = std::make_shared<YTokenClass>();
  stream = YUnicharStream::streamWithBuffer(buffer);
  stream->setPosition(static_cast<std::int32_t>(position));
  scanner = YRuleBasedScanner::scannerForStreamWithRules(stream, YIniReaderRules(classes));
}

void YIniDocumentEnumerator::Reading::lineFromMatch(Line& into) const {
  const YTokenClass* c = match.tokenClass;
  into.start = static_cast<std::size_t>(match.position);
  into.end = into.start + static_cast<std::size_t>(match.length);
  auto group = [&](std::size_t index, std::size_t& start, std::size_t& end) {
    const YTokenMatch::Subtoken& sub = match.subtokens.at(index);
    start = into.start + static_cast<std::size_t>(sub.position);
    end = start + static_cast<std::size_t>(sub.length);
  };
  if (c == classes.section.get()) {
    into.kind = Kind::section;
    group(0, into.keyStart, into.keyEnd);
  } else if (c == classes.option.get() || c == classes.optionTerminating.get()) {
    into.kind = c == classes.option.get() ? Kind::option : Kind::optionTerminating;
    group(0, into.keyStart, into.keyEnd);
    group(1, into.valueStart, into.valueEnd);
  } else if (c == classes.comment.get()) {
    into.kind = Kind::comment;
  } else if (c == classes.newLine.get()) {
    into.kind = Kind::newLine;
  } else if (c == classes.fragment.get()) {
    into.kind = Kind::fragment;
  } else if (c == classes.fragmentTerminating.get()) {
    into.kind = Kind::fragmentTerminating;
  } else if (c == classes.unknown.get()) {
    into.kind = Kind::unknown;
  } else {
    into.kind = kForeign;
  }
}

bool YIniDocumentEnumerator::checkFactory(const YIniElementFactory* factory) {
  return !YCParameterFailed(factory != nullptr, "factory != nil");
}

YIniDocumentEnumerator::YIniDocumentEnumerator(const YString& documentString,
                                               std::shared_ptr<YIniElementFactory> factory)
    : _reading(std::make_unique<Reading>()) {
  if (YParameterFailed(factory != nullptr, "theFactory != nil")) return;
  _documentString = documentString;
  Reading& reading = *_reading;
  reading.buffer = YStringBuffer::bufferFromString(_documentString);
  reading.text = reading.buffer->characters();
  // The recogniser answers for exactly the reader's rules, and faster: the
  // rules and their scanner are made only when it is switched off.
  reading.recognizesLines = YIniLineRecognizer::isEnabled();
  if (!reading.recognizesLines) reading.makeScanner();
  if (reading.text.size() >= kSharedNamesFrom)
    reading.names = std::make_unique<YString[]>(std::size_t(1) << kNameSlotBits);
  _factory = std::move(factory);
}

YIniDocumentEnumerator::~YIniDocumentEnumerator() = default;

void YIniDocumentEnumerator::readASCII(std::string_view ascii) {
  Reading& reading = *_reading;
  reading.readsASCII = true;
  reading.ascii = ascii;
  reading.recognizesLines = true;
  if (ascii.size() >= kSharedNamesFrom) reading.names = std::make_unique<YString[]>(std::size_t(1) << kNameSlotBits);
}

YString YIniDocumentEnumerator::extractStringStartLength(const YString& string, std::int32_t start,
                                                         std::int32_t length) {
  if (start < 0 || length < 0)
    throw YRangeException(YString::stringWithFormat("extractStringStartLength: range {%d, %d} is negative", start, length));
  return string.substringWithRange(static_cast<std::size_t>(start), static_cast<std::size_t>(length))
      .stringByTrimmingCharactersInSet(YCharacterSet::whitespaceCharacterSet());
}

bool YIniDocumentEnumerator::takeToken() {
  if (!_factory) return false;
  Reading& reading = *_reading;
  if (reading.hasAhead) {
    reading.hasAhead = false;
    std::swap(reading.current, reading.other);
    return true;
  }
  return reading.next(reading.line());
}

std::shared_ptr<YIniElement> YIniDocumentEnumerator::nextObject() {
  // Options before the first section are dropped; a loop (not a nested call
  // per option) keeps any number of them off the stack.
  for (;;) {
    if (!takeToken()) return nullptr;
    const Line& line = _reading->line();
    switch (line.kind) {
      case Kind::section:
        return sectionFromToken();
      case Kind::option:
      case Kind::optionTerminating:
        if (!_activeSection) continue;
        return optionFromToken();
      case Kind::comment:
      case Kind::newLine: {
        YString text = _reading->token(_documentString, line);
        auto comment = _factory->commentWithString(text);
        if (_record) comment ? record(kRecordedComment, line.start, line.end, *comment, text) : stopAt(line.start);
        return comment;
      }
      case Kind::unknown: {
        YLog("Unrecognized text sequence %@", _reading->token(_documentString, line));
        auto comment = _factory->commentWithString(kEmpty);
        if (_record) comment ? record(kRecordedUnknown, line.start, line.end, *comment, kEmpty) : stopAt(line.start);
        return comment;
      }
      default:  // a continuation line that follows no option
        if (_record) stopAt(line.start);
        return nullptr;
    }
  }
}

// A factory that makes no element ends the sequence as the end of the text
// does, with the text from there on unread.
void YIniDocumentEnumerator::stopAt(std::size_t position) { _record->noteStop(static_cast<std::uint32_t>(position)); }

void YIniDocumentEnumerator::record(int kind, std::size_t start, std::size_t end, YIniElement& element,
                                    const YString& first, const YString& second) {
  _record->noteElement(static_cast<YIniSourceRecord::Kind>(kind), static_cast<std::uint32_t>(start),
                       static_cast<std::uint32_t>(end), element, first, second);
}

std::shared_ptr<YIniElement> YIniDocumentEnumerator::sectionFromToken() {
  const Line& header = _reading->line();
  YString name = _reading->piece<false>(_documentString, header.keyStart, header.keyEnd);
  std::shared_ptr<YIniSection> section = _factory->sectionWithName(name);
  _activeSection = section;
  if (_record) section ? record(kRecordedSection, header.start, header.end, *section, name) : stopAt(header.start);
  return section;
}

std::shared_ptr<YIniElement> YIniDocumentEnumerator::optionFromToken() {
  Reading& reading = *_reading;
  const Line& line = reading.line();
  YString name = reading.names && line.keyStart <= line.keyEnd && line.keyEnd <= reading.size()
                     ? reading.name(line.keyStart, line.keyEnd)
                     : reading.piece<false>(_documentString, line.keyStart, line.keyEnd);
  // Trimmed of spaces and tabs, then of line ends too: the same as trimming
  // both at once.
  YString value = reading.piece<true>(_documentString, line.valueStart, line.valueEnd);
  std::size_t end = line.end;  // continuation lines move it on
  YString joined;              // built only when continuation lines follow
  Line& next = reading.ahead();
  bool more = reading.mayContinue() && reading.next(next);
  while (more && isFragment(next.kind)) {
    if (joined.isNull()) joined = YString::mutableStringWithString(value);
    joined.appendString(kContinuationJoint);
    joined.appendString(reading.piece<true>(_documentString, next.start, next.end));
    end = next.end;
    more = reading.mayContinue() && reading.next(next);
  }
  reading.hasAhead = more;
  if (!joined.isNull()) value = joined.copy();
  auto option = _factory->optionWithNameValueInSection(name, value, _activeSection);
  if (_record) option ? record(kRecordedOption, line.start, end, *option, name, value) : stopAt(line.start);
  return option;
}

std::shared_ptr<YArray<YIniElement>> YIniDocumentEnumerator::allObjects() {
  auto all = YArray<YIniElement>::mutableArray();
  while (auto element = nextObject()) all->addObject(std::move(element));
  return all;
}
