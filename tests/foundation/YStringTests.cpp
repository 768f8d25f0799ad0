// Strings: null versus empty, sharing and snapshots, UTF-16 positions, UTF-8
// checking, mutation rules, the formatter and character sets.
#include <gtest/gtest.h>

#include <climits>
#include <cstdint>
#include <cstdio>
#include <functional>
#include <memory>
#include <string>

#include "YFoundation.h"

namespace {

class Named : public YObject {
 public:
  YString description() const override { return YString(u"<named>"); }
};

YString mutableOf(const char16_t* text) { return YString::mutableStringWithString(YString(text)); }

TEST(YStringTest, NullAndEmptyDifferInEveryComparison) {
  const YString null;
  const YString empty(u"");
  EXPECT_TRUE(null.isNull());
  EXPECT_FALSE(empty.isNull());
  EXPECT_FALSE(null == empty || empty == null);
  EXPECT_FALSE(null.isEqualToString(empty) || empty.isEqualToString(null));
  EXPECT_FALSE(null.isEqualToString(null));  // a null argument is never equal
  EXPECT_TRUE(null == YString());
  EXPECT_TRUE(empty.isEqualToString(YString::mutableString()));

  // Null in, null out.
  EXPECT_TRUE(YString(static_cast<const char*>(nullptr)).isNull());
  EXPECT_TRUE(null.copy().isNull());
  EXPECT_TRUE(null.stringByTrimmingCharactersInSet(YCharacterSet::whitespaceCharacterSet()).isNull());
  EXPECT_FALSE(empty.copy().isNull());
}

TEST(YStringTest, SettersKeepTheHandleAndCopiesAreSnapshots) {
  YString text = mutableOf(u"abc");
  YString kept = text;  // what a setter stores
  YString snapshot = text.copy();
  EXPECT_TRUE(kept.isIdenticalTo(text));
  EXPECT_FALSE(snapshot.isIdenticalTo(text));
  EXPECT_FALSE(snapshot.isMutable());
  text.insertStringAtIndex(YString(u"X"), 0);
  text.appendCharacter(u'!');
  EXPECT_EQ(kept, YString(u"Xabc!"));  // the caller's later mutation shows
  EXPECT_EQ(snapshot, YString(u"abc"));

  // Nobody can change an immutable string, so its copy may be itself.
  YString fixed(u"fixed");
  EXPECT_TRUE(fixed.copy().isIdenticalTo(fixed));
  fixed.mutableCopy().appendString(YString(u"!"));
  EXPECT_EQ(fixed, YString(u"fixed"));
}

TEST(YStringTest, MutationRules) {
  YString fixed(u"abc");
  EXPECT_THROW(fixed.appendString(YString(u"x")), YInvalidArgumentException);
  EXPECT_THROW(YString().appendCharacter(u'x'), YInvalidArgumentException);
  YString text = mutableOf(u"abc");
  EXPECT_THROW(text.insertStringAtIndex(YString(), 0), YInvalidArgumentException);
  EXPECT_THROW(text.insertStringAtIndex(YString(u"x"), 4), YRangeException);
  EXPECT_THROW(text.deleteCharactersInRange(2, 2), YRangeException);
  EXPECT_EQ(text, YString(u"abc"));

  text.insertStringAtIndex(YString(u"-"), 3);
  text.appendString(text);  // appending the string to itself
  EXPECT_EQ(text, YString(u"abc-abc-"));
  for (int i = 0; i < 4; ++i) text.appendCharacters(text.characters(), text.length());  // from its own buffer
  EXPECT_EQ(text.length(), 128u);
  text.deleteCharactersInRange(0, 124);
  EXPECT_EQ(text, YString(u"abc-"));
  // Pieces, short and long, some from its own buffer, within the capacity and past it.
  text.appendPieces({u"[", text.view().substr(1, 2), u"]", u"0123456789", text.view()});
  text.appendPieces({u"!", u"0123456789ABCDEF0123456789ABCDEF"});
  EXPECT_EQ(text, YString(u"abc-[bc]0123456789abc-!0123456789ABCDEF0123456789ABCDEF"));
  YString small = mutableOf(u"abcd");  // room for 8
  small.appendPieces({small.view(), u"0123456789", small.view().substr(1, 2)});
  EXPECT_EQ(small, YString(u"abcdabcd0123456789bc"));
  EXPECT_THROW(fixed.appendPieces({u"x"}), YInvalidArgumentException);
  // Pieces known when compiling, single units among them, alike.
  YString each = mutableOf(u"ab");  // room for 8
  each.appendEach(u'[', each.view(), u']', std::u16string_view(u"cd"));
  EXPECT_EQ(each, YString(u"ab[ab]cd"));
  each.appendEach(each.view().substr(2, 4), u'=', std::u16string_view(u"0123456789"), u'\n');
  EXPECT_EQ(each, YString(u"ab[ab]cd[ab]=0123456789\n"));
  // Room in the buffer counts what it holds: three more units do not fit
  // in eight with six used (a sanitizer sees a write past the buffer).
  YString nearlyFull = mutableOf(u"abcdef");
  nearlyFull.appendEach(u'x', std::u16string_view(u"yz"));
  nearlyFull.appendPieces({u"1", u"23"});
  EXPECT_EQ(nearlyFull, YString(u"abcdefxyz123"));
  EXPECT_THROW(fixed.appendEach(u'x'), YInvalidArgumentException);
  EXPECT_EQ(fixed, YString(u"abc"));
  // A length whose sum with the string's would wrap around is refused before anything changes.
  for (const char16_t* from : {u"xyz", nearlyFull.characters()}) {
    for (std::size_t length : {SIZE_MAX, SIZE_MAX - 11, std::size_t{0x80000000}}) {
      EXPECT_THROW(nearlyFull.appendCharacters(from, length), std::bad_alloc) << length;
      EXPECT_EQ(nearlyFull, YString(u"abcdefxyz123"));
    }
  }
}

TEST(YStringTest, CopiesEveryShortLength) {
  // Every length up to past the widest fixed-size copy, each unit distinct,
  // so that a unit copied from the wrong place shows: as a new string and as
  // pieces appended.
  const std::u16string source = u"ABCDEFGHIJKLMNOPQRSTUVWXYZ";
  for (std::size_t n = 0; n <= 20; ++n) {
    EXPECT_EQ(YString::stringWithCharacters(source.data(), n).view(), source.substr(0, n)) << n;
    YString text = YString::mutableString(64);
    text.appendPieces({u"[", std::u16string_view(source).substr(0, n), u"]"});
    text.appendEach(u'(', std::u16string_view(source).substr(0, n), u')');
    EXPECT_EQ(text.view(), u"[" + source.substr(0, n) + u"](" + source.substr(0, n) + u")") << n;
  }
}

TEST(YStringTest, Latin1CharactersWidenToUnitsOfTheSameValue) {
  // Every byte value, at every place in strings of every length up to past
  // two blocks of sixteen, so that a byte widened from the wrong place, or
  // sign-extended, shows.
  std::string bytes;
  for (int i = 0; i < 256 + 40; ++i) bytes.push_back(static_cast<char>((i * 7 + 0x7D) & 0xFF));
  for (std::size_t n = 0; n <= 40; ++n) {
    for (std::size_t at = 0; at + n <= bytes.size(); at += 37) {
      std::u16string expected;
      for (std::size_t i = 0; i < n; ++i) expected.push_back(static_cast<unsigned char>(bytes[at + i]));
      const YString text = YString::stringWithLatin1Characters(bytes.data() + at, n);
      ASSERT_FALSE(text.isNull());
      EXPECT_EQ(text.view(), expected) << n << " at " << at;
    }
  }
}

TEST(YStringTest, PositionsCountUTF16CodeUnits) {
  YString text("a\xF0\x9F\x98\x80" "b");  // a, U+1F600, b
  ASSERT_EQ(text.length(), 4u);
  EXPECT_EQ(text.characterAtIndex(1), 0xD83D);
  EXPECT_EQ(text.characterAtIndex(2), 0xDE00);
  EXPECT_EQ(text.characterAtIndex(3), u'b');
  EXPECT_THROW(text.characterAtIndex(4), YRangeException);
  EXPECT_EQ(text.substringWithRange(1, 2).UTF8String(), "\xF0\x9F\x98\x80");
  EXPECT_THROW(text.substringWithRange(3, 2), YRangeException);
  EXPECT_EQ(text.indexOfString(YString(u"b")), 3u);
  // A lone surrogate cannot be UTF-8: it becomes U+FFFD.
  EXPECT_EQ(YString(std::u16string_view(u"x\xD800y", 3)).UTF8String(), "x\xEF\xBF\xBDy");
}

TEST(YStringTest, InvalidUTF8IsRejected) {
  // Truncated, stray continuation, overlong (2 and 3 bytes), surrogate, above U+10FFFF.
  for (const char* bytes : {"\xC3", "a\x80", "\xC0\xAF", "\xE0\x80\xAF", "\xED\xA0\x80", "\xF4\x90\x80\x80", "\xFF"}) {
    EXPECT_THROW(YString{bytes}, YInvalidArgumentException) << testing::PrintToString(bytes);
    EXPECT_THROW(YString::fromUTF8(bytes), YInvalidArgumentException) << testing::PrintToString(bytes);
  }
  EXPECT_EQ(YString("\xF4\x8F\xBF\xBF").length(), 2u);  // U+10FFFF is fine
  EXPECT_EQ(YString::fromUTF8(std::string_view("a\0b", 3)).length(), 3u);
}

// A move hands the string over and leaves the source null; other handles of
// the string given up keep it, and moving a handle onto itself keeps it too.
TEST(YStringTest, MovesHandOverTheStringAndLeaveTheSourceNull) {
  YString a(u"one"), b(u"two");
  const YString other = a;
  a = std::move(b);
  EXPECT_EQ(a.view(), u"two");
  EXPECT_TRUE(b.isNull());  // NOLINT(bugprone-use-after-move): moved-from handles are null
  EXPECT_EQ(other.view(), u"one");
  YString& same = a;
  a = std::move(same);
  EXPECT_EQ(a.view(), u"two");
  YString c(std::move(a));
  EXPECT_TRUE(a.isNull());  // NOLINT(bugprone-use-after-move)
  EXPECT_EQ(c.view(), u"two");
  c = YString();
  EXPECT_TRUE(c.isNull());
}

// ASCII is decoded many bytes at a time: a character beyond it, or an invalid
// byte, at any place of a text of any length up to three blocks, must still
// be decoded or refused exactly, and every ASCII byte around it kept.
TEST(YStringTest, UTF8IsDecodedExactlyWhereverAWideCharacterStands) {
  const std::pair<std::string, std::u16string> wides[] = {
      {"\x7F", u"\x7F"}, {"\xC2\x80", u"\x80"}, {"\xC3\xA9", u"\xE9"}, {"\xE2\x82\xAC", u"\x20AC"},
      {"\xF0\x9F\x98\x80", u"\xD83D\xDE00"}};
  for (std::size_t n = 0; n <= 48; ++n) {
    const std::string plain(n, 'a');
    const std::u16string plainUnits(n, u'a');
    EXPECT_EQ(YString::fromUTF8(plain).view(), plainUnits);
    for (std::size_t p = 0; p <= n; ++p) {
      for (const auto& [bytes, units] : wides) {
        const std::string text = plain.substr(0, p) + bytes + plain.substr(p);
        EXPECT_EQ(YString::fromUTF8(text).view(), plainUnits.substr(0, p) + units + plainUnits.substr(p))
            << n << " " << p << " " << testing::PrintToString(bytes);
      }
      EXPECT_THROW(YString::fromUTF8(plain.substr(0, p) + "\x80" + plain.substr(p)), YInvalidArgumentException)
          << n << " " << p;
    }
  }
}

// What the C library's printf writes for one argument of the type given.
template <class T>
std::string printed(const char* format, T value) {
  std::string out(std::snprintf(nullptr, 0, format, value), '\0');
  std::snprintf(out.data(), out.size() + 1, format, value);
  return out;
}

enum Wide : long long { WideNegative = -2 };

TEST(YStringTest, Formatter) {
  auto named = std::make_shared<Named>();
  std::shared_ptr<Named> noObject;
  const void* pointer = reinterpret_cast<const void*>(std::uintptr_t{0x1234});
  struct Case {
    YString actual;
    std::string expected;
  } cases[] = {
      {YString::stringWithFormat("%@=%@", YString(u"key"), YString("v\xC3\xA9")), "key=v\xC3\xA9"},
      {YString::stringWithFormat("[%@] %@ %@", YString(), named, noObject), "[(null)] <named> (null)"},
      {YString::stringWithFormat("%s|%s", "c-string", static_cast<const char*>(nullptr)), "c-string|(null)"},
      {YString::stringWithFormat("%d %u %ld %zu %lld", -5, 8u, -9L, std::size_t(10), -1LL), "-5 8 -9 10 -1"},
      {YString::stringWithFormat("%x %X %5d|%-3d|%03d", 255, 255, 42, 7, 5), "ff FF    42|7  |005"},
      {YString::stringWithFormat("100%% %c%c", 'x', u'\u20AC'), "100% x\xE2\x82\xAC"},
      // Each integer keeps its own type's width and signedness; narrower ones are promoted to int.
      {YString::stringWithFormat("%x %u %o %X", -1, -1, -1, short(-1)), "ffffffff 4294967295 37777777777 FFFFFFFF"},
      {YString::stringWithFormat("%x %lu %d", -1L, -1LL, ULLONG_MAX),
       "ffffffffffffffff 18446744073709551615 18446744073709551615"},
      {YString::stringWithFormat("%d %x", UINT_MAX, static_cast<signed char>(-1)), "4294967295 ffffffff"},
      // Enumerators print as their underlying integers.
      {YString::stringWithFormat("code %d, %d %x", YFileNoSuchFileError, WideNegative, WideNegative),
       "code 4, -2 fffffffffffffffe"},
      // %c takes a code point; a negative char is a Latin-1 byte.
      {YString::stringWithFormat("%c|%c|%c", 0x1F600, 0x10FFFF, '\xE9'), "\xF0\x9F\x98\x80|\xF4\x8F\xBF\xBF|\xC3\xA9"},
      // Width, precision and '-' on text count UTF-16 units; a pair is never split.
      {YString::stringWithFormat("[%5s][%-5s][%.1s][%4s]", "ab", "ab", "abc", "\xC3\xA9"), "[   ab][ab   ][a][   \xC3\xA9]"},
      {YString::stringWithFormat("[%5.2@][%-5@][%-8@][%.2@][%3@]", YString(u"abc"), YString(u"ab"), named,
                                 YString("a\xF0\x9F\x98\x80"), YString("\xF0\x9F\x98\x80")),
       "[   ab][ab   ][<named> ][a][ \xF0\x9F\x98\x80]"},
      {YString::stringWithFormat("[%3c][%-3c][%3c]", 'x', 'y', 0x1F600), "[  x][y  ][ \xF0\x9F\x98\x80]"},
      // Long fields come out whole, as printf writes them, up to the widest field.
      {YString::stringWithFormat("%f", 1e308), printed("%f", 1e308)},
      {YString::stringWithFormat("%200d|", 5), printed("%200d|", 5)},
      {YString::stringWithFormat("%-4096.4096f|", 1.0 / 3), printed("%-4096.4096f|", 1.0 / 3)},
      {YString::stringWithFormat("[%-20p]", pointer), printed("[%-20p]", pointer)},
  };
  for (const auto& c : cases) EXPECT_EQ(c.actual.UTF8String(), c.expected);

  std::string generic = YString::stringWithFormat("%@", std::make_shared<YObject>()).UTF8String();
  EXPECT_EQ(generic.rfind("<YObject: 0x", 0), 0u) << generic;
  EXPECT_EQ(generic.back(), '>');
  const std::function<YString()> refused[] = {
      [] { return YString::stringWithFormat("%@ %@", YString(u"one")); },
      [] { return YString::stringWithFormat("%d", YString(u"text")); },
      // Malformed directives, and fields wider than 4096.
      [] { return YString::stringWithFormat("[%1.2.3d]", 1); },
      [] { return YString::stringWithFormat("%5-d", 1); },
      [] { return YString::stringWithFormat("%.4097f", 1.0); },
      [] { return YString::stringWithFormat("%4097s", "x"); },
      [] { return YString::stringWithFormat("%99999999999999999999d", 1); },
      // Not code points.
      [] { return YString::stringWithFormat("%c", -1); },
      [] { return YString::stringWithFormat("%c", 0xD800); },
      [] { return YString::stringWithFormat("%c", 0x110000); },
  };
  for (std::size_t i = 0; i < std::size(refused); ++i) EXPECT_THROW(refused[i](), YInvalidArgumentException) << i;
  try {
    YString::stringWithFormat("%s %4097d", "x", 1);
    ADD_FAILURE() << "no exception";
  } catch (const YInvalidArgumentException& e) {
    EXPECT_NE(e.reason().indexOfString(YString(u"%4097d")), YString::npos) << e.reason();
  }
}

TEST(YStringTest, CharacterSetsAndTrimming) {
  const YCharacterSet white = YCharacterSet::whitespaceCharacterSet();
  const YCharacterSet whiteNewline = YCharacterSet::whitespaceAndNewlineCharacterSet();
  for (char16_t c : std::u16string_view(u" \t\u00A0\u1680\u2000\u200A\u202F\u205F\u3000"))
    EXPECT_TRUE(white.characterIsMember(c) && whiteNewline.characterIsMember(c)) << int(c);
  for (char16_t c : std::u16string_view(u"\n\v\f\r\u0085\u2028\u2029"))
    EXPECT_TRUE(!white.characterIsMember(c) && whiteNewline.characterIsMember(c)) << int(c);
  for (char16_t c : {u'a', u'\0', u'\u200B', u'\uFEFF'}) EXPECT_FALSE(whiteNewline.characterIsMember(c)) << int(c);
  EXPECT_FALSE(YCharacterSet().characterIsMember(u' '));
  EXPECT_TRUE(YCharacterSet::characterSetWithCharactersInString(YString(u"xy")).characterIsMember(u'y'));
  // A range runs from its first unit, and one past U+FFFF stops there.
  for (std::size_t length : {std::size_t{0x20}, std::size_t{0x10000}, SIZE_MAX - 0xFF00, SIZE_MAX}) {
    const YCharacterSet range = YCharacterSet::characterSetWithRange(u'\uFFF0', length);
    EXPECT_TRUE(range.characterIsMember(u'\uFFF0') && range.characterIsMember(u'\uFFFF')) << length;
    EXPECT_FALSE(range.characterIsMember(u'\uFFEF') || range.characterIsMember(u'\0')) << length;
  }
  EXPECT_FALSE(YCharacterSet::characterSetWithRange(u'a', 0).characterIsMember(u'a'));

  EXPECT_EQ(YString(u" \t a b \u3000\n").stringByTrimmingCharactersInSet(white), YString(u"a b \u3000\n"));
  EXPECT_EQ(YString(u" \t a b \u3000\n").stringByTrimmingCharactersInSet(whiteNewline), YString(u"a b"));
  EXPECT_EQ(YString(u" \n ").stringByTrimmingCharactersInSet(whiteNewline), YString(u""));
  EXPECT_EQ(YString(u" a ").stringByTrimmingCharactersInSet(YCharacterSet()), YString(u" a "));
  YString source = mutableOf(u"a");
  YString trimmed = source.stringByTrimmingCharactersInSet(white);
  source.appendCharacter(u'b');
  EXPECT_EQ(trimmed, YString(u"a"));  // a result never tracks a mutable source
}

}  // namespace
