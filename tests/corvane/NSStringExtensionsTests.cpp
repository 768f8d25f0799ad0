// The string and list extensions: edge cases and precondition failures.
#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

#include "ElementTestSupport.h"
#include "NSString+Extensions.h"
#include "YFoundation.h"

namespace {

class Base : public YObject {};
class Derived : public Base {};
class Other : public YObject {};

const YCharacterSet kWhite = YCharacterSet::whitespaceCharacterSet();

TEST(NSStringExtensionsTest, StartAndEndTests) {
  for (const YString& s : {YString(u""), YString()}) {
    EXPECT_FALSE(startsWithCharacter(s, u'\0') || endsWithCharacter(s, u'\0'));
    EXPECT_FALSE(startsWithCharacterSet(s, kWhite.invertedSet()));
  }
  EXPECT_TRUE(startsWithCharacter(YString(u"x"), u'x') && endsWithCharacter(YString(u"x"), u'x'));
  EXPECT_FALSE(startsWithCharacter(YString(u"abc"), u'A'));  // no case folding
  EXPECT_FALSE(endsWithCharacter(YString(u"abc\n"), u'c'));
  // One code unit is compared: the halves of a surrogate pair.
  const YString emoji("\xF0\x9F\x98\x80");
  EXPECT_TRUE(startsWithCharacter(emoji, 0xD83D) && endsWithCharacter(emoji, 0xDE00));
  EXPECT_TRUE(startsWithCharacterSet(YString(u"\tx"), kWhite));
  EXPECT_FALSE(startsWithCharacterSet(YString(u"x "), kWhite));
  EXPECT_FALSE(startsWithCharacterSet(YString(u"\nx"), kWhite));
}

TEST(NSStringExtensionsTest, ReplacingCharactersInASet) {
  const YString source = YString::mutableStringWithString(YString(u"a \t\u3000b"));
  YString result = stringByReplacingCharactersInSetWithCharacter(source, kWhite, u'_');
  source.appendCharacter(u'!');
  EXPECT_EQ(result, YString(u"a___b"));  // one for one, and a new string, not a view of the receiver
  EXPECT_TRUE(result.isMutable());
  // A replacement that is itself in the set is not replaced again.
  EXPECT_EQ(stringByReplacingCharactersInSetWithCharacter(source, kWhite, u' '), YString(u"a   b!"));
  YString fromEmpty = stringByReplacingCharactersInSetWithCharacter(YString(u""), kWhite, u'_');
  EXPECT_EQ(fromEmpty, YString(u""));
  EXPECT_TRUE(fromEmpty.isMutable());
}

TEST(NSStringExtensionsTest, SingleLineString) {
  const std::pair<std::u16string, std::u16string> cases[] = {
      {u"", u""},           {u"a\r\nb", u"a b"},   {u"a\r\n b", u"a b"},     {u"a\r", u"a\r"},
      {u"a\rb", u"a\rb"},   {u"\n", u""},          {u"\nb", u" b"},          {u"a\r\n", u"a"},
      {u"a\n   b", u"a   b"}, {u"a\n\nb", u"a  b"}, {u"a\n\n", u"a "},       {u"a\r\r\nb", u"a\r b"},
      {u"a\tb \n\tc", u"a\tb  \tc"}, {u"path=/usr\n /opt", u"path=/usr /opt"},
  };
  for (const auto& [in, out] : cases) {
    YString result = singleLineString(YString(in));
    EXPECT_EQ(result, YString(out)) << testing::PrintToString(YString(in));
    EXPECT_TRUE(result.isMutable());
  }
}

TEST(NSStringExtensionsTest, NullSetFailsThePrecondition) {
  EXPECT_PRECONDITION(startsWithCharacterSet(YString(u""), YCharacterSet()), "set != nil");  // even on an empty string

  // A handler that returns: the operation goes on with a set that holds nothing.
  RecordingScope recording;
  EXPECT_FALSE(startsWithCharacterSet(YString(u" x"), YCharacterSet()));
  EXPECT_EQ(stringByReplacingCharactersInSetWithCharacter(YString(u"a b"), YCharacterSet(), u'_'), YString(u"a b"));
  EXPECT_EQ(recording.handler->texts(),
            (std::vector<std::string>{"NSString+Extensions:10:Invalid parameter not satisfying: set != nil",
                                      "NSString+Extensions:26:Invalid parameter not satisfying: charSet != nil"}));
}

TEST(NSStringExtensionsTest, ArrayWithObjectsOfClass) {
  auto base = std::make_shared<Base>();
  auto derived = std::make_shared<Derived>(), derived2 = std::make_shared<Derived>();
  auto list = YArray<YObject>::arrayWithObjects({base, derived, std::make_shared<Other>(), derived2});
  using Objects = std::vector<std::shared_ptr<YObject>>;

  auto bases = arrayWithObjectsOfClass<Base>(list);  // subclasses included
  EXPECT_TRUE(bases->isMutable());
  EXPECT_EQ(Objects(bases->vector().begin(), bases->vector().end()), (Objects{base, derived, derived2}));
  EXPECT_EQ(arrayWithObjectsOfClass<Derived>(list)->count(), 2u);
  auto all = arrayWithObjectsOfClass<YObject>(list);
  EXPECT_EQ(all->vector(), list->vector());
  EXPECT_NE(all.get(), list.get());  // a new list, not the receiver
  EXPECT_EQ(arrayWithObjectsOfClass<Base>(YArray<YObject>::mutableArray())->count(), 0u);
}

}  // namespace
