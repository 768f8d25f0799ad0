#include "YRegularExpressionRule.h"

#define PCRE2_CODE_UNIT_WIDTH 16
#include <pcre2.h>

#include <algorithm>
#include <array>
#include <list>
#include <mutex>
#include <string>
#include <unordered_map>
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

/// A compiled pattern and what the rules derive from it. Immutable once made:
/// matching only reads the code (JIT code included), so any number of rules
/// on any threads share one.
struct CompiledPattern {
  pcre2_code* code = nullptr;
  bool jit = false;
  std::size_t minimumLength = 0;
  bool filtersStart = false;  // false: a match may start with any code unit
  YRule::StartSet startSet{};
  std::array<char16_t, 2> required{};
  std::size_t requiredCount = 0;
  struct Name {
    uint32_t number;
    YString name;
  };
  std::vector<Name> names;  // the name table, in its own order

  CompiledPattern() = default;
  CompiledPattern(const CompiledPattern&) = delete;
  CompiledPattern& operator=(const CompiledPattern&) = delete;
  ~CompiledPattern() { pcre2_code_free(code); }
};

void admit(YRule::StartSet& set, uint32_t unit) {
  const unsigned index = unit > 255 ? 255u : unit;
  set[index >> 6] |= uint64_t{1} << (index & 63);
}

// Compiles `pattern` (throwing as the rule's constructor documents) and
// works out the start filter, the required code units and the group names.
std::shared_ptr<const CompiledPattern> compile(const YString& pattern, unsigned options) {
  auto compiled = std::make_shared<CompiledPattern>();
  pcre2_compile_context* context = pcre2_compile_context_create(nullptr);
  if (!context) throw YRegularExpressionMatchException(YString(u"No memory to compile a regular expression"));
  // Only LF ends a line: `.` takes CR, and `$` looks at LF alone.
  pcre2_set_newline(context, PCRE2_NEWLINE_LF);
  int errorCode = 0;
  PCRE2_SIZE errorOffset = 0;
  compiled->code = pcre2_compile(reinterpret_cast<PCRE2_SPTR>(pattern.characters()), pattern.length(),
                                 compileOptions(options), &errorCode, &errorOffset, context);
  pcre2_compile_context_free(context);
  if (!compiled->code)
    throw YInvalidArgumentException(YString::stringWithFormat(
        "Invalid regular expression \"%@\": %@ at offset %zu", pattern, pcre2Message(errorCode), errorOffset));
  pcre2_code* code = compiled->code;

  // JIT where the machine allows it; pcre2_match interprets otherwise. A
  // pattern may refuse JIT code itself ((*NO_JIT)), and compiles without it.
  std::size_t jitSize = 0;
  compiled->jit = pcre2_jit_compile(code, PCRE2_JIT_COMPLETE) == 0 &&
                  pcre2_pattern_info(code, PCRE2_INFO_JITSIZE, &jitSize) == 0 && jitSize > 0;
  // Case folding beyond ASCII: in Unicode mode, or turned on inside the
  // pattern with (*UCP).
  uint32_t allOptions = 0;
  pcre2_pattern_info(code, PCRE2_INFO_ALLOPTIONS, &allOptions);
  const bool unicodeCase = (options & YRegularExpressionUnicode) || (allOptions & PCRE2_UCP);

  // Start filter: the code units a match can begin with, as the compiler saw them.
  uint32_t firstType = 0;
  pcre2_pattern_info(code, PCRE2_INFO_FIRSTCODETYPE, &firstType);
  const uint8_t* bitmap = nullptr;
  pcre2_pattern_info(code, PCRE2_INFO_FIRSTBITMAP, &bitmap);
  if (firstType == 1) {
    uint32_t unit = 0;
    pcre2_pattern_info(code, PCRE2_INFO_FIRSTCODEUNIT, &unit);
    // The compiler does not say whether the unit is caseless (an inline (?i)
    // can make it so); admit the other case of an ASCII letter, and admit
    // everything for a non-ASCII unit in Unicode mode.
    if (!(unit >= 128 && unicodeCase)) {
      compiled->filtersStart = true;
      admit(compiled->startSet, unit);
      if (unit < 128 && ((unit | 0x20u) >= 'a' && (unit | 0x20u) <= 'z')) admit(compiled->startSet, unit ^ 0x20u);
    }
  } else if (bitmap) {
    compiled->filtersStart = true;
    for (unsigned c = 0; c < 256; ++c)
      if (bitmap[c / 8] & (1u << (c % 8))) admit(compiled->startSet, c);
  }
  // A literal code unit that every match contains: where it does not occur
  // ahead, the pattern cannot match, however long its attempts would take.
  uint32_t lastType = 0;
  pcre2_pattern_info(code, PCRE2_INFO_LASTCODETYPE, &lastType);
  if (lastType == 1) {
    uint32_t unit = 0;
    pcre2_pattern_info(code, PCRE2_INFO_LASTCODEUNIT, &unit);
    const bool letter = (unit | 0x20u) >= 'a' && (unit | 0x20u) <= 'z';
    // Unicode case folding links some ASCII letters to other letters; skip those.
    if (unit < 128 && !(letter && unicodeCase)) {
      compiled->required = {static_cast<char16_t>(unit), static_cast<char16_t>(unit ^ 0x20u)};
      compiled->requiredCount = letter ? 2 : 1;
    }
  }
  uint32_t minimumLength = 0;
  pcre2_pattern_info(code, PCRE2_INFO_MINLENGTH, &minimumLength);
  compiled->minimumLength = minimumLength;

  uint32_t nameCount = 0, entrySize = 0;
  PCRE2_SPTR table = nullptr;
  pcre2_pattern_info(code, PCRE2_INFO_NAMECOUNT, &nameCount);
  pcre2_pattern_info(code, PCRE2_INFO_NAMEENTRYSIZE, &entrySize);
  pcre2_pattern_info(code, PCRE2_INFO_NAMETABLE, &table);
  for (uint32_t i = 0; i < nameCount; ++i) {
    const PCRE2_SPTR entry = table + static_cast<std::size_t>(i) * entrySize;
    compiled->names.push_back({entry[0], YString(std::u16string_view(reinterpret_cast<const char16_t*>(entry + 1)))});
  }
  return compiled;
}

