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

std::shared_ptr<YToken> YToken::tokenWithMatch(const YTokenMatch& match) {
  if (match.token) return match.token;
  // Classes come back as shared owners through the objects' own control blocks.
  auto share = [](const YTokenClass* c) {
    return std::static_pointer_cast<YTokenClass>(const_cast<YTokenClass*>(c)->shared_from_this());
  };
  Subtokens subtokens;
  if (!match.subtokens.empty()) {
    std::vector<std::shared_ptr<YToken>> list;
    list.reserve(match.subtokens.size());
    for (const auto& sub : match.subtokens)
      list.push_back(std::make_shared<YToken>(share(sub.tokenClass), sub.position, sub.length));
    subtokens = std::make_shared<YArray<YToken>>(std::move(list), false);
  }
  return std::make_shared<YToken>(share(match.tokenClass), match.position, match.length, std::move(subtokens));
}

void YTokenMatch::assign(std::shared_ptr<YToken> source) {
  subtokens.clear();
  tokenClass = source->tokenClass().get();
  position = source->position();
  length = source->length();
  for (const auto& sub : *source->subtokens())
    subtokens.push_back({sub->tokenClass().get(), sub->position(), sub->length()});
  token = std::move(source);
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
