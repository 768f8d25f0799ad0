#include "YRule.h"

#include "YException.h"

YRule::YRule(std::shared_ptr<YTokenClass> tokenClass) : _tokenClass(std::move(tokenClass)) {
  if (!_tokenClass) throw YInvalidArgumentException(YString(u"A rule needs a token class"));
  addAllStartCharacters();
}

bool YRule::matchAtPosition(std::u16string_view text, std::int32_t position, YTokenMatch& match) {
  auto token = tokenAtPosition(text, position);
  if (!token) return false;
  match.assign(std::move(token));
  return true;
}

std::shared_ptr<YToken> YRule::tokenFromMatchAtPosition(std::u16string_view text, std::int32_t position) {
  YTokenMatch match;
  if (!matchAtPosition(text, position, match)) return nullptr;
  return YToken::tokenWithMatch(match);
}
