/// \file YIniSection+TypedValues.h
/// Typed values of a YIniSection: reading and writing option values as
/// booleans, integers, doubles and lists.
///
/// Declared as free functions taking the section as their first operand (a
/// C++ class cannot be reopened, and they need nothing private) in this
/// header, and defined in YIniSection+TypedValues.cpp. They add nothing to
/// the section's state: getters read the first option of the name, setters
/// write a canonical text through the section's own operations.
///
/// Example:
/// @code
/// auto section = YIniSection::sectionWithName(YString("server"));
/// setIntegerValueForOptionWithName(*section, 8080, YString("port"));
/// setBoolValueForOptionWithName(*section, true, YString("verbose"));   // "verbose=true"
/// std::int64_t port = integerValueForOptionWithName(*section, YString("port")).valueOr(80);  // 8080
/// auto retries = integerValueForOptionWithName(*section, YString("retries"));  // MissingOption
/// @endcode
///
/// Reading. The text is the value of the first option of the name (see
/// optionWithName); a missing option and an option whose value is null both
/// fail with MissingOption. Surrounding whitespace and line ends are trimmed
/// first (the reader trims values the same way, so a value set by a host reads
/// as it will after a save and reload); any other stray character makes the
/// text Malformed, which is never read as 0 or false.
///
/// Writing. An existing first option of the name gets the text through its
/// setValue(), so change tracking and "modified" notifications are exactly
/// those of a string value. A new option is made by insertOptionWithNameAndValue
/// (YIniSection+Placement.h): right after the section's last option, not at the
/// end as setValueForOptionWithName() places it.
///
/// Precondition failures ("optionName != nil") go through the assertion handler
/// (unit "YIniSection+TypedValues"); a getter then fails with MissingOption and
/// a setter changes nothing.
#pragma once

#include <cstdint>
#include <vector>

#include "YIniSection.h"
#include "YTypedValue.h"

/// The separator of list values unless the caller picks another: a comma. A
/// semicolon, the other common choice, starts an inline comment for other
/// INI readers (inih strips " ;..." by default), so a list written with it
/// would be cut short there.
inline constexpr char16_t YDefaultListSeparator = u',';

/// The value as a boolean: "true", "yes", "on", "1" or "false", "no", "off",
/// "0", compared without case (ASCII letters only: "TRUE" matches, a
/// look-alike outside ASCII does not). Anything else is Malformed.
YTypedValue<bool> boolValueForOptionWithName(const YIniSection& section, const YString& optionName);
/// The value as a 64-bit signed integer: an optional "+" or "-", then decimal
/// digits (leading zeros allowed) or "0x"/"0X" and hexadecimal digits in
/// either case ("-0x10" is -16). A magnitude beyond INT64_MIN..INT64_MAX is
/// OutOfRange (never wrapped); anything else, an empty text included, is Malformed.
YTypedValue<std::int64_t> integerValueForOptionWithName(const YIniSection& section, const YString& optionName);
/// The value as a double, read with std::from_chars: the same result under
/// every locale (the separator is always "."). An optional "+" or "-", then
/// decimal digits with an optional fraction and exponent ("1.", ".5", "2e-3").
/// "nan" and "inf" in any spelling, hexadecimal floats and a "," as decimal
/// separator are Malformed; a magnitude beyond the double range or below the
/// smallest subnormal is OutOfRange.
YTypedValue<double> doubleValueForOptionWithName(const YIniSection& section, const YString& optionName);
/// The value split on `separator`, each entry trimmed of whitespace and line
/// ends (so a list may run over continuation lines). Empty inner entries are
/// kept ("a,,b" has three entries); a separator at the end ends the list
/// without an empty last entry ("a,b," has two, "," has one empty entry); an
/// empty or blank text is the empty list. Never Malformed.
YTypedValue<std::vector<YString>> listValueForOptionWithName(const YIniSection& section, const YString& optionName,
                                                             char16_t separator = YDefaultListSeparator);

/// Writes "true" or "false".
void setBoolValueForOptionWithName(YIniSection& section, bool value, const YString& optionName);
/// Writes the value in decimal, "-" for a negative one ("-9223372036854775808").
void setIntegerValueForOptionWithName(YIniSection& section, std::int64_t value, const YString& optionName);
/// Writes the shortest text that reads back as exactly `value`, with "." as
/// the decimal separator whatever the locale (std::to_chars: "0.1", "1e+100",
/// "-0"). Returns false and changes nothing for NaN and the infinities,
/// which the getter refuses.
[[nodiscard]] bool setDoubleValueForOptionWithName(YIniSection& section, double value, const YString& optionName);
/// Writes the entries joined by `separator` and one space ("a, b"), or by the
/// separator alone when it is itself whitespace; a last entry that is empty
/// gets a separator after it, so that it is read back ("a, ,"). The empty list
/// is the empty text. Returns false and changes nothing when an entry could
/// not be read back the same: a null entry, or one that holds the separator
/// or a line end or begins or ends with whitespace; or when the separator is
/// a line end or a surrogate (which no encoding can save alone).
[[nodiscard]] bool setListValueForOptionWithName(YIniSection& section, const std::vector<YString>& value,
                                                 const YString& optionName, char16_t separator = YDefaultListSeparator);

/// The text setBoolValueForOptionWithName() writes: "true" or "false".
YString stringWithBoolValue(bool value);
/// The text setIntegerValueForOptionWithName() writes.
YString stringWithIntegerValue(std::int64_t value);
/// The text setDoubleValueForOptionWithName() writes; null for NaN and the infinities.
YString stringWithDoubleValue(double value);
/// The text setListValueForOptionWithName() writes; null where it would refuse the list.
YString stringWithListValue(const std::vector<YString>& value, char16_t separator = YDefaultListSeparator);

namespace ydetail {
/// The setters' write path: setValue() on the first option named
/// `optionName`, else insertOptionWithNameAndValue(). `text` is not null.
void setTypedTextForOptionWithName(YIniSection& section, const YString& text, const YString& optionName);
}  // namespace ydetail
