// Scans arbitrary UTF-16 text with rules of the INI reader's kind and checks the token
// stream: the tokens tile the text (each starts where the previous one ended,
// the last ends at the text's end), so positions ascend; every token has a
// class and a positive length; every subtoken lies within its token.
//
// The text is made from the bytes so that ASCII stays dense (the rules only
// look at "#", "[", "]", "=", spaces, CR and LF) while any code unit, lone
// surrogates included, stays reachable: a byte below 0xFF is the code unit of
// the same value, and 0xFF takes the next two bytes as one big-endian unit.
#include <exception>
#include <string>

#include "FuzzSupport.h"
#include "YEndOfLineRule.h"
#include "YRegularExpressionRule.h"
#include "YRuleBasedScanner.h"

using fuzzsupport::fail;

namespace {

// Patterns like the INI reader's (which builds its own privately): an
// end-of-line rule, `^` at the scanning position, named groups, negative
// look-ahead, lazy and greedy repetition, alternation and `\z`.
std::shared_ptr<YArray<YRule>> makeRules() {
  using D = YDictionary<YTokenClass>;
  using R = YRegularExpressionRule;
  auto cls = [] { return YTokenClass::tokenClass(); };
  auto key = cls(), value = cls();
  return YArray<YRule>::arrayWithObjects({
      YEndOfLineRule::ruleWithOpenSequenceTokenClass(YString(u"#"), cls()),
      R::ruleWithPatternOptionsTokenClass(YString(u"^(\n|\r\n)"), 0, cls()),
      R::ruleWithPatternOptionsTokenClassGroupClasses(YString(u"\\[(?<section_name>.+)\\]"), 1, cls(),
                                                      D::dictionaryWithObjectsAndKeys({{YString(u"section_name"), key}})),
      R::ruleWithPatternOptionsTokenClassGroupClasses(
          YString(u"(?<option_key>^(?! ).*?)=(?<option_value>.*\n|\r\n)"), 1, cls(),
          D::dictionaryWithObjectsAndKeys({{YString(u"option_key"), key}, {YString(u"option_value"), value}})),
      R::ruleWithPatternOptionsTokenClassGroupClasses(YString(u"(?<fragment>[ ]+.+\n|\r\n)"), 1, cls(),
                                                      D::dictionaryWithObjectsAndKeys({{YString(u"fragment"), key}})),
      R::ruleWithPatternOptionsTokenClass(YString(u"[ ]+.+\\z"), 1, cls()),
      R::ruleWithPatternOptionsTokenClassGroupClasses(
          YString(u"(?<option_key>^(?! ).*?)=(?<option_value>.*\\z)"), 1, cls(),
          D::dictionaryWithObjectsAndKeys({{YString(u"option_key"), key}, {YString(u"option_value"), value}})),
      R::ruleWithPatternOptionsTokenClass(YString(u".*"), 0, cls()),
  });
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  static const auto rules = makeRules();
  const std::u16string units = fuzzsupport::textFrom(data, size);
  const YString text(units);
  const auto end = static_cast<std::int64_t>(units.size());
  try {
    auto scanner = YRuleBasedScanner::scannerForStreamWithRules(
        YUnicharStream::streamWithBuffer(YStringBuffer::bufferFromString(text)), rules);
    std::int64_t expected = 0;
    while (auto token = scanner->nextToken()) {
      if (!token->tokenClass()) fail("a token without a class");
      if (token->position() != expected) fail("a token does not start where the previous one ended");
      if (token->length() <= 0) fail("a token without text");
      expected = static_cast<std::int64_t>(token->position()) + token->length();
      if (expected > end) fail("a token runs past the end of the text");
      for (const auto& sub : *token->subtokens()) {
        if (!sub->tokenClass()) fail("a subtoken without a class");
        if (sub->position() < 0 || sub->length() < 0 ||
            static_cast<std::int64_t>(sub->position()) + sub->length() > token->length())
          fail("a subtoken outside its token");
      }
    }
    if (expected != end) fail("the tokens stop before the end of the text");
    if (scanner->nextToken()) fail("a token after the end of the text");
  } catch (const std::exception& e) {
    fail("exception while scanning", YString::stringWithFormat("%s", e.what()));
  }
  return 0;
}
