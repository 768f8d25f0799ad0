#include "NSString+Extensions.h"
#include "YAssertionHandler.h"
#include "YIniSection+Placement.h"

static constexpr const char YUnitName[] = "YIniSection+Placement";

std::size_t indexForNewOption(const YIniSection& section) {
  const auto& elements = *section.elementsList();
  for (std::size_t i = elements.count(); i > 0; --i) {
    if (YCast<YIniOption>(elements.objectAtIndex(i - 1).get())) return i;
  }
  // No option: the comment ending in LF right after the header ends the
  // header's line (the section writer writes no line end of its own then),
  // so the new option goes after it, on the next line.
  if (elements.count() > 0) {
    auto* comment = YCast<YIniComment>(elements.objectAtIndex(0).get());
    if (comment && endsWithCharacter(comment->stringValue(), u'\n')) return 1;
  }
  return 0;
}

std::shared_ptr<YIniOption> insertOptionWithNameAndValue(YIniSection& section, const YString& optionName,
                                                         const YString& value) {
  if (YCParameterFailed(!optionName.isNull(), "optionName != nil")) return nullptr;
  if (YCParameterFailed(!value.isNull(), "value != nil")) return nullptr;
  auto option = YIniOption::optionWithNameAndValue(optionName, value);
  section.insertObjectInElementsAtIndex(option, indexForNewOption(section));
  return option;
}
