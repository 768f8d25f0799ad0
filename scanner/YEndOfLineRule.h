/// \file YEndOfLineRule.h
/// Rules that take the rest of a line after an opening sequence.
#pragma once

#include <cstdint>
#include <memory>
#include <string_view>

#include "YRule.h"
#include "YString.h"
#include "YTokenClass.h"

/// A rule that matches where the text at the scanning position begins with
/// its opening sequence, and takes from there up to, not including, the line
/// end: an LF, or a CR directly followed by an LF. A CR not followed by LF is
/// ordinary text. Without a line end the token runs to the end of the text.
/// An empty opening sequence takes the rest of any line that is not empty.
/// Tokens have no subtokens.
class YEndOfLineRule : public YRule {
 public:
  /// A rule opening with `openSequence` (not null; snapshotted), making tokens
  /// of `tokenClass` (not null). Null arguments throw YInvalidArgumentException.
  YEndOfLineRule(const YString& openSequence, std::shared_ptr<YTokenClass> tokenClass);

  /// A new shared rule. Preconditions: "openSequence != nil", "tokenClass != nil"
  /// (null is returned when the handler returns).
  static std::shared_ptr<YEndOfLineRule> ruleWithOpenSequenceTokenClass(const YString& openSequence,
                                                                       std::shared_ptr<YTokenClass> tokenClass);

  /// The opening sequence (the rule's own snapshot).
  const YString& openSequence() const noexcept { return _openSequence; }

  std::shared_ptr<YToken> tokenAtPosition(std::u16string_view text, std::int32_t position) override;
  bool matchAtPosition(std::u16string_view text, std::int32_t position, YTokenMatch& match) override;

  /// "<YEndOfLineRule: 0x… sequence>".
  YString description() const override;

 private:
  YString _openSequence;
};
