/// \file YRuleBasedScanner.h
/// The scanner: cuts a text into tokens with an ordered list of rules.
#pragma once

#include <cstdint>
#include <memory>
#include <vector>

#include "YArray.h"
#include "YObject.h"
#include "YRule.h"
#include "YToken.h"
#include "YUnicharStream.h"

/// Cuts the text of a stream into tokens, one per nextToken() call, starting
/// at the stream's current position.
///
/// Example:
/// @code
/// auto word = YTokenClass::tokenClass(YString("word"));
/// auto rules = YArray<YRule>::arrayWithObjects(
///     {YRegularExpressionRule::ruleWithPatternOptionsTokenClass(YString("[a-z]+"), 0, word)});
/// auto stream = YUnicharStream::streamWithBuffer(YStringBuffer::bufferFromString(YString("key = value")));
/// auto scanner = YRuleBasedScanner::scannerForStreamWithRules(stream, rules);
/// while (auto token = scanner->nextToken()) std::printf("%d+%d ", token->position(), token->length());
/// // "0+3 3+3 6+5": "key", the unmatched " = " (YTokenClass::unmatchedTokenClass()), "value"
/// @endcode
///
/// At each position the rules are tried in list order and the first that
/// matches wins, even when a later rule would match more text; the position
/// moves to the end of its token. Rules that cannot start with the code unit
/// at the position are skipped without being tried.
///
/// A rule whose matches must contain a certain code unit (see
/// YRule::requiredCharacters) is skipped where that unit does not occur
/// ahead; the search is remembered, so each rule looks at each code unit
/// about once over the whole text.
///
/// Tokens are never empty, so every call makes progress: a rule matching only
/// empty text does not match. Where no rule matches, the scanner returns a
/// token of YTokenClass::unmatchedTokenClass() covering the whole run of
/// code units at which no rule matches (without subtokens), and goes on after
/// it; no text is skipped silently and none is covered twice.
///
/// The scanner keeps its stream (and so the text) and the rules alive. The
/// rule list is read at creation; later changes to it do not reach the scanner.
class YRuleBasedScanner : public YObject {
 public:
  /// A scanner over `stream` (not null) with `rules` (not null, may be empty)
  /// in priority order. Null arguments throw YInvalidArgumentException.
  YRuleBasedScanner(std::shared_ptr<YUnicharStream> stream, std::shared_ptr<YArray<YRule>> rules);

  /// A new shared scanner. Preconditions: "stream != nil", "rules != nil"
  /// (null is returned when the handler returns).
  static std::shared_ptr<YRuleBasedScanner> scannerForStreamWithRules(std::shared_ptr<YUnicharStream> stream,
                                                                     std::shared_ptr<YArray<YRule>> rules);

  /// The next token, or null at the end of the text (and on every later
  /// call). A text made from a null string has no tokens. An exception from
  /// a rule (YRegularExpressionMatchException) passes to the caller and
  /// leaves the position where it was.
  std::shared_ptr<YToken> nextToken();
  /// The same as nextToken(), describing the token in `match` instead of
  /// creating it; false (and `match` reset) at the end of the text. A match
  /// from the scanner's own rule kinds allocates nothing.
  bool nextMatch(YTokenMatch& match);

  /// The stream scanned (shared); its position moves as tokens are taken.
  const std::shared_ptr<YUnicharStream>& stream() const noexcept { return _stream; }
  /// The current position (the stream's).
  std::int32_t position() const noexcept { return _stream->position(); }

 private:
  bool matchAt(std::u16string_view text, std::int32_t position, YTokenMatch& match);

  struct Entry {
    std::shared_ptr<YRule> rule;
    // Where the search for the rule's required code units last started, and
    // where it found one (the text's length when none follows).
    std::size_t searchedFrom = SIZE_MAX;
    std::size_t nextRequired = 0;
  };
  bool requiredCharacterFollows(Entry& entry, std::u16string_view text, std::size_t position);

  std::shared_ptr<YUnicharStream> _stream;
  std::vector<Entry> _rules;
  // A token found while measuring an unmatched run, handed out next.
  YTokenMatch _pending;
  bool _hasPending = false;
  YTokenMatch _scratch;  // reused by nextToken()
};
