/// \file YRegularExpressionRule.h
/// Rules that recognise a token with a regular expression.
#pragma once

#include <cstdint>
#include <memory>
#include <string_view>

#include "YArray.h"
#include "YException.h"
#include "YRule.h"
#include "YString.h"
#include "YTokenClass.h"

/// Bits of a regular-expression rule's options word. They combine; 0 is the
/// plain default described at YRegularExpressionRule.
enum YRegularExpressionOptions : unsigned {
  /// Letters match in either case (ASCII letters; every cased letter with Unicode).
  YRegularExpressionCaseInsensitive = 1u << 0,
  /// Unescaped whitespace in the pattern is ignored and `#` starts a comment
  /// running to the pattern's next LF.
  YRegularExpressionExtended = 1u << 1,
  /// The pattern is literal text: no character in it is special (the
  /// extended, dot and multiline bits then have nothing to change).
  YRegularExpressionLiteral = 1u << 2,
  /// `.` matches LF as well.
  YRegularExpressionDotMatchesAll = 1u << 3,
  /// `^` and `$` also match after and before every LF inside the text.
  YRegularExpressionMultiline = 1u << 4,
  /// The text is matched as Unicode characters rather than code units: the
  /// dot takes a whole surrogate pair, and `\w`, `\d`, `[[:alpha:]]` and
  /// case folding follow Unicode properties. A lone surrogate in the text is
  /// never matched by anything. Positions and lengths stay in code units.
  YRegularExpressionUnicode = 1u << 5,
};

/// Every bit that YRegularExpressionOptions defines.
inline constexpr unsigned YRegularExpressionAllOptions = (1u << 6) - 1;

/// Raised when a match cannot be completed: a resource limit of the matcher
/// (match, depth or heap limit, JIT stack) was reached, or memory ran out.
/// The reason names the pattern, the position and the matcher's own message.
class YRegularExpressionMatchException : public YException {
 public:
  /// Named "YRegularExpressionMatchException", for `reason`.
  explicit YRegularExpressionMatchException(YString reason);
};

/// A rule that matches a regular expression at the scanning position.
///
/// Example:
/// @code
/// auto number = YTokenClass::tokenClass(YString("number"));
/// auto rule = YRegularExpressionRule::ruleWithPatternOptionsTokenClass(YString("[0-9]+"), 0, number);
/// auto token = rule->tokenAtPosition(u"port 8080", 5);  // class number, position 5, length 4
/// auto none = rule->tokenAtPosition(u"port 8080", 0);   // null: a match begins at the position
/// @endcode
///
/// Matching semantics (options word 0):
/// - The pattern is tried only at the scanning position: a match always
///   begins there. `^` is true at the scanning position (even mid-line);
///   `\z` only at the very end of the whole text; `$` at the end of the text
///   or before an LF that ends it. Look-behind cannot see text before the
///   scanning position.
/// - The text is a sequence of UTF-16 code units; `.` matches every code unit
///   except LF (a CR is ordinary), so `.*` stops before an LF. LF and CR
///   written into the pattern match themselves.
/// - Only a non-empty match counts: where the pattern can match only empty
///   text, the rule does not match (see YRuleBasedScanner).
/// - The token covers the matched text. For each named group that took part
///   in the match and whose name has a class in the rule's group map, the
///   token gets a subtoken of that class at the group's start relative to
///   the token's start, with the group's length (0 for a group that matched
///   empty text). Subtokens follow the order of the groups in the pattern.
///   Groups that did not take part, groups the map does not name, and map
///   entries the pattern lacks yield nothing.
///
/// The pattern is compiled when the rule is made, and JIT-compiled when the
/// machine supports it (the interpreter is used otherwise). Compiled patterns
/// are kept per process, by pattern and options, and shared by every rule
/// made with the same pair, on any thread: making a rule again costs a lookup.
/// The process keeps the 64 pairs used most recently. Each rule still has its
/// own match state, so rules that share a pattern match independently. The
/// text is never copied.
///
/// Thread safety: rules may be made and destroyed on any threads at once; one
/// rule is matched by one thread at a time.
class YRegularExpressionRule : public YRule {
 public:
  /// Compiles `pattern` (not null) under `options` (YRegularExpressionOptions
  /// bits); tokens get `tokenClass` (not null), and named groups listed in
  /// `groupClasses` (may be null) produce subtokens. The map is read here;
  /// later changes to it do not reach the rule.
  /// Throws YInvalidArgumentException for a null pattern or class, for
  /// undefined option bits, and for a pattern that does not compile (the
  /// reason gives the compiler's message and the offset in the pattern).
  YRegularExpressionRule(const YString& pattern, unsigned options, std::shared_ptr<YTokenClass> tokenClass,
                         std::shared_ptr<YDictionary<YTokenClass>> groupClasses);
  ~YRegularExpressionRule() override;

  /// A rule without group map. Preconditions: "pattern != nil",
  /// "tokenClass != nil" (null is returned when the handler returns).
  /// An invalid pattern or undefined option bit throws YInvalidArgumentException.
  static std::shared_ptr<YRegularExpressionRule> ruleWithPatternOptionsTokenClass(
      const YString& pattern, unsigned options, std::shared_ptr<YTokenClass> tokenClass);
  /// A rule whose named groups produce subtokens with the classes of `groupClasses`.
  /// Preconditions and failures as above; a null map means no subtokens.
  static std::shared_ptr<YRegularExpressionRule> ruleWithPatternOptionsTokenClassGroupClasses(
      const YString& pattern, unsigned options, std::shared_ptr<YTokenClass> tokenClass,
      std::shared_ptr<YDictionary<YTokenClass>> groupClasses);

  /// The pattern as given at creation.
  const YString& pattern() const noexcept { return _pattern; }
  /// The YRegularExpressionOptions bits given at creation.
  unsigned options() const noexcept { return _options; }
  /// True when the pattern runs JIT-compiled.
  bool isJitCompiled() const noexcept;

  /// Matches at `position`; see the class comment. Throws
  /// YRegularExpressionMatchException when the matcher fails for a reason
  /// other than "no match" (a resource limit, no memory). The match limit
  /// grows with the text: a match may take eight steps per code unit from
  /// `position` to the end of the text, and never fewer than the engine's
  /// default of ten million, so a pattern that walks a long line a few times
  /// (a lazy repetition up to a distant character) completes, while runaway
  /// backtracking still ends in the exception. JIT code that runs out of
  /// stack (a group repeated thousands of times keeps a frame each) is given
  /// a larger stack and tried again, up to 64 MiB of the rule's own; a
  /// stack past 256 KiB is let go once the match that needed it ends.
  std::shared_ptr<YToken> tokenAtPosition(std::u16string_view text, std::int32_t position) override;
  bool matchAtPosition(std::u16string_view text, std::int32_t position, YTokenMatch& match) override;

  /// "<YRegularExpressionRule: 0x… pattern>".
  YString description() const override;

 private:
  struct Matcher;
  YString _pattern;
  unsigned _options;
  std::unique_ptr<Matcher> _matcher;
};
