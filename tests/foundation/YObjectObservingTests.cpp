// The observer mechanism: registration options, delivery, indexed changes,
// failed changes and registration changes during delivery.
#include <gtest/gtest.h>

#include <algorithm>
#include <functional>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <utility>
#include <thread>
#include <tuple>
#include <vector>

#include "YFoundation.h"

namespace {

// The keys these tests announce, interned as the element model interns its own.
const YString& YModifiedKey = YObject::internedKey(u"modified");
const YString& YElementsKey = YObject::internedKey(u"elements");

// An object with one observable boolean, announced under "modified".
class Flag : public YObject {
 public:
  bool value = false;
  std::function<void()> during;  // runs inside the change
  void setValue(bool v) {
    ChangeScope scope(*this, YModifiedKey);
    value = v;
    if (during) during();
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
  /// The notes so far: "new=V old=V" each ("-" for no value), "prior " before an early one.
  std::string log() const;
};

constexpr unsigned kAllButInitial =
    YKeyValueObservingOptionNew | YKeyValueObservingOptionOld | YKeyValueObservingOptionPrior;
bool isNone(const YValue& value) { return std::holds_alternative<std::monostate>(value); }
std::string Recorder::log() const {
  std::string out;
  for (const Note& n : notes) {
    auto text = [](const YValue& v) { return isNone(v) ? "-" : std::get<bool>(v) ? "1" : "0"; };
    out += std::string(out.empty() ? "" : ", ") + (n.change.isPrior ? "prior " : "") + "new=" +
           text(n.change.newValue) + " old=" + text(n.change.oldValue);
  }
  return out;
}
/// The children an indexed change's value lists; nullopt when there is no value.
std::optional<std::vector<YObject*>> childrenIn(const YValue& value) {
  if (isNone(value)) return std::nullopt;
  std::vector<YObject*> children;
  if (auto list = std::dynamic_pointer_cast<YArray<YObject>>(std::get<std::shared_ptr<YObject>>(value)))
    for (const auto& child : *list) children.push_back(child.get());
  return children;
}
/// `child` as a one-child list; nullopt for null.
std::optional<std::vector<YObject*>> listOf(YObject* child) {
  return child ? std::optional(std::vector<YObject*>{child}) : std::nullopt;
}

TEST(YObjectObservingTest, OneNotificationPerChangeAfterIt) {
  auto flag = std::make_shared<Flag>();
  auto observer = std::make_shared<Recorder>();
  auto plain = std::make_shared<Recorder>();
  int context = 0;
  flag->addObserver(observer.get(), YString(u"modified"), YKeyValueObservingOptionNew, &context);
  flag->addObserver(plain.get(), YModifiedKey, YKeyValueObservingOptionInitial, nullptr);
  EXPECT_EQ(observer->log(), "");          // nothing at registration
  EXPECT_EQ(plain->log(), "new=- old=-");  // unless Initial asks for it

  flag->setValue(true);
  flag->setValue(true);  // every announcement notifies, changed or not
  EXPECT_EQ(observer->log(), "new=1 old=-, new=1 old=-");
  EXPECT_EQ(plain->log(), "new=- old=-, new=- old=-, new=- old=-");  // New not asked for
  const Note& note = observer->notes[0];  // delivered after the change: the value there is true
  EXPECT_EQ(std::tuple(note.key, note.object, note.context, note.valueAtDelivery, note.change.kind),
            std::tuple(YModifiedKey, flag.get(), static_cast<void*>(&context), true, YKeyValueChangeKind::Setting));

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

// Which registrations a notification reaches, and with which values: each
// gets what its options ask for, Prior only where asked for, and only for
// its own key.
TEST(YObjectObservingTest, EachRegistrationGetsWhatItsOptionsAskFor) {
  auto flag = std::make_shared<Flag>();
  auto prior = std::make_shared<Recorder>(), plain = std::make_shared<Recorder>(), old = std::make_shared<Recorder>(),
       other = std::make_shared<Recorder>();
  flag->addObserver(prior.get(), YModifiedKey, YKeyValueObservingOptionPrior | YKeyValueObservingOptionNew, nullptr);
  flag->addObserver(plain.get(), YModifiedKey, YKeyValueObservingOptionNew, nullptr);
  flag->addObserver(old.get(), YModifiedKey, YKeyValueObservingOptionOld, nullptr);
  flag->addObserver(other.get(), YElementsKey, kAllButInitial, nullptr);
  flag->setValue(true);
  EXPECT_EQ(prior->log(), "prior new=- old=-, new=1 old=-");
  EXPECT_EQ(plain->log(), "new=1 old=-");  // Old is another registration's
  EXPECT_EQ(old->log(), "new=- old=0");
  EXPECT_EQ(other->log(), "");

  // Initial with New delivers the current value at once.
  auto initial = std::make_shared<Recorder>();
  flag->addObserver(initial.get(), YModifiedKey, YKeyValueObservingOptionInitial | YKeyValueObservingOptionNew, nullptr);
  EXPECT_EQ(initial->log(), "new=1 old=-");

  // Removing other registrations leaves the options of the rest in force.
  for (auto* observer : {plain.get(), old.get(), other.get(), initial.get()})
    flag->removeObserver(observer, observer == other.get() ? YElementsKey : YModifiedKey);
  flag->setValue(false);
  EXPECT_EQ(prior->log(), "prior new=- old=-, new=1 old=-, prior new=- old=-, new=0 old=-");
}

// removeObserver takes back the observer's most recent registration for the
// key and nothing else; the counts follow.
TEST(YObjectObservingTest, RemovalTakesTheNewestRegistrationOfThatKey) {
  auto flag = std::make_shared<Flag>();
  auto observer = std::make_shared<Recorder>(), second = std::make_shared<Recorder>();
  int oldest = 0, newest = 0;
  flag->addObserver(observer.get(), YModifiedKey, YKeyValueObservingOptionNew, &oldest);
  flag->addObserver(second.get(), YModifiedKey, YKeyValueObservingOptionNew, nullptr);
  flag->addObserver(observer.get(), YModifiedKey, YKeyValueObservingOptionNew, &newest);
  flag->addObserver(observer.get(), YElementsKey, YKeyValueObservingOptionNew, nullptr);
  EXPECT_EQ(flag->observationCountForObserver(observer.get(), YModifiedKey), 2u);
  EXPECT_EQ(flag->observationCountForObserver(observer.get(), YElementsKey), 1u);
  EXPECT_EQ(flag->observationCountForKey(YModifiedKey), 3u);

  flag->removeObserver(observer.get(), YModifiedKey);
  EXPECT_EQ(flag->observationCountForObserver(observer.get(), YModifiedKey), 1u);
  EXPECT_EQ(flag->observationCountForObserver(observer.get(), YElementsKey), 1u);
  flag->setValue(true);
  ASSERT_EQ(observer->notes.size(), 1u);
  EXPECT_EQ(observer->notes[0].context, &oldest);

  // Removing the first registration of all keeps the ones after it.
  flag->removeObserver(observer.get(), YModifiedKey);
  flag->setValue(false);
  EXPECT_EQ(second->notes.size(), 2u);
  EXPECT_EQ(observer->notes.size(), 1u);
  flag->removeObserver(observer.get(), YElementsKey);
  EXPECT_EQ(flag->observationCountForKey(YElementsKey), 0u);
}

TEST(YObjectObservingTest, IndexedChangesCarryKindIndexesAndNewChildren) {
  auto parent = std::make_shared<Parent>();
  auto observer = std::make_shared<Recorder>();
  auto first = std::make_shared<YObject>(), second = std::make_shared<YObject>(), third = std::make_shared<YObject>();
  auto oldValues = std::make_shared<Recorder>();
  parent->addObserver(observer.get(), YElementsKey, YKeyValueObservingOptionNew, nullptr);
  parent->addObserver(oldValues.get(), YElementsKey, YKeyValueObservingOptionOld, nullptr);
  using Kind = YKeyValueChangeKind;
  parent->change(Kind::Insertion, 0, [&](auto& list) { list.insertObjectAtIndex(first, 0); });
  parent->change(Kind::Insertion, 1, [&](auto& list) { list.insertObjectAtIndex(second, 1); });
  parent->change(Kind::Replacement, 0, [&](auto& list) { list.replaceObjectAtIndexWithObject(0, third); });
  parent->change(Kind::Removal, 1, [&](auto& list) { list.removeObjectAtIndex(1); });
  ASSERT_EQ(observer->notes.size(), 4u);

  // New values: the children there after the change; old values: those there before.
  struct Expected {
    YKeyValueChangeKind kind;
    std::size_t index;
    YObject *added, *replaced;  // null: no value
  } expected[] = {{Kind::Insertion, 0, first.get(), nullptr},
                  {Kind::Insertion, 1, second.get(), nullptr},
                  {Kind::Replacement, 0, third.get(), first.get()},
                  {Kind::Removal, 1, nullptr, second.get()}};
  ASSERT_EQ(oldValues->notes.size(), 4u);
  for (std::size_t i = 0; i < 4; ++i) {
    SCOPED_TRACE(i);
    const YKeyValueChange& change = observer->notes[i].change;
    EXPECT_EQ(observer->notes[i].key, YElementsKey);
    EXPECT_EQ(change.kind, expected[i].kind);
    EXPECT_EQ(change.indexes, YIndexSet(expected[i].index));
    EXPECT_EQ(childrenIn(change.newValue), listOf(expected[i].added));
    EXPECT_EQ(childrenIn(oldValues->notes[i].change.oldValue), listOf(expected[i].replaced));
  }
}

TEST(YObjectObservingTest, NoDidChangeWhenTheBodyThrows) {
  auto flag = std::make_shared<Flag>();
  auto observer = std::make_shared<Recorder>();
  flag->addObserver(observer.get(), YModifiedKey, kAllButInitial, nullptr);
  EXPECT_THROW(flag->setValueAndFail(true), std::runtime_error);
  EXPECT_EQ(observer->log(), "prior new=- old=0");  // only the early notification
  EXPECT_FALSE(observer->notes[0].valueAtDelivery);  // before the change

  // The failed change leaves nothing behind: the next one reports its own old value.
  flag->setValue(false);
  EXPECT_EQ(observer->log(), "prior new=- old=0, prior new=- old=1, new=0 old=1");

  auto parent = std::make_shared<Parent>();
  parent->addObserver(observer.get(), YElementsKey, YKeyValueObservingOptionNew, nullptr);
  EXPECT_THROW(parent->change(YKeyValueChangeKind::Removal, 0, [](auto& list) { list.removeObjectAtIndex(0); }),
               YRangeException);
  EXPECT_EQ(observer->notes.size(), 3u);
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
  // The notes each of first, second and late has.
  auto counts = [&] { return std::vector{first->notes.size(), second->notes.size(), late->notes.size()}; };
  flag->setValue(true);
  EXPECT_EQ(counts(), (std::vector<std::size_t>{1, 0, 0}));  // second removed before its turn, late registered after
  flag->setValue(false);
  EXPECT_EQ(counts(), (std::vector<std::size_t>{2, 0, 1}));

  // An observer with two registrations that drops its newer one on the first
  // delivery: the dropped one is not notified.
  auto other = std::make_shared<Flag>();
  auto twice = std::make_shared<Recorder>();
  int one = 1, two = 2;
  twice->onNotify = [&] {
    if (twice->notes.size() == 1) other->removeObserver(twice.get(), YModifiedKey);
  };
  other->addObserver(twice.get(), YModifiedKey, YKeyValueObservingOptionNew, &one);
  other->addObserver(twice.get(), YModifiedKey, YKeyValueObservingOptionNew, &two);
  other->setValue(true);
  ASSERT_EQ(twice->notes.size(), 1u);
  EXPECT_EQ(twice->notes[0].context, &one);
  other->removeObserver(twice.get(), YModifiedKey);

  // An observer registered while a change of an unobserved object runs is notified at its did-change.
  auto joining = std::make_shared<Recorder>();
  other->during = [&] { other->addObserver(joining.get(), YModifiedKey, YKeyValueObservingOptionNew, nullptr); };
  other->setValue(false);
  EXPECT_EQ(joining->notes.size(), 1u);

  // Observers that remove themselves during delivery.
  first->onNotify = [&] { flag->removeObserver(first.get(), YModifiedKey); };
  late->onNotify = [&] { flag->removeObserver(late.get(), YModifiedKey); };
  flag->setValue(true);
  flag->setValue(false);
  EXPECT_EQ(counts(), (std::vector<std::size_t>{3, 0, 2}));

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
  EXPECT_EQ(counts(), (std::vector<std::size_t>{4, 0, 2}));
}

TEST(YIndexSetTest, KeepsDistinctIndexesInAscendingOrder) {
  const std::vector<std::pair<std::vector<std::size_t>, std::vector<std::size_t>>> cases = {
      {{}, {}},
      {{0}, {0}},
      {{5, 2, 9, 3, 2, 9}, {2, 3, 5, 9}},
      {{7, 6, 5, 4}, {4, 5, 6, 7}},
      {{1, 8, 4}, {1, 4, 8}},
  };
  for (const auto& [added, expected] : cases) {
    YIndexSet set;
    for (std::size_t index : added) set.addIndex(index);
    EXPECT_EQ(set.indexes(), expected);
    EXPECT_EQ(set.count(), expected.size());
    EXPECT_EQ(set.firstIndex(), expected.empty() ? YNotFound : expected.front());
    for (std::size_t index = 0; index < 10; ++index)
      EXPECT_EQ(set.containsIndex(index), std::count(expected.begin(), expected.end(), index) == 1) << index;
  }
  EXPECT_FALSE(YIndexSet() == YIndexSet(0));
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

// Interned keys are one object per text, whichever thread asks first; a key
// with the same text that is not the interned object still matches it.
TEST(YObjectInternedKeys, OneObjectPerTextAndPlainKeysStillMatch) {
  std::vector<const YString*> seen(4);
  std::vector<std::thread> threads;
  for (std::size_t i = 0; i < seen.size(); ++i)
    threads.emplace_back([&seen, i] { seen[i] = &YObject::internedKey(u"interned-test-key"); });
  for (auto& t : threads) t.join();
  for (const YString* key : seen) EXPECT_EQ(key, seen[0]);
  EXPECT_NE(&YObject::internedKey(u"another-interned-key"), seen[0]);
  EXPECT_TRUE(seen[0]->isEqualToString(YString(u"interned-test-key")));

  Flag flag;
  Recorder byInterned, byPlain;
  flag.addObserver(&byInterned, *seen[0], YKeyValueObservingOptionNew, nullptr);
  flag.addObserver(&byPlain, YString(u"interned-test-key"), YKeyValueObservingOptionNew, nullptr);
  flag.didChangeValueForKey(YString(u"interned-test-key"));
  EXPECT_EQ(byInterned.notes.size(), 1u);
  EXPECT_EQ(byPlain.notes.size(), 1u);
  flag.removeObserver(&byInterned, YString(u"interned-test-key"));  // held in the object, found by its text
  EXPECT_EQ(flag.observationCountForObserver(&byInterned, *seen[0]), 0u);
  EXPECT_EQ(flag.observationCountForObserver(&byPlain, *seen[0]), 1u);
  flag.removeObserver(&byPlain, *seen[0]);
  EXPECT_EQ(flag.observationCount(), 0u);
}

// The sole observer is found wherever its registration is kept (in the object
// or in its table, for a plain key or with Old asked for), and only while it
// is the one registration, for that key, with exactly those options and no
// context.
TEST(YObjectObservingTest, SoleObserverOnlyForTheOneMatchingRegistration) {
  const unsigned kNew = YKeyValueObservingOptionNew;
  const unsigned kOld = YKeyValueObservingOptionNew | YKeyValueObservingOptionOld;
  int context = 0;
  struct Case {
    const char* what;
    std::function<void(Flag&, Recorder&, Recorder&)> registrations;
    bool sole;  // whether `first` is the sole observer for "modified" with New
  } cases[] = {
      {"none", [](Flag&, Recorder&, Recorder&) {}, false},
      {"one, kept in the object",
       [&](Flag& f, Recorder& a, Recorder&) { f.addObserver(&a, YModifiedKey, kNew, nullptr); }, true},
      {"one, for a plain key of the same text",
       [&](Flag& f, Recorder& a, Recorder&) { f.addObserver(&a, YString(u"modified"), kNew, nullptr); }, true},
      {"one, with Old asked for",
       [&](Flag& f, Recorder& a, Recorder&) { f.addObserver(&a, YModifiedKey, kOld, nullptr); }, false},
      {"one, with a context",
       [&](Flag& f, Recorder& a, Recorder&) { f.addObserver(&a, YModifiedKey, kNew, &context); }, false},
      {"one, for another key",
       [&](Flag& f, Recorder& a, Recorder&) { f.addObserver(&a, YElementsKey, kNew, nullptr); }, false},
      {"two",
       [&](Flag& f, Recorder& a, Recorder& b) {
         f.addObserver(&a, YModifiedKey, kNew, nullptr);
         f.addObserver(&b, YModifiedKey, kNew, nullptr);
       },
       false},
      {"two, the other one removed",
       [&](Flag& f, Recorder& a, Recorder& b) {
         f.addObserver(&b, YModifiedKey, kNew, nullptr);
         f.addObserver(&a, YModifiedKey, kNew, nullptr);
         f.removeObserver(&b, YModifiedKey);
       },
       true},
      {"two, the object itself first",
       [&](Flag& f, Recorder& a, Recorder&) {
         f.addObserver(&f, YElementsKey, kNew, nullptr);
         f.addObserver(&a, YModifiedKey, kNew, nullptr);
       },
       false},
  };
  // The key-number form answers alike; a string of the same text that is not
  // the interned key object has no number.
  const unsigned modified = YObject::internedKeyNumber(YModifiedKey);
  const unsigned elements = YObject::internedKeyNumber(YElementsKey);
  EXPECT_NE(modified, 0u);
  EXPECT_NE(elements, 0u);
  EXPECT_NE(modified, elements);
  EXPECT_EQ(YObject::internedKeyNumber(YString(u"modified")), 0u);
  for (const Case& c : cases) {
    SCOPED_TRACE(c.what);
    Flag flag;
    Recorder first, second;
    c.registrations(flag, first, second);
    EXPECT_EQ(flag.soleObserverForKeyWithOptions(YModifiedKey, kNew), c.sole ? &first : nullptr);
    Recorder* const withOld = std::string(c.what) == "one, with Old asked for" ? &first : nullptr;
    Recorder* const ofElements = std::string(c.what) == "one, for another key" ? &first : nullptr;
    EXPECT_EQ(flag.soleObserverForKeyWithOptions(YModifiedKey, kOld), withOld);
    EXPECT_EQ(flag.soleObserverForKeyWithOptions(YElementsKey, kNew), ofElements);
    EXPECT_EQ(flag.soleObserverForKeyNumberWithOptions(modified, kNew), c.sole ? &first : nullptr);
    EXPECT_EQ(flag.soleObserverForKeyNumberWithOptions(modified, kOld), withOld);
    EXPECT_EQ(flag.soleObserverForKeyNumberWithOptions(elements, kNew), ofElements);
    // Options beyond the four bits and numbers no key has match nothing.
    EXPECT_EQ(flag.soleObserverForKeyNumberWithOptions(modified, kNew | 0x10), nullptr);
    EXPECT_EQ(flag.soleObserverForKeyNumberWithOptions(0, kNew | 0x10), nullptr);
    EXPECT_EQ(flag.soleObserverForKeyNumberWithOptions(0, kNew), nullptr);
    EXPECT_EQ(flag.soleObserverForKeyNumberWithOptions(16, kNew), nullptr);
    while (flag.observationCount()) {  // leave no registration behind for the recorders' destruction
      const YObject::Observation r = flag.observationAtIndex(0);
      flag.removeObserver(r.observer, YString(r.key));
    }
  }
}

// A registration by key number is the one addObserver() makes for that
// interned key (which routes such registrations through it): found by the
// key, delivered alike. A number no key has, and a null observer, are refused.
TEST(YObjectObservingTest, RegistrationByKeyNumberIsTheRegistrationByKey) {
  const unsigned kNew = YKeyValueObservingOptionNew;
  const unsigned modified = YObject::internedKeyNumber(YModifiedKey);
  Flag flag;
  Recorder recorder;
  flag.addObserverForKeyNumber(&recorder, modified, kNew);
  EXPECT_EQ(flag.observationCountForObserver(&recorder, YString(u"modified")), 1u);
  flag.setValue(true);
  EXPECT_EQ(recorder.log(), "new=1 old=-");
  flag.removeObserver(&recorder, YModifiedKey);
  // After a registration kept in the table, in order; on an object without
  // one, options beyond the four bits kept as asked, and Initial told at once.
  int context = 0;
  Recorder second, third;
  flag.addObserver(&recorder, YModifiedKey, kNew, &context);
  flag.addObserverForKeyNumber(&second, modified, kNew);
  EXPECT_EQ(flag.observationAtIndex(1).observer, &second);
  Flag wide, initial;
  wide.addObserverForKeyNumber(&second, modified, 0x10 | kNew);
  EXPECT_EQ(wide.observationAtIndex(0).options, 0x10 | kNew);
  initial.addObserverForKeyNumber(&third, modified, YKeyValueObservingOptionInitial | kNew);
  EXPECT_EQ(third.log(), "new=0 old=-");
  for (Recorder* r : {&second, &recorder}) flag.removeObserver(r, YModifiedKey);
  wide.removeObserver(&second, YModifiedKey);
  initial.removeObserver(&third, YModifiedKey);
  // This program interns a few keys, far fewer than the fifteen allowed.
  for (unsigned number : {0u, 15u, 16u, 0xFFFFFFFFu})
    EXPECT_THROW(flag.addObserverForKeyNumber(&recorder, number, kNew), YInvalidArgumentException) << number;
  EXPECT_THROW(flag.addObserverForKeyNumber(nullptr, modified, kNew), YInvalidArgumentException);
  EXPECT_EQ(flag.observationCount(), 0u);
}

}  // namespace
