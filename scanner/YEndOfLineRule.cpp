#include "YEndOfLineRule.h"

#include <algorithm>

#include "YAssertionHandler.h"
#include "YException.h"

static constexpr const char YUnitName[] = "YEndOfLineRule";

YEndOfLineRule::YEndOfLineRule(const YString& openSequence, std::shared_ptr<YTokenClass> tokenClass)
    : YRule(std::move(tokenClass)), _openSequence(openSequence.copy()) {
  if (_openSequence.isNull()) throw YInvalidArgumentException(YString(u"An end-of-line rule needs an opening sequence"));
  if (_openSequence.length() > 0) {
    clearStartCharacters();
    addStartCharacter(_openSequence.characterAtIndex(0));
  }
}

std::shared_ptr<YEndOfLineRule> YEndOfLineRule::ruleWithOpenSequenceTokenClass(const YString& openSequence,
                                                                               std::shared_ptr<YTokenClass> tokenClass) {
  if (YCParameterFailed(!openSequence.isNull(), "openSequence != nil")) return nullptr;
  if (YCParameterFailed(tokenClass != nullptr, "tokenClass != nil")) return nullptr;
  return std::make_shared<YEndOfLineRule>(openSequence, std::move(tokenClass));
}

bool YEndOfLineRule::matchAtPosition(std::u16string_view text, std::int32_t position, YTokenMatch& match) {
  if (position < 0 || static_cast<std::size_t>(position) >= text.size()) return false;
  const std::u16string_view rest = text.substr(static_cast<std::size_t>(position));
  const std::u16string_view open = _openSequence.view();
  if (!rest.starts_with(open)) return false;
  // The line end is the first LF after the opening sequence, or a CR directly
  // before it; a lone CR is ordinary text.
  const auto lf = std::find(rest.begin() + static_cast<std::ptrdiff_t>(open.size()), rest.end(), u'\n');
  std::size_t end = static_cast<std::size_t>(lf - rest.begin());
  if (lf != rest.end() && end > open.size() && rest[end - 1] == u'\r') --end;
  if (end == 0) return false;  // an empty opening sequence at a line end
  match.reset();
  match.tokenClass = tokenClass().get();
  match.position = position;
  match.length = static_cast<std::int32_t>(end);
  return true;
}

std::shared_ptr<YToken> YEndOfLineRule::tokenAtPosition(std::u16string_view text, std::int32_t position) {
  return tokenFromMatchAtPosition(text, position);
}

YString YEndOfLineRule::description() const {
  return YString::stringWithFormat("<%@: %p %@>", className(), static_cast<const void*>(this), _openSequence);
}
