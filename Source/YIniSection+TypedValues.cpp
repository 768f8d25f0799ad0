#include <charconv>
#include <cmath>
#include <limits>
#include <optional>
#include <string>
#include <system_error>

#include "YAssertionHandler.h"
#include "YCharacterSet.h"
#include "YIniSection+Placement.h"
#include "YIniSection+TypedValues.h"

static constexpr const char YUnitName[] = "YIniSection+TypedValues";

namespace {

// The value of the first option of the name; null when it is missing or null.
YString optionText(const YIniSection& section, const YString& optionName) {
  auto option = section.optionWithName(optionName);
  return option ? option->value() : YString();
}

template <class T>
YTypedValue<T> failed(YTypedValueFailure failure, const YString& optionName, const YString& text, const char* type) {
  return YTypedValue<T>::withError({failure, YString(), optionName, text, type});
}

YString trimmed(const YString& text) {
  return text.stringByTrimmingCharactersInSet(YCharacterSet::whitespaceAndNewlineCharacterSet());
}

// The text as ASCII bytes for std::from_chars; nullopt when any code unit is
// outside ASCII (no number or boolean word holds one).
std::optional<std::string> asciiText(const YString& text) {
  std::string bytes;
  bytes.reserve(text.length());
  for (char16_t c : text.view()) {
    if (c > 0x7F) return std::nullopt;
    bytes.push_back(static_cast<char>(c));
  }
  return bytes;
}

std::optional<bool> boolFromText(const YString& text) {
  static constexpr std::pair<std::string_view, bool> kWords[] = {{"true", true}, {"yes", true},    {"on", true},
                                                                 {"1", true},    {"false", false}, {"no", false},
                                                                 {"off", false}, {"0", false}};
  auto bytes = asciiText(text);
  if (!bytes) return std::nullopt;
  for (char& c : *bytes)
    if (c >= 'A' && c <= 'Z') c = static_cast<char>(c - 'A' + 'a');
  for (const auto& [word, value] : kWords)
    if (*bytes == word) return value;
  return std::nullopt;
}

// Sign, then decimal or 0x hexadecimal digits; the magnitude is parsed
// unsigned so that INT64_MIN's magnitude fits and nothing wraps.
std::optional<YTypedValueFailure> integerFromText(const YString& text, std::int64_t& result) {
  auto bytes = asciiText(text);
  if (!bytes) return YTypedValueFailure::Malformed;
  const char* first = bytes->data();
  const char* last = first + bytes->size();
  bool negative = false;
  if (first != last && (*first == '+' || *first == '-')) negative = *first++ == '-';
  int base = 10;
  if (last - first >= 2 && first[0] == '0' && (first[1] == 'x' || first[1] == 'X')) {
    base = 16;
    first += 2;
  }
  // from_chars takes no sign for an unsigned type, so "--5" or "0x-5" fail here.
  std::uint64_t magnitude = 0;
  auto [end, ec] = std::from_chars(first, last, magnitude, base);
  if (first == last || end != last) return YTypedValueFailure::Malformed;
  constexpr auto kMaxMagnitude = static_cast<std::uint64_t>(std::numeric_limits<std::int64_t>::max());
  if (ec == std::errc::result_out_of_range || magnitude > kMaxMagnitude + (negative ? 1 : 0))
    return YTypedValueFailure::OutOfRange;
  if (ec != std::errc()) return YTypedValueFailure::Malformed;
  // Two's complement negation of the magnitude: exact for INT64_MIN too.
  result = static_cast<std::int64_t>(negative ? ~magnitude + 1 : magnitude);
  return std::nullopt;
}

std::optional<YTypedValueFailure> doubleFromText(const YString& text, double& result) {
  auto bytes = asciiText(text);
  if (!bytes) return YTypedValueFailure::Malformed;
  const char* first = bytes->data();
  const char* last = first + bytes->size();
  // from_chars takes "-" but not "+"; a second sign after "+" stays an error.
  if (first != last && *first == '+' && (last - first == 1 || (first[1] != '-' && first[1] != '+'))) ++first;
  auto [end, ec] = std::from_chars(first, last, result, std::chars_format::general);
  if (end != last || first == last) return YTypedValueFailure::Malformed;
  if (ec == std::errc::result_out_of_range) return YTypedValueFailure::OutOfRange;
  // from_chars reads "nan", "inf" and "infinity": words, not numbers, here.
  if (ec != std::errc() || !std::isfinite(result)) return YTypedValueFailure::Malformed;
  return std::nullopt;
}

std::vector<YString> listFromText(const YString& text, char16_t separator) {
  std::vector<YString> entries;
  const YString whole = trimmed(text);
  const std::u16string_view view = whole.view();
  if (view.empty()) return entries;
  std::size_t start = 0;
  while (true) {
    const std::size_t end = view.find(separator, start);
    const bool lastPiece = end == std::u16string_view::npos;
    const std::size_t stop = lastPiece ? view.size() : end;
    // The text is trimmed, so only a separator at its very end leaves an
    // empty last piece: that separator ends the list.
    if (lastPiece && start == view.size()) break;
    entries.push_back(trimmed(whole.substringWithRange(start, stop - start)));
    if (lastPiece) break;
    start = end + 1;
  }
  return entries;
}

}  // namespace

