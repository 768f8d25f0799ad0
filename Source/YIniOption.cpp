#include "YIniOption.h"

#include "YIniCompositeElement.h"

#include "YIniOptionWriter.h"
#include "YIniSourceRecord.h"
#include "YStringWriter.h"

YIniOption::YIniOption(const YString& name, const YString& value)
    : _initialName(name.copy()), _name(name), _initialValue(value.copy()), _value(value) {}

void YIniOption::setName(const YString& name) {
  // The same name again (the section writer gives every option its trimmed
  // name) changes nothing anyone could hear of when only the library's own
  // composites observe: the announcement is skipped, the string kept.
  if (YIniStringsEqual(name, _name) && !name.isMutable() && YIniCompositeElement::nobodyHearsUnchanged(*this)) {
    _name = name;
    return;
  }
  YIniCompositeElement::forgetSilence();
  const YString given = name;  // `name` may be this option's own, which observers may change
  ChangeScope scope(*this, YModifiedKey);
  forgetNotedStrings();  // another name
  _name = given;
}

void YIniOption::setValue(const YString& value) {
  ChangeScope scope(*this, YModifiedKey);
  forgetNotedStrings();  // another value
  _value = value;
}

void YIniOption::forgetNotedStrings() noexcept { _objectWord &= ~YIniSourceRecord::kStringsAsNoted; }

YString YIniOption::description() const {
  return YString::stringWithFormat("{ %@, name: \"%@\", value: \"%@\" }", defaultDescription(), _name, _value);
}

YString YIniOption::stringValue() {
  YString string = YString::mutableString();
  YIniOptionWriter::writerWithOption(std::static_pointer_cast<YIniOption>(shared_from_this()))
      ->write(YStringWriter::writerWithString(string));
  return string;
}

bool YIniOption::isModified() const {
  return !YIniStringsEqual(_name, _initialName) || !YIniStringsEqual(_value, _initialValue);
}

void YIniOption::revert() {
  ChangeScope scope(*this, YModifiedKey);
  forgetNotedStrings();  // the strings it had before
  _name = _initialName.copy();
  _value = _initialValue.copy();
}

void YIniOption::commit() {
  ChangeScope scope(*this, YModifiedKey);
  _initialName = _name.copy();
  _initialValue = _value.copy();
}

std::shared_ptr<YIniElement> YIniOption::copyWithZone(void*) const { return makeOptionWithNameAndValue(_name, _value); }

std::shared_ptr<YIniOption> YIniOption::makeOptionWithNameAndValue(const YString& name, const YString& value) const {
  return YMakeShared<YIniOption>(name, value);
}

bool YIniOption::mayChangeUnannounced() const noexcept { return _name.isMutable() || _value.isMutable(); }
