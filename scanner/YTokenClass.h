/// \file YTokenClass.h
/// Token classes: identities that tell tokens apart.
#pragma once

#include <memory>

#include "YObject.h"
#include "YString.h"

/// The class of a token. A token class carries no data that the scanner looks
/// at: it is an identity, and tokens are told apart by comparing their class
/// pointer with a known class object. Any number of independent instances can
/// be made; an optional name only serves descriptions.
class YTokenClass : public YObject {
 public:
  /// A new, distinct token class. `name` (may be null) appears in descriptions only.
  explicit YTokenClass(YString name = YString()) : _name(name.copy()) {}

  /// A new, distinct token class, shared.
  static std::shared_ptr<YTokenClass> tokenClass(const YString& name = YString()) {
    return std::make_shared<YTokenClass>(name);
  }

  /// The class of the tokens that a scanner makes from text where none of its
  /// rules matches. One object for the whole process, never destroyed.
  static const std::shared_ptr<YTokenClass>& unmatchedTokenClass();

  /// The name given at creation, or null.
  const YString& name() const noexcept { return _name; }

  /// "<YTokenClass: 0x… name>".
  YString description() const override;

 private:
  YString _name;
};