YTypedValue<bool> boolValueForOptionWithName(const YIniSection& section, const YString& optionName) {
  if (YCParameterFailed(!optionName.isNull(), "optionName != nil"))
    return failed<bool>(YTypedValueFailure::MissingOption, optionName, YString(), YTypedValueBoolType);
  const YString text = optionText(section, optionName);
  if (text.isNull()) return failed<bool>(YTypedValueFailure::MissingOption, optionName, text, YTypedValueBoolType);
  if (auto value = boolFromText(trimmed(text))) return YTypedValue<bool>::withValue(*value);
  return failed<bool>(YTypedValueFailure::Malformed, optionName, text, YTypedValueBoolType);
}

YTypedValue<std::int64_t> integerValueForOptionWithName(const YIniSection& section, const YString& optionName) {
  if (YCParameterFailed(!optionName.isNull(), "optionName != nil"))
    return failed<std::int64_t>(YTypedValueFailure::MissingOption, optionName, YString(), YTypedValueIntegerType);
  const YString text = optionText(section, optionName);
  if (text.isNull())
    return failed<std::int64_t>(YTypedValueFailure::MissingOption, optionName, text, YTypedValueIntegerType);
  std::int64_t value = 0;
  if (auto failure = integerFromText(trimmed(text), value))
    return failed<std::int64_t>(*failure, optionName, text, YTypedValueIntegerType);
  return YTypedValue<std::int64_t>::withValue(value);
}

YTypedValue<double> doubleValueForOptionWithName(const YIniSection& section, const YString& optionName) {
  if (YCParameterFailed(!optionName.isNull(), "optionName != nil"))
    return failed<double>(YTypedValueFailure::MissingOption, optionName, YString(), YTypedValueDoubleType);
  const YString text = optionText(section, optionName);
  if (text.isNull()) return failed<double>(YTypedValueFailure::MissingOption, optionName, text, YTypedValueDoubleType);
  double value = 0;
  if (auto failure = doubleFromText(trimmed(text), value))
    return failed<double>(*failure, optionName, text, YTypedValueDoubleType);
  return YTypedValue<double>::withValue(value);
}

YTypedValue<std::vector<YString>> listValueForOptionWithName(const YIniSection& section, const YString& optionName,
                                                             char16_t separator) {
  using List = std::vector<YString>;
  if (YCParameterFailed(!optionName.isNull(), "optionName != nil"))
    return failed<List>(YTypedValueFailure::MissingOption, optionName, YString(), YTypedValueListType);
  const YString text = optionText(section, optionName);
  if (text.isNull()) return failed<List>(YTypedValueFailure::MissingOption, optionName, text, YTypedValueListType);
  return YTypedValue<List>::withValue(listFromText(text, separator));
}

YString stringWithBoolValue(bool value) { return YString(value ? u"true" : u"false"); }

