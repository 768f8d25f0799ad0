/// \file YToken.h
/// Tokens: recognised pieces of a text.
#pragma once

#include <cstdint>
#include <memory>
#include <vector>

#include "YArray.h"
#include "YObject.h"
#include "YTokenClass.h"

struct YTokenMatch;

/// One recognised piece of a text: its class, its position and length in
/// UTF-16 code units, and its subtokens.
///
/// A top-level token's position counts from the start of the whole text; a
/// subtoken's position counts from the start of its parent token. Subtokens
/// are an immutable YArray<YToken> (never null; empty when the rule made
/// none), in the order of the groups in the rule's pattern. A token shares its
/// class with whoever created the class. Tokens are immutable.
class YToken : public YObject {
 public:
  using Subtokens = std::shared_ptr<YArray<YToken>>;  ///< a token's subtokens: an immutable list

  /// A token of `tokenClass` covering [position, position + length).
  /// A null `subtokens` means none. A mutable list is snapshotted.
  YToken(std::shared_ptr<YTokenClass> tokenClass, std::int32_t position, std::int32_t length,
         Subtokens subtokens = nullptr);
  /// The token that `match` describes (its classes shared with their owners).
  static std::shared_ptr<YToken> tokenWithMatch(const YTokenMatch& match);

  /// The class of the rule that produced the token, or of its group for a subtoken.
  const std::shared_ptr<YTokenClass>& tokenClass() const noexcept { return _tokenClass; }
  /// Index of the first code unit (relative to the parent token for a subtoken).
  std::int32_t position() const noexcept { return _position; }
  /// Number of code units covered; may be 0 for a subtoken of an empty group.
  std::int32_t length() const noexcept { return _length; }
  /// The subtokens, in pattern group order; an empty list when there are none.
  const Subtokens& subtokens() const noexcept { return _subtokens; }

  /// "<YToken: class position+length>" with the subtokens, for diagnostics.
  YString description() const override;

 private:
  std::shared_ptr<YTokenClass> _tokenClass;
  std::int32_t _position;
  std::int32_t _length;
  Subtokens _subtokens;
};

/// A token as a plain value, for callers that read tokens without keeping
/// them: filling one allocates nothing once its subtoken list has grown to
/// the rule's group count. The classes are not owned: they stay valid while
/// the rule that produced the match (or `token`, when set) is alive.
struct YTokenMatch {
  /// A subtoken as a plain value.
  struct Subtoken {
    const YTokenClass* tokenClass;  ///< the class of its group (not owned)
    std::int32_t position;          ///< relative to the parent token
    std::int32_t length;            ///< in code units; 0 for a group that matched empty text
  };
  const YTokenClass* tokenClass = nullptr;  ///< the rule's class (not owned); null after reset()
  std::int32_t position = 0;                ///< from the start of the whole text
  std::int32_t length = 0;                  ///< in code units, never 0 for a match
  std::vector<Subtoken> subtokens;          ///< in pattern group order
  /// The token object, when the match came from one (a rule without a value
  /// path); it keeps the classes alive.
  std::shared_ptr<YToken> token;

  /// Empties the match: no class, no subtokens (their room is kept), no token.
  void reset() noexcept {
    tokenClass = nullptr;
    position = length = 0;
    subtokens.clear();
    token.reset();
  }
  /// Describes `source` (top-level positions as they are).
  void assign(std::shared_ptr<YToken> source);
};
