// Comments and options: change tracking, announcements, strings, copies.
#include <gtest/gtest.h>

#include "ElementTestSupport.h"

namespace {

class HostOption : public YIniOption {
 public:
  using YIniOption::YIniOption;

 protected:
  std::shared_ptr<YIniOption> makeOptionWithNameAndValue(const YString& name, const YString& value) const override {
    return std::make_shared<HostOption>(name, value);
  }
};

TEST(Leaf, EverySetterRevertAndCommitAnnouncesOnce) {
  using Act = std::function<void(YIniOption&, YIniComment&)>;
  const std::vector<std::tuple<const char*, Act, bool>> cases = {  // ..., modified after
      {"equal", [](YIniOption& o, YIniComment& c) { o.setName(S("k")), c.setStringValue(S("# c")); }, false},
      {"other", [](YIniOption& o, YIniComment& c) { o.setName(S("j")), c.setStringValue(S("; x")); }, true},
      {"null", [](YIniOption& o, YIniComment& c) { o.setValue(YString()), c.setStringValue(YString()); }, true},
      {"revert unmodified", [](YIniOption& o, YIniComment& c) { o.revert(), c.revert(); }, false},
      {"commit unmodified", [](YIniOption& o, YIniComment& c) { o.commit(), c.commit(); }, false},
  };
  for (const auto& [name, act, modified] : cases) {
    SCOPED_TRACE(name);
    auto option = opt("k");
    auto comment = cmt("# c");
    KeyObserver optionObserver(*option, YModifiedKey), commentObserver(*comment, YModifiedKey);
    act(*option, *comment);
    for (const KeyObserver* observer : {&optionObserver, &commentObserver}) {
      ASSERT_EQ(observer->count(), 1u);
      EXPECT_EQ(observer->changes[0].kind, YKeyValueChangeKind::Setting);
      EXPECT_EQ(observer->lastBool(), modified);
    }
    EXPECT_EQ(option->isModified(), modified);
    EXPECT_EQ(comment->isModified(), modified);
  }
}

TEST(Leaf, NullAndEmptyDifferAndRevertCommitRestoreAndDescriptionsShowThem) {
  const std::vector<std::tuple<const char*, const char*, bool>> values = {
      {nullptr, "", true}, {"", nullptr, true}, {nullptr, nullptr, false}, {"v", "v", false}};
  for (const auto& [initial, later, modified] : values) {
    auto option = opt("k", initial);
    option->setValue(S(later));
    EXPECT_EQ(option->isModified(), modified) << utf8(S(initial)) << " -> " << utf8(S(later));
    option->revert();
    EXPECT_EQ(option->value().isNull(), initial == nullptr);
  }
  auto unnamed = opt(nullptr);
  auto blank = cmt(nullptr);
  unnamed->setName(S(""));
  blank->setStringValue(S(""));
  EXPECT_TRUE(unnamed->isModified() && blank->isModified());

  auto option = YIniOption::option();
  EXPECT_EQ(utf8(option->name()) + "=" + utf8(option->value()), "=<null>");
  auto described = opt("k", nullptr);
  EXPECT_EQ(utf8(described->description()),
            "{ " + utf8(described->defaultDescription()) + ", name: \"k\", value: \"(null)\" }");
  option->setValue(S("new"));
  option->commit();
  option->setValue(S("other"));
  option->revert();
  EXPECT_EQ(utf8(option->value()), "new");
}

TEST(Leaf, SettersKeepTheCallersStringSnapshotsAreCopies) {
  YString name = YString::mutableStringWithString(S("k")), value = YString::mutableStringWithString(S("v"));
  auto option = YIniOption::optionWithNameAndValue(name, value);
  EXPECT_TRUE(option->name().isIdenticalTo(name));
  EXPECT_FALSE(option->initialName().isIdenticalTo(name));
  value.appendString(S("2"));
  EXPECT_EQ(utf8(option->value()) + "/" + utf8(option->initialValue()), "v2/v");
  EXPECT_TRUE(option->isModified());
  option->commit();
  value.appendString(S("3"));
  EXPECT_EQ(utf8(option->initialValue()), "v2");
  option->revert();
  EXPECT_FALSE(option->value().isIdenticalTo(value));
  auto comment = YIniComment::commentWithString(name);
  EXPECT_TRUE(comment->stringValue().isIdenticalTo(name));
  name.appendString(S("!"));  // the comment's text, not its initial one
  EXPECT_EQ(utf8(comment->stringValue()), "k!");
  EXPECT_TRUE(comment->isModified());
}

TEST(Leaf, CopiesAreCommittedCommentsAlwaysPlainOptionsKeepTheirClass) {
  auto option = opt("k");
  option->setValue(S("w"));
  auto copy = YCast<YIniOption>(option->copyWithZone());
  ASSERT_TRUE(copy && copy != option);
  EXPECT_FALSE(copy->isModified());
  EXPECT_EQ(utf8(copy->initialValue()), "w");

  auto hostOption = YIniOption::optionWithNameAndValue<HostOption>(S("k"), S("v"));
  EXPECT_TRUE(hostOption->copyWithZone()->isKindOfClass<HostOption>());
  EXPECT_TRUE(YIniOption::option<HostOption>()->isKindOfClass<HostOption>());
  auto hostComment = std::make_shared<HostComment>(S("# c"));
  hostComment->setStringValue(S("# d"));
  auto commentCopy = hostComment->copyWithZone();
  EXPECT_EQ(dynamicType(commentCopy), typeid(YIniComment));
  EXPECT_EQ(utf8(commentCopy->stringValue()), "# d");  // the current text
  EXPECT_FALSE(commentCopy->isModified());
  EXPECT_EQ(dynamicType(YIniComment::commentWithString(S("x"))), typeid(YIniComment));
}

}  // namespace