/// The compiled patterns of the process, by pattern and options, so that the
/// rules every reader makes anew are compiled once. Bounded: past `capacity`
/// patterns the one used least recently is dropped (rules that hold it keep
/// it). Patterns that do not compile are not kept: each attempt fails anew.
class PatternCache {
 public:
  static constexpr std::size_t capacity = 64;

  std::shared_ptr<const CompiledPattern> compiledPattern(const YString& pattern, unsigned options) {
    std::u16string key;
    key.reserve(pattern.length() + 2);
    key.push_back(static_cast<char16_t>(options & 0xFFFFu));
    key.push_back(static_cast<char16_t>(options >> 16));
    key.append(pattern.view());
    {
      std::lock_guard<std::mutex> lock(_mutex);
      if (auto found = _entries.find(key); found != _entries.end()) {
        _order.splice(_order.begin(), _order, found->second.place);
        return found->second.compiled;
      }
    }
    // Compiled unlocked: JIT compilation takes a while, and other threads
    // may meanwhile look up patterns of their own.
    auto compiled = compile(pattern, options);
    std::lock_guard<std::mutex> lock(_mutex);
    auto [found, inserted] = _entries.try_emplace(std::move(key));
    if (!inserted) return found->second.compiled;  // another thread was quicker
    found->second.compiled = compiled;
    _order.push_front(&found->first);
    found->second.place = _order.begin();
    if (_entries.size() > capacity) {
      _entries.erase(_entries.find(*_order.back()));
      _order.pop_back();
    }
    return compiled;
  }

