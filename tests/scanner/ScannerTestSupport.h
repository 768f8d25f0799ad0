// Shared helpers for the scanner suites: the INI rule set and token dumps.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "YAssertionHandler.h"
#include "YEndOfLineRule.h"
#include "YRegularExpressionRule.h"
#include "YRuleBasedScanner.h"

namespace scannertest {

/// The eight INI rules with their ten token classes.
struct IniRules {
  std::shared_ptr<YTokenClass> comment = YTokenClass::tokenClass(YString(u"comment"));
  std::shared_ptr<YTokenClass> section = YTokenClass::tokenClass(YString(u"section"));
  std::shared_ptr<YTokenClass> option = YTokenClass::tokenClass(YString(u"option"));
  std::shared_ptr<YTokenClass> optionEnd = YTokenClass::tokenClass(YString(u"optionEnd"));
  std::shared_ptr<YTokenClass> fragment = YTokenClass::tokenClass(YString(u"fragment"));
  std::shared_ptr<YTokenClass> fragmentEnd = YTokenClass::tokenClass(YString(u"fragmentEnd"));
  std::shared_ptr<YTokenClass> key = YTokenClass::tokenClass(YString(u"key"));
  std::shared_ptr<YTokenClass> value = YTokenClass::tokenClass(YString(u"value"));
  std::shared_ptr<YTokenClass> newline = YTokenClass::tokenClass(YString(u"newline"));
  std::shared_ptr<YTokenClass> unknown = YTokenClass::tokenClass(YString(u"unknown"));
  std::shared_ptr<YArray<YRule>> rules;

  IniRules() {
    using D = YDictionary<YTokenClass>;
    using R = YRegularExpressionRule;
    rules = YArray<YRule>::arrayWithObjects({
        YEndOfLineRule::ruleWithOpenSequenceTokenClass(YString(u"#"), comment),
        R::ruleWithPatternOptionsTokenClass(YString(u"^(\n|\r\n)"), 0, newline),
        R::ruleWithPatternOptionsTokenClassGroupClasses(YString(u"\\[(?<section_name>.+)\\]"), 1, section,
                                                        D::dictionaryWithObjectsAndKeys({{YString(u"section_name"), key}})),
        R::ruleWithPatternOptionsTokenClassGroupClasses(
            YString(u"(?<option_key>^(?! ).*?)=(?<option_value>.*\n|\r\n)"), 1, option,
            D::dictionaryWithObjectsAndKeys({{YString(u"option_key"), key}, {YString(u"option_value"), value}})),
        R::ruleWithPatternOptionsTokenClassGroupClasses(
            YString(u"(?<option_value_fragment>[ ]+.+\n|\r\n)"), 1, fragment,
            D::dictionaryWithObjectsAndKeys({{YString(u"option_value_fragment"), key}})),
        R::ruleWithPatternOptionsTokenClassGroupClasses(
            YString(u"(?<option_value_fragment>[ ]+.+\\z)"), 1, fragmentEnd,
            D::dictionaryWithObjectsAndKeys({{YString(u"option_value_fragment-terminating"), key}})),
        R::ruleWithPatternOptionsTokenClassGroupClasses(
            YString(u"(?<option_key>^(?! ).*?)=(?<option_value>.*\\z)"), 1, optionEnd,
            D::dictionaryWithObjectsAndKeys({{YString(u"option_key"), key}, {YString(u"option_value"), value}})),
        R::ruleWithPatternOptionsTokenClass(YString(u".*"), 0, unknown),
    });
  }
};

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
    for (const auto& sub : *token.subtokens()) text += (text.back() == '[' ? "" : " ") + dump(*sub);
    text += "]";
  }
  return text;
}

/// Every token of `text`, dumped and joined by spaces.
inline std::string scanAll(const YString& text, std::shared_ptr<YArray<YRule>> rules) {
  auto scanner = scannerFor(text, std::move(rules));
  std::string out;
  while (auto token = scanner->nextToken()) out += (out.empty() ? "" : " ") + dump(*token);
  return out;
}

inline std::shared_ptr<YArray<YRule>> ruleList(std::vector<std::shared_ptr<YRule>> rules) {
  return YArray<YRule>::arrayWithObjects(std::move(rules));
}

inline std::shared_ptr<YRegularExpressionRule> regexRule(const char16_t* pattern, const char16_t* name,
                                                         unsigned options = 0) {
  return YRegularExpressionRule::ruleWithPatternOptionsTokenClass(YString(pattern), options,
                                                                  YTokenClass::tokenClass(YString(name)));
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
