#include "YRule.h"

#include "YException.h"

YRule::YRule(std::shared_ptr<YTokenClass> tokenClass) : _tokenClass(std::move(tokenClass)) {
  if (!_tokenClass) throw YInvalidArgumentException(YString(u"A rule needs a token class"));
  addAllStartCharacters();
}
