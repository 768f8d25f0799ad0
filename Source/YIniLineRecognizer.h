// The INI reader's hand-written recogniser of its scanner rules' tokens.
// Private to the library: not installed.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string_view>

#include "YArray.h"
#include "YRule.h"
#include "YToken.h"
#include "YTokenClass.h"

/// Finds, in one pass over at most the line at hand, the token that the
/// reader's eight scanner rules would produce at a position: the same class,
/// range and subtokens, without running a regular expression. The rules, in
/// priority order, and what each takes at the position p:
///
///   1. "#" ...                      comment: to the line end, without its LF
///                                   or CR LF
///   2. LF or CR LF                  blank line
///   3. "[" ... "]"                  section: to the last "]" of the line with at
///                                   least one code unit between; group: inside
///   4. not " ", "=" before an LF    option: through the LF; groups: before the
///                                   first "=" and after it, LF included
///   5. " " and one more unit, LF    continuation: through the LF; one group: all
///   6. the same without LF          continuation ending the text; no group
///   7. as 4, without LF             option ending the text; groups as in 4
///   8. anything else                unrecognised: to the line end (LF)
///
/// Every position of a text matches exactly one of these, so the recogniser
/// always answers; the regular-expression rules stay the reference it is
/// tested against. Time is linear in the token plus the rest of its line.
class YIniLineRecognizer {
 public:
  /// Which of the rules took a line's token (in rule order).
  enum class Kind : std::uint8_t {
    comment,
    newLine,
    section,
    option,
    fragment,
    fragmentTerminating,
    optionTerminating,
    unknown,
  };
  /// A token as the reader uses it: its rule, its range and its groups, all
  /// counted from the start of the text. `key` is the group of a section,
  /// option or fragment; `value` that of an option. A group a token lacks
  /// is left as it was.
  struct Line {
    Kind kind;
    std::size_t start, end;
    std::size_t keyStart, keyEnd;
    std::size_t valueStart, valueEnd;
  };

  /// Describes in `line` the token at `position` as the rules make it.
  /// Returns false (leaving `line` unspecified) when it cannot say for
  /// certain, so that the caller asks the scanner; at or past the end of
  /// the text it cannot.
  static bool lineAtPosition(std::u16string_view text, std::size_t position, Line& line) noexcept;
  /// The same over ASCII text (bytes below 0x80), each byte a code unit.
  static bool lineAtPosition(std::string_view ascii, std::size_t position, Line& line) noexcept;

  /// The token classes of one reader, which the tokens are given.
  struct Classes {
    const YTokenClass* comment;
    const YTokenClass* newLine;
    const YTokenClass* section;
    const YTokenClass* option;
    const YTokenClass* fragment;
    const YTokenClass* fragmentTerminating;
    const YTokenClass* optionTerminating;
    const YTokenClass* unknown;
    const YTokenClass* key;
    const YTokenClass* value;
  };

  /// The same token as lineAtPosition(), described in `match` with the
  /// top-level position and subtokens relative to it, as the scanner would.
  static bool tokenAtPosition(std::u16string_view text, std::size_t position, const Classes& classes,
                              YTokenMatch& match);

  /// Whether readers made from now on use the recogniser (the default) or
  /// the scanner's regular expressions alone. For the tests and fuzzers that
  /// compare the two; readers already made keep their way.
  static void setEnabled(bool enabled) noexcept;
  static bool isEnabled() noexcept;
  /// How many tokens the recogniser has described on the calling thread, so
  /// that those tests can tell which way a reading went.
  static std::size_t tokensOnThisThread() noexcept;
};

/// The reader's token classes, as its rules hold them.
struct YIniReaderClasses {
  std::shared_ptr<YTokenClass> comment, newLine, section, option, fragment, fragmentTerminating, optionTerminating,
      unknown, key, value;

  YIniLineRecognizer::Classes classes() const noexcept {
    return {comment.get(), newLine.get(), section.get(), option.get(), fragment.get(), fragmentTerminating.get(),
            optionTerminating.get(), unknown.get(), key.get(), value.get()};
  }
};

/// The reader's eight scanner rules over `classes`, in priority order, as
/// YIniDocumentEnumerator scans with them (defined beside it, with the
/// patterns).
std::shared_ptr<YArray<YRule>> YIniReaderRules(const YIniReaderClasses& classes);
