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

std::shared_ptr<YToken> YRuleBasedScanner::matchAt(std::u16string_view text, std::int32_t position) {
  const char16_t unit = text[static_cast<std::size_t>(position)];
  for (auto& entry : _rules) {
    if (!entry.rule->canStartWithCharacter(unit)) continue;
    if (!requiredCharacterFollows(entry, text, static_cast<std::size_t>(position))) continue;
    auto token = entry.rule->tokenAtPosition(text, position);
    // A token must begin here and cover text; anything else is no match.
    if (token && token->position() == position && token->length() > 0 &&
        static_cast<std::size_t>(token->length()) <= text.size() - static_cast<std::size_t>(position))
      return token;
  }
  return nullptr;
}

std::shared_ptr<YToken> YRuleBasedScanner::nextToken() {
  const std::u16string_view text = _stream->characters();
  const std::int32_t position = _stream->position();
  if (static_cast<std::size_t>(position) >= text.size()) return nullptr;

  std::shared_ptr<YToken> token;
  if (_pending && _pending->position() == position) token = std::move(_pending);
  _pending.reset();
  if (!token) token = matchAt(text, position);
  if (!token) {
    // No rule matches here: cover the whole run of such positions with one
    // token, and keep the token that ends the run for the next call.
    std::int32_t end = position + 1;
    while (static_cast<std::size_t>(end) < text.size()) {
      if ((_pending = matchAt(text, end))) break;
      ++end;
    }
    token = std::make_shared<YToken>(YTokenClass::unmatchedTokenClass(), position, end - position);
  }
  _stream->setPosition(position + token->length());
  return token;
}
