/// \file YIniOption.h
/// An option: name=value.
#pragma once

#include <memory>

#include "YIniElement.h"

/// A leaf holding a name and a value, each possibly null (null and "" compare
/// as different). Setters keep the caller's string object, so a later change
/// to a mutable string shows; the initial state holds copies.
///
/// Example:
/// @code
/// auto option = YIniOption::optionWithNameAndValue(YString("port"), YString("80"));
/// option->setValue(YString("8080"));  // isModified() is true: "80" at creation
/// option->revert();                   // value() is "80" again
/// option->setValue(YString("8080"));
/// option->commit();                   // initialValue() is "8080"; stringValue() is "port=8080"
/// @endcode
///
/// Subclasses: convenience constructors and copyWithZone() create the
/// receiver's own class. A host subclass makes copying work by overriding
/// makeOptionWithNameAndValue() to return std::make_shared<Subclass>(name, value).
class YIniOption : public YIniElement {
 public:
  /// An option with `name` and `value` (kept as passed); initial state copies. Not validated.
  YIniOption(const YString& name, const YString& value);

  /// A new instance of T (YIniOption or a subclass constructible from name and value).
  template <class T = YIniOption>
  static std::shared_ptr<T> optionWithNameAndValue(const YString& name, const YString& value) {
    return YMakeShared<T>(name, value);
  }
  /// A new T named "" with a null value.
  template <class T = YIniOption>
  static std::shared_ptr<T> option() {
    return optionWithNameAndValue<T>(YString(u""), YString());
  }

  /// The current name (the string object last set; may be null).
  const YString& name() const noexcept { return _name; }
  /// The current value (the string object last set; may be null). A value
  /// read from continuation lines holds them joined by LF and one space.
  const YString& value() const noexcept { return _value; }
  /// The name at creation or at the last commit (a copy).
  const YString& initialName() const noexcept { return _initialName; }
  /// The value at creation or at the last commit (a copy).
  const YString& initialValue() const noexcept { return _initialValue; }
  /// Sets the current name (kept as passed, null allowed); announces "modified" on every call.
  void setName(const YString& name);
  /// Sets the current value (kept as passed, null allowed); announces "modified" on every call.
  void setValue(const YString& value);

  /// `{ <generic description>, name: "<name>", value: "<value>" }`; null prints as (null).
  YString description() const override;
  /// The option's line as the option writer writes it: name, "=", value, no line end.
  YString stringValue() override;

  /// Whether the name or the value differs from its initial one (null-aware, code unit for code unit).
  bool isModified() const override;
  /// True while the current text (or name, or value) is a mutable string.
  bool mayChangeUnannounced() const noexcept override;
  /// Restores copies of the initial name and value; announces "modified".
  void revert() override;
  /// Takes copies of the current name and value as initial state; announces "modified".
  void commit() override;
  /// A new option of the receiver's class (via makeOptionWithNameAndValue)
  /// with the current name and value, not modified.
  std::shared_ptr<YIniElement> copyWithZone(void* zone = nullptr) const override;

 protected:
  /// Creates a new option of the receiver's own class. Subclasses override it
  /// so that copies keep their class.
  virtual std::shared_ptr<YIniOption> makeOptionWithNameAndValue(const YString& name, const YString& value) const;

 private:
  // Other strings than loading noted: the preserving save compares them again.
  void forgetNotedStrings() noexcept;
  YString _initialName;
  YString _name;
  YString _initialValue;
  YString _value;
};
