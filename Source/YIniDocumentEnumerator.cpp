#include "YIniDocumentEnumerator.h"

#include "YAssertionHandler.h"
#include "YCharacterSet.h"
#include "YEndOfLineRule.h"
#include "YIniComment.h"
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

// The piece [start, start + length) of `text` without leading and trailing
// members of the first set and then of the second (which may be null), cut
// out in one copy.
YString trimmedPiece(const YString& text, std::int32_t start, std::int32_t length, const YCharacterSet& first,
                     const YCharacterSet& second = YCharacterSet()) {
  if (start < 0 || length < 0 || static_cast<std::size_t>(start) + static_cast<std::size_t>(length) > text.length())
    return text.substringWithRange(static_cast<std::size_t>(start), static_cast<std::size_t>(length));  // throws
  const char16_t* c = text.characters();
  std::size_t begin = static_cast<std::size_t>(start);
  std::size_t end = begin + static_cast<std::size_t>(length);
  for (const YCharacterSet* set : {&first, &second}) {
    while (begin < end && set->characterIsMember(c[begin])) ++begin;
    while (end > begin && set->characterIsMember(c[end - 1])) --end;
  }
  return YString::stringWithCharacters(c + begin, end - begin);
}

}  // namespace

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

  auto rules = YArray<YRule>::mutableArray(8);
  rules->addObject(YEndOfLineRule::ruleWithOpenSequenceTokenClass(kCommentOpenSequence, _commentLiteral));
  rules->addObject(YRegularExpressionRule::ruleWithPatternOptionsTokenClass(kNewLinePattern, 0, _singleNewLineLiteral));
  rules->addObject(YRegularExpressionRule::ruleWithPatternOptionsTokenClassGroupClasses(
      kSectionPattern, 1, _sectionLiteral, GroupMap::dictionaryWithObjectsAndKeys({{kSectionNameGroup, _keyLiteral}})));
  rules->addObject(YRegularExpressionRule::ruleWithPatternOptionsTokenClassGroupClasses(
      kOptionPattern, 1, _optionLiteral,
      GroupMap::dictionaryWithObjectsAndKeys({{kOptionKeyGroup, _keyLiteral}, {kOptionValueGroup, _valueLiteral}})));
  rules->addObject(YRegularExpressionRule::ruleWithPatternOptionsTokenClassGroupClasses(
      kFragmentPattern, 1, _optionFragmentLiteral, GroupMap::dictionaryWithObjectsAndKeys({{kFragmentGroup, _keyLiteral}})));
  rules->addObject(YRegularExpressionRule::ruleWithPatternOptionsTokenClassGroupClasses(
      kFragmentTerminatingPattern, 1, _optionFragmentLiteralTerminating,
      GroupMap::dictionaryWithObjectsAndKeys({{kFragmentTerminatingGroup, _keyLiteral}})));
  rules->addObject(YRegularExpressionRule::ruleWithPatternOptionsTokenClassGroupClasses(
      kOptionTerminatingPattern, 1, _optionLiteralTerminating,
      GroupMap::dictionaryWithObjectsAndKeys({{kOptionKeyGroup, _keyLiteral}, {kOptionValueGroup, _valueLiteral}})));
  rules->addObject(YRegularExpressionRule::ruleWithPatternOptionsTokenClass(kUnknownPattern, 0, _unknownLiteral));

  _documentString = documentString;
  auto buffer = YStringBuffer::bufferFromString(_documentString);
  auto stream = YUnicharStream::streamWithBuffer(buffer);
  _scanner = YRuleBasedScanner::scannerForStreamWithRules(stream, rules);
  _factory = std::move(factory);
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
  return _scanner && _scanner->nextMatch(token);
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
  YString name = trimmedPiece(_documentString, token.position + nameToken.position, nameToken.length,
                              YCharacterSet::whitespaceCharacterSet());
  std::shared_ptr<YIniSection> section = _factory->sectionWithName(name);
  _activeSection = section;
  if (_record && section)
    record(static_cast<int>(YIniSourceRecord::Kind::Section), token.position + token.length, *section, name);
  return section;
}

std::shared_ptr<YIniElement> YIniDocumentEnumerator::optionFromToken(const YTokenMatch& token) {
  const std::int32_t base = token.position;
  const YTokenMatch::Subtoken& keyToken = token.subtokens.at(0);
  const YCharacterSet whitespace = YCharacterSet::whitespaceCharacterSet();
  YString name = trimmedPiece(_documentString, base + keyToken.position, keyToken.length, whitespace);
  YString value;
  std::int32_t end = base + token.length;  // continuation lines move it on
  if (token.subtokens.size() == 2) {
    const YTokenMatch::Subtoken& valueToken = token.subtokens[1];
    const YCharacterSet newlines = YCharacterSet::whitespaceAndNewlineCharacterSet();
    // Trimmed of spaces and tabs, then of line ends too.
    value = trimmedPiece(_documentString, base + valueToken.position, valueToken.length, whitespace, newlines);
    YString joined;  // built only when continuation lines follow
    YTokenMatch& next = _activeToken;
    bool more = _scanner->nextMatch(next);
    while (more && isFragment(next)) {
      if (joined.isNull()) joined = YString::mutableStringWithString(value);
      joined.appendString(kContinuationJoint);
      joined.appendString(trimmedPiece(_documentString, next.position, next.length, newlines));
      end = next.position + next.length;
      more = _scanner->nextMatch(next);
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
