#include "YIniDocumentEnumerator.h"

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
inline bool isBlank(char16_t c, bool lineEnds) {
  if (c < 0x80) return c == u' ' || c == u'\t' || (lineEnds && c >= u'\n' && c <= u'\r');
  return isWideBlank(c, lineEnds);
}

// The piece [start, start + length) of `text` without leading and trailing
// whitespace, and line ends too with `lineEnds`, cut out in one copy.
YString trimmedPiece(const YString& text, std::int32_t start, std::int32_t length, bool lineEnds) {
  if (start < 0 || length < 0 || static_cast<std::size_t>(start) + static_cast<std::size_t>(length) > text.length())
    return text.substringWithRange(static_cast<std::size_t>(start), static_cast<std::size_t>(length));  // throws
  const char16_t* c = text.characters();
  std::size_t begin = static_cast<std::size_t>(start);
  std::size_t end = begin + static_cast<std::size_t>(length);
  while (begin < end && isBlank(c[begin], lineEnds)) ++begin;
  while (end > begin && isBlank(c[end - 1], lineEnds)) --end;
  return YString::stringWithCharacters(c + begin, end - begin);
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

bool YIniDocumentEnumerator::checkFactory(const YIniElementFactory* factory) {
  return !YCParameterFailed(factory != nullptr, "factory != nil");
}

YIniDocumentEnumerator::YIniDocumentEnumerator(const YString& documentString,
                                               std::shared_ptr<YIniElementFactory> factory) {
  if (YParameterFailed(factory != nullptr, "theFactory != nil")) return;
  _commentLiteral = std::make_shared<YTokenClass>();
  _sectionLiteral = std::make_shared<YTokenClass>();
  _optionLiteral = std::make_shared<YTokenClass>();
  _optionLiteralTerminating = std::make_shared<YTokenClass>();
  _optionFragmentLiteral = std::make_shared<YTokenClass>();
  _optionFragmentLiteralTerminating = std::make_shared<YTokenClass>();
  _keyLiteral = std::make_shared<YTokenClass>();
  _valueLiteral = std::make_shared<YTokenClass>();
  _singleNewLineLiteral = std::make_shared<YTokenClass>();
  _unknownLiteral = std::make_shared<YTokenClass>();

  _documentString = documentString;
  _stream = YUnicharStream::streamWithBuffer(YStringBuffer::bufferFromString(_documentString));
  // The recogniser answers for exactly the reader's rules, and faster: the
  // rules and their scanner are made only when it is switched off.
  _recognizesLines = YIniLineRecognizer::isEnabled();
  if (!_recognizesLines) makeScanner();
  _factory = std::move(factory);
}

void YIniDocumentEnumerator::makeScanner() {
  auto rules = YIniReaderRules({_commentLiteral, _singleNewLineLiteral, _sectionLiteral, _optionLiteral,
                                _optionFragmentLiteral, _optionFragmentLiteralTerminating, _optionLiteralTerminating,
                                _unknownLiteral, _keyLiteral, _valueLiteral});
  _scanner = YRuleBasedScanner::scannerForStreamWithRules(_stream, rules);
}

YIniDocumentEnumerator::~YIniDocumentEnumerator() = default;

YString YIniDocumentEnumerator::extractStringStartLength(const YString& string, std::int32_t start,
                                                         std::int32_t length) {
  if (start < 0 || length < 0)
    throw YRangeException(YString::stringWithFormat("extractStringStartLength: range {%d, %d} is negative", start, length));
  return string.substringWithRange(static_cast<std::size_t>(start), static_cast<std::size_t>(length))
      .stringByTrimmingCharactersInSet(YCharacterSet::whitespaceCharacterSet());
}

YString YIniDocumentEnumerator::tokenText(const YTokenMatch& token) const {
  const std::u16string_view text = _documentString.view();
  // Blank lines are the most common comment: they share one string each.
  if (token.length == 1 && static_cast<std::size_t>(token.position) < text.size() && text[token.position] == u'\n')
    return kLineFeed;
  if (token.length == 2 && static_cast<std::size_t>(token.position) + 1 < text.size() &&
      text[token.position] == u'\r' && text[token.position + 1] == u'\n')
    return kCarriageReturnLineFeed;
  return _documentString.substringWithRange(static_cast<std::size_t>(token.position),
                                            static_cast<std::size_t>(token.length));
}

bool YIniDocumentEnumerator::isFragment(const YTokenMatch& token) const noexcept {
  return token.tokenClass == _optionFragmentLiteral.get() || token.tokenClass == _optionFragmentLiteralTerminating.get();
}

bool YIniDocumentEnumerator::takeToken(YTokenMatch& token) {
  if (_hasActiveToken) {
    _hasActiveToken = false;
    std::swap(token, _activeToken);
    return true;
  }
  return scan(token);
}

bool YIniDocumentEnumerator::scan(YTokenMatch& token) {
  if (!_factory) return false;
  if (_recognizesLines) {
    YUnicharStream& stream = *_stream;
    const std::u16string_view text = stream.characters();
    const std::size_t position = static_cast<std::size_t>(stream.position());
    if (position >= text.size()) {
      token.reset();
      return false;
    }
    const YIniLineRecognizer::Classes classes{_commentLiteral.get(),
                                              _singleNewLineLiteral.get(),
                                              _sectionLiteral.get(),
                                              _optionLiteral.get(),
                                              _optionFragmentLiteral.get(),
                                              _optionFragmentLiteralTerminating.get(),
                                              _optionLiteralTerminating.get(),
                                              _unknownLiteral.get(),
                                              _keyLiteral.get(),
                                              _valueLiteral.get()};
    if (YIniLineRecognizer::tokenAtPosition(text, position, classes, token)) {
      // The scanner goes on from the same place should it be asked next.
      stream.setPosition(token.position + token.length);
      return true;
    }
  }
  if (!_scanner) makeScanner();
  return _scanner->nextMatch(token);
}

std::shared_ptr<YIniElement> YIniDocumentEnumerator::nextObject() {
  // Options before the first section are dropped; a loop (not a nested call
  // per option) keeps any number of them off the stack.
  for (;;) {
    if (!takeToken(_token)) return nullptr;
    const YTokenClass* c = _token.tokenClass;
    if (c == _sectionLiteral.get()) return sectionFromToken(_token);
    if (c == _optionLiteral.get() || c == _optionLiteralTerminating.get()) {
      if (!_activeSection) continue;
      return optionFromToken(_token);
    }
    if (c == _commentLiteral.get() || c == _singleNewLineLiteral.get()) {
      YString text = tokenText(_token);
      auto comment = _factory->commentWithString(text);
      if (_record && comment)
        record(static_cast<int>(YIniSourceRecord::Kind::Comment), _token.position + _token.length, *comment, text);
      return comment;
    }
    if (c == _unknownLiteral.get()) {
      YLog("Unrecognized text sequence %@", tokenText(_token));
      auto comment = _factory->commentWithString(kEmpty);
      if (_record && comment)
        record(static_cast<int>(YIniSourceRecord::Kind::Unknown), _token.position + _token.length, *comment, kEmpty);
      return comment;
    }
    if (_record) _record->noteStop(static_cast<std::uint32_t>(_token.position));
    return nullptr;
  }
}

void YIniDocumentEnumerator::record(int kind, std::int32_t end, YIniElement& element, const YString& first,
                                    const YString& second) {
  _record->noteElement(static_cast<YIniSourceRecord::Kind>(kind), static_cast<std::uint32_t>(_token.position), static_cast<std::uint32_t>(end), element,
                       first, second);
}

std::shared_ptr<YIniElement> YIniDocumentEnumerator::sectionFromToken(const YTokenMatch& token) {
  const YTokenMatch::Subtoken& nameToken = token.subtokens.at(0);
  YString name = trimmedPiece(_documentString, token.position + nameToken.position, nameToken.length, false);
  std::shared_ptr<YIniSection> section = _factory->sectionWithName(name);
  _activeSection = section;
  if (_record && section)
    record(static_cast<int>(YIniSourceRecord::Kind::Section), token.position + token.length, *section, name);
  return section;
}

std::shared_ptr<YIniElement> YIniDocumentEnumerator::optionFromToken(const YTokenMatch& token) {
  const std::int32_t base = token.position;
  const YTokenMatch::Subtoken& keyToken = token.subtokens.at(0);
  YString name = trimmedPiece(_documentString, base + keyToken.position, keyToken.length, false);
  YString value;
  std::int32_t end = base + token.length;  // continuation lines move it on
  if (token.subtokens.size() == 2) {
    const YTokenMatch::Subtoken& valueToken = token.subtokens[1];
    // Trimmed of spaces and tabs, then of line ends too: the same as trimming
    // both at once.
    value = trimmedPiece(_documentString, base + valueToken.position, valueToken.length, true);
    YString joined;  // built only when continuation lines follow
    YTokenMatch& next = _activeToken;
    bool more = scan(next);
    while (more && isFragment(next)) {
      if (joined.isNull()) joined = YString::mutableStringWithString(value);
      joined.appendString(kContinuationJoint);
      joined.appendString(trimmedPiece(_documentString, next.position, next.length, true));
      end = next.position + next.length;
      more = scan(next);
    }
    _hasActiveToken = more;
    if (!joined.isNull()) value = joined.copy();
  }
  auto option = _factory->optionWithNameValueInSection(name, value, _activeSection);
  if (_record && option) record(static_cast<int>(YIniSourceRecord::Kind::Option), end, *option, name, value);
  return option;
}

std::shared_ptr<YArray<YIniElement>> YIniDocumentEnumerator::allObjects() {
  auto all = YArray<YIniElement>::mutableArray();
  while (auto element = nextObject()) all->addObject(std::move(element));
  return all;
}
