#include "YStringBuffer.h"

#include "YException.h"

YStringBuffer::YStringBuffer(const YString& string) : _string(string.copy()) {
  // copy() returns an immutable string itself and snapshots a mutable one, so
  // the code units below stay put for the buffer's life.
  if (_string.length() > maximumLength)
    throw YInvalidArgumentException(YString::stringWithFormat(
        "A text of %zu code units is too long to scan (at most %zu)", _string.length(), maximumLength));
  _text = _string.view();
}

std::shared_ptr<YStringBuffer> YStringBuffer::bufferFromString(const YString& string) {
  return std::make_shared<YStringBuffer>(string);
}
