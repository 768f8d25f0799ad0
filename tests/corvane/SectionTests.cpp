// Sections: name tracking, options by name, comments, copy, and the section writer.
#include <gtest/gtest.h>

#include <functional>

#include "ElementTestSupport.h"
#include "YIniSection.h"
#include "YIniSectionWriter.h"
#include "YStringWriter.h"

namespace {

TEST(Section, NameHasItsOwnChangeTracking) {
  auto s = YIniSection::sectionWithName(S("a"));
  KeyObserver observer(*s, YModifiedKey);
  s->setName(S("a"));
  s->setName(S("b"));
  EXPECT_EQ(observer.count(), 2u);
  EXPECT_TRUE(observer.lastBool());
  s->revert();
  EXPECT_EQ(utf8(s->name()), "a");
  EXPECT_FALSE(observer.lastBool());
  EXPECT_EQ(utf8(s->description()), "{ " + utf8(s->defaultDescription()) + ", name: \"a\" }");

  auto unnamed = YIniSection::sectionWithName(YString());
  EXPECT_PRECONDITION(unnamed->setName(YString()), "string != nil");
  unnamed->setName(S(""));
  EXPECT_TRUE(unnamed->isModified());
}

TEST(Section, LookupsTakeTheFirstExactMatch) {
  auto s = sec("s", {opt("a", "1"), cmt("# c"), opt("a", "2"), opt("key", "3")});
  EXPECT_EQ(utf8(s->valueForOptionWithName(S("a"))), "1");
  EXPECT_EQ(s->comments()->count(), 1u);
  EXPECT_EQ(strings(s->optionNames()), (std::vector<std::string>{"a", "a", "key"}));
  for (const char* miss : {"Key", " key", "b", ""}) EXPECT_FALSE(s->hasOptionWithName(S(miss))) << miss;
  s->setValueForOptionWithName(S("one"), S("a"));
  s->removeOptionWithName(S("a"));
  EXPECT_EQ(utf8(s->valueForOptionWithName(S("a"))), "2");

  for (const auto& call : std::vector<std::function<void()>>{
           [&] { (void)s->optionWithName(YString()); }, [&] { (void)s->hasOptionWithName(YString()); },
           [&] { (void)s->valueForOptionWithName(YString()); }, [&] { s->setValueForOptionWithName(S("v"), YString()); },
           [&] { s->removeOptionWithName(YString()); }, [&] { (void)s->initialOptionWithName(YString()); }})
    EXPECT_PRECONDITION(call(), "optionName != nil");
}

TEST(Section, SetNullValueRemovesANewOptionAndKeepsACommittedOne) {
  auto s = sec("s", {opt("old", "1"), cmt("# end")});
  s->commit();
  s->addElement(opt("fresh", "2"));
  s->setValueForOptionWithName(YString(), S("fresh"));
  EXPECT_FALSE(s->hasOptionWithName(S("fresh")));
  EXPECT_FALSE(s->isModified());
  s->setValueForOptionWithName(YString(), S("unknown"));  // nothing to remove, nothing added
  EXPECT_EQ(s->elements()->count(), 2u);
  EXPECT_FALSE(s->isModified());

  s->setValueForOptionWithName(YString(), S("old"));
  ASSERT_TRUE(s->hasOptionWithName(S("old")));
  EXPECT_TRUE(s->valueForOptionWithName(S("old")).isNull());
  EXPECT_EQ(utf8(s->stringValue()), "[s]\n# end");  // a null value is not written
  s->revert();
  EXPECT_EQ(utf8(s->valueForOptionWithName(S("old"))), "1");

  auto t = sec("t", {opt("k"), cmt("# end")});
  t->setValueForOptionWithName(S("2"), S("new"));  // appended after the trailing comment
  EXPECT_EQ(dynamicType(t->elements()->lastObject()), typeid(YIniOption));
}

TEST(Section, InitialOptionsAndRemoveAllOptions) {
  auto k = opt("k", "1");
  auto s = sec("s", {cmt("# a"), k, lf(), opt("x", "2")});
  s->commit();
  k->setName(S("renamed"));  // found among the committed options by its current name
  s->addElement(opt("late", "3"));
  EXPECT_EQ(s->initialOptionWithName(S("renamed")), k);
  EXPECT_FALSE(s->initialOptionWithName(S("late")));
  s->removeAllOptions();
  EXPECT_EQ(utf8(s->stringValue()), "[s]\n# a\n");
}

TEST(Section, RemoveCommentsStartingAtIndex) {
  // Children: option, LF, LF, "# c", LF
  const std::vector<std::tuple<const char*, std::int32_t, std::size_t>> cases = {
      {"\n", 1, 3}, {"\n", 0, 5}, {"\n", -1, 5}, {"\n", 5, 5}, {nullptr, 1, 5}, {"# c", 3, 4}, {"# c", 2, 5}};
  for (const auto& [text, index, remaining] : cases) {
    auto s = sec("s", {opt("k"), lf(), lf(), cmt("# c"), lf()});
    s->removeCommentsStartingAtIndex(S(text), index);
    EXPECT_EQ(s->elements()->count(), remaining) << "at " << index;
  }
  auto s = sec("s", {opt("k")});
  auto c1 = cmt("# 1");
  s->addComment(c1);
  EXPECT_PRECONDITION(s->addComment(nullptr), "comment != nil");
  EXPECT_PRECONDITION(s->removeComment(nullptr), "comment != nil");
  EXPECT_PRECONDITION(s->removeComment(cmt("# 1")), "index >= 0 && index < [elements count]");
  s->removeComment(c1);
  EXPECT_EQ(s->comments()->count(), 0u);
}

TEST(Section, CopyTakesTheCommittedName) {
  auto s = sec("a", {opt("k"), cmt("# c")});
  s->commit();
  s->setName(S("b"));
  s->optionWithName(S("k"))->setValue(S("changed"));
  auto copy = YCast<YIniSection>(s->copyWithZone());
  ASSERT_TRUE(copy);
  EXPECT_EQ(utf8(copy->name()), "a");
  EXPECT_FALSE(copy->isModified());
  EXPECT_EQ(utf8(copy->valueForOptionWithName(S("k"))), "changed");
}

// A writer of the host's own class: it counts its write calls.
struct CountingWriter : YStringWriter {
  using YStringWriter::YStringWriter;
  std::size_t writes = 0;
  void write(const YString& string) override {
    ++writes;
    YStringWriter::write(string);
  }
};

TEST(SectionWriter, LineEndRule) {
  const std::vector<std::tuple<const char*, std::vector<std::shared_ptr<YIniElement>>, const char*>> cases = {
      {"empty", {}, "[a]"},
      {"comment without LF", {lf(), opt("k"), cmt("# c"), lf(), opt("x", "1")}, "[a]\nk=v\n# c\nx=1\n"},
      {"trailing LF comment supplies the line end", {lf(), opt("k"), lf()}, "[a]\nk=v\n"},
      {"comment ending in LF after the header", {cmt("# c\n"), opt("k")}, "[a]# c\nk=v\n"},
      {"empty comment is no line end", {cmt(""), opt("k")}, "[a]\nk=v\n"},
      {"null value left out", {lf(), opt("a", "1"), opt("k", nullptr), opt("x", "2")}, "[a]\na=1\nx=2\n"},
      {"null and blank names left out", {opt(nullptr, "1"), opt(" \t", "2"), opt("k")}, "[a]\nk=v\n"},
      {"trailing comment ends the text", {opt("k"), cmt("# end")}, "[a]\nk=v\n# end"},
      {"comment starting with LF is no line end", {opt("k"), cmt("\n# c"), opt("x", "1")}, "[a]\nk=v\n\n# cx=1\n"},
      {"other elements skipped", {std::make_shared<YIniSection>(S("inner")), opt("k")}, "[a]\nk=v\n"},
  };
  for (const auto& [name, children, expected] : cases) {
    for (bool hostComments : {false, true}) {
      SCOPED_TRACE(std::string(name) + (hostComments ? ", host comments" : ""));
      std::vector<std::shared_ptr<YIniElement>> elements;
      for (const auto& child : children) {
        auto* comment = YCast<YIniComment>(child.get());
        elements.push_back(hostComments && comment ? std::make_shared<HostComment>(comment->stringValue()) : child);
      }
      auto s = sec("a", elements);
      for (bool writeOptions : {false, true})
        for (bool hostWriter : {false, true}) {
          // A host's writer gets the same text, through its own write calls.
          YString target = YString::mutableString();
          auto writer = hostWriter ? std::make_shared<CountingWriter>(target) : YStringWriter::writerWithString(target);
          YIniSectionWriter::writerWithSectionWriteOptions(s, writeOptions)->write(writer);
          EXPECT_EQ(utf8(target), expected);
          EXPECT_TRUE(!hostWriter || static_cast<CountingWriter&>(*writer).writes > 0);
        }
      EXPECT_EQ(utf8(s->stringValue()), expected);
    }
  }
  EXPECT_EQ(utf8(YIniSection::sectionWithName(YString())->stringValue()), "[(null)]");
}

TEST(SectionWriter, WritingTrimsOptionNamesThroughSetName) {
  auto k = opt("  k\t"), x = opt("x", "1");
  auto s = sec("a", {k, x, opt("n\n")});
  s->commit();
  KeyObserver kObserver(*k, YModifiedKey), xObserver(*x, YModifiedKey);
  EXPECT_EQ(s->stringValue().u16string(), u"[a]\nk=v\nx=1\nn\n=v\n");  // line ends are not trimmed
  EXPECT_TRUE(k->isModified());  // modified by being written
  EXPECT_TRUE(s->isModified());
  EXPECT_EQ(kObserver.count(), 1u);
  EXPECT_EQ(xObserver.count(), 1u);  // announced even though nothing changed
  EXPECT_FALSE(x->isModified());
}

TEST(SectionWriter, AHostCommentIsAskedForItsTextAfterTheLineBeforeIt) {
  // A host's code may look at what has been written so far.
  struct WatchingComment : YIniComment {
    using YIniComment::YIniComment;
    YString* target = nullptr;
    std::vector<std::u16string> seen;
    YString stringValue() override {
      if (target) seen.push_back(target->u16string());
      return YIniComment::stringValue();
    }
  };
  auto watcher = std::make_shared<WatchingComment>(S("# c\n"));
  YString text = YString::mutableString();
  watcher->target = &text;
  YIniSectionWriter(sec("a", {opt("k"), watcher}), true).write(YStringWriter::writerWithString(text));
  ASSERT_FALSE(watcher->seen.empty());
  EXPECT_EQ(watcher->seen.front(), u"[a]\nk=v");
  EXPECT_EQ(text.u16string(), u"[a]\nk=v# c\n");
}

TEST(SectionWriter, NewLineAtIndexAndPreconditions) {
  YIniSectionWriter writer(sec("a", {lf(), opt("k"), cmt("# c")}), true);
  for (int i : {-1, 0, 1, 2, 3}) EXPECT_EQ(writer.newLineAtAtIndex(i), i == 0) << i;

  RecordingScope recording;
  YIniSectionWriter(nullptr, true);
  writer.write(nullptr);
  EXPECT_EQ(recording.handler->texts(),
            (std::vector<std::string>{"YIniSectionWriter:49:Invalid parameter not satisfying: sectionValue != nil",
                                      "YIniSectionWriter:98:Invalid parameter not satisfying: textWriter != nil"}));
}

}  // namespace