 private:
  struct Entry {
    std::shared_ptr<const CompiledPattern> compiled;
    std::list<const std::u16string*>::iterator place;  // in _order
  };
  std::mutex _mutex;
  std::unordered_map<std::u16string, Entry> _entries;
  std::list<const std::u16string*> _order;  // keys of _entries, the one used last first
};

PatternCache& patternCache() {
  // Never destroyed, so that rules made or destroyed while the process
  // exits still find it.
  static PatternCache* const cache = new PatternCache;
  return *cache;
}

}  // namespace

YRegularExpressionMatchException::YRegularExpressionMatchException(YString reason)
    : YException(YString(u"YRegularExpressionMatchException"), std::move(reason)) {}

/// The shared compiled pattern and the rule's own match state.
struct YRegularExpressionRule::Matcher {
  struct Group {
    uint32_t number;
    std::shared_ptr<YTokenClass> tokenClass;
  };

  std::shared_ptr<const CompiledPattern> compiled;
  pcre2_match_data* matchData = nullptr;
  // Made for the first long text or the first larger JIT stack.
  pcre2_match_context* context = nullptr;
  pcre2_jit_stack* jitStack = nullptr;  // null: the engine's own 32 KiB
  std::size_t jitStackSize = 0;
  std::vector<Group> groups;  // named groups with a class, in pattern order

  ~Matcher() {
    pcre2_match_context_free(context);
    pcre2_jit_stack_free(jitStack);
    pcre2_match_data_free(matchData);
  }

  // The match context for a subject of `length` code units: null (the
  // engine's defaults) unless the text is long enough for the default match
  // limit to stop a match that only scans it once or twice, or JIT code
  // needed a larger stack.
  pcre2_match_context* contextForLength(std::size_t length);
  // Gives JIT code a stack of the next size; false when the largest is in use.
  bool growJitStack();
  // Lets go of a stack grown past the first larger size: its pages, once
  // touched, stay resident as long as it is held.
  void releaseLargeJitStack() noexcept;
};

namespace {

// Steps a match may take per code unit of the subject. A pattern that walks
// a long line a few times (a lazy repetition up to a distant "=", a greedy one
// giving back to a "]") takes about one step per unit and pass; runaway
// backtracking takes exponentially many and is still stopped.
constexpr uint64_t kMatchStepsPerUnit = 8;

uint32_t defaultMatchLimit() {
  static const uint32_t limit = [] {
    uint32_t value = 0;
    return pcre2_config(PCRE2_CONFIG_MATCHLIMIT, &value) >= 0 && value > 0 ? value : 10'000'000u;
  }();
  return limit;
}

}  // namespace

pcre2_match_context* YRegularExpressionRule::Matcher::contextForLength(std::size_t length) {
  const uint64_t budget = std::min<uint64_t>(static_cast<uint64_t>(length) * kMatchStepsPerUnit, UINT32_MAX);
  if (budget <= defaultMatchLimit() && !jitStack) return nullptr;
  if (!context) {
    context = pcre2_match_context_create(nullptr);
    if (!context) throw YRegularExpressionMatchException(YString(u"No memory for a match context"));
  }
  pcre2_set_match_limit(context, static_cast<uint32_t>(std::max<uint64_t>(budget, defaultMatchLimit())));
  return context;
}

namespace {
// The JIT stacks a rule grows to: each eight times the last, up to the largest.
constexpr std::size_t kFirstJitStack = std::size_t(256) << 10, kLargestJitStack = std::size_t(64) << 20;
}  // namespace

void YRegularExpressionRule::Matcher::releaseLargeJitStack() noexcept {
  if (jitStackSize <= kFirstJitStack) return;
  pcre2_jit_stack_assign(context, nullptr, nullptr);
  pcre2_jit_stack_free(jitStack);
  jitStack = nullptr;
  jitStackSize = 0;
}

