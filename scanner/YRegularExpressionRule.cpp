#include "YRegularExpressionRule.h"

#define PCRE2_CODE_UNIT_WIDTH 16
#include <pcre2.h>

#include <algorithm>
#include <utility>
#include <vector>

#include "YAssertionHandler.h"

static constexpr const char YUnitName[] = "YRegularExpressionRule";

static_assert(sizeof(PCRE2_UCHAR16) == sizeof(char16_t));

namespace {

YString pcre2Message(int code) {
  PCRE2_UCHAR16 buffer[256];
  const int length = pcre2_get_error_message(code, buffer, sizeof buffer / sizeof buffer[0]);
  if (length < 0) return YString::stringWithFormat("error %d", code);
  return YString(std::u16string_view(reinterpret_cast<const char16_t*>(buffer), static_cast<std::size_t>(length)));
}

uint32_t compileOptions(unsigned options) {
  // Anchored: a match must begin at the scanning position, which is also
  // where the subject starts, so ^ holds there.
  uint32_t flags = PCRE2_ANCHORED;
  if (options & YRegularExpressionCaseInsensitive) flags |= PCRE2_CASELESS;
  if (options & YRegularExpressionLiteral) {
    // Literal text has no syntax for the other options to change.
    flags |= PCRE2_LITERAL;
    if (options & YRegularExpressionUnicode) flags |= PCRE2_UTF | PCRE2_MATCH_INVALID_UTF;
    return flags;
  }
  if (options & YRegularExpressionExtended) flags |= PCRE2_EXTENDED;
  if (options & YRegularExpressionDotMatchesAll) flags |= PCRE2_DOTALL;
  if (options & YRegularExpressionMultiline) flags |= PCRE2_MULTILINE;
  if (options & YRegularExpressionUnicode)
    flags |= PCRE2_UTF | PCRE2_UCP | PCRE2_MATCH_INVALID_UTF;  // lone surrogates just never match
  else
    flags |= PCRE2_NEVER_UTF;  // code-unit matching; a (*UTF) in the pattern is refused
  return flags;
}

}  // namespace

YRegularExpressionMatchException::YRegularExpressionMatchException(YString reason)
    : YException(YString(u"YRegularExpressionMatchException"), std::move(reason)) {}

/// The compiled pattern and the state reused by every match.
struct YRegularExpressionRule::Matcher {
  struct Group {
    uint32_t number;
    std::shared_ptr<YTokenClass> tokenClass;
  };

  pcre2_code* code = nullptr;
  pcre2_match_data* matchData = nullptr;
  bool jit = false;
  std::size_t minimumLength = 0;
  std::vector<Group> groups;  // named groups with a class, in pattern order

  ~Matcher() {
    pcre2_match_data_free(matchData);
    pcre2_code_free(code);
  }
};

