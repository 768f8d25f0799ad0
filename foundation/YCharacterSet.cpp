#include "YCharacterSet.h"

namespace {

constexpr char16_t kSpaceSeparators[] = {0x0020, 0x00A0, 0x1680, 0x2000, 0x2001, 0x2002, 0x2003, 0x2004, 0x2005,
                                         0x2006, 0x2007, 0x2008, 0x2009, 0x200A, 0x202F, 0x205F, 0x3000};
constexpr char16_t kNewlines[] = {0x000A, 0x000B, 0x000C, 0x000D, 0x0085, 0x2028, 0x2029};

}  // namespace

YCharacterSet YCharacterSet::whitespaceCharacterSet() {
  static const YCharacterSet set = [] {
    auto bits = std::make_shared<Bits>();
    for (char16_t c : kSpaceSeparators) bits->set(c);
    bits->set(0x0009);
    return YCharacterSet(bits);
  }();
  return set;
}

YCharacterSet YCharacterSet::newlineCharacterSet() {
  static const YCharacterSet set = [] {
    auto bits = std::make_shared<Bits>();
    for (char16_t c : kNewlines) bits->set(c);
    return YCharacterSet(bits);
  }();
  return set;
}

YCharacterSet YCharacterSet::whitespaceAndNewlineCharacterSet() {
  static const YCharacterSet set = [] {
    auto bits = std::make_shared<Bits>(*whitespaceCharacterSet()._bits | *newlineCharacterSet()._bits);
    return YCharacterSet(bits);
  }();
  return set;
}

YCharacterSet YCharacterSet::characterSetWithCharactersInString(const YString& string) {
  auto bits = std::make_shared<Bits>();
  for (char16_t c : string.view()) bits->set(c);
  return YCharacterSet(bits);
}

YCharacterSet YCharacterSet::characterSetWithRange(char16_t first, std::size_t length) {
  auto bits = std::make_shared<Bits>();
  const std::size_t end = length < 65536 - std::size_t{first} ? first + length : 65536;  // a sum could wrap
  for (std::size_t c = first; c < end; ++c) bits->set(c);
  return YCharacterSet(bits);
}

YCharacterSet YCharacterSet::invertedSet() const {
  auto bits = std::make_shared<Bits>(_bits ? ~*_bits : ~Bits());
  return YCharacterSet(bits);
}
