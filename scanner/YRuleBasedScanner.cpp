#include "YRuleBasedScanner.h"

#include "YAssertionHandler.h"
#include "YException.h"

static constexpr const char YUnitName[] = "YRuleBasedScanner";

YRuleBasedScanner::YRuleBasedScanner(std::shared_ptr<YUnicharStream> stream, std::shared_ptr<YArray<YRule>> rules)
    : _stream(std::move(stream)) {
  if (!_stream) throw YInvalidArgumentException(YString(u"A scanner needs a stream"));
  if (!rules) throw YInvalidArgumentException(YString(u"A scanner needs a rule list"));
  _rules.reserve(rules->count());
  for (const auto& rule : rules->vector()) _rules.push_back({rule});
}

std::shared_ptr<YRuleBasedScanner> YRuleBasedScanner::scannerForStreamWithRules(
    std::shared_ptr<YUnicharStream> stream, std::shared_ptr<YArray<YRule>> rules) {
  if (YCParameterFailed(stream != nullptr, "stream != nil")) return nullptr;
  if (YCParameterFailed(rules != nullptr, "rules != nil")) return nullptr;
  return std::make_shared<YRuleBasedScanner>(std::move(stream), std::move(rules));
}

bool YRuleBasedScanner::requiredCharacterFollows(Entry& entry, std::u16string_view text, std::size_t position) {
  const std::u16string_view required = entry.rule->requiredCharacters();
  if (required.empty()) return true;
  if (entry.searchedFrom > position || entry.nextRequired < position) {
    std::size_t i = position;
    if (required.size() == 1) {
      while (i < text.size() && text[i] != required[0]) ++i;
    } else {
      while (i < text.size() && text[i] != required[0] && text[i] != required[1]) ++i;
    }
    entry.searchedFrom = position;
    entry.nextRequired = i;
  }
  return entry.nextRequired < text.size();
}

bool YRuleBasedScanner::matchAt(std::u16string_view text, std::int32_t position, YTokenMatch& match) {
  const char16_t unit = text[static_cast<std::size_t>(position)];
  for (auto& entry : _rules) {
    if (!entry.rule->canStartWithCharacter(unit)) continue;
    if (!requiredCharacterFollows(entry, text, static_cast<std::size_t>(position))) continue;
    // A token must begin here and cover text; anything else is no match.
    if (entry.rule->matchAtPosition(text, position, match) && match.position == position && match.length > 0 &&
        static_cast<std::size_t>(match.length) <= text.size() - static_cast<std::size_t>(position))
      return true;
  }
  return false;
}

bool YRuleBasedScanner::nextMatch(YTokenMatch& match) {
  const std::u16string_view text = _stream->characters();
  const std::int32_t position = _stream->position();
  if (static_cast<std::size_t>(position) >= text.size()) {
    match.reset();
    return false;
  }
  bool found = false;
  if (_hasPending && _pending.position == position) {
    std::swap(match, _pending);
    found = true;
  }
  _hasPending = false;
  if (!found) found = matchAt(text, position, match);
  if (!found) {
    // No rule matches here: cover the whole run of such positions with one
    // token, and keep the token that ends the run for the next call.
    std::int32_t end = position + 1;
    while (static_cast<std::size_t>(end) < text.size()) {
      if ((_hasPending = matchAt(text, end, _pending))) break;
      ++end;
    }
    match.reset();
    match.tokenClass = YTokenClass::unmatchedTokenClass().get();
    match.position = position;
    match.length = end - position;
  }
  _stream->setPosition(position + match.length);
  return true;
}

std::shared_ptr<YToken> YRuleBasedScanner::nextToken() {
  if (!nextMatch(_scratch)) return nullptr;
  auto token = YToken::tokenWithMatch(_scratch);
  _scratch.token.reset();
  return token;
}
