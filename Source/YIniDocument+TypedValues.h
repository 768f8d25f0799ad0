/// \file YIniDocument+TypedValues.h
/// Typed values of a YIniDocument, by section name and option name.
///
/// Declared as free functions taking the document as their first operand (a
/// C++ class cannot be reopened, and they need nothing private) in this
/// header, and defined in YIniDocument+TypedValues.cpp. They are the section
/// operations of YIniSection+TypedValues.h applied to the first section of
/// the name (see sectionForName), with the same texts, results and placement.
///
/// Example:
/// @code
/// auto document = YIniDocument::documentWithFactory(YIniStandardElementFactory::standardFactory());
/// setIntegerValueForOptionWithNameInSectionWithName(*document, 8080, YString("port"), YString("server"));
/// auto timeout = doubleValueForOptionWithNameInSectionWithName(*document, YString("timeout"), YString("net"));
/// double seconds = timeout.valueOr(2.5);  // 2.5: no section "net" (MissingSection)
/// YString text = document->stringValue();  // "[server]\nport=8080\n"
/// @endcode
///
/// Getters fail with MissingSection when the document has no section of the
/// name (its error's sectionName is set in every case). Setters create a
/// missing section: a new YIniSection (always this class; the factory is not
/// consulted) appended with addElement, so it comes after everything else,
/// trailing comments included. When the document's text would not end with a
/// line end (a last comment or header written without one), a comment holding
/// one LF goes before the new section, so that its header starts a line of its
/// own. A setter that refuses its value creates nothing.
///
/// Precondition failures ("optionName != nil", then "sectionName != nil") go
/// through the assertion handler (unit "YIniDocument+TypedValues"); a getter
/// then fails (MissingOption, MissingSection) and a setter changes nothing.
#pragma once

#include <cstdint>
#include <vector>

#include "YIniDocument.h"
#include "YIniSection+TypedValues.h"

/// boolValueForOptionWithName() in the first section named `sectionName`.
YTypedValue<bool> boolValueForOptionWithNameInSectionWithName(const YIniDocument& document, const YString& optionName,
                                                              const YString& sectionName);
/// integerValueForOptionWithName() in the first section named `sectionName`.
YTypedValue<std::int64_t> integerValueForOptionWithNameInSectionWithName(const YIniDocument& document,
                                                                         const YString& optionName,
                                                                         const YString& sectionName);
/// doubleValueForOptionWithName() in the first section named `sectionName`.
YTypedValue<double> doubleValueForOptionWithNameInSectionWithName(const YIniDocument& document,
                                                                  const YString& optionName,
                                                                  const YString& sectionName);
/// listValueForOptionWithName() in the first section named `sectionName`.
YTypedValue<std::vector<YString>> listValueForOptionWithNameInSectionWithName(
    const YIniDocument& document, const YString& optionName, const YString& sectionName,
    char16_t separator = YDefaultListSeparator);

/// setBoolValueForOptionWithName() in the first section named `sectionName`, created when missing.
void setBoolValueForOptionWithNameInSectionWithName(YIniDocument& document, bool value, const YString& optionName,
                                                    const YString& sectionName);
/// setIntegerValueForOptionWithName() in the first section named `sectionName`, created when missing.
void setIntegerValueForOptionWithNameInSectionWithName(YIniDocument& document, std::int64_t value,
                                                       const YString& optionName, const YString& sectionName);
/// setDoubleValueForOptionWithName() in the first section named `sectionName`,
/// created when missing. False, with nothing changed or created, for NaN and
/// the infinities.
[[nodiscard]] bool setDoubleValueForOptionWithNameInSectionWithName(YIniDocument& document, double value,
                                                                    const YString& optionName,
                                                                    const YString& sectionName);
/// setListValueForOptionWithName() in the first section named `sectionName`,
/// created when missing. False, with nothing changed or created, when
/// setListValueForOptionWithName would refuse the list.
[[nodiscard]] bool setListValueForOptionWithNameInSectionWithName(YIniDocument& document,
                                                                  const std::vector<YString>& value,
                                                                  const YString& optionName, const YString& sectionName,
                                                                  char16_t separator = YDefaultListSeparator);
