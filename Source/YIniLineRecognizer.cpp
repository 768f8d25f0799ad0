#include "YIniLineRecognizer.h"

#include <atomic>
#include <cstdint>

namespace {

std::atomic<bool> gEnabled{true};
thread_local std::size_t tTokens = 0;

// The first LF at or after `from`, or `end`.
inline std::size_t lineFeedFrom(const char16_t* text, std::size_t from, std::size_t end) noexcept {
  while (from < end && text[from] != u'\n') ++from;
  return from;
}

}  // namespace

void YIniLineRecognizer::setEnabled(bool enabled) noexcept { gEnabled.store(enabled, std::memory_order_relaxed); }

bool YIniLineRecognizer::isEnabled() noexcept { return gEnabled.load(std::memory_order_relaxed); }

std::size_t YIniLineRecognizer::tokensOnThisThread() noexcept { return tTokens; }

bool YIniLineRecognizer::tokenAtPosition(std::u16string_view text, std::size_t position, const Classes& classes,
                                         YTokenMatch& match) {
  if (!recognize(text, position, classes, match)) return false;
  ++tTokens;
  return true;
}

bool YIniLineRecognizer::recognize(std::u16string_view text, std::size_t position, const Classes& classes,
                                   YTokenMatch& match) {
  const std::size_t n = text.size(), p = position;
  if (p >= n) return false;
  const char16_t* s = text.data();
  auto token = [&](const YTokenClass* tokenClass, std::size_t end) {
    match.reset();
    match.tokenClass = tokenClass;
    match.position = static_cast<std::int32_t>(p);
    match.length = static_cast<std::int32_t>(end - p);
  };
  auto group = [&](const YTokenClass* tokenClass, std::size_t start, std::size_t end) {
    match.subtokens.push_back(
        {tokenClass, static_cast<std::int32_t>(start - p), static_cast<std::int32_t>(end - start)});
  };

  const char16_t c = s[p];
  if (c == u'#') {  // 1: the end-of-line rule, which leaves a CR LF out ("#" is no CR)
    std::size_t end = lineFeedFrom(s, p + 1, n);
    if (end < n && s[end - 1] == u'\r') --end;
    token(classes.comment, end);
    return true;
  }
  if (c == u'\n') {  // 2
    token(classes.newLine, p + 1);
    return true;
  }
  if (c == u'\r' && p + 1 < n && s[p + 1] == u'\n') {
    token(classes.newLine, p + 2);
    return true;
  }
  if (c == u'[') {  // 3: ".+" is greedy, so the name runs to the line's last "]"
    const std::size_t lf = lineFeedFrom(s, p + 1, n);
    for (std::size_t close = lf; close > p + 2;) {
      if (s[--close] != u']') continue;
      token(classes.section, close + 1);
      group(classes.key, p + 1, close);
      return true;
    }
    // Not a header: the line is read by the rules below.
  }
  if (c == u' ') {  // 5, 6; the option rules refuse a leading space
    const std::size_t lf = lineFeedFrom(s, p + 1, n);
    if (lf < n && lf - p >= 2) {
      token(classes.fragment, lf + 1);
      group(classes.key, p, lf + 1);
      return true;
    }
    if (lf == n && n - p >= 2) {
      token(classes.fragmentTerminating, n);  // its map names no group of its pattern
      return true;
    }
    token(classes.unknown, lf);  // 8
    return true;
  }
  // 4, 7: the lazy key ends at the line's first "=".
  std::size_t equals = p;
  while (equals < n && s[equals] != u'=' && s[equals] != u'\n') ++equals;
  if (equals < n && s[equals] == u'=') {
    const std::size_t lf = lineFeedFrom(s, equals + 1, n);
    if (lf < n) {
      token(classes.option, lf + 1);
      group(classes.key, p, equals);
      group(classes.value, equals + 1, lf + 1);
    } else {
      token(classes.optionTerminating, n);
      group(classes.key, p, equals);
      group(classes.value, equals + 1, n);
    }
    return true;
  }
  token(classes.unknown, equals);  // 8: `equals` stopped at the line end
  return true;
}
