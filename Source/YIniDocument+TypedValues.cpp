#include "NSString+Extensions.h"
#include "YAssertionHandler.h"
#include "YCharacterSet.h"
#include "YIniDocument+TypedValues.h"

static constexpr const char YUnitName[] = "YIniDocument+TypedValues";

// The names are checked by each public operation itself, so that a failure
// report names the operation the host called.
#define YCheckNames(onMissingOption, onMissingSection)                                      \
  if (YCParameterFailed(!optionName.isNull(), "optionName != nil")) return onMissingOption; \
  if (YCParameterFailed(!sectionName.isNull(), "sectionName != nil")) return onMissingSection

namespace {

// The section getter's result, or its error with the section's name added;
// MissingSection when the document has no section of the name.
template <class T, class Read>
YTypedValue<T> readInSection(const YIniDocument& document, const YString& optionName, const YString& sectionName,
                             const char* type, Read read) {
  auto section = document.sectionForName(sectionName);
  if (!section)
    return YTypedValue<T>::withError({YTypedValueFailure::MissingSection, sectionName, optionName, {}, type});
  YTypedValue<T> result = read(*section);
  if (result.hasValue()) return result;
  YTypedValueError error = result.error();
  error.sectionName = sectionName;
  return YTypedValue<T>::withError(std::move(error));
}

template <class T>
YTypedValue<T> refused(YTypedValueFailure failure, const YString& optionName, const YString& sectionName,
                       const char* type) {
  return YTypedValue<T>::withError({failure, sectionName, optionName, YString(), type});
}

// Whether the section writer's text of `section` ends with a line end. The
// writer is not run: it trims option names through setName(), which would
// announce changes. Its rules: an option is written when its trimmed name is
// not empty and its value not null, and its line always ends (by itself or
// by the LF comment after it); a comment is written as it is; the header
// line ends when any child follows it and the first is no LF comment.
bool sectionTextEndsWithLineEnd(const YIniSection& section) {
  const YCharacterSet whitespace = YCharacterSet::whitespaceCharacterSet();
  const auto& elements = *section.elementsList();
  for (std::size_t i = elements.count(); i > 0; --i) {
    YIniElement* element = elements.objectAtIndex(i - 1).get();
    if (auto* option = YCast<YIniOption>(element)) {
      if (!option->value().isNull() && !option->name().isNull() &&
          option->name().stringByTrimmingCharactersInSet(whitespace).length() > 0)
        return true;
    } else if (auto* comment = YCast<YIniComment>(element)) {
      if (comment->stringValue().length() > 0) return endsWithCharacter(comment->stringValue(), u'\n');
    }
  }
  return elements.count() > 0;
}

// Whether the document's text is empty or ends with a line end.
bool documentTextEndsLine(const YIniDocument& document) {
  const auto& elements = *document.elementsList();
  for (std::size_t i = elements.count(); i > 0; --i) {
    YIniElement* element = elements.objectAtIndex(i - 1).get();
    if (auto* section = YCast<YIniSection>(element)) return sectionTextEndsWithLineEnd(*section);
    if (auto* comment = YCast<YIniComment>(element)) {
      if (comment->stringValue().length() > 0) return endsWithCharacter(comment->stringValue(), u'\n');
    }
  }
  return true;
}

// The first section of the name, appended (on a line of its own) when missing.
std::shared_ptr<YIniSection> sectionForSetting(YIniDocument& document, const YString& sectionName) {
  if (auto section = document.sectionForName(sectionName)) return section;
  if (!documentTextEndsLine(document)) document.addElement(YIniComment::commentWithNewLine());
  auto section = YIniSection::sectionWithName(sectionName);
  document.addElement(section);
  return section;
}

void setText(YIniDocument& document, const YString& text, const YString& optionName, const YString& sectionName) {
  ydetail::setTypedTextForOptionWithName(*sectionForSetting(document, sectionName), text, optionName);
}

}  // namespace

YTypedValue<bool> boolValueForOptionWithNameInSectionWithName(const YIniDocument& document, const YString& optionName,
                                                              const YString& sectionName) {
  YCheckNames(refused<bool>(YTypedValueFailure::MissingOption, optionName, sectionName, YTypedValueBoolType),
              refused<bool>(YTypedValueFailure::MissingSection, optionName, sectionName, YTypedValueBoolType));
  return readInSection<bool>(document, optionName, sectionName, YTypedValueBoolType, [&](const YIniSection& section) {
    return boolValueForOptionWithName(section, optionName);
  });
}

YTypedValue<std::int64_t> integerValueForOptionWithNameInSectionWithName(const YIniDocument& document,
                                                                         const YString& optionName,
                                                                         const YString& sectionName) {
  YCheckNames(
      refused<std::int64_t>(YTypedValueFailure::MissingOption, optionName, sectionName, YTypedValueIntegerType),
      refused<std::int64_t>(YTypedValueFailure::MissingSection, optionName, sectionName, YTypedValueIntegerType));
  return readInSection<std::int64_t>(
      document, optionName, sectionName, YTypedValueIntegerType,
      [&](const YIniSection& section) { return integerValueForOptionWithName(section, optionName); });
}

YTypedValue<double> doubleValueForOptionWithNameInSectionWithName(const YIniDocument& document,
                                                                  const YString& optionName,
                                                                  const YString& sectionName) {
  YCheckNames(refused<double>(YTypedValueFailure::MissingOption, optionName, sectionName, YTypedValueDoubleType),
              refused<double>(YTypedValueFailure::MissingSection, optionName, sectionName, YTypedValueDoubleType));
  return readInSection<double>(
      document, optionName, sectionName, YTypedValueDoubleType,
      [&](const YIniSection& section) { return doubleValueForOptionWithName(section, optionName); });
}

YTypedValue<std::vector<YString>> listValueForOptionWithNameInSectionWithName(const YIniDocument& document,
                                                                              const YString& optionName,
                                                                              const YString& sectionName,
                                                                              char16_t separator) {
  using List = std::vector<YString>;
  YCheckNames(refused<List>(YTypedValueFailure::MissingOption, optionName, sectionName, YTypedValueListType),
              refused<List>(YTypedValueFailure::MissingSection, optionName, sectionName, YTypedValueListType));
  return readInSection<List>(document, optionName, sectionName, YTypedValueListType, [&](const YIniSection& section) {
    return listValueForOptionWithName(section, optionName, separator);
  });
}

void setBoolValueForOptionWithNameInSectionWithName(YIniDocument& document, bool value, const YString& optionName,
                                                    const YString& sectionName) {
  YCheckNames(, );
  setText(document, stringWithBoolValue(value), optionName, sectionName);
}

void setIntegerValueForOptionWithNameInSectionWithName(YIniDocument& document, std::int64_t value,
                                                       const YString& optionName, const YString& sectionName) {
  YCheckNames(, );
  setText(document, stringWithIntegerValue(value), optionName, sectionName);
}

bool setDoubleValueForOptionWithNameInSectionWithName(YIniDocument& document, double value, const YString& optionName,
                                                      const YString& sectionName) {
  YCheckNames(false, false);
  const YString text = stringWithDoubleValue(value);
  if (text.isNull()) return false;
  setText(document, text, optionName, sectionName);
  return true;
}

bool setListValueForOptionWithNameInSectionWithName(YIniDocument& document, const std::vector<YString>& value,
                                                    const YString& optionName, const YString& sectionName,
                                                    char16_t separator) {
  YCheckNames(false, false);
  const YString text = stringWithListValue(value, separator);
  if (text.isNull()) return false;
  setText(document, text, optionName, sectionName);
  return true;
}
