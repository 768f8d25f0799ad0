#include "YIniElement.h"

const YString& YModifiedKey = YObject::internedKey(u"modified");

YValue YIniElement::valueForKey(const YString& key) const {
  if (key.isIdenticalTo(YModifiedKey) || key.isEqualToString(YModifiedKey)) return isModified();
  return {};
}
