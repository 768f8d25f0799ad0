#include "YUnicharStream.h"

#include "YAssertionHandler.h"
#include "YException.h"

static constexpr const char YUnitName[] = "YUnicharStream";

YUnicharStream::YUnicharStream(std::shared_ptr<YStringBuffer> buffer) : _buffer(std::move(buffer)) {
  if (!_buffer) throw YInvalidArgumentException(YString(u"A stream needs a buffer"));
  _text = _buffer->characters();
}

std::shared_ptr<YUnicharStream> YUnicharStream::streamWithBuffer(std::shared_ptr<YStringBuffer> buffer) {
  if (YCParameterFailed(buffer != nullptr, "buffer != nil")) return nullptr;
  return std::make_shared<YUnicharStream>(std::move(buffer));
}

void YUnicharStream::setPosition(std::int32_t position) {
  if (position < 0 || static_cast<std::size_t>(position) > _text.size())
    throw YRangeException(
        YString::stringWithFormat("Position %d is outside the stream of length %zu", position, _text.size()));
  _position = position;
}

char16_t YUnicharStream::currentCharacter() const {
  if (isAtEnd()) throw YRangeException(YString(u"The stream is at its end"));
  return _text[static_cast<std::size_t>(_position)];
}
