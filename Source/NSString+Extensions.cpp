#include "NSString+Extensions.h"

#include <cstdint>

#include "YAssertionHandler.h"

static constexpr const char YUnitName[] = "NSString+Extensions";

bool startsWithCharacterSet(const YString& string, const YCharacterSet& set) {
  YCParameterAssert(!set.isNull(), "set != nil");
  if (string.length() == 0) return false;
  return set.characterIsMember(string.characterAtIndex(0));
}

bool startsWithCharacter(const YString& string, char16_t character) {
  return string.length() != 0 && string.characterAtIndex(0) == character;
}

bool endsWithCharacter(const YString& string, char16_t character) {
  std::size_t n = string.length();
  return n != 0 && string.characterAtIndex(n - 1) == character;
}

YString stringByReplacingCharactersInSetWithCharacter(const YString& string, const YCharacterSet& charSet,
                                                      char16_t character) {
  YCParameterAssert(!charSet.isNull(), "charSet != nil");
  const char16_t replacement = character;
  YString result = YString::mutableString(string.length());
  for (std::size_t i = 0; i < string.length(); ++i) {
    char16_t c = string.characterAtIndex(i);
    result.appendCharacter(charSet.characterIsMember(c) ? replacement : c);
  }
  return result;
}

YString singleLineString(const YString& string) {
  const std::int32_t n = static_cast<std::int32_t>(string.length());
  const char16_t* c = string.characters();
  YString result = YString::mutableString(static_cast<std::size_t>(n));
  std::int32_t i = 0;
  while (i < n) {
    char16_t ch = c[i];
    if (ch == u'\r' && i + 1 < n && c[i + 1] == u'\n') {
      if (i + 2 < n && c[i + 2] != u' ') result.appendCharacter(u' ');
      i += 2;
    } else if (ch == u'\n') {
      if (i + 1 < n && c[i + 1] != u' ') result.appendCharacter(u' ');
      i += 1;
    } else {
      result.appendCharacter(ch);
      i += 1;
    }
  }
  return result;
}
