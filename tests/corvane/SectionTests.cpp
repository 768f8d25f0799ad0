// Sections: name tracking, options by name, comments, copy, and the section writer.
#include <gtest/gtest.h>

#include "ElementTestSupport.h"
#include "YIniComment.h"
#include "YIniOption.h"
#include "YIniSection.h"
#include "YIniSectionWriter.h"
#include "YStringWriter.h"

namespace {

YString S(const char* s) { return YString(s); }
std::shared_ptr<YIniOption> option(const char* name, const char* value) {
  return YIniOption::optionWithNameAndValue(S(name), value ? S(value) : YString());
}
std::shared_ptr<YIniComment> comment(const char* text) { return YIniComment::commentWithString(S(text)); }
std::shared_ptr<YIniComment> lf() { return YIniComment::commentWithNewLine(); }

std::shared_ptr<YIniSection> section(const char* name, std::vector<std::shared_ptr<YIniElement>> children) {
  auto s = YIniSection::sectionWithName(S(name));
  for (auto& child : children) s->addElement(child);
  return s;
}

TEST(SectionName, TrackedOnItsOwn) {
  auto s = YIniSection::sectionWithName(S("a"));
  EXPECT_FALSE(s->isModified());
  KeyObserver observer(*s, YModifiedKey);
  s->setName(S("a"));
  EXPECT_EQ(observer.count(), 1u);
  EXPECT_FALSE(s->isModified());
  s->setName(S("b"));
  EXPECT_EQ(observer.count(), 2u);
  EXPECT_TRUE(observer.lastBool());
  s->revert();
  EXPECT_EQ(utf8(s->name()), "a");
  EXPECT_FALSE(s->isModified());
  s->setName(S("c"));
  s->commit();
  EXPECT_FALSE(s->isModified());
  EXPECT_EQ(utf8(s->initialName()), "c");

  auto unnamed = YIniSection::sectionWithName(YString());
  EXPECT_FALSE(unnamed->isModified());
  EXPECT_PRECONDITION(unnamed->setName(YString()), "string != nil");
  unnamed->setName(S(""));
  EXPECT_TRUE(unnamed->isModified());
  EXPECT_EQ(utf8(s->description()), "{ " + utf8(s->defaultDescription()) + ", name: \"c\" }");
}

TEST(SectionOptions, LookupsTakeTheFirstExactMatch) {
  auto s = section("s", {option("a", "1"), comment("# c"), option("a", "2"), option("key", "3")});
  EXPECT_EQ(utf8(s->valueForOptionWithName(S("a"))), "1");
  EXPECT_EQ(s->options()->count(), 3u);
  EXPECT_EQ(s->comments()->count(), 1u);
  const std::vector<std::string> expectedNames{"a", "a", "key"};
  std::vector<std::string> names;
  for (const auto& n : s->optionNames()) names.push_back(utf8(n));
  EXPECT_EQ(names, expectedNames);
  for (const char* miss : {"Key", " key", "key ", "b", ""}) {
    SCOPED_TRACE(miss);
    EXPECT_FALSE(s->hasOptionWithName(S(miss)));
    EXPECT_TRUE(s->valueForOptionWithName(S(miss)).isNull());
  }
  s->setValueForOptionWithName(S("one"), S("a"));
  EXPECT_EQ(utf8(s->options()->objectAtIndex(1)->value()), "2");
  s->removeOptionWithName(S("a"));
  EXPECT_EQ(utf8(s->valueForOptionWithName(S("a"))), "2");
  s->addElement(option(nullptr, "x"));
  EXPECT_THROW(s->optionNames(), YInvalidArgumentException);

  for (auto call : std::initializer_list<std::function<void()>>{
           [&] { s->optionWithName(YString()); }, [&] { s->hasOptionWithName(YString()); },
           [&] { s->valueForOptionWithName(YString()); }, [&] { s->setValueForOptionWithName(S("v"), YString()); },
           [&] { s->removeOptionWithName(YString()); }, [&] { s->initialOptionWithName(YString()); }})
    EXPECT_PRECONDITION(call(), "optionName != nil");
}

TEST(SectionOptions, SetValueForOptionWithName) {
  auto s = section("s", {option("old", "1"), comment("# end")});
  s->commit();
  s->addElement(option("fresh", "2"));

  s->setValueForOptionWithName(YString(), S("fresh"));  // new since the commit: removed
  EXPECT_FALSE(s->hasOptionWithName(S("fresh")));
  EXPECT_FALSE(s->isModified());

  s->setValueForOptionWithName(YString(), S("unknown"));  // nothing to do
  EXPECT_FALSE(s->isModified());
  EXPECT_EQ(s->elements()->count(), 2u);

  s->setValueForOptionWithName(YString(), S("old"));  // committed: kept with a null value
  ASSERT_TRUE(s->hasOptionWithName(S("old")));
  EXPECT_TRUE(s->valueForOptionWithName(S("old")).isNull());
  EXPECT_TRUE(s->isModified());
  EXPECT_EQ(utf8(s->stringValue()), "[s]\n# end");  // a null value is not written
  s->revert();
  EXPECT_EQ(utf8(s->valueForOptionWithName(S("old"))), "1");
  EXPECT_FALSE(s->isModified());

  auto t = section("t", {option("k", "v"), comment("# end")});
  t->setValueForOptionWithName(S("2"), S("new"));  // appended after the trailing comment
  EXPECT_EQ(typeid(*t->elements()->lastObject()), typeid(YIniOption));
  t->setValueForOptionWithName(YString(), S("k"));  // before any commit every option is new
  EXPECT_FALSE(t->hasOptionWithName(S("k")));
}

TEST(SectionOptions, InitialOptionsAndRemoveAll) {
  auto s = section("s", {comment("# a"), option("k", "1"), lf(), option("x", "2"), comment("# b")});
  s->commit();
  auto k = s->optionWithName(S("k"));
  k->setName(S("renamed"));
  s->addElement(option("late", "3"));
  EXPECT_EQ(s->initialOptions()->count(), 2u);
  EXPECT_EQ(s->initialOptionWithName(S("renamed")).get(), k.get());
  EXPECT_FALSE(s->initialOptionWithName(S("k")));
  EXPECT_FALSE(s->initialOptionWithName(S("late")));

  KeyObserver elements(*s, YElementsKey);
  s->removeAllOptions();
  EXPECT_EQ(elements.count(), 3u);
  ASSERT_EQ(s->elements()->count(), 3u);
  EXPECT_EQ(utf8(s->elements()->objectAtIndex(0)->stringValue()), "# a");
  EXPECT_EQ(utf8(s->elements()->objectAtIndex(1)->stringValue()), "\n");
  EXPECT_EQ(utf8(s->elements()->objectAtIndex(2)->stringValue()), "# b");
}

TEST(SectionComments, AddRemoveAndRuns) {
  struct Case {
    const char* name;
    const char* text;
    std::int32_t index;
    std::size_t remaining;
  };
  // Children: option, LF, LF, "# c", LF
  const Case cases[] = {
      {"run of blank lines", "\n", 1, 3}, {"at an option", "\n", 0, 5},   {"negative index", "\n", -1, 5},
      {"index == count", "\n", 5, 5},     {"null string", nullptr, 1, 5}, {"single match", "# c", 3, 4},
      {"not at the index", "# c", 2, 5},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    auto s = section("s", {option("k", "v"), lf(), lf(), comment("# c"), lf()});
    s->removeCommentsStartingAtIndex(c.text ? S(c.text) : YString(), c.index);
    EXPECT_EQ(s->elements()->count(), c.remaining);
  }
  auto s = YIniSection::sectionWithName(S("s"));
  auto c1 = comment("# 1");
  s->addElement(option("k", "v"));
  s->addComment(c1);
  EXPECT_EQ(s->elements()->lastObject().get(), c1.get());
  EXPECT_PRECONDITION(s->addComment(nullptr), "comment != nil");
  EXPECT_PRECONDITION(s->removeComment(nullptr), "comment != nil");
  EXPECT_PRECONDITION(s->removeComment(comment("# 1")), "index >= 0 && index < [elements count]");
  s->removeComment(c1);
  EXPECT_EQ(s->comments()->count(), 0u);
}

TEST(SectionCopy, TakesTheCommittedName) {
  auto s = section("a", {option("k", "v"), comment("# c")});
  s->commit();
  s->setName(S("b"));
  s->optionWithName(S("k"))->setValue(S("changed"));
  auto copy = YCast<YIniSection>(s->copyWithZone());
  ASSERT_TRUE(copy);
  EXPECT_EQ(utf8(copy->name()), "a");
  EXPECT_EQ(utf8(copy->initialName()), "a");
  EXPECT_FALSE(copy->isModified());
  EXPECT_EQ(utf8(copy->valueForOptionWithName(S("k"))), "changed");
  EXPECT_NE(copy->optionWithName(S("k")).get(), s->optionWithName(S("k")).get());
}

TEST(SectionAfterRevert, ListChangesFailValueChangesWork) {
  auto s = section("s", {option("k", "v"), lf()});
  s->commit();
  s->revert();
  s->setValueForOptionWithName(S("w"), S("k"));
  s->setName(S("t"));
  EXPECT_EQ(utf8(s->stringValue()), "[t]\nk=w\n");
  EXPECT_THROW(s->setValueForOptionWithName(S("1"), S("new")), YInvalidArgumentException);
  EXPECT_THROW(s->addComment(comment("# x")), YInvalidArgumentException);
  EXPECT_THROW(s->removeCommentsStartingAtIndex(S("\n"), 1), YInvalidArgumentException);
}

// ---- section writer --------------------------------------------------------

TEST(SectionWriter, LineEndRule) {
  struct Case {
    const char* name;
    std::vector<std::shared_ptr<YIniElement>> children;
    const char* expected;
  };
  const Case cases[] = {
      {"empty", {}, "[a]"},
      {"header line end from a comment", {lf(), option("k", "v")}, "[a]\nk=v\n"},
      {"options only", {option("k", "v"), option("x", "1")}, "[a]\nk=v\nx=1\n"},
      {"comment without LF", {lf(), option("k", "v"), comment("# c"), lf(), option("x", "1")},
       "[a]\nk=v\n# c\nx=1\n"},
      {"trailing LF comment supplies the line end", {lf(), option("k", "v"), lf()}, "[a]\nk=v\n"},
      {"comment ending in LF after the header", {comment("# c\n"), option("k", "v")}, "[a]# c\nk=v\n"},
      {"CR LF comment counts", {comment("\r\n"), option("k", "v")}, "[a]\r\nk=v\n"},
      {"empty comment is no line end", {comment(""), option("k", "v")}, "[a]\nk=v\n"},
      {"null value left out", {lf(), option("a", "1"), option("k", nullptr), option("x", "2")},
       "[a]\na=1\nx=2\n"},
      {"null and blank names left out", {option(nullptr, "1"), option(" \t", "2"), option("k", "v")},
       "[a]\nk=v\n"},
      {"trailing comment ends the text", {option("k", "v"), comment("# end")}, "[a]\nk=v\n# end"},
      {"other elements skipped", {std::make_shared<YIniSection>(S("inner")), option("k", "v")}, "[a]\nk=v\n"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    auto s = section("a", c.children);
    EXPECT_EQ(utf8(s->stringValue()), c.expected);
    for (bool writeOptions : {false, true}) {
      YString target = YString::mutableString();
      YIniSectionWriter::writerWithSectionWriteOptions(s, writeOptions)->write(YStringWriter::writerWithString(target));
      EXPECT_EQ(utf8(target), c.expected);
    }
  }
  EXPECT_EQ(utf8(YIniSection::sectionWithName(YString())->stringValue()), "[(null)]");
}

TEST(SectionWriter, TrimsOptionNamesThroughSetName) {
  auto s = section("a", {option("  k\t", "v"), option("x", "1")});
  s->commit();
  auto k = s->optionWithName(S("  k\t"));
  auto x = s->optionWithName(S("x"));
  KeyObserver kObserver(*k, YModifiedKey);
  KeyObserver xObserver(*x, YModifiedKey);
  EXPECT_EQ(utf8(s->stringValue()), "[a]\nk=v\nx=1\n");
  EXPECT_EQ(utf8(k->name()), "k");
  EXPECT_TRUE(k->isModified());  // modified by being written
  EXPECT_TRUE(s->isModified());
  EXPECT_EQ(kObserver.count(), 1u);
  EXPECT_EQ(xObserver.count(), 1u);  // announced even though nothing changed
  EXPECT_FALSE(x->isModified());

  auto lineEndName = section("a", {option("k\n", "v")});
  EXPECT_EQ(lineEndName->stringValue().u16string(), u"[a]\nk\n=v\n");  // line ends are not trimmed
}

TEST(SectionWriter, NewLineAtIndexAndPreconditions) {
  auto s = section("a", {lf(), option("k", "v"), comment("# c")});
  YIniSectionWriter writer(s, true);
  EXPECT_TRUE(writer.newLineAtAtIndex(0));
  EXPECT_FALSE(writer.newLineAtAtIndex(1));
  EXPECT_FALSE(writer.newLineAtAtIndex(2));
  EXPECT_FALSE(writer.newLineAtAtIndex(3));
  EXPECT_FALSE(writer.newLineAtAtIndex(-1));

  RecordingScope recording;
  YIniSectionWriter(nullptr, true);
  writer.write(nullptr);
  ASSERT_EQ(recording.handler->failures.size(), 2u);
  EXPECT_EQ(recording.handler->failures[0].line, 49);
  EXPECT_EQ(recording.handler->failures[0].description, "Invalid parameter not satisfying: sectionValue != nil");
  EXPECT_EQ(recording.handler->failures[1].line, 98);
  EXPECT_EQ(recording.handler->failures[1].unit, "YIniSectionWriter");
  EXPECT_EQ(recording.handler->failures[1].description, "Invalid parameter not satisfying: textWriter != nil");
}

}  // namespace
