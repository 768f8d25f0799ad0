// Tokens: recognised pieces of a text.
#pragma once

#include <cstdint>
#include <memory>

#include "YArray.h"
#include "YObject.h"
#include "YTokenClass.h"

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
  using Subtokens = std::shared_ptr<YArray<YToken>>;

  /// A token of `tokenClass` covering [position, position + length).
  /// A null `subtokens` means none. A mutable list is snapshotted.
  YToken(std::shared_ptr<YTokenClass> tokenClass, std::int32_t position, std::int32_t length,
         Subtokens subtokens = nullptr);

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
