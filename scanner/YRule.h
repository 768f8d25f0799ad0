/// \file YRule.h
/// The common base of scanner rules.
#pragma once

#include <array>
#include <cstdint>
#include <memory>
#include <string_view>

#include "YObject.h"
#include "YToken.h"
#include "YTokenClass.h"

/// A scanner rule: something that may recognise a token starting at a given
/// position of a text. Subclasses implement tokenAtPosition(); the base holds
/// the rule's token class and a quick filter of the code units a match can
/// start with, which lets the scanner skip the rule without trying it.
///
/// Rules are tried by one scanner at a time (a rule may keep per-match
/// scratch state); sharing a rule between scanners used on one thread is fine.
class YRule : public YObject {
 public:
  /// A start filter: 256 bits, one per code unit below 255 and one shared by
  /// the rest, bit i at word i / 64, position i % 64.
  using StartSet = std::array<std::uint64_t, 4>;

  /// The class given to the tokens this rule makes.
  const std::shared_ptr<YTokenClass>& tokenClass() const noexcept { return _tokenClass; }

  /// False when no match of this rule can begin with `character`; true when
  /// one might. Code units from 255 up share one entry of the filter.
  bool canStartWithCharacter(char16_t character) const noexcept {
    const unsigned index = character > 255 ? 255u : static_cast<unsigned>(character);
    return ((_startSet[index >> 6] >> (index & 63)) & 1u) != 0;
  }

  /// Code units of which every match must contain at least one, at or after
  /// its start (a letter with its other case); empty when nothing is known.
  /// The scanner skips the rule where none of them follows the position.
  std::u16string_view requiredCharacters() const noexcept { return {_required.data(), _requiredCount}; }

  /// Tries the rule on `text` at `position` (0 <= position < text.size()).
  /// Returns a token that begins at `position` and covers at least one code
  /// unit, with top-level positions, or null when the rule does not match
  /// there. May throw when matching fails for a reason other than "no match".
  virtual std::shared_ptr<YToken> tokenAtPosition(std::u16string_view text, std::int32_t position) = 0;

  /// The same as tokenAtPosition(), describing the token in `match` instead
  /// of creating it; returns false (with `match` unspecified) when the rule
  /// does not match. The base calls tokenAtPosition(); rules override it to
  /// match without allocating.
  virtual bool matchAtPosition(std::u16string_view text, std::int32_t position, YTokenMatch& match);

 protected:
  /// The token object for what matchAtPosition() finds, or null: the
  /// tokenAtPosition() of rules that match through the value path.
  std::shared_ptr<YToken> tokenFromMatchAtPosition(std::u16string_view text, std::int32_t position);

  /// A rule producing tokens of `tokenClass` (not null); its filter admits every code unit.
  explicit YRule(std::shared_ptr<YTokenClass> tokenClass);

  /// Empties the start filter.
  void clearStartCharacters() noexcept { _startSet = {}; }
  /// Admits `character` (code units from 255 up all admit entry 255).
  void addStartCharacter(char16_t character) noexcept {
    const unsigned index = character > 255 ? 255u : static_cast<unsigned>(character);
    _startSet[index >> 6] |= std::uint64_t{1} << (index & 63);
  }
  /// Admits every code unit.
  void addAllStartCharacters() noexcept { _startSet.fill(~std::uint64_t{0}); }
  /// Replaces the filter.
  void setStartCharacters(const StartSet& set) noexcept { _startSet = set; }
  /// Sets the required code units (at most two; more are ignored).
  void setRequiredCharacters(std::u16string_view characters) noexcept {
    _requiredCount = characters.size() > _required.size() ? 0 : characters.size();
    for (std::size_t i = 0; i < _requiredCount; ++i) _required[i] = characters[i];
  }

 private:
  std::shared_ptr<YTokenClass> _tokenClass;
  StartSet _startSet;
  std::array<char16_t, 2> _required{};
  std::size_t _requiredCount = 0;
};
