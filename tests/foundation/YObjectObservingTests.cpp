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
  bool value() const { return _value; }
  void setValue(bool value) {
    ChangeScope scope(*this, YModifiedKey);
    _value = value;
  }
  // Changes the value, then fails; the key is a temporary on purpose.
  void setValueAndFail(bool value) {
    ChangeScope scope(*this, YString(u"modified"));
    _value = value;
    throw std::runtime_error("failed");
  }
  YValue valueForKey(const YString& key) const override {
    if (key == YModifiedKey) return _value;
    return {};
  }

 private:
  bool _value = false;
};

// An object with a to-many key "elements".
class Parent : public YObject {
 public:
  std::shared_ptr<YArray<YObject>> children = YArray<YObject>::mutableArray();
  void insert(std::shared_ptr<YObject> child, std::size_t index) {
    ChangeScope scope(*this, YKeyValueChangeKind::Insertion, index, YElementsKey);
    children->insertObjectAtIndex(std::move(child), index);
  }
  void remove(std::size_t index) {
    ChangeScope scope(*this, YKeyValueChangeKind::Removal, index, YElementsKey);
    children->removeObjectAtIndex(index);
  }
  void replace(std::size_t index, std::shared_ptr<YObject> child) {
    ChangeScope scope(*this, YKeyValueChangeKind::Replacement, index, YElementsKey);
    children->replaceObjectAtIndexWithObject(index, std::move(child));
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
  std::function<void(YObject*)> onNotify;
  void observeValueForKeyPath(const YString& keyPath, YObject* object, const YKeyValueChange& change,
                              void* context) override {
    auto* flag = dynamic_cast<Flag*>(object);
    notes.push_back(Note{keyPath, object, change, context, flag && flag->value()});
    if (onNotify) onNotify(object);
  }
};

bool boolOf(const YValue& value) { return std::get<bool>(value); }
bool isNone(const YValue& value) { return std::holds_alternative<std::monostate>(value); }

TEST(YObjectObservingTest, NewNotifiesOncePerChangeAfterIt) {
  auto flag = std::make_shared<Flag>();
  auto observer = std::make_shared<Recorder>();
  int context = 0;
  flag->addObserver(observer.get(), YString(u"modified"), YKeyValueObservingOptionNew, &context);
  EXPECT_TRUE(observer->notes.empty());  // nothing at registration
  EXPECT_EQ(flag->observationCountForKey(YModifiedKey), 1u);

  flag->setValue(true);
  flag->setValue(true);  // every announcement notifies, changed or not
  ASSERT_EQ(observer->notes.size(), 2u);
  const Note& note = observer->notes[0];
  EXPECT_EQ(note.key, YModifiedKey);
  EXPECT_EQ(note.object, flag.get());
  EXPECT_EQ(note.context, &context);
  EXPECT_TRUE(note.valueAtDelivery);  // delivered after the change
  EXPECT_EQ(note.change.kind, YKeyValueChangeKind::Setting);
  EXPECT_TRUE(boolOf(note.change.newValue));
  EXPECT_TRUE(isNone(note.change.oldValue));
  EXPECT_FALSE(note.change.isPrior);

  // Other keys and manual announcements.
  flag->willChangeValueForKey(YElementsKey);
  flag->didChangeValueForKey(YElementsKey);
  EXPECT_EQ(observer->notes.size(), 2u);
  flag->willChangeValueForKey(YModifiedKey);
  flag->didChangeValueForKey(YModifiedKey);
  EXPECT_EQ(observer->notes.size(), 3u);

  flag->removeObserver(observer.get(), YModifiedKey);
  flag->setValue(false);
  EXPECT_EQ(observer->notes.size(), 3u);  // none after removal
  EXPECT_EQ(flag->observationCountForKey(YModifiedKey), 0u);
  EXPECT_THROW(flag->removeObserver(observer.get(), YModifiedKey), YRangeException);
  EXPECT_THROW(flag->removeObserver(flag.get(), YModifiedKey), YRangeException);
}

TEST(YObjectObservingTest, EveryObserverIsToldOnce) {
  auto flag = std::make_shared<Flag>();
  auto a = std::make_shared<Recorder>();
  auto b = std::make_shared<Recorder>();
  flag->addObserver(a.get(), YModifiedKey, YKeyValueObservingOptionNew, nullptr);
  flag->addObserver(b.get(), YModifiedKey, 0, nullptr);
  flag->setValue(true);
  EXPECT_EQ(a->notes.size(), 1u);
  ASSERT_EQ(b->notes.size(), 1u);
  EXPECT_TRUE(isNone(b->notes[0].change.newValue));  // New not asked for
  flag->removeObserver(a.get(), YModifiedKey);
  flag->removeObserver(b.get(), YModifiedKey);
}

TEST(YObjectObservingTest, InitialPriorAndOld) {
  auto flag = std::make_shared<Flag>();
  auto observer = std::make_shared<Recorder>();
  flag->addObserver(observer.get(), YModifiedKey, YKeyValueObservingOptionNew | YKeyValueObservingOptionInitial,
                    nullptr);
  ASSERT_EQ(observer->notes.size(), 1u);  // at once
  EXPECT_FALSE(boolOf(observer->notes[0].change.newValue));
  flag->removeObserver(observer.get(), YModifiedKey);
  observer->notes.clear();

  flag->addObserver(observer.get(), YModifiedKey,
                    YKeyValueObservingOptionNew | YKeyValueObservingOptionOld | YKeyValueObservingOptionPrior,
                    nullptr);
  EXPECT_TRUE(observer->notes.empty());
  flag->setValue(true);
  ASSERT_EQ(observer->notes.size(), 2u);
  const YKeyValueChange& prior = observer->notes[0].change;
  EXPECT_TRUE(prior.isPrior);
  EXPECT_FALSE(observer->notes[0].valueAtDelivery);  // before the change
  EXPECT_FALSE(boolOf(prior.oldValue));
  EXPECT_TRUE(isNone(prior.newValue));
  const YKeyValueChange& after = observer->notes[1].change;
  EXPECT_FALSE(after.isPrior);
  EXPECT_FALSE(boolOf(after.oldValue));
  EXPECT_TRUE(boolOf(after.newValue));
  flag->removeObserver(observer.get(), YModifiedKey);
}

TEST(YObjectObservingTest, IndexedChangesCarryKindIndexesAndNewChildren) {
  auto parent = std::make_shared<Parent>();
  auto observer = std::make_shared<Recorder>();
  auto first = std::make_shared<YObject>();
  auto second = std::make_shared<YObject>();
  auto third = std::make_shared<YObject>();
  parent->addObserver(observer.get(), YElementsKey, YKeyValueObservingOptionNew, nullptr);
  parent->insert(first, 0);
  parent->insert(second, 1);
  parent->replace(0, third);
  parent->remove(1);
  ASSERT_EQ(observer->notes.size(), 4u);

  struct Expected {
    YKeyValueChangeKind kind;
    std::size_t index;
    YObject* child;  // null: no new value
  } expected[] = {{YKeyValueChangeKind::Insertion, 0, first.get()},
                  {YKeyValueChangeKind::Insertion, 1, second.get()},
                  {YKeyValueChangeKind::Replacement, 0, third.get()},
                  {YKeyValueChangeKind::Removal, 1, nullptr}};
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
    ASSERT_TRUE(values);
    ASSERT_EQ(values->count(), 1u);
    EXPECT_EQ(values->objectAtIndex(0).get(), expected[i].child);
  }
  parent->removeObserver(observer.get(), YElementsKey);
}

