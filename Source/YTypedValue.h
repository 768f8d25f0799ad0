/// \file YTypedValue.h
/// The result of reading an option's value as a typed value.
#pragma once

#include <memory>
#include <utility>

#include "YString.h"

/// Why a typed value could not be read.
enum class YTypedValueFailure {
  /// The document has no section of that name (document getters only).
  MissingSection,
  /// The section has no option of that name, or the option's value is null
  /// (a committed option whose value was set to null is not written).
  MissingOption,
  /// The text is not a value of the expected type.
  Malformed,
  /// The text is a number of the expected form that the type cannot hold:
  /// an integer outside INT64_MIN..INT64_MAX, a double whose magnitude is
  /// beyond DBL_MAX or, not zero, below the smallest subnormal.
  OutOfRange,
};

/// The expected type of a boolean getter, in YTypedValueError::expectedType.
inline constexpr const char YTypedValueBoolType[] = "boolean";
/// The expected type of an integer getter.
inline constexpr const char YTypedValueIntegerType[] = "integer";
/// The expected type of a double getter.
inline constexpr const char YTypedValueDoubleType[] = "floating-point number";
/// The expected type of a list getter.
inline constexpr const char YTypedValueListType[] = "list";

/// The reason a typed value could not be read: what failed, where, the text
/// found and the type expected.
struct YTypedValueError {
  YTypedValueFailure failure;  ///< what failed
  /// The section's name for document getters; null for section getters.
  YString sectionName;
  /// The option's name as asked for.
  YString optionName;
  /// The option's value as found (untrimmed); null when the option or its
  /// section is missing.
  YString text;
  /// One of the YTypedValue...Type names above (static text).
  const char* expectedType;

  /// One line for people, e.g.
  /// `option "port" in section "server": "80x" is not a valid integer`.
  YString description() const;
};

/// Reports "Invalid parameter not satisfying: <conditionText>" for `method`
/// through the assertion handler, then throws YInternalInconsistencyException
/// even when the handler returns: there is nothing to hand back.
[[noreturn]] void YTypedValueFailedPrecondition(const char* method, const char* conditionText);

/// Either a value of type T or the reason it could not be read; never both.
/// A malformed or missing value is never read as a default: value() on a
/// failed result is a precondition failure ("hasValue()"), and so is error()
/// on a successful one ("!hasValue()"). The result owns its value.
///
/// Example:
/// @code
/// auto section = YIniSection::sectionWithName(YString("server"));
/// section->setValueForOptionWithName(YString("80x"), YString("port"));
/// auto port = integerValueForOptionWithName(*section, YString("port"));
/// if (!port.hasValue()) std::puts(port.error().description().UTF8String().c_str());
/// // option "port": "80x" is not a valid integer
/// std::int64_t p = port.valueOr(8080);  // 8080
/// @endcode
template <class T>
class [[nodiscard]] YTypedValue {
 public:
  /// A result holding `value`.
  static YTypedValue withValue(T value) { return YTypedValue(std::move(value), nullptr); }
  /// A failed result.
  static YTypedValue withError(YTypedValueError error) {
    return YTypedValue(T{}, std::make_shared<const YTypedValueError>(std::move(error)));
  }

  /// True when the result holds a value, false when it holds an error.
  /// (There is no conversion to bool: for YTypedValue<bool> it would read as the value.)
  bool hasValue() const noexcept { return _error == nullptr; }
  /// The value; precondition "hasValue()".
  const T& value() const {
    if (_error) YTypedValueFailedPrecondition("value", "hasValue()");
    return _value;
  }
  /// The value, or `fallback` when the result failed.
  T valueOr(T fallback) const { return _error ? std::move(fallback) : _value; }
  /// The reason; precondition "!hasValue()".
  const YTypedValueError& error() const {
    if (!_error) YTypedValueFailedPrecondition("error", "!hasValue()");
    return *_error;
  }

 private:
  YTypedValue(T value, std::shared_ptr<const YTypedValueError> error)
      : _value(std::move(value)), _error(std::move(error)) {}
  T _value;
  std::shared_ptr<const YTypedValueError> _error;
};
