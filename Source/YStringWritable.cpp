#include "YStringWritable.h"

#include "YAssertionHandler.h"

static constexpr const char YUnitName[] = "YStringWritable";
// The line this unit's precondition reports beside YUnitName. A host's
// assertion handler may tell failures apart by unit and line, so it is a
// fixed number, independent of where the check stands in this file.
static constexpr int YTextWriterCheckLine = 75;  // "textWriter != nil"

YStringWritable::YStringWritable(const YString& string) : _string(string) {}

YStringWritable::YStringWritable(std::shared_ptr<YObject> value) : _value(std::move(value)) {}

std::shared_ptr<YStringWritable> YStringWritable::writableWithString(const YString& string) {
  return std::make_shared<YStringWritable>(string);
}

std::shared_ptr<YStringWritable> YStringWritable::writableWithValue(std::shared_ptr<YObject> value) {
  return std::make_shared<YStringWritable>(std::move(value));
}

void YStringWritable::write(const std::shared_ptr<YTextWriter>& textWriter) {
  if (YParameterFailedAtLine(textWriter != nullptr, "textWriter != nil", YTextWriterCheckLine)) return;
  if (_value) textWriter->writeValue(_value);
  else textWriter->write(_string);
}
