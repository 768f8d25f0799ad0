// The observer mechanism: registration options, delivery, indexed changes,
// failed changes and registration changes during delivery.
#include <gtest/gtest.h>

#include <functional>
#include <memory>
#include <stdexcept>
#include <utility>
#include <vector>

#include "YFoundation.h"

namespace {

// An object with one observable boolean, announced under "modified".
class Flag : public YObject {
 public:
  bool value = false;
  void setValue(bool v) {
    ChangeScope scope(*this, YModifiedKey);
    value = v;
  }
  // Changes the value, then fails; the key is a temporary on purpose.
  void setValueAndFail(bool v) {
    ChangeScope scope(*this, YString(u"modified"));
    value = v;
    throw std::runtime_error("failed");
  }
  YValue valueForKey(const YString& key) const override { return key == YModifiedKey ? YValue(value) : YValue(); }
};

// An object with a to-many key "elements"; `change` runs an indexed change on its children.
class Parent : public YObject {
 public:
  std::shared_ptr<YArray<YObject>> children = YArray<YObject>::mutableArray();
  template <class Body>
  void change(YKeyValueChangeKind kind, std::size_t index, Body body) {
    ChangeScope scope(*this, kind, index, YElementsKey);
    body(*children);
  }
  YValue valuesAtIndexesForKey(const YIndexSet& indexes, const YString& key) const override {
    if (key != YElementsKey) return {};
    auto values = YArray<YObject>::mutableArray();
    for (std::size_t i : indexes.indexes()) values->addObject(children->objectAtIndex(i));
    return std::static_pointer_cast<YObject>(values);
  }
};

struct Note {
  YString key;
  YObject* object;
  YKeyValueChange change;
  void* context;
  bool valueAtDelivery;
};

class Recorder : public YObject {
 public:
  std::vector<Note> notes;
  std::function<void()> onNotify;
  void observeValueForKeyPath(const YString& keyPath, YObject* object, const YKeyValueChange& change,
                              void* context) override {
    auto* flag = dynamic_cast<Flag*>(object);
    notes.push_back(Note{keyPath, object, change, context, flag && flag->value});
    if (onNotify) onNotify();
  }
};

constexpr unsigned kAllButInitial =
    YKeyValueObservingOptionNew | YKeyValueObservingOptionOld | YKeyValueObservingOptionPrior;
bool boolOf(const YValue& value) { return std::get<bool>(value); }
bool isNone(const YValue& value) { return std::holds_alternative<std::monostate>(value); }

TEST(YObjectObservingTest, OneNotificationPerChangeAfterIt) {
  auto flag = std::make_shared<Flag>();
  auto observer = std::make_shared<Recorder>();
  auto plain = std::make_shared<Recorder>();
  int context = 0;
  flag->addObserver(observer.get(), YString(u"modified"), YKeyValueObservingOptionNew, &context);
  flag->addObserver(plain.get(), YModifiedKey, YKeyValueObservingOptionInitial, nullptr);
  EXPECT_TRUE(observer->notes.empty());  // nothing at registration
  ASSERT_EQ(plain->notes.size(), 1u);    // unless Initial asks for it

  flag->setValue(true);
  flag->setValue(true);  // every announcement notifies, changed or not
  ASSERT_EQ(observer->notes.size(), 2u);
  ASSERT_EQ(plain->notes.size(), 3u);
  EXPECT_TRUE(isNone(plain->notes[1].change.newValue));  // New not asked for
  const Note& note = observer->notes[0];
  EXPECT_EQ(note.key, YModifiedKey);
  EXPECT_EQ(note.object, flag.get());
  EXPECT_EQ(note.context, &context);
  EXPECT_TRUE(note.valueAtDelivery);  // delivered after the change
  EXPECT_EQ(note.change.kind, YKeyValueChangeKind::Setting);
  EXPECT_TRUE(boolOf(note.change.newValue));
  EXPECT_TRUE(isNone(note.change.oldValue));
  EXPECT_FALSE(note.change.isPrior);

  flag->willChangeValueForKey(YElementsKey);  // another key
  flag->didChangeValueForKey(YElementsKey);
  flag->willChangeValueForKey(YModifiedKey);
  flag->didChangeValueForKey(YModifiedKey);
  EXPECT_EQ(observer->notes.size(), 3u);

  flag->removeObserver(observer.get(), YModifiedKey);
  flag->removeObserver(plain.get(), YModifiedKey);
  flag->setValue(false);
  EXPECT_EQ(observer->notes.size(), 3u);  // none after removal
  EXPECT_EQ(flag->observationCountForKey(YModifiedKey), 0u);
  EXPECT_THROW(flag->removeObserver(observer.get(), YModifiedKey), YRangeException);
  EXPECT_THROW(flag->addObserver(nullptr, YModifiedKey, 0, nullptr), YInvalidArgumentException);
}

TEST(YObjectObservingTest, IndexedChangesCarryKindIndexesAndNewChildren) {
  auto parent = std::make_shared<Parent>();
  auto observer = std::make_shared<Recorder>();
  auto first = std::make_shared<YObject>(), second = std::make_shared<YObject>(), third = std::make_shared<YObject>();
  parent->addObserver(observer.get(), YElementsKey, YKeyValueObservingOptionNew, nullptr);
  using Kind = YKeyValueChangeKind;
  parent->change(Kind::Insertion, 0, [&](auto& list) { list.insertObjectAtIndex(first, 0); });
  parent->change(Kind::Insertion, 1, [&](auto& list) { list.insertObjectAtIndex(second, 1); });
  parent->change(Kind::Replacement, 0, [&](auto& list) { list.replaceObjectAtIndexWithObject(0, third); });
  parent->change(Kind::Removal, 1, [&](auto& list) { list.removeObjectAtIndex(1); });
  ASSERT_EQ(observer->notes.size(), 4u);

  struct Expected {
    YKeyValueChangeKind kind;
    std::size_t index;
    YObject* child;  // null: no new value
  } expected[] = {{Kind::Insertion, 0, first.get()},
                  {Kind::Insertion, 1, second.get()},
                  {Kind::Replacement, 0, third.get()},
                  {Kind::Removal, 1, nullptr}};
  for (std::size_t i = 0; i < 4; ++i) {
    SCOPED_TRACE(i);
    const YKeyValueChange& change = observer->notes[i].change;
    EXPECT_EQ(observer->notes[i].key, YElementsKey);
    EXPECT_EQ(change.kind, expected[i].kind);
    EXPECT_EQ(change.indexes, YIndexSet(expected[i].index));
    if (!expected[i].child) {
      EXPECT_TRUE(isNone(change.newValue));
      continue;
    }
    auto values = std::dynamic_pointer_cast<YArray<YObject>>(std::get<std::shared_ptr<YObject>>(change.newValue));
    ASSERT_TRUE(values && values->count() == 1u);
    EXPECT_EQ(values->objectAtIndex(0).get(), expected[i].child);
  }
  parent->removeObserver(observer.get(), YElementsKey);
}

TEST(YObjectObservingTest, NoDidChangeWhenTheBodyThrows) {
  auto flag = std::make_shared<Flag>();
  auto observer = std::make_shared<Recorder>();
  flag->addObserver(observer.get(), YModifiedKey, kAllButInitial, nullptr);
  EXPECT_THROW(flag->setValueAndFail(true), std::runtime_error);
  ASSERT_EQ(observer->notes.size(), 1u);  // only the early notification
  EXPECT_TRUE(observer->notes[0].change.isPrior);
  EXPECT_FALSE(observer->notes[0].valueAtDelivery);  // before the change
  EXPECT_FALSE(boolOf(observer->notes[0].change.oldValue));

  // The failed change leaves nothing behind: the next one reports its own old value.
  flag->setValue(false);
  ASSERT_EQ(observer->notes.size(), 3u);
  EXPECT_TRUE(observer->notes[1].change.isPrior && !observer->notes[2].change.isPrior);
  EXPECT_TRUE(boolOf(observer->notes[2].change.oldValue));
  EXPECT_FALSE(boolOf(observer->notes[2].change.newValue));
  flag->removeObserver(observer.get(), YModifiedKey);

  auto parent = std::make_shared<Parent>();
  parent->addObserver(observer.get(), YElementsKey, YKeyValueObservingOptionNew, nullptr);
  EXPECT_THROW(parent->change(YKeyValueChangeKind::Removal, 0, [](auto& list) { list.removeObjectAtIndex(0); }),
               YRangeException);
  EXPECT_EQ(observer->notes.size(), 3u);
  parent->removeObserver(observer.get(), YElementsKey);
}

TEST(YObjectObservingTest, RegistrationChangesDuringDelivery) {
  auto flag = std::make_shared<Flag>();
  auto first = std::make_shared<Recorder>(), second = std::make_shared<Recorder>(), late = std::make_shared<Recorder>();
  // The first observer removes the second and registers a new one.
  bool done = false;
  first->onNotify = [&] {
    if (std::exchange(done, true)) return;
    flag->removeObserver(second.get(), YModifiedKey);
    flag->addObserver(late.get(), YModifiedKey, YKeyValueObservingOptionNew, nullptr);
  };
  flag->addObserver(first.get(), YModifiedKey, YKeyValueObservingOptionNew, nullptr);
  flag->addObserver(second.get(), YModifiedKey, YKeyValueObservingOptionNew, nullptr);
  flag->setValue(true);
  EXPECT_EQ(second->notes.size(), 0u);  // removed before its turn
  EXPECT_EQ(late->notes.size(), 0u);    // registered after the change
  flag->setValue(false);
  EXPECT_EQ(first->notes.size(), 2u);
  EXPECT_EQ(late->notes.size(), 1u);

  // Observers that remove themselves during delivery.
  first->onNotify = [&] { flag->removeObserver(first.get(), YModifiedKey); };
  late->onNotify = [&] { flag->removeObserver(late.get(), YModifiedKey); };
  flag->setValue(true);
  flag->setValue(false);
  EXPECT_EQ(first->notes.size(), 3u);
  EXPECT_EQ(late->notes.size(), 2u);

  // An observer may drop the last outside reference to the object.
  Flag* raw = flag.get();
  first->onNotify = [&] {
    flag->removeObserver(first.get(), YModifiedKey);
    flag->removeObserver(second.get(), YModifiedKey);
    flag.reset();
  };
  raw->addObserver(first.get(), YModifiedKey, YKeyValueObservingOptionNew, nullptr);
  raw->addObserver(second.get(), YModifiedKey, YKeyValueObservingOptionNew, nullptr);
  raw->setValue(true);
  EXPECT_EQ(first->notes.size(), 4u);
  EXPECT_EQ(second->notes.size(), 0u);
}

TEST(YObjectTest, IdentityKindsAndUnrecognisedOperations) {
  auto flag = std::make_shared<Flag>();
  EXPECT_TRUE(flag->isEqual(flag.get()));
  EXPECT_FALSE(flag->isEqual(std::make_shared<Flag>().get()));
  EXPECT_TRUE(flag->isKindOfClass<YObject>() && flag->isKindOfClass<Flag>());
  EXPECT_FALSE(flag->isKindOfClass<Parent>());
  EXPECT_EQ(flag->className(), YString(u"(anonymous namespace)::Flag"));
  try {
    flag->doesNotRecognizeSelector("write:");
    FAIL() << "no exception";
  } catch (const YInvalidArgumentException& e) {
    EXPECT_NE(e.reason().indexOfString(YString(u"write:")), YString::npos) << e.what();
  }
}

}  // namespace
