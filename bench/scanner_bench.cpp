// Scanning speed of the eight INI rules over a generated 8 MB INI text,
// beside a plain line-splitting loop over the same text.
#include <benchmark/benchmark.h>

#include <cstdint>
#include <string>

#include "YEndOfLineRule.h"
#include "YRegularExpressionRule.h"
#include "YRuleBasedScanner.h"

namespace {

// A deterministic INI text of about `size` code units (one byte each in
// UTF-8): sections, options, comments, blank lines and continuation lines.
std::u16string makeIniText(std::size_t size) {
  std::uint32_t seed = 12345;
  auto next = [&seed](std::uint32_t bound) {
    seed = seed * 1664525u + 1013904223u;
    return (seed >> 8) % bound;
  };
  static const char16_t* const words[] = {u"alpha", u"beta", u"gamma", u"delta", u"path", u"/usr/local/lib",
                                          u"true", u"42", u"value with spaces", u"x=y", u"http://host:8080/"};
  auto phrase = [&](std::u16string& out, std::uint32_t count) {
    for (std::uint32_t i = 0; i < count; ++i) {
      if (i) out += u' ';
      out += words[next(std::size(words))];
    }
  };
  std::u16string text;
  text.reserve(size + 256);
  std::uint32_t section = 0;
  while (text.size() < size) {
    text += u"[section_" + std::u16string(1, u'a' + section % 26) + u'_';
    for (char c : std::to_string(section++)) text += static_cast<char16_t>(c);
    text += u"]\n";
    const std::uint32_t lines = 8 + next(24);
    for (std::uint32_t line = 0; line < lines; ++line) {
      const std::uint32_t kind = next(100);
      if (kind < 10) {
        text += u"# ";
        phrase(text, 1 + next(8));
        text += u'\n';
      } else if (kind < 16) {
        text += u'\n';
      } else {
        text += u"key_";
        for (char c : std::to_string(next(100000))) text += static_cast<char16_t>(c);
        text += next(2) ? u" = " : u"=";
        phrase(text, 1 + next(6));
        text += u'\n';
        if (kind >= 90) {  // continuation lines
          for (std::uint32_t c = 1 + next(3); c > 0; --c) {
            text += u"    ";
            phrase(text, 1 + next(5));
            text += u'\n';
          }
        }
      }
    }
  }
  return text;
}

const YString& iniText() {
  static const YString text(makeIniText(8u << 20));
  return text;
}

std::shared_ptr<YArray<YRule>> iniRules() {
  using D = YDictionary<YTokenClass>;
  using R = YRegularExpressionRule;
  auto key = YTokenClass::tokenClass(), value = YTokenClass::tokenClass();
  return YArray<YRule>::arrayWithObjects({
      YEndOfLineRule::ruleWithOpenSequenceTokenClass(YString(u"#"), YTokenClass::tokenClass()),
      R::ruleWithPatternOptionsTokenClass(YString(u"^(\n|\r\n)"), 0, YTokenClass::tokenClass()),
      R::ruleWithPatternOptionsTokenClassGroupClasses(YString(u"\\[(?<section_name>.+)\\]"), 1,
                                                      YTokenClass::tokenClass(),
                                                      D::dictionaryWithObjectsAndKeys({{YString(u"section_name"), key}})),
      R::ruleWithPatternOptionsTokenClassGroupClasses(
          YString(u"(?<option_key>^(?! ).*?)=(?<option_value>.*\n|\r\n)"), 1, YTokenClass::tokenClass(),
          D::dictionaryWithObjectsAndKeys({{YString(u"option_key"), key}, {YString(u"option_value"), value}})),
      R::ruleWithPatternOptionsTokenClassGroupClasses(
          YString(u"(?<option_value_fragment>[ ]+.+\n|\r\n)"), 1, YTokenClass::tokenClass(),
          D::dictionaryWithObjectsAndKeys({{YString(u"option_value_fragment"), key}})),
      R::ruleWithPatternOptionsTokenClassGroupClasses(
          YString(u"(?<option_value_fragment>[ ]+.+\\z)"), 1, YTokenClass::tokenClass(),
          D::dictionaryWithObjectsAndKeys({{YString(u"option_value_fragment-terminating"), key}})),
      R::ruleWithPatternOptionsTokenClassGroupClasses(
          YString(u"(?<option_key>^(?! ).*?)=(?<option_value>.*\\z)"), 1, YTokenClass::tokenClass(),
          D::dictionaryWithObjectsAndKeys({{YString(u"option_key"), key}, {YString(u"option_value"), value}})),
      R::ruleWithPatternOptionsTokenClass(YString(u".*"), 0, YTokenClass::tokenClass()),
  });
}

void reportRates(benchmark::State& state, double units, double pieces, const char* piecesName) {
  // The text is ASCII: one code unit is one byte of the INI file.
  state.counters["MB"] = benchmark::Counter(units / 1e6, benchmark::Counter::kIsRate);
  state.counters[piecesName] = benchmark::Counter(pieces, benchmark::Counter::kIsRate);
  state.SetBytesProcessed(static_cast<std::int64_t>(units));
}

void BM_ScanIniWithEightRules(benchmark::State& state) {
  const YString& text = iniText();
  auto rules = iniRules();
  double units = 0, tokens = 0;
  for (auto _ : state) {
    auto scanner = YRuleBasedScanner::scannerForStreamWithRules(
        YUnicharStream::streamWithBuffer(YStringBuffer::bufferFromString(text)), rules);
    std::int64_t count = 0;
    while (auto token = scanner->nextToken()) {
      benchmark::DoNotOptimize(token->length());
      ++count;
    }
    tokens += static_cast<double>(count);
    units += static_cast<double>(text.length());
  }
  reportRates(state, units, tokens, "tokens");
}
BENCHMARK(BM_ScanIniWithEightRules)->Unit(benchmark::kMillisecond);

void BM_SplitLines(benchmark::State& state) {
  const std::u16string_view text = iniText().view();
  double units = 0, lines = 0;
  for (auto _ : state) {
    std::int64_t count = 0;
    std::size_t start = 0;
    while (start < text.size()) {
      std::size_t end = text.find(u'\n', start);
      if (end == std::u16string_view::npos) end = text.size();
      const std::u16string_view line = text.substr(start, end - start);
      benchmark::DoNotOptimize(line.data());
      ++count;
      start = end + 1;
    }
    lines += static_cast<double>(count);
    units += static_cast<double>(text.size());
  }
  reportRates(state, units, lines, "lines");
}
BENCHMARK(BM_SplitLines)->Unit(benchmark::kMillisecond);

}  // namespace

BENCHMARK_MAIN();
