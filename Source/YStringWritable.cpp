#include "YStringWritable.h"

#include "YAssertionHandler.h"

static constexpr const char YUnitName[] = "YStringWritable";

YStringWritable::YStringWritable(const YString& string) : _string(string) {}

YStringWritable::YStringWritable(std::shared_ptr<YObject> value) : _value(std::move(value)) {}

std::shared_ptr<YStringWritable> YStringWritable::writableWithString(const YString& string) {
  return std::make_shared<YStringWritable>(string);
}

std::shared_ptr<YStringWritable> YStringWritable::writableWithValue(std::shared_ptr<YObject> value) {
  return std::make_shared<YStringWritable>(std::move(value));
}

void YStringWritable::write(const std::shared_ptr<YTextWriter>& textWriter) {
  if (YParameterFailedAtLine(textWriter != nullptr, "textWriter != nil", 75)) return;
  if (_value) textWriter->writeValue(_value);
  else textWriter->write(_string);
}