YString stringWithIntegerValue(std::int64_t value) {
  char buffer[24];  // 19 digits and a sign
  auto result = std::to_chars(buffer, buffer + sizeof buffer, value);
  return YString::fromUTF8(std::string_view(buffer, static_cast<std::size_t>(result.ptr - buffer)));
}

YString stringWithDoubleValue(double value) {
  if (!std::isfinite(value)) return YString();
  char buffer[32];  // the shortest round-trip form takes at most 24 characters
  auto result = std::to_chars(buffer, buffer + sizeof buffer, value);
  return YString::fromUTF8(std::string_view(buffer, static_cast<std::size_t>(result.ptr - buffer)));
}

YString stringWithListValue(const std::vector<YString>& value, char16_t separator) {
  const YCharacterSet blanks = YCharacterSet::whitespaceAndNewlineCharacterSet();
  const YCharacterSet lineEnds = YCharacterSet::newlineCharacterSet();
  // A lone surrogate cannot be saved in any encoding.
  if (lineEnds.characterIsMember(separator) || (separator >= 0xD800 && separator <= 0xDFFF)) return YString();
  for (const YString& entry : value) {
    if (entry.isNull()) return YString();
    const std::u16string_view text = entry.view();
    if (!text.empty() && (blanks.characterIsMember(text.front()) || blanks.characterIsMember(text.back())))
      return YString();
    for (char16_t c : text)
      if (c == separator || lineEnds.characterIsMember(c)) return YString();
  }
  // Entries are trimmed when read, so a space after the separator reads
  // back the same and is easier on the eye; after a blank separator it
  // would read as an empty entry.
  const bool spaced = !blanks.characterIsMember(separator);
  YString text = YString::mutableString();
  for (std::size_t i = 0; i < value.size(); ++i) {
    if (i > 0) {
      text.appendCharacter(separator);
      if (spaced) text.appendCharacter(u' ');
    }
    text.appendString(value[i]);
  }
  // An empty last entry would be taken for a trailing separator's nothing:
  // one more separator keeps it.
  if (!value.empty() && value.back().length() == 0) text.appendCharacter(separator);
  // What the rules above do not cover (an empty entry first or last with a
  // blank separator, which the reading trims off) shows in reading it back.
  const std::vector<YString> readBack = listFromText(text, separator);
  if (readBack.size() != value.size()) return YString();
  for (std::size_t i = 0; i < value.size(); ++i)
    if (!readBack[i].isEqualToString(value[i])) return YString();
  return text.copy();
}

void ydetail::setTypedTextForOptionWithName(YIniSection& section, const YString& text, const YString& optionName) {
  if (auto option = section.optionWithName(optionName))
    option->setValue(text);
  else
    insertOptionWithNameAndValue(section, optionName, text);
}

void setBoolValueForOptionWithName(YIniSection& section, bool value, const YString& optionName) {
  if (YCParameterFailed(!optionName.isNull(), "optionName != nil")) return;
  ydetail::setTypedTextForOptionWithName(section, stringWithBoolValue(value), optionName);
}

void setIntegerValueForOptionWithName(YIniSection& section, std::int64_t value, const YString& optionName) {
  if (YCParameterFailed(!optionName.isNull(), "optionName != nil")) return;
  ydetail::setTypedTextForOptionWithName(section, stringWithIntegerValue(value), optionName);
}

bool setDoubleValueForOptionWithName(YIniSection& section, double value, const YString& optionName) {
  if (YCParameterFailed(!optionName.isNull(), "optionName != nil")) return false;
  const YString text = stringWithDoubleValue(value);
  if (text.isNull()) return false;
  ydetail::setTypedTextForOptionWithName(section, text, optionName);
  return true;
}

bool setListValueForOptionWithName(YIniSection& section, const std::vector<YString>& value, const YString& optionName,
                                   char16_t separator) {
  if (YCParameterFailed(!optionName.isNull(), "optionName != nil")) return false;
  const YString text = stringWithListValue(value, separator);
  if (text.isNull()) return false;
  ydetail::setTypedTextForOptionWithName(section, text, optionName);
  return true;
}