TEST(YObjectObservingTest, NoDidChangeWhenTheBodyThrows) {
  auto flag = std::make_shared<Flag>();
  auto observer = std::make_shared<Recorder>();
  flag->addObserver(observer.get(), YModifiedKey,
                    YKeyValueObservingOptionNew | YKeyValueObservingOptionOld | YKeyValueObservingOptionPrior,
                    nullptr);
  EXPECT_THROW(flag->setValueAndFail(true), std::runtime_error);
  ASSERT_EQ(observer->notes.size(), 1u);  // only the early notification
  EXPECT_TRUE(observer->notes[0].change.isPrior);

  // The failed change leaves nothing behind: the next one reports its own old value.
  observer->notes.clear();
  flag->setValue(false);
  ASSERT_EQ(observer->notes.size(), 2u);
  EXPECT_TRUE(boolOf(observer->notes[1].change.oldValue));
  EXPECT_FALSE(boolOf(observer->notes[1].change.newValue));
  flag->removeObserver(observer.get(), YModifiedKey);

  auto parent = std::make_shared<Parent>();
  parent->addObserver(observer.get(), YElementsKey, YKeyValueObservingOptionNew, nullptr);
  observer->notes.clear();
  EXPECT_THROW(parent->remove(0), YRangeException);
  EXPECT_TRUE(observer->notes.empty());
  parent->removeObserver(observer.get(), YElementsKey);
}