YRegularExpressionRule::YRegularExpressionRule(const YString& pattern, unsigned options,
                                               std::shared_ptr<YTokenClass> tokenClass,
                                               std::shared_ptr<YDictionary<YTokenClass>> groupClasses)
    : YRule(std::move(tokenClass)), _pattern(pattern.copy()), _options(options), _matcher(new Matcher) {
  if (_pattern.isNull()) throw YInvalidArgumentException(YString(u"A regular-expression rule needs a pattern"));
  if ((options & ~YRegularExpressionAllOptions) != 0)
    throw YInvalidArgumentException(YString::stringWithFormat(
        "Unknown regular-expression option bits 0x%x in options 0x%x", options & ~YRegularExpressionAllOptions,
        options));

  pcre2_compile_context* context = pcre2_compile_context_create(nullptr);
  if (!context) throw YRegularExpressionMatchException(YString(u"No memory to compile a regular expression"));
  // Only LF ends a line: `.` takes CR, and `$` looks at LF alone.
  pcre2_set_newline(context, PCRE2_NEWLINE_LF);
  int errorCode = 0;
  PCRE2_SIZE errorOffset = 0;
  _matcher->code = pcre2_compile(reinterpret_cast<PCRE2_SPTR>(_pattern.characters()), _pattern.length(),
                                 compileOptions(options), &errorCode, &errorOffset, context);
  pcre2_compile_context_free(context);
  if (!_matcher->code)
    throw YInvalidArgumentException(YString::stringWithFormat(
        "Invalid regular expression \"%@\": %@ at offset %zu", _pattern, pcre2Message(errorCode), errorOffset));

  // JIT where the machine allows it; pcre2_match interprets otherwise.
  _matcher->jit = pcre2_jit_compile(_matcher->code, PCRE2_JIT_COMPLETE) == 0;
  _matcher->matchData = pcre2_match_data_create_from_pattern(_matcher->code, nullptr);
  if (!_matcher->matchData) throw YRegularExpressionMatchException(YString(u"No memory for match data"));

  // Start filter: the code units a match can begin with, as the compiler saw them.
  uint32_t firstType = 0;
  pcre2_pattern_info(_matcher->code, PCRE2_INFO_FIRSTCODETYPE, &firstType);
  const uint8_t* bitmap = nullptr;
  pcre2_pattern_info(_matcher->code, PCRE2_INFO_FIRSTBITMAP, &bitmap);
  if (firstType == 1) {
    uint32_t unit = 0;
    pcre2_pattern_info(_matcher->code, PCRE2_INFO_FIRSTCODEUNIT, &unit);
    // The compiler does not say whether the unit is caseless (an inline (?i)
    // can make it so); admit the other case of an ASCII letter, and admit
    // everything for a non-ASCII unit in Unicode mode.
    clearStartCharacters();
    if (unit >= 128 && (options & YRegularExpressionUnicode)) {
      addAllStartCharacters();
    } else {
      addStartCharacter(static_cast<char16_t>(unit));
      if (unit < 128 && ((unit | 0x20u) >= 'a' && (unit | 0x20u) <= 'z'))
        addStartCharacter(static_cast<char16_t>(unit ^ 0x20u));
    }
  } else if (bitmap) {
    clearStartCharacters();
    for (unsigned c = 0; c < 256; ++c)
      if (bitmap[c / 8] & (1u << (c % 8))) addStartCharacter(static_cast<char16_t>(c));
  }
  // A literal code unit that every match contains: where it does not occur
  // ahead, the pattern cannot match, however long its attempts would take.
  uint32_t lastType = 0;
  pcre2_pattern_info(_matcher->code, PCRE2_INFO_LASTCODETYPE, &lastType);
  if (lastType == 1) {
    uint32_t unit = 0;
    pcre2_pattern_info(_matcher->code, PCRE2_INFO_LASTCODEUNIT, &unit);
    const bool letter = (unit | 0x20u) >= 'a' && (unit | 0x20u) <= 'z';
    // Unicode case folding links some ASCII letters to other letters; skip those.
    if (unit < 128 && !(letter && (options & YRegularExpressionUnicode))) {
      const char16_t units[2] = {static_cast<char16_t>(unit), static_cast<char16_t>(unit ^ 0x20u)};
      setRequiredCharacters(std::u16string_view(units, letter ? 2 : 1));
    }
  }
  uint32_t minimumLength = 0;
  pcre2_pattern_info(_matcher->code, PCRE2_INFO_MINLENGTH, &minimumLength);
  _matcher->minimumLength = minimumLength;

  // Named groups that the map gives a class, in the order of the pattern.
  if (groupClasses && groupClasses->count() > 0) {
    uint32_t nameCount = 0, entrySize = 0;
    PCRE2_SPTR table = nullptr;
    pcre2_pattern_info(_matcher->code, PCRE2_INFO_NAMECOUNT, &nameCount);
    pcre2_pattern_info(_matcher->code, PCRE2_INFO_NAMEENTRYSIZE, &entrySize);
    pcre2_pattern_info(_matcher->code, PCRE2_INFO_NAMETABLE, &table);
    for (uint32_t i = 0; i < nameCount; ++i) {
      const PCRE2_SPTR entry = table + static_cast<std::size_t>(i) * entrySize;
      const auto* name = reinterpret_cast<const char16_t*>(entry + 1);
      if (auto tokenClass = groupClasses->objectForKey(YString(std::u16string_view(name))))
        _matcher->groups.push_back({entry[0], std::move(tokenClass)});
    }
    std::stable_sort(_matcher->groups.begin(), _matcher->groups.end(),
                     [](const Matcher::Group& a, const Matcher::Group& b) { return a.number < b.number; });
  }
}

