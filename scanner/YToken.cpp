#include "YToken.h"

#include "YException.h"

namespace {
// Tokens without subtokens share one immutable empty list.
const std::shared_ptr<YArray<YToken>>& emptySubtokens() {
  static const auto* const empty = new std::shared_ptr<YArray<YToken>>(YArray<YToken>::array());
  return *empty;
}
}  // namespace

YToken::YToken(std::shared_ptr<YTokenClass> tokenClass, std::int32_t position, std::int32_t length,
               Subtokens subtokens)
    : _tokenClass(std::move(tokenClass)), _position(position), _length(length) {
  if (position < 0 || length < 0)
    throw YInvalidArgumentException(
        YString::stringWithFormat("A token cannot have position %d and length %d", position, length));
  if (!subtokens || subtokens->isEmpty())
    _subtokens = emptySubtokens();
  else
    _subtokens = subtokens->isMutable() ? subtokens->copy() : std::move(subtokens);
}

YString YToken::description() const {
  YString text = YString::stringWithFormat("<%@: %@ %d+%d", className(), _tokenClass, _position, _length);
  text = text.mutableCopy();
  if (!_subtokens->isEmpty()) {
    text.appendString(YString(u" "));
    text.appendString(_subtokens->description());
  }
  text.appendString(YString(u">"));
  return text.copy();
}
