// Strings: null versus empty, sharing and snapshots, UTF-16 positions, UTF-8
// checking, mutation rules, the formatter and character sets.
#include <gtest/gtest.h>

#include <memory>
#include <sstream>
#include <string>

#include "YFoundation.h"

namespace {

// Keeps whatever handle it is given, like an element's setter.
struct Holder {
  YString value;
  void setValue(const YString& v) { value = v; }
};

class Named : public YObject {
 public:
  YString description() const override { return YString(u"<named>"); }
};

TEST(YStringTest, NullAndEmptyDifferInEveryComparison) {
  const YString null;
  const YString empty(u"");
  EXPECT_TRUE(null.isNull());
  EXPECT_FALSE(empty.isNull());
  EXPECT_EQ(null.length(), 0u);
  EXPECT_EQ(empty.length(), 0u);
  EXPECT_FALSE(null == empty);
  EXPECT_FALSE(empty == null);
  EXPECT_FALSE(null.isEqualToString(empty));
  EXPECT_FALSE(empty.isEqualToString(null));
  EXPECT_FALSE(null.isEqualToString(null));  // a null argument is never equal
  EXPECT_TRUE(null == YString());
  EXPECT_TRUE(empty == YString(""));
  EXPECT_TRUE(empty.isEqualToString(YString::mutableString()));

  // Null in, null out.
  EXPECT_TRUE(YString(static_cast<const char*>(nullptr)).isNull());
  EXPECT_TRUE(YString(static_cast<const char16_t*>(nullptr)).isNull());
  EXPECT_TRUE(null.copy().isNull());
  EXPECT_TRUE(null.mutableCopy().isNull());
  EXPECT_TRUE(null.stringByTrimmingCharactersInSet(YCharacterSet::whitespaceCharacterSet()).isNull());
  EXPECT_FALSE(empty.copy().isNull());
  std::ostringstream out;
  out << null << ' ' << empty;
  EXPECT_EQ(out.str(), "(null) \"\"");
}

TEST(YStringTest, HandlesShareTheStringAndSettersKeepIt) {
  YString text = YString::mutableStringWithString(YString(u"abc"));
  Holder holder;
  holder.setValue(text);
  EXPECT_TRUE(holder.value.isIdenticalTo(text));
  text.appendString(YString(u"def"));
  EXPECT_EQ(holder.value, YString(u"abcdef"));  // the caller's later mutation shows
}

TEST(YStringTest, CopyIsASnapshot) {
  YString text = YString::mutableStringWithString(YString(u"abc"));
  YString snapshot = text.copy();
  EXPECT_FALSE(snapshot.isIdenticalTo(text));
  EXPECT_FALSE(snapshot.isMutable());
  text.insertStringAtIndex(YString(u"X"), 0);
  text.appendCharacter(u'!');
  EXPECT_EQ(text, YString(u"Xabc!"));
  EXPECT_EQ(snapshot, YString(u"abc"));

  // Nobody can change an immutable string, so its copy may be itself.
  YString fixed(u"fixed");
  EXPECT_TRUE(fixed.copy().isIdenticalTo(fixed));
  YString changeable = fixed.mutableCopy();
  EXPECT_TRUE(changeable.isMutable());
  changeable.appendString(YString(u"!"));
  EXPECT_EQ(fixed, YString(u"fixed"));
}

TEST(YStringTest, MutationRules) {
  YString fixed(u"abc");
  EXPECT_THROW(fixed.appendString(YString(u"x")), YInvalidArgumentException);
  EXPECT_THROW(YString().appendCharacter(u'x'), YInvalidArgumentException);
  EXPECT_EQ(fixed, YString(u"abc"));

  YString text = YString::mutableStringWithString(YString(u"abc"));
  EXPECT_THROW(text.insertStringAtIndex(YString(), 0), YInvalidArgumentException);
  EXPECT_THROW(text.insertStringAtIndex(YString(u"x"), 4), YRangeException);
  EXPECT_THROW(text.deleteCharactersInRange(2, 2), YRangeException);
  EXPECT_EQ(text, YString(u"abc"));

  text.insertStringAtIndex(YString(u"-"), 3);
  text.appendString(text);  // appending the string to itself
  EXPECT_EQ(text, YString(u"abc-abc-"));
  for (int i = 0; i < 4; ++i) text.appendCharacters(text.characters(), text.length());  // from its own buffer
  EXPECT_EQ(text.length(), 128u);
  EXPECT_TRUE(text.hasPrefix(YString(u"abc-abc-abc-")));
  text.deleteCharactersInRange(0, 124);
  EXPECT_EQ(text, YString(u"abc-"));
  text.setString(YString());
  EXPECT_EQ(text, YString(u""));
}

TEST(YStringTest, PositionsCountUTF16CodeUnits) {
  YString text("a\xF0\x9F\x98\x80" "b");  // a, U+1F600, b
  ASSERT_EQ(text.length(), 4u);
  EXPECT_EQ(text.characterAtIndex(0), u'a');
  EXPECT_EQ(text.characterAtIndex(1), 0xD83D);
  EXPECT_EQ(text.characterAtIndex(2), 0xDE00);
  EXPECT_EQ(text.characterAtIndex(3), u'b');
  EXPECT_THROW(text.characterAtIndex(4), YRangeException);
  EXPECT_EQ(text.substringWithRange(1, 2).UTF8String(), "\xF0\x9F\x98\x80");
  EXPECT_EQ(text.substringFromIndex(3), YString(u"b"));
  EXPECT_EQ(text.substringToIndex(0), YString(u""));
  EXPECT_THROW(text.substringWithRange(3, 2), YRangeException);
  EXPECT_THROW(text.substringFromIndex(5), YRangeException);
  EXPECT_EQ(text.indexOfString(YString(u"b")), 3u);
  EXPECT_EQ(text.indexOfString(YString(u"z")), YString::npos);
  EXPECT_EQ(text.UTF8String(), "a\xF0\x9F\x98\x80" "b");
  // A lone surrogate cannot be UTF-8: it becomes U+FFFD.
  EXPECT_EQ(YString(std::u16string_view(u"x\xD800y", 3)).UTF8String(), "x\xEF\xBF\xBDy");
}

TEST(YStringTest, InvalidUTF8IsRejected) {
  const char* invalid[] = {
      "\xC3",              // truncated sequence
      "a\x80",             // stray continuation byte
      "\xC0\xAF",          // overlong
      "\xE0\x80\xAF",      // overlong, three bytes
      "\xED\xA0\x80",      // encoded surrogate
      "\xF4\x90\x80\x80",  // above U+10FFFF
      "\xFF",
  };
  for (const char* bytes : invalid) {
    SCOPED_TRACE(testing::PrintToString(bytes));
    EXPECT_THROW(YString{bytes}, YInvalidArgumentException);
    EXPECT_THROW(YString::fromUTF8(bytes), YInvalidArgumentException);
  }
  EXPECT_EQ(YString("\xF4\x8F\xBF\xBF").length(), 2u);  // U+10FFFF is fine
  EXPECT_EQ(YString::fromUTF8(std::string_view("a\0b", 3)).length(), 3u);
}

TEST(YStringTest, Formatter) {
  auto named = std::make_shared<Named>();
  std::shared_ptr<Named> noObject;
  auto plain = std::make_shared<YObject>();
  YString mutableText = YString::mutableStringWithString(YString(u"m"));
  struct Case {
    YString actual;
    const char* expected;
  } cases[] = {
      {YString::stringWithFormat("%@=%@", YString(u"key"), YString("v\xC3\xA9")), "key=v\xC3\xA9"},
      {YString::stringWithFormat("[%@]", YString()), "[(null)]"},
      {YString::stringWithFormat("%@ %@", named, noObject), "<named> (null)"},
      {YString::stringWithFormat("%@", mutableText), "m"},
      {YString::stringWithFormat("%s|%s", "c-string", static_cast<const char*>(nullptr)), "c-string|(null)"},
      {YString::stringWithFormat("%d %i %u %ld %zu", -5, 7, 8u, -9L, std::size_t(10)), "-5 7 8 -9 10"},
      {YString::stringWithFormat("%lld %llu %x %X %o", -1LL, 18446744073709551615ULL, 255, 255, 8),
       "-1 18446744073709551615 ff FF 10"},
      {YString::stringWithFormat("%5d|%-3d|%03d", 42, 7, 5), "   42|7  |005"},
      {YString::stringWithFormat("100%% %c%c%c", 'x', '\xE9', u'\u20AC'), "100% x\xC3\xA9\xE2\x82\xAC"},
      {YString::stringWithFormat("no directives"), "no directives"},
  };
  for (const auto& c : cases) EXPECT_EQ(c.actual.UTF8String(), c.expected);

  std::string generic = YString::stringWithFormat("%@", plain).UTF8String();
  EXPECT_EQ(generic.rfind("<YObject: 0x", 0), 0u) << generic;
  EXPECT_EQ(generic.back(), '>');
  EXPECT_THROW(YString::stringWithFormat("%@ %@", YString(u"one")), YInvalidArgumentException);
  EXPECT_THROW(YString::stringWithFormat("%d", YString(u"text")), YInvalidArgumentException);
  EXPECT_THROW(YString::stringWithFormat("%q"), YInvalidArgumentException);
}

TEST(YStringTest, CharacterSetsAndTrimming) {
  const YCharacterSet white = YCharacterSet::whitespaceCharacterSet();
  const YCharacterSet whiteNewline = YCharacterSet::whitespaceAndNewlineCharacterSet();
  for (char16_t c : {u' ', u'\t', u'\u00A0', u'\u1680', u'\u2000', u'\u200A', u'\u202F', u'\u205F', u'\u3000'}) {
    EXPECT_TRUE(white.characterIsMember(c)) << int(c);
    EXPECT_TRUE(whiteNewline.characterIsMember(c)) << int(c);
  }
  for (char16_t c : {u'\n', u'\v', u'\f', u'\r', u'\u0085', u'\u2028', u'\u2029'}) {
    EXPECT_FALSE(white.characterIsMember(c)) << int(c);
    EXPECT_TRUE(whiteNewline.characterIsMember(c)) << int(c);
  }
  for (char16_t c : {u'a', u'\0', u'\u200B', u'\uFEFF'}) EXPECT_FALSE(whiteNewline.characterIsMember(c)) << int(c);

  const YCharacterSet null;
  EXPECT_TRUE(null.isNull());
  EXPECT_FALSE(null.characterIsMember(u' '));
  const YCharacterSet given = YCharacterSet::characterSetWithCharactersInString(YString(u"xy"));
  EXPECT_TRUE(given.characterIsMember(u'y'));
  EXPECT_FALSE(given.characterIsMember(u'z'));

  EXPECT_EQ(YString(u" \t a b \u3000\n").stringByTrimmingCharactersInSet(white), YString(u"a b \u3000\n"));
  EXPECT_EQ(YString(u" \t a b \u3000\n").stringByTrimmingCharactersInSet(whiteNewline), YString(u"a b"));
  EXPECT_EQ(YString(u" \n ").stringByTrimmingCharactersInSet(whiteNewline), YString(u""));
  EXPECT_EQ(YString(u" a ").stringByTrimmingCharactersInSet(null), YString(u" a "));
  YString source = YString::mutableStringWithString(YString(u"a"));
  YString trimmed = source.stringByTrimmingCharactersInSet(white);
  source.appendCharacter(u'b');
  EXPECT_EQ(trimmed, YString(u"a"));  // a result never tracks a mutable source
}

}  // namespace
