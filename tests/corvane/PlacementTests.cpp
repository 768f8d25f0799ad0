// Where a new option goes: after the section's last option, or after the header's line end.
#include <gtest/gtest.h>

#include "ElementTestSupport.h"
#include "YIniDocument.h"
#include "YIniSection+Placement.h"
#include "YIniStandardElementFactory.h"

namespace {

TEST(Placement, NewOptionGoesAfterTheLastOptionOrTheHeaderLineEnd) {
  struct Case {
    const char* name;
    std::vector<std::shared_ptr<YIniElement>> children;
    std::size_t index;
    const char* text;  // after inserting new=1
  };
  const std::vector<Case> cases = {
      {"empty section", {}, 0, "[s]\nnew=1\n"},
      {"header line end only", {lf()}, 1, "[s]\nnew=1\n"},
      {"CR LF header line end", {cmt("\r\n")}, 1, "[s]\r\nnew=1\n"},
      {"comments but no option", {lf(), cmt("# note"), lf()}, 1, "[s]\nnew=1\n# note\n"},
      {"first comment without line end", {cmt("# note")}, 0, "[s]\nnew=1\n# note"},
      {"comment ending in LF on the header line", {cmt("# c\n")}, 1, "[s]# c\nnew=1\n"},
      {"comments after the last option stay after it",
       {lf(), opt("a", "1"), opt("b", "2"), lf(), cmt("# end"), lf()},
       3,
       "[s]\na=1\nb=2\nnew=1\n# end\n"},
      {"comment between options",
       {lf(), opt("a", "1"), cmt("# mid"), lf(), opt("b", "2"), cmt("# end")},
       5,
       "[s]\na=1\n# mid\nb=2\nnew=1\n# end"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    auto s = sec("s", c.children);
    EXPECT_EQ(indexForNewOption(*s), c.index);
    auto option = insertOptionWithNameAndValue(*s, S("new"), S("1"));
    EXPECT_EQ(s->elements()->objectAtIndex(c.index), option);
    EXPECT_EQ(utf8(s->stringValue()), c.text);
  }
}

TEST(Placement, InsertionIsOneAnnouncedListChangeAndKeepsExistingOptions) {
  auto s = sec("s", {lf(), opt("k", "1"), cmt("# end")});
  s->commit();
  KeyObserver elements(*s, S("elements"));
  auto option = insertOptionWithNameAndValue(*s, S("k"), S("2"));  // a second k: the first is not looked for
  ASSERT_EQ(elements.count(), 1u);
  EXPECT_EQ(elements.changes[0].kind, YKeyValueChangeKind::Insertion);
  EXPECT_EQ(elements.changes[0].indexes, YIndexSet(2));
  EXPECT_EQ(dynamicType(option), typeid(YIniOption));
  EXPECT_EQ(utf8(s->valueForOptionWithName(S("k"))), "1");
  EXPECT_TRUE(s->isModified());
  s->revert();
  EXPECT_EQ(s->options()->count(), 1u);
  EXPECT_THROW(insertOptionWithNameAndValue(*s, S("x"), S("1")), YInvalidArgumentException);  // list immutable

  auto t = sec("s", {});
  EXPECT_PRECONDITION(insertOptionWithNameAndValue(*t, YString(), S("1")), "optionName != nil");
  EXPECT_PRECONDITION(insertOptionWithNameAndValue(*t, S("k"), YString()), "value != nil");
  EXPECT_EQ(t->elements()->count(), 0u);
}

TEST(Placement, LoadedSectionGetsTheOptionBeforeItsTrailingComments) {
  auto factory = YIniStandardElementFactory::standardFactory();
  auto document =
      YIniDocument::documentFromStringFactory(S("[a]\n# only a comment\n[b]\nx=1\n\n# tail\n[c]\n"), factory);
  insertOptionWithNameAndValue(*document->sectionForName(S("a")), S("new"), S("1"));
  insertOptionWithNameAndValue(*document->sectionForName(S("b")), S("y"), S("2"));
  EXPECT_EQ(utf8(document->stringValue()), "[a]\nnew=1\n# only a comment\n[b]\nx=1\ny=2\n# tail\n[c]\n");
  // The section's own setter keeps appending at the very end.
  document->sectionForName(S("b"))->setValueForOptionWithName(S("3"), S("z"));
  EXPECT_EQ(utf8(document->stringValue()), "[a]\nnew=1\n# only a comment\n[b]\nx=1\ny=2\n# tail\nz=3\n[c]\n");
}

}  // namespace
