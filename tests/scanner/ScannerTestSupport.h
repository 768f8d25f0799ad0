// Shared helpers for the scanner suites: rules, scanners and token dumps.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "YAssertionHandler.h"
#include "YEndOfLineRule.h"
#include "YRegularExpressionRule.h"
#include "YRuleBasedScanner.h"

namespace scannertest {

inline std::shared_ptr<YRuleBasedScanner> scannerFor(const YString& text, std::shared_ptr<YArray<YRule>> rules) {
  return YRuleBasedScanner::scannerForStreamWithRules(
      YUnicharStream::streamWithBuffer(YStringBuffer::bufferFromString(text)), std::move(rules));
}

/// "name@position+length" with subtokens in brackets: "section@0+3[key@1+1]".
inline std::string dump(const YToken& token) {
  const auto& cls = token.tokenClass();
  std::string text = (cls && !cls->name().isNull() ? cls->name().UTF8String() : std::string("?")) + "@" +
                     std::to_string(token.position()) + "+" + std::to_string(token.length());
  if (!token.subtokens()->isEmpty()) {
    text += "[";
    for (const auto& sub : *token.subtokens()) {
      if (text.back() != '[') text += ' ';
      text += dump(*sub);
    }
    text += "]";
  }
  return text;
}

/// The tokens `scanner` has left (at most `limit`, so that a scanner that
/// stalls fails a test rather than hangs it), dumped and joined by spaces.
inline std::string drain(YRuleBasedScanner& scanner, std::size_t limit = SIZE_MAX) {
  std::string out;
  for (std::size_t n = 0; n < limit; ++n) {
    auto token = scanner.nextToken();
    if (!token) break;
    if (!out.empty()) out += ' ';
    out += dump(*token);
  }
  return out;
}

/// Every token of `text`, as drain() gives them.
inline std::string scanAll(const YString& text, std::shared_ptr<YArray<YRule>> rules, std::size_t limit = SIZE_MAX) {
  return drain(*scannerFor(text, std::move(rules)), limit);
}

inline std::shared_ptr<YArray<YRule>> ruleList(std::vector<std::shared_ptr<YRule>> rules) {
  return YArray<YRule>::arrayWithObjects(std::move(rules));
}

inline std::shared_ptr<YRegularExpressionRule> regexRule(const char16_t* pattern, const char16_t* name,
                                                         unsigned options = 0) {
  return YRegularExpressionRule::ruleWithPatternOptionsTokenClass(YString(pattern), options,
                                                                  YTokenClass::tokenClass(YString(name)));
}

/// A rule whose named groups listed in `map` (group name, class name) make subtokens.
inline std::shared_ptr<YRegularExpressionRule> groupRule(
    const char16_t* pattern, std::initializer_list<std::pair<const char16_t*, const char16_t*>> map,
    const char16_t* name = u"t") {
  auto classes = YDictionary<YTokenClass>::dictionary();
  for (const auto& [group, cls] : map) classes->setObjectForKey(YTokenClass::tokenClass(YString(cls)), YString(group));
  return YRegularExpressionRule::ruleWithPatternOptionsTokenClassGroupClasses(
      YString(pattern), 0, YTokenClass::tokenClass(YString(name)), classes);
}

/// Records precondition failures instead of throwing.
struct RecordingHandler : YAssertionHandler {
  std::vector<std::string> descriptions;
  void handleFailureInMethod(const char*, const YObject*, const char*, int, const YString& d) override {
    descriptions.push_back(d.UTF8String());
  }
  void handleFailureInFunction(const char*, const char*, int, const YString& d) override {
    descriptions.push_back(d.UTF8String());
  }
};

}  // namespace scannertest
