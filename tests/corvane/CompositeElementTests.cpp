// The composite element: list changes, observation, revert, commit, copy.
#include <gtest/gtest.h>

#include "ElementTestSupport.h"
#include "YIniComment.h"
#include "YIniCompositeElement.h"
#include "YIniOption.h"

namespace {

using List = YIniCompositeElement::ElementList;

std::shared_ptr<YIniCompositeElement> composite() { return std::make_shared<YIniCompositeElement>(); }
std::shared_ptr<YIniOption> option(const char* name, const char* value = "v") {
  return YIniOption::optionWithNameAndValue(YString(name), YString(value));
}
std::size_t observations(const std::shared_ptr<YIniElement>& child, const YIniCompositeElement& parent) {
  return child->observationCountForObserver(&parent, YModifiedKey);
}

// A comment whose commit or revert fails, for the error paths.
class FailingComment : public YIniComment {
 public:
  FailingComment() : YIniComment(YString("# f")) {}
  void commit() override { throw YInvalidArgumentException(YString("commit failed")); }
  void revert() override { throw YInvalidArgumentException(YString("revert failed")); }
};

TEST(CompositeState, AddCommitRemoveReinsert) {
  auto c = composite();
  EXPECT_FALSE(c->isModified());
  auto a = option("a");
  auto b = option("b");
  c->addElement(a);
  c->addElement(b);
  EXPECT_TRUE(c->isModified());
  c->commit();
  EXPECT_FALSE(c->isModified());
  EXPECT_TRUE(c->initialElements()->isEqualToArray(*c->elements()));
  EXPECT_NE(c->initialElements().get(), c->elements().get());

  c->removeObjectFromElementsAtIndex(0);
  EXPECT_TRUE(c->isModified());
  c->insertObjectInElementsAtIndex(a, 0);
  EXPECT_FALSE(c->isModified());

  c->replaceElementWith(a, a->copyWithZone());  // equal-looking but another object
  EXPECT_TRUE(c->isModified());
  c->replaceObjectInElementsAtIndexWithObject(0, a);
  EXPECT_FALSE(c->isModified());

  b->setValue(YString("w"));
  EXPECT_TRUE(c->isModified());
  b->setValue(YString("v"));
  EXPECT_FALSE(c->isModified());

  c->setElements(List::arrayWithObjects({a, b}));
  EXPECT_FALSE(c->isModified());
  EXPECT_TRUE(c->elements()->isMutable());
  c->setElements(List::arrayWithObjects({b}));
  EXPECT_TRUE(c->isModified());
  EXPECT_EQ(c->initialElements()->count(), 2u);  // setElements leaves the initial list alone
}

TEST(CompositeAnnouncements, AccessorsAnnounceEveryCall) {
  auto c = composite();
  KeyObserver modified(*c, YModifiedKey);
  KeyObserver elements(*c, YElementsKey);
  auto a = option("a");
  auto b = option("b");

  c->setModified(false);
  c->setModified(false);
  EXPECT_EQ(modified.count(), 2u);
  EXPECT_EQ(elements.count(), 0u);

  struct Step {
    const char* name;
    std::function<void()> act;
    YKeyValueChangeKind kind;
    std::size_t index;
  };
  const Step steps[] = {
      {"add", [&] { c->addElement(a); }, YKeyValueChangeKind::Insertion, 0},
      {"insert", [&] { c->insertObjectInElementsAtIndex(b, 0); }, YKeyValueChangeKind::Insertion, 0},
      {"replace", [&] { c->replaceElementWith(a, option("x")); }, YKeyValueChangeKind::Replacement, 1},
      {"remove", [&] { c->removeElement(b); }, YKeyValueChangeKind::Removal, 0},
      {"set", [&] { c->setElements(List::arrayWithObjects({a})); }, YKeyValueChangeKind::Setting, 0},
  };
  for (const auto& step : steps) {
    SCOPED_TRACE(step.name);
    const std::size_t before = elements.count();
    const std::size_t modifiedBefore = modified.count();
    step.act();
    ASSERT_EQ(elements.count(), before + 1);
    const auto& change = elements.changes.back();
    EXPECT_EQ(change.kind, step.kind);
    if (step.kind != YKeyValueChangeKind::Setting) {
      EXPECT_EQ(change.indexes, YIndexSet(step.index));
    }
    EXPECT_EQ(modified.count(), modifiedBefore + 1);  // each change recomputes and announces
    EXPECT_TRUE(modified.lastBool());
  }
  // An insertion delivers the new child as the change's New value.
  c->setElements(List::mutableArray());
  c->addElement(b);
  auto inserted = std::get<std::shared_ptr<YObject>>(elements.changes.back().newValue);
  auto list = std::dynamic_pointer_cast<YArray<YObject>>(inserted);
  ASSERT_TRUE(list);
  ASSERT_EQ(list->count(), 1u);
  EXPECT_EQ(list->objectAtIndex(0).get(), b.get());
}

TEST(CompositeAnnouncements, RemoveAllElementsOneRemovalEach) {
  auto c = composite();
  KeyObserver elements(*c, YElementsKey);
  c->removeAllElements();
  EXPECT_EQ(elements.count(), 0u);
  for (int i = 0; i < 3; ++i) c->addElement(option("k"));
  c->removeAllElements();
  EXPECT_EQ(elements.count(), 6u);
  for (std::size_t i = 3; i < 6; ++i) EXPECT_EQ(elements.changes[i].kind, YKeyValueChangeKind::Removal);
  EXPECT_EQ(c->elements()->count(), 0u);
}

TEST(CompositeObservation, EachOccurrenceObservedOnceInitialOnlyNot) {
  auto c = composite();
  EXPECT_EQ(c->observationCountForObserver(c.get(), YElementsKey), 1u);
  auto a = option("a");
  auto b = option("b");
  c->addElement(a);
  c->addElement(a);
  c->addElement(b);
  EXPECT_EQ(observations(a, *c), 2u);
  EXPECT_EQ(observations(b, *c), 1u);
  c->commit();
  c->removeElement(a);
  EXPECT_EQ(observations(a, *c), 1u);
  c->removeElement(b);
  EXPECT_EQ(observations(b, *c), 0u);  // only in initialElements now
  b->setValue(YString("changed"));  // not observed: the flag stays as computed
  c->replaceObjectInElementsAtIndexWithObject(0, b);
  EXPECT_EQ(observations(a, *c), 0u);
  EXPECT_EQ(observations(b, *c), 1u);
  c->setElements(List::arrayWithObjects({a, b, a}));
  EXPECT_EQ(observations(a, *c), 2u);
  EXPECT_EQ(observations(b, *c), 1u);
}

TEST(CompositeObservation, DestructionUnsubscribes) {
  auto a = option("a");
  auto kept = option("kept");
  {
    auto c = composite();
    c->addElement(a);
    c->addElement(kept);
    c->commit();
    c->removeElement(kept);
  }
  EXPECT_EQ(a->observationCountForKey(YModifiedKey), 0u);
  EXPECT_EQ(kept->observationCountForKey(YModifiedKey), 0u);
  a->setValue(YString("x"));  // no dangling observer
}

TEST(CompositeCommit, IgnoresChildrenDuringCommitAndClearsTheFlagOnFailure) {
  auto c = composite();
  for (int i = 0; i < 3; ++i) c->addElement(option("k"));
  for (const auto& child : c->elements()->vector()) std::static_pointer_cast<YIniOption>(child)->setValue(YString("w"));
  KeyObserver modified(*c, YModifiedKey);
  c->commit();
  EXPECT_EQ(modified.count(), 1u);  // once, at the end
  EXPECT_FALSE(modified.lastBool());

  auto failing = std::make_shared<FailingComment>();
  c->addElement(failing);
  EXPECT_THROW(c->commit(), YInvalidArgumentException);
  EXPECT_THROW(c->revert(), YInvalidArgumentException);
  // The ignore flag was cleared: a child's change is recomputed again.
  auto first = std::static_pointer_cast<YIniOption>(c->elements()->objectAtIndex(0));
  c->setElements(List::arrayWithObjects({first}));
  c->commit();
  first->setValue(YString("again"));
  EXPECT_TRUE(c->isModified());
}

TEST(CompositeRevert, IntendedConsequences) {
  auto c = composite();
  auto kept = option("kept");
  auto removed = option("removed");
  c->addElement(kept);
  c->addElement(removed);
  c->commit();

  auto added = option("added");
  c->addElement(added);
  added->setValue(YString("changed"));
  c->removeElement(removed);
  removed->setValue(YString("changed after removal"));
  kept->setValue(YString("changed"));

  c->revert();
  EXPECT_FALSE(c->isModified());
  EXPECT_FALSE(kept->isModified());
  EXPECT_TRUE(removed->isModified());  // not current at the revert, so not reverted
  EXPECT_FALSE(added->isModified());   // reverted, then dropped
  EXPECT_EQ(observations(added, *c), 0u);
  ASSERT_EQ(c->elements()->count(), 2u);
  EXPECT_EQ(c->elements()->objectAtIndex(1).get(), removed.get());
  EXPECT_EQ(observations(removed, *c), 1u);

  // The current list is now immutable.
  EXPECT_FALSE(c->elements()->isMutable());
  EXPECT_THROW(c->addElement(option("x")), YInvalidArgumentException);
  EXPECT_THROW(c->removeElement(kept), YInvalidArgumentException);
  EXPECT_EQ(c->elements()->count(), 2u);
  EXPECT_EQ(observations(kept, *c), 0u);  // unsubscribed before the list refused
  c->commit();
  EXPECT_THROW(c->addElement(option("x")), YInvalidArgumentException);

  c->setElements(c->elements());
  EXPECT_EQ(observations(kept, *c), 1u);
  c->addElement(option("x"));
  EXPECT_EQ(c->elements()->count(), 3u);
  EXPECT_TRUE(c->isModified());
}

TEST(CompositeCopy, DeepAndCommitted) {
  auto c = composite();
  c->addElement(option("a"));
  c->addElement(YIniComment::commentWithString(YString("# c")));
  auto copy = YCast<YIniCompositeElement>(c->copyWithZone());
  ASSERT_TRUE(copy);
  EXPECT_TRUE(c->isModified());
  EXPECT_FALSE(copy->isModified());
  ASSERT_EQ(copy->elements()->count(), 2u);
  for (std::size_t i = 0; i < 2; ++i) {
    EXPECT_NE(copy->elements()->objectAtIndex(i).get(), c->elements()->objectAtIndex(i).get());
    EXPECT_EQ(typeid(*copy->elements()->objectAtIndex(i)), typeid(*c->elements()->objectAtIndex(i)));
  }
  EXPECT_TRUE(copy->initialElements()->isEqualToArray(*copy->elements()));
  c->commit();
  std::static_pointer_cast<YIniOption>(copy->elements()->objectAtIndex(0))->setValue(YString("x"));
  EXPECT_TRUE(copy->isModified());
  EXPECT_FALSE(c->isModified());
  EXPECT_EQ(utf8(std::static_pointer_cast<YIniOption>(c->elements()->objectAtIndex(0))->value()), "v");
}

TEST(CompositePreconditions, ConditionTexts) {
  auto c = composite();
  auto a = option("a");
  c->addElement(a);
  EXPECT_PRECONDITION(c->addElement(nullptr), "element != nil");
  EXPECT_PRECONDITION(c->insertObjectInElementsAtIndex(nullptr, 0), "element != nil");
  EXPECT_PRECONDITION(c->insertObjectInElementsAtIndex(option("b"), 2), "index >= 0 && index <= [elements count]");
  EXPECT_PRECONDITION(c->removeObjectFromElementsAtIndex(1), "index >= 0 && index < [elements count]");
  EXPECT_PRECONDITION(c->removeElement(option("stranger")), "index >= 0 && index < [elements count]");
  EXPECT_PRECONDITION(c->removeElement(nullptr), "element != nil");
  EXPECT_PRECONDITION(c->replaceObjectInElementsAtIndexWithObject(0, nullptr), "element != nil");
  EXPECT_PRECONDITION(c->replaceElementWith(nullptr, a), "element != nil");
  EXPECT_PRECONDITION(c->replaceElementWith(a, nullptr), "otherElement != nil");
  EXPECT_PRECONDITION(c->setElements(nullptr), "value != nil");
  EXPECT_PRECONDITION(c->subscribeForChangesInElement(nullptr), "element != nil");
  EXPECT_PRECONDITION(c->unsubscribeForChangesInElement(nullptr), "element != nil");
  EXPECT_PRECONDITION(c->compareArrayAgainst(nullptr, c->elements()), "a1 != nil");
  EXPECT_PRECONDITION(c->compareArrayAgainst(c->elements(), nullptr), "a2 != nil");
  EXPECT_THROW(c->replaceElementWith(option("stranger"), option("b")), YRangeException);
  ASSERT_EQ(c->elements()->count(), 1u);
  EXPECT_EQ(c->elements()->objectAtIndex(0).get(), a.get());
  EXPECT_EQ(observations(a, *c), 1u);

  c->insertObjectInElementsAtIndex(option("b"), 1);  // index == count appends
  EXPECT_EQ(c->elements()->count(), 2u);
  EXPECT_THROW(c->stringValue(), YInvalidArgumentException);

  RecordingScope recording;
  c->removeObjectFromElementsAtIndex(7);
  ASSERT_EQ(recording.handler->failures.size(), 1u);
  EXPECT_EQ(recording.handler->failures[0].unit, "YIniCompositeElement");
  EXPECT_EQ(c->elements()->count(), 2u);
}

}  // namespace
