/// \file YIniElementFactory.h
/// The interface through which parsed elements are created.
#pragma once

#include <memory>

#include "YIniComment.h"
#include "YIniOption.h"
#include "YIniSection.h"
#include "YObject.h"

/// Creates the comments, sections and options of a document being read, so
/// that a host can have its own subclasses built. A document keeps the
/// factory it was created with. Created elements are returned under shared
/// ownership; the factory keeps nothing.
class YIniElementFactory : public YObject {
 public:
  /// A new comment whose text is `string`, unchanged.
  virtual std::shared_ptr<YIniComment> commentWithString(const YString& string) = 0;
  /// A new, empty section named `name`.
  virtual std::shared_ptr<YIniSection> sectionWithName(const YString& name) = 0;
  /// A new option with `name` and `value`, meant for `section` (the section
  /// it will stand in); the factory does not add it there.
  virtual std::shared_ptr<YIniOption> optionWithNameValueInSection(const YString& name, const YString& value,
                                                                   const std::shared_ptr<YIniSection>& section) = 0;
};