YRegularExpressionRule::~YRegularExpressionRule() = default;

std::shared_ptr<YRegularExpressionRule> YRegularExpressionRule::ruleWithPatternOptionsTokenClass(
    const YString& pattern, unsigned options, std::shared_ptr<YTokenClass> tokenClass) {
  return ruleWithPatternOptionsTokenClassGroupClasses(pattern, options, std::move(tokenClass), nullptr);
}

std::shared_ptr<YRegularExpressionRule> YRegularExpressionRule::ruleWithPatternOptionsTokenClassGroupClasses(
    const YString& pattern, unsigned options, std::shared_ptr<YTokenClass> tokenClass,
    std::shared_ptr<YDictionary<YTokenClass>> groupClasses) {
  if (YCParameterFailed(!pattern.isNull(), "pattern != nil")) return nullptr;
  if (YCParameterFailed(tokenClass != nullptr, "tokenClass != nil")) return nullptr;
  return std::make_shared<YRegularExpressionRule>(pattern, options, std::move(tokenClass), std::move(groupClasses));
}

bool YRegularExpressionRule::isJitCompiled() const noexcept { return _matcher->jit; }

bool YRegularExpressionRule::matchAtPosition(std::u16string_view text, std::int32_t position, YTokenMatch& match) {
  if (position < 0 || static_cast<std::size_t>(position) >= text.size()) return false;
  Matcher& m = *_matcher;
  // The subject starts at the scanning position (so ^ holds there) and runs
  // to the end of the text (so \z is the text's end); nothing is copied.
  const std::size_t remaining = text.size() - static_cast<std::size_t>(position);
  if (remaining < m.minimumLength) return false;
  const auto subject = reinterpret_cast<PCRE2_SPTR>(text.data() + position);
  const int rc = m.jit ? pcre2_jit_match(m.code, subject, remaining, 0, PCRE2_NOTEMPTY_ATSTART, m.matchData, nullptr)
                       : pcre2_match(m.code, subject, remaining, 0, PCRE2_NOTEMPTY_ATSTART, m.matchData, nullptr);
  if (rc == PCRE2_ERROR_NOMATCH) return false;
  if (rc < 0)
    throw YRegularExpressionMatchException(YString::stringWithFormat(
        "Matching the regular expression \"%@\" at position %d failed: %@", _pattern, position, pcre2Message(rc)));

  const PCRE2_SIZE* ovector = pcre2_get_ovector_pointer(m.matchData);
  // The token covers everything the match consumed from the scanning position.
  const PCRE2_SIZE end = ovector[1];
  if (end == 0 || end > remaining) return false;

  match.reset();
  match.tokenClass = tokenClass().get();
  match.position = position;
  match.length = static_cast<std::int32_t>(end);
  if (!m.groups.empty()) {
    const uint32_t pairs = pcre2_get_ovector_count(m.matchData);
    for (const auto& group : m.groups) {
      if (group.number >= pairs || group.number >= static_cast<uint32_t>(rc)) continue;
      const PCRE2_SIZE start = ovector[2 * group.number], stop = ovector[2 * group.number + 1];
      if (start == PCRE2_UNSET || stop < start) continue;  // the group took no part
      // Offsets are relative to the subject, which begins where the token begins.
      match.subtokens.push_back(
          {group.tokenClass.get(), static_cast<std::int32_t>(start), static_cast<std::int32_t>(stop - start)});
    }
  }
  return true;
}

std::shared_ptr<YToken> YRegularExpressionRule::tokenAtPosition(std::u16string_view text, std::int32_t position) {
  return tokenFromMatchAtPosition(text, position);
}

YString YRegularExpressionRule::description() const {
  return YString::stringWithFormat("<%@: %p %@>", className(), static_cast<const void*>(this), _pattern);
}
