#include "YIniElement.h"

YValue YIniElement::valueForKey(const YString& key) const {
  if (key.isIdenticalTo(YModifiedKey) || key.isEqualToString(YModifiedKey)) return isModified();
  return {};
}
