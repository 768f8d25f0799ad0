/// \file YIniStandardElementFactory.h
/// The standard element factory: the library's own element classes.
#pragma once

#include <memory>

#include "YIniElementFactory.h"

/// Creates plain YIniComment, YIniSection and YIniOption objects. Stateless;
/// instances are interchangeable. Precondition failures go through the
/// assertion handler (unit "YIniStandardElementFactory"); empty strings pass.
class YIniStandardElementFactory : public YIniElementFactory {
 public:
  /// A new factory of class T each call (no shared instance).
  template <class T = YIniStandardElementFactory>
  static std::shared_ptr<T> standardFactory() {
    return std::make_shared<T>();
  }

  /// YIniComment::commentWithString(string). Precondition "string != nil".
  std::shared_ptr<YIniComment> commentWithString(const YString& string) override;
  /// YIniSection::sectionWithName(name). Precondition "name != nil".
  std::shared_ptr<YIniSection> sectionWithName(const YString& name) override;
  /// YIniOption::optionWithNameAndValue(name, value). Preconditions, in order,
  /// "name != nil", "value != nil", "section != nil"; the section is neither
  /// read nor changed nor kept.
  std::shared_ptr<YIniOption> optionWithNameValueInSection(const YString& name, const YString& value,
                                                           const std::shared_ptr<YIniSection>& section) override;
};
