#include "YTokenClass.h"

const std::shared_ptr<YTokenClass>& YTokenClass::unmatchedTokenClass() {
  // Created once and never destroyed, so tokens may outlive static destruction.
  static const auto* const unmatched = new std::shared_ptr<YTokenClass>(tokenClass(YString(u"unmatched")));
  return *unmatched;
}

YString YTokenClass::description() const {
  if (_name.isNull()) return defaultDescription();
  return YString::stringWithFormat("<%@: %p %@>", className(), static_cast<const void*>(this), _name);
}
