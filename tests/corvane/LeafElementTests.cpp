// Comments and options: state, change tracking, announcements, copies.
#include <gtest/gtest.h>

#include <functional>

#include "ElementTestSupport.h"
#include "YIniComment.h"
#include "YIniOption.h"

namespace {

class HostComment : public YIniComment {
 public:
  using YIniComment::YIniComment;
};

class HostOption : public YIniOption {
 public:
  using YIniOption::YIniOption;

 protected:
  std::shared_ptr<YIniOption> makeOptionWithNameAndValue(const YString& name, const YString& value) const override {
    return std::make_shared<HostOption>(name, value);
  }
};

TEST(LeafAnnouncements, EveryChangeAnnouncesModifiedOnceAfterwards) {
  struct Case {
    const char* name;
    std::function<void(YIniOption&, YIniComment&)> act;
    bool optionModified, commentModified;
    std::size_t optionNotes, commentNotes;  // notifications expected
  };
  const Case cases[] = {
      {"setName equal", [](YIniOption& o, YIniComment&) { o.setName(YString("k")); }, false, false, 1, 0},
      {"setName other", [](YIniOption& o, YIniComment&) { o.setName(YString("j")); }, true, false, 1, 0},
      {"setValue", [](YIniOption& o, YIniComment&) { o.setValue(YString("w")); }, true, false, 1, 0},
      {"setValue null", [](YIniOption& o, YIniComment&) { o.setValue(YString()); }, true, false, 1, 0},
      {"revert unmodified", [](YIniOption& o, YIniComment& c) { o.revert(), c.revert(); }, false, false, 1, 1},
      {"commit unmodified", [](YIniOption& o, YIniComment& c) { o.commit(), c.commit(); }, false, false, 1, 1},
      {"setStringValue", [](YIniOption&, YIniComment& c) { c.setStringValue(YString("; x")); }, false, true, 0, 1},
      {"setStringValue equal", [](YIniOption&, YIniComment& c) { c.setStringValue(YString("# c")); }, false, false,
       0, 1},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    auto option = YIniOption::optionWithNameAndValue(YString("k"), YString("v"));
    auto comment = YIniComment::commentWithString(YString("# c"));
    KeyObserver optionObserver(*option, YModifiedKey);
    KeyObserver commentObserver(*comment, YModifiedKey);
    c.act(*option, *comment);
    EXPECT_EQ(option->isModified(), c.optionModified);
    EXPECT_EQ(comment->isModified(), c.commentModified);
    ASSERT_EQ(optionObserver.count(), c.optionNotes);
    ASSERT_EQ(commentObserver.count(), c.commentNotes);
    if (c.optionNotes) {
      EXPECT_EQ(optionObserver.changes[0].kind, YKeyValueChangeKind::Setting);
      EXPECT_EQ(optionObserver.lastBool(), c.optionModified);
    }
    if (c.commentNotes) {
      EXPECT_EQ(commentObserver.lastBool(), c.commentModified);
    }
  }
}

TEST(LeafModified, NullAndEmptyDiffer) {
  struct Case {
    const char* name;
    YString initialName, initialValue, name2, value2;
    bool modified;
  };
  const YString null;
  const Case cases[] = {
      {"same", YString("k"), YString("v"), YString("k"), YString("v"), false},
      {"value absent to empty", YString("k"), null, YString("k"), YString(""), true},
      {"value empty to absent", YString("k"), YString(""), YString("k"), null, true},
      {"both values absent", YString("k"), null, YString("k"), null, false},
      {"name absent to empty", null, YString("v"), YString(""), YString("v"), true},
      {"name present to absent", YString("k"), YString("v"), null, YString("v"), true},
      {"name changed only", YString("k"), YString("v"), YString("K"), YString("v"), true},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    auto option = YIniOption::optionWithNameAndValue(c.initialName, c.initialValue);
    EXPECT_FALSE(option->isModified());
    option->setName(c.name2);
    option->setValue(c.value2);
    EXPECT_EQ(option->isModified(), c.modified);
  }
  auto comment = YIniComment::commentWithString(null);
  EXPECT_FALSE(comment->isModified());
  comment->setStringValue(YString(""));
  EXPECT_TRUE(comment->isModified());
  comment->setStringValue(null);
  EXPECT_FALSE(comment->isModified());
}

TEST(LeafModified, ChangesSetBackAreNotModifiedAndRevertCommitWork) {
  auto option = YIniOption::optionWithNameAndValue(YString("k"), YString("v"));
  option->setName(YString("x"));
  option->setValue(YString("y"));
  option->setName(YString("k"));
  option->setValue(YString("v"));
  EXPECT_FALSE(option->isModified());

  option->setValue(YString("new"));
  option->commit();
  option->setValue(YString("other"));
  option->revert();
  EXPECT_EQ(utf8(option->value()), "new");

  auto absent = YIniOption::optionWithNameAndValue(YString("k"), YString());
  absent->setValue(YString("v"));
  absent->revert();
  EXPECT_TRUE(absent->value().isNull());

  auto empty = YIniOption::option();
  EXPECT_EQ(utf8(empty->name()), "");
  EXPECT_TRUE(empty->value().isNull());
  EXPECT_FALSE(empty->isModified());
  empty->setValue(YString(""));
  EXPECT_TRUE(empty->isModified());

  auto comment = YIniComment::commentWithString(YString("# a"));
  comment->setStringValue(YString("# b"));
  comment->revert();
  EXPECT_EQ(utf8(comment->stringValue()), "# a");
}

TEST(LeafStrings, SettersKeepTheCallersObjectSnapshotsAreCopies) {
  YString name = YString::mutableStringWithString(YString("k"));
  YString value = YString::mutableStringWithString(YString("v"));
  auto option = YIniOption::optionWithNameAndValue(name, value);
  EXPECT_TRUE(option->name().isIdenticalTo(name));
  EXPECT_FALSE(option->initialName().isIdenticalTo(name));
  value.appendString(YString("2"));  // the constructor kept the caller's object
  EXPECT_EQ(utf8(option->value()), "v2");
  EXPECT_EQ(utf8(option->initialValue()), "v");
  EXPECT_TRUE(option->isModified());

  YString later = YString::mutableStringWithString(YString("a"));
  option->setValue(later);
  later.appendString(YString("b"));
  EXPECT_EQ(utf8(option->value()), "ab");
  option->commit();
  later.appendString(YString("c"));
  EXPECT_EQ(utf8(option->initialValue()), "ab");  // commit took a copy
  EXPECT_TRUE(option->isModified());
  option->revert();
  EXPECT_FALSE(option->value().isIdenticalTo(later));

  YString text = YString::mutableStringWithString(YString("# x"));
  auto comment = YIniComment::commentWithString(text);
  EXPECT_TRUE(comment->stringValue().isIdenticalTo(text));
  text.appendString(YString("y"));
  EXPECT_TRUE(comment->isModified());
}

TEST(LeafCopies, CopiesAreUnmodifiedAndOfTheRightClass) {
  auto option = YIniOption::optionWithNameAndValue(YString("k"), YString("v"));
  option->setValue(YString("w"));
  auto copy = YCast<YIniOption>(option->copyWithZone());
  ASSERT_TRUE(copy);
  EXPECT_NE(copy.get(), option.get());
  EXPECT_FALSE(copy->isModified());
  EXPECT_EQ(utf8(copy->initialValue()), "w");
  EXPECT_TRUE(option->isModified());

  auto hostOption = YIniOption::optionWithNameAndValue<HostOption>(YString("k"), YString("v"));
  EXPECT_TRUE(hostOption->copyWithZone()->isKindOfClass<HostOption>());
  EXPECT_TRUE(YIniOption::option<HostOption>()->isKindOfClass<HostOption>());

  auto hostComment = std::make_shared<HostComment>(YString("# c"));
  auto commentCopy = hostComment->copyWithZone();
  EXPECT_EQ(typeid(*commentCopy), typeid(YIniComment));
  EXPECT_EQ(utf8(commentCopy->stringValue()), "# c");
  EXPECT_EQ(typeid(*YIniComment::commentWithString(YString("x"))), typeid(YIniComment));
}

TEST(LeafText, NewLineCommentAndDescription) {
  EXPECT_EQ(YIniComment::commentWithNewLine()->stringValue().u16string(), u"\n");
  auto option = YIniOption::optionWithNameAndValue(YString("k"), YString());
  const std::string description = utf8(option->description());
  const std::string generic = utf8(option->defaultDescription());
  EXPECT_EQ(description, "{ " + generic + ", name: \"k\", value: \"(null)\" }");
  EXPECT_EQ(utf8(option->stringValue()), "k=");
}

}  // namespace