bool YRegularExpressionRule::Matcher::growJitStack() {
  // Each size is eight times the last (the largest 64 MiB), so the tries
  // before the last cost a fraction of it. The stack is address space,
  // taken in pages only as deep as a match goes.
  if (jitStackSize >= kLargestJitStack) return false;
  const std::size_t size = jitStackSize ? std::min(jitStackSize * 8, kLargestJitStack) : kFirstJitStack;
  pcre2_jit_stack* larger = pcre2_jit_stack_create(32 << 10, size, nullptr);
  if (!larger) return false;
  if (!context && !(context = pcre2_match_context_create(nullptr))) {
    pcre2_jit_stack_free(larger);
    return false;
  }
  pcre2_jit_stack_assign(context, nullptr, larger);
  pcre2_jit_stack_free(jitStack);
  jitStack = larger;
  jitStackSize = size;
  return true;
}

YRegularExpressionRule::YRegularExpressionRule(const YString& pattern, unsigned options,
                                               std::shared_ptr<YTokenClass> tokenClass,
                                               std::shared_ptr<YDictionary<YTokenClass>> groupClasses)
    : YRule(std::move(tokenClass)), _pattern(pattern.copy()), _options(options), _matcher(new Matcher) {
  if (_pattern.isNull()) throw YInvalidArgumentException(YString(u"A regular-expression rule needs a pattern"));
  if ((options & ~YRegularExpressionAllOptions) != 0)
    throw YInvalidArgumentException(YString::stringWithFormat(
        "Unknown regular-expression option bits 0x%x in options 0x%x", options & ~YRegularExpressionAllOptions,
        options));

  _matcher->compiled = patternCache().compiledPattern(_pattern, options);
  const CompiledPattern& compiled = *_matcher->compiled;
  // Match data is written by every match, so each rule has its own.
  _matcher->matchData = pcre2_match_data_create_from_pattern(compiled.code, nullptr);
  if (!_matcher->matchData) throw YRegularExpressionMatchException(YString(u"No memory for match data"));
  if (compiled.filtersStart) setStartCharacters(compiled.startSet);
  setRequiredCharacters(std::u16string_view(compiled.required.data(), compiled.requiredCount));

  // Named groups that the map gives a class, in the order of the pattern.
  if (groupClasses && groupClasses->count() > 0) {
    for (const auto& name : compiled.names)
      if (auto groupClass = groupClasses->objectForKey(name.name))
        _matcher->groups.push_back({name.number, std::move(groupClass)});
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

bool YRegularExpressionRule::isJitCompiled() const noexcept { return _matcher->compiled->jit; }

bool YRegularExpressionRule::matchAtPosition(std::u16string_view text, std::int32_t position, YTokenMatch& match) {
  if (position < 0 || static_cast<std::size_t>(position) >= text.size()) return false;
  Matcher& m = *_matcher;
  const CompiledPattern& compiled = *m.compiled;
  // The subject starts at the scanning position (so ^ holds there) and runs
  // to the end of the text (so \z is the text's end); nothing is copied.
  const std::size_t remaining = text.size() - static_cast<std::size_t>(position);
  if (remaining < compiled.minimumLength) return false;
  const auto subject = reinterpret_cast<PCRE2_SPTR>(text.data() + position);
  int rc;
  do {
    pcre2_match_context* context = m.contextForLength(remaining);
    rc = compiled.jit
             ? pcre2_jit_match(compiled.code, subject, remaining, 0, PCRE2_NOTEMPTY_ATSTART, m.matchData, context)
             : pcre2_match(compiled.code, subject, remaining, 0, PCRE2_NOTEMPTY_ATSTART, m.matchData, context);
    // JIT code that ran out of stack is given a larger one and tried again,
    // up to 64 MiB, as deep as a long line may need.
  } while (rc == PCRE2_ERROR_JIT_STACKLIMIT && m.growJitStack());
  m.releaseLargeJitStack();
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
