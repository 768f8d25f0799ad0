#include "YTextWriter.h"

#include "YException.h"

void YTextWriter::writeValue(const std::shared_ptr<YObject>& value) {
  throw YInvalidArgumentException(YString::stringWithFormat(
      "-[%@ write:]: argument is not a string: %@", className(), value.get()));
}