TEST(YObjectObservingTest, RegistrationChangesDuringDelivery) {
  auto flag = std::make_shared<Flag>();
  auto first = std::make_shared<Recorder>();
  auto second = std::make_shared<Recorder>();
  auto late = std::make_shared<Recorder>();

  // The first observer removes the second and registers a new one.
  bool done = false;
  first->onNotify = [&](YObject*) {
    if (std::exchange(done, true)) return;
    flag->removeObserver(second.get(), YModifiedKey);
    flag->addObserver(late.get(), YModifiedKey, YKeyValueObservingOptionNew, nullptr);
  };
  flag->addObserver(first.get(), YModifiedKey, YKeyValueObservingOptionNew, nullptr);
  flag->addObserver(second.get(), YModifiedKey, YKeyValueObservingOptionNew, nullptr);
  flag->setValue(true);
  EXPECT_EQ(first->notes.size(), 1u);
  EXPECT_EQ(second->notes.size(), 0u);  // removed before its turn
  EXPECT_EQ(late->notes.size(), 0u);    // registered after the change
  flag->setValue(false);
  EXPECT_EQ(first->notes.size(), 2u);
  EXPECT_EQ(late->notes.size(), 1u);

  // Observers that remove themselves during delivery.
  first->onNotify = [&](YObject*) { flag->removeObserver(first.get(), YModifiedKey); };
  late->onNotify = [&](YObject*) { flag->removeObserver(late.get(), YModifiedKey); };
  flag->setValue(true);
  EXPECT_EQ(first->notes.size(), 3u);
  EXPECT_EQ(late->notes.size(), 2u);
  EXPECT_EQ(flag->observationCountForKey(YModifiedKey), 0u);
  flag->setValue(false);
  EXPECT_EQ(first->notes.size(), 3u);
  EXPECT_EQ(late->notes.size(), 2u);
}

TEST(YObjectObservingTest, ObserverMayReleaseTheObjectDuringDelivery) {
  auto flag = std::make_shared<Flag>();
  Flag* raw = flag.get();
  auto first = std::make_shared<Recorder>();
  auto second = std::make_shared<Recorder>();
  first->onNotify = [&](YObject*) {
    flag->removeObserver(first.get(), YModifiedKey);
    flag->removeObserver(second.get(), YModifiedKey);
    flag.reset();  // the last reference but the one the delivery holds
  };
  raw->addObserver(first.get(), YModifiedKey, YKeyValueObservingOptionNew, nullptr);
  raw->addObserver(second.get(), YModifiedKey, YKeyValueObservingOptionNew, nullptr);
  raw->setValue(true);
  EXPECT_EQ(first->notes.size(), 1u);
  EXPECT_EQ(second->notes.size(), 0u);
  EXPECT_FALSE(flag);
}

TEST(YObjectTest, IdentityKindsAndUnrecognisedOperations) {
  auto flag = std::make_shared<Flag>();
  auto other = std::make_shared<Flag>();
  EXPECT_TRUE(flag->isEqual(flag.get()));
  EXPECT_FALSE(flag->isEqual(other.get()));
  EXPECT_TRUE(flag->isKindOfClass<YObject>());
  EXPECT_TRUE(flag->isKindOfClass<Flag>());
  EXPECT_FALSE(flag->isKindOfClass<Parent>());
  EXPECT_EQ(flag->className(), YString(u"(anonymous namespace)::Flag"));
  try {
    flag->doesNotRecognizeSelector("write:");
    FAIL() << "no exception";
  } catch (const YInvalidArgumentException& e) {
    EXPECT_NE(e.reason().indexOfString(YString(u"write:")), YString::npos) << e.what();
    EXPECT_EQ(e.name(), YString(u"YInvalidArgumentException"));
  }
  EXPECT_THROW(flag->addObserver(nullptr, YModifiedKey, 0, nullptr), YInvalidArgumentException);
}

}  // namespace
