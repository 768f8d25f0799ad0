#include "YIniStandardElementFactory.h"

#include "YAssertionHandler.h"

static constexpr const char YUnitName[] = "YIniStandardElementFactory";

std::shared_ptr<YIniComment> YIniStandardElementFactory::commentWithString(const YString& string) {
  if (YParameterFailed(!string.isNull(), "string != nil")) return nullptr;
  return YIniComment::commentWithString(string);
}

std::shared_ptr<YIniSection> YIniStandardElementFactory::sectionWithName(const YString& name) {
  if (YParameterFailed(!name.isNull(), "name != nil")) return nullptr;
  return YIniSection::sectionWithName(name);
}

std::shared_ptr<YIniOption> YIniStandardElementFactory::optionWithNameValueInSection(
    const YString& name, const YString& value, const std::shared_ptr<YIniSection>& section) {
  if (YParameterFailed(!name.isNull(), "name != nil")) return nullptr;
  if (YParameterFailed(!value.isNull(), "value != nil")) return nullptr;
  if (YParameterFailed(section != nullptr, "section != nil")) return nullptr;
  return YIniOption::optionWithNameAndValue(name, value);
}
