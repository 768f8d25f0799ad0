// The composite element: list changes, observation, revert, commit, copy.
#include <gtest/gtest.h>

#include <functional>

#include "ElementTestSupport.h"
#include "YIniDocument.h"
#include "YIniStandardElementFactory.h"
#include "YIniCompositeElement.h"
#include "YIniSection.h"

namespace {

using List = YIniCompositeElement::ElementList;

std::shared_ptr<YIniCompositeElement> composite(const std::vector<std::shared_ptr<YIniElement>>& children = {}) {
  return withChildren(std::make_shared<YIniCompositeElement>(), children);
}
std::size_t observations(const std::shared_ptr<YIniElement>& child, const YIniCompositeElement& parent) {
  return child->observationCountForObserver(&parent, YModifiedKey);
}

// A stranger, observed through subscribeForChangesInElement, changes; then it is no longer observed.
void strangerChanges(YIniCompositeElement& c) {
  auto stranger = opt("stranger");
  c.subscribeForChangesInElement(stranger);
  stranger->setValue(S("w"));
  c.unsubscribeForChangesInElement(stranger);
}

// A comment whose commit and revert fail, for the error paths.
class FailingComment : public YIniComment {
 public:
  FailingComment() : YIniComment(S("# f")) {}
  void commit() override { throw YInvalidArgumentException(S("commit failed")); }
  void revert() override { throw YInvalidArgumentException(S("revert failed")); }
};

TEST(Composite, ModifiedComparesListsByIdentityAndFollowsChildren) {
  auto a = opt("a"), b = opt("b");
  auto c = composite({a, b});
  c->commit();
  c->removeObjectFromElementsAtIndex(0);
  c->insertObjectInElementsAtIndex(a, 0);
  EXPECT_FALSE(c->isModified());
  c->replaceElementWith(a, a->copyWithZone());  // equal-looking but another object
  EXPECT_TRUE(c->isModified());
  c->replaceObjectInElementsAtIndexWithObject(0, a);
  b->setValue(S("w"));
  EXPECT_TRUE(c->isModified());
}

// The flag after list changes that the composite can only get right by
// looking at each child as it stands: changed while not observed, present
// twice, replaced, or observed without being a child.
TEST(Composite, ModifiedFollowsChildrenThroughDetachingDuplicatesAndStrangers) {
  using Step = std::function<void(YIniCompositeElement&, YIniOption& a, YIniOption& b)>;
  const std::vector<std::tuple<const char*, Step, bool>> cases = {
      {"a child changed while detached, then put back in its place",
       [](auto& c, auto& a, auto&) {
         auto child = c.elements()->objectAtIndex(0);
         c.removeObjectFromElementsAtIndex(0);
         a.setValue(S("w"));
         c.insertObjectInElementsAtIndex(child, 0);
       },
       true},
      {"one of two occurrences of a changed child removed",
       [](auto& c, auto& a, auto&) {
         c.addElement(c.elements()->objectAtIndex(0));
         a.setValue(S("w"));
         c.removeObjectFromElementsAtIndex(2);
       },
       true},
      {"a changed new child replaced, then removed",
       [](auto& c, auto&, auto&) {
         auto added = opt("added");
         c.addElement(added);
         added->setValue(S("w"));
         c.replaceObjectInElementsAtIndexWithObject(2, opt("other"));
         c.removeObjectFromElementsAtIndex(2);
       },
       false},
      {"a stranger observed through subscribeForChangesInElement changes",
       [](auto& c, auto&, auto&) { strangerChanges(c); }, false},
      {"a stranger changes after the composite has looked at its children",
       [](auto& c, auto& a, auto&) {
         a.setValue(S("w"));
         a.setValue(S("v"));
         strangerChanges(c);
       },
       false},
      {"a stranger subscribed before a revert changes and goes",
       [](auto& c, auto& a, auto&) {
         auto stranger = opt("stranger");
         c.subscribeForChangesInElement(stranger);
         c.revert();  // the children are observed again; the stranger still is
         a.setValue(S("w"));
         a.setValue(S("v"));
         stranger->setValue(S("w"));
         stranger->setValue(YString::mutableStringWithString(S("x")));
         c.unsubscribeForChangesInElement(stranger);
       },
       false},
      {"a stranger handed to modifiedChangedForElement by the host, then gone",
       [](auto& c, auto& a, auto&) {
         a.setValue(S("w"));
         a.setValue(S("v"));
         {
           auto stranger = opt("stranger");
           stranger->setValue(YString::mutableStringWithString(S("x")));
           c.modifiedChangedForElement(stranger.get());
           c.modifiedChangedForElement(stranger.get());
         }
         a.setValue(S("w"));
         a.setValue(S("v"));
       },
       false},
      {"a child left unobserved by a failed removal changes, then another child announces",
       [](auto& c, auto& a, auto& b) {
         c.revert();  // the list is immutable now
         EXPECT_THROW(c.removeObjectFromElementsAtIndex(0), YInvalidArgumentException);
         a.setValue(S("w"));  // unobserved: nothing announced
         b.setValue(S("x"));
         b.setValue(S("v"));
       },
       true},
  };
  for (const auto& [name, step, modified] : cases) {
    SCOPED_TRACE(name);
    auto a = opt("a"), b = opt("b");
    auto c = composite({a, b});
    c->commit();
    step(*c, *a, *b);
    EXPECT_EQ(c->isModified(), modified);
    a->setValue(S("v"));
    b->setValue(S("v"));
    EXPECT_EQ(c->isModified(), !c->compareArrayAgainst(c->elements(), c->initialElements()));
  }
}

// A setter keeps the caller's string: a mutable one changed in place changes
// the element without an announcement, and a recomputation must see it.
TEST(Composite, RecomputationAsksChildrenHoldingMutableStrings) {
  YString m = YString::mutableStringWithString(S("v"));
  auto k = YIniOption::optionWithNameAndValue(S("k"), m), x = opt("x", "1");
  auto s = sec("a", {k, x});
  s->commit();
  m.appendString(S("!"));
  EXPECT_TRUE(k->isModified());
  x->setValue(S("2"));
  x->setValue(S("1"));  // the section recomputes
  EXPECT_TRUE(s->isModified());
  EXPECT_TRUE(s->hasModifiedElements());
  m.setString(S("v"));  // back as committed, still unannounced
  x->setValue(S("1"));
  EXPECT_FALSE(s->isModified());
  // Once the option holds an immutable string again, it is followed by its announcements.
  k->setValue(S("w"));
  EXPECT_TRUE(s->isModified());

  // One level up: a section name changed in place.
  YString name = YString::mutableStringWithString(S("s"));
  auto named = YIniSection::sectionWithName(S("s")), other = YIniSection::sectionWithName(S("t"));
  auto document = withChildren(YIniDocument::documentWithFactory(YIniStandardElementFactory::standardFactory()),
                               {named, other});
  named->setName(name);
  document->commit();
  name.appendString(S("2"));
  other->setName(S("t"));  // the document recomputes
  EXPECT_TRUE(document->isModified());
}

TEST(Composite, EveryListAccessorAndSetModifiedAnnounces) {
  auto c = composite();
  KeyObserver modified(*c, YModifiedKey), elements(*c, YElementsKey);
  c->setModified(false);
  c->setModified(false);
  EXPECT_EQ(modified.count(), 2u);
  auto a = opt("a"), b = opt("b");
  using Kind = YKeyValueChangeKind;
  const std::vector<std::tuple<const char*, std::function<void()>, Kind, std::size_t>> steps = {
      {"insert", [&] { c->insertObjectInElementsAtIndex(a, 0); }, Kind::Insertion, 0},
      {"append", [&] { c->insertObjectInElementsAtIndex(b, 1); }, Kind::Insertion, 1},
      {"replace", [&] { c->replaceObjectInElementsAtIndexWithObject(1, opt("x")); }, Kind::Replacement, 1},
      {"remove", [&] { c->removeObjectFromElementsAtIndex(0); }, Kind::Removal, 0},
      {"set", [&] { c->setElements(List::arrayWithObjects({a})); }, Kind::Setting, 0},
      {"set again", [&] { c->setElements(List::arrayWithObjects({a})); }, Kind::Setting, 0},
  };
  for (const auto& [name, act, kind, index] : steps) {
    SCOPED_TRACE(name);
    const std::size_t before = elements.count(), modifiedBefore = modified.count();
    act();
    ASSERT_EQ(elements.count(), before + 1);
    EXPECT_EQ(elements.changes.back().kind, kind);
    EXPECT_TRUE(kind == Kind::Setting || elements.changes.back().indexes == YIndexSet(index));
    EXPECT_EQ(modified.count(), modifiedBefore + 1);  // also when the flag keeps its value
    EXPECT_EQ(modified.lastBool(), c->isModified());
  }
  c->insertObjectInElementsAtIndex(b, 0);  // the New value of an insertion holds the new child
  auto inserted = std::get<std::shared_ptr<YObject>>(elements.changes.back().newValue);
  auto list = std::dynamic_pointer_cast<YArray<YObject>>(inserted);
  ASSERT_TRUE(list && list->count() == 1u);
  EXPECT_EQ(list->objectAtIndex(0).get(), b.get());
}

// A host's section that reads the change records of its own registrations.
class RecordingSection : public YIniSection {
 public:
  RecordingSection() : YIniSection(S("s")) {}
  std::vector<YKeyValueChange> seen;
  void observeValueForKeyPath(const YString& key, YObject* object, const YKeyValueChange& change,
                              void* context) override {
    seen.push_back(change);
    YIniSection::observeValueForKeyPath(key, object, change, context);
  }
};

TEST(Composite, SubclassObserversGetTheValuesTheyRegisteredFor) {
  // The library's own composites read no values, so their notifications
  // carry none; a subclass gets what its registrations (New) ask for.
  auto section = std::make_shared<RecordingSection>();
  auto option = opt("k", "v");
  section->addElement(option);
  ASSERT_EQ(section->seen.size(), 1u);
  auto added = std::get<std::shared_ptr<YObject>>(section->seen[0].newValue);
  EXPECT_EQ(std::dynamic_pointer_cast<YArray<YObject>>(added)->objectAtIndex(0).get(), option.get());
  option->setValue(S("w"));
  ASSERT_EQ(section->seen.size(), 2u);  // the option's "modified", with its new state
  EXPECT_EQ(std::get<bool>(section->seen[1].newValue), true);
  EXPECT_TRUE(section->isModified());
}

TEST(Composite, EachOccurrenceObservedOnceInitialOnlyNotAndDestructionUnsubscribes) {
  auto c = composite();
  EXPECT_EQ(c->observationCountForObserver(c.get(), YElementsKey), 1u);  // self-observation
  auto a = opt("a"), b = opt("b");
  c->setElements(List::arrayWithObjects({a, a, b}));
  EXPECT_EQ(observations(a, *c), 2u);
  c->commit();
  c->removeElement(a);
  c->removeElement(b);
  EXPECT_EQ(observations(a, *c), 1u);
  EXPECT_EQ(observations(b, *c), 0u);  // only in initialElements now
  c->replaceObjectInElementsAtIndexWithObject(0, b);
  EXPECT_EQ(observations(a, *c), 0u);
  EXPECT_EQ(observations(b, *c), 1u);
  c.reset();
  EXPECT_EQ(b->observationCountForKey(YModifiedKey), 0u);
  b->setValue(S("x"));  // no dangling observer
}

TEST(Composite, CommitIgnoresChildrenAndClearsTheFlagOnFailure) {
  auto first = opt("k");
  auto c = composite({first, opt("k"), opt("k")});
  for (const auto& child : c->elements()->vector()) std::static_pointer_cast<YIniOption>(child)->setValue(S("w"));
  KeyObserver modified(*c, YModifiedKey);
  c->commit();
  EXPECT_EQ(modified.count(), 1u);  // once, at the end
  EXPECT_FALSE(modified.lastBool());

  c->addElement(std::make_shared<FailingComment>());
  EXPECT_THROW(c->commit(), YInvalidArgumentException);
  EXPECT_THROW(c->revert(), YInvalidArgumentException);
  c->setElements(List::arrayWithObjects({first}));
  c->commit();
  first->setValue(S("again"));  // children are heard again
  EXPECT_TRUE(c->isModified());
}

TEST(Composite, RevertRevertsCurrentChildrenRestoresTheListAndFreezesIt) {
  auto kept = opt("kept"), removed = opt("removed"), added = opt("added");
  auto c = composite({kept, removed});
  c->commit();
  c->addElement(added);
  c->removeElement(removed);
  for (const auto& o : {kept, removed, added}) o->setValue(S("changed"));

  c->revert();
  EXPECT_FALSE(c->isModified());
  EXPECT_FALSE(kept->isModified());
  EXPECT_FALSE(added->isModified());   // reverted, then dropped
  EXPECT_TRUE(removed->isModified());  // not current at the revert, so not reverted
  EXPECT_EQ(observations(added, *c), 0u);
  EXPECT_EQ(observations(removed, *c), 1u);
  EXPECT_EQ(c->elements()->objectAtIndex(1), removed);

  EXPECT_FALSE(c->elements()->isMutable());
  EXPECT_THROW(c->addElement(opt("x")), YInvalidArgumentException);
  EXPECT_THROW(c->removeElement(kept), YInvalidArgumentException);
  EXPECT_EQ(observations(kept, *c), 0u);  // unsubscribed before the list refused
  c->setElements(c->elements());          // a mutable copy again
  EXPECT_EQ(observations(kept, *c), 1u);
  c->addElement(opt("x"));
  EXPECT_EQ(c->elements()->count(), 3u);
}

// A composite that would come to hold itself is refused: every walk over
// the tree (commit, revert, copies, announcements) would never end.
TEST(Composite, NoCompositeComesToHoldItself) {
  auto a = YIniSection::sectionWithName(S("a")), b = YIniSection::sectionWithName(S("b"));
  auto document = YIniDocument::documentWithFactory(YIniStandardElementFactory::standardFactory());
  document->addElement(a);
  a->addElement(b);
  for (const auto& act : std::vector<std::function<void()>>{
           [&] { a->addElement(a); }, [&] { b->addElement(a); }, [&] { b->insertObjectInElementsAtIndex(document, 0); },
           [&] { a->replaceObjectInElementsAtIndexWithObject(0, a); },
           [&] { b->setElements(List::mutableArrayWithObjects({opt("k"), document})); }})
    EXPECT_PRECONDITION(act(), "element does not hold the receiver");
  EXPECT_EQ(a->elements()->count(), 1u);
  EXPECT_EQ(b->elements()->count(), 0u);
  // A child of the last commit, taken out and given its old parent, is not put back.
  auto p = YIniSection::sectionWithName(S("p")), q = YIniSection::sectionWithName(S("q"));
  p->addElement(q);
  p->commit();
  p->removeElement(q);
  q->addElement(p);
  EXPECT_PRECONDITION(p->revert(), "element does not hold the receiver");
  EXPECT_EQ(p->elements()->count(), 0u);
  q->removeElement(p);
  p->revert();
  EXPECT_EQ(p->elements()->objectAtIndex(0), q);
  a->addElement(opt("k"));
  b->addElement(YIniSection::sectionWithName(S("c")));  // a tree may nest, without a cycle
  document->commit();
  document->revert();
  EXPECT_FALSE(document->isModified());
  EXPECT_EQ(std::static_pointer_cast<YIniDocument>(document->copyWithZone())->elements()->count(), 1u);
}

// Every walk over the tree recurses once per level, so a tree is kept to a
// depth that a small thread's stack holds: the levels above the receiver
// (its parents, found by their observation), the receiver and the longest
// chain below what comes in must make at most 256.
TEST(Composite, NestingStopsAtTheDeepestLevel) {
  constexpr std::size_t deepest = YIniCompositeElement::maximumNestingDepth;
  auto section = [] { return YIniSection::sectionWithName(S("s")); };
  // A chain of `n` sections, each holding the next; the top and the bottom one.
  auto chain = [&](std::size_t n) {
    auto top = section(), bottom = top;
    for (; n > 1; --n, bottom = std::static_pointer_cast<YIniSection>(bottom->elements()->lastObject()))
      bottom->addElement(section());
    return std::pair{top, bottom};
  };
  const char* tooDeep = "element keeps the tree within 256 levels";
  auto ends = chain(deepest);
  auto top = ends.first, bottom = ends.second;
  bottom->addElement(opt("k"));  // a leaf nests no deeper than its composite
  for (const auto& act : std::vector<std::function<void()>>{
           [&] { bottom->addElement(section()); }, [&] { bottom->replaceObjectInElementsAtIndexWithObject(0, section()); },
           [&] { bottom->setElements(List::mutableArrayWithObjects({opt("x"), section()})); },
           [&] { chain(2).second->addElement(top); }})
    EXPECT_PRECONDITION(act(), tooDeep);
  EXPECT_EQ(bottom->elements()->count(), 1u);

  // The chain at its deepest still commits, changes, reverts, copies and writes.
  top->commit();
  std::static_pointer_cast<YIniOption>(bottom->elements()->objectAtIndex(0))->setValue(S("w"));
  EXPECT_TRUE(top->isModified());
  EXPECT_EQ(top->copyWithZone()->stringValue().length(), top->stringValue().length());
  top->revert();
  EXPECT_FALSE(top->isModified());

  // Below: the longest chain counts, also where a subtree is held twice. The
  // shared chain is met first directly, then again one level further down.
  auto shared = chain(200).first;
  auto holder = section(), twice = section();
  twice->addElement(shared);
  holder->addElement(shared);
  holder->addElement(twice);  // 1 + 1 + 200 levels
  auto above = chain(deepest - 202 + 1);
  EXPECT_PRECONDITION(above.second->addElement(holder), tooDeep);
  chain(deepest - 202).second->addElement(holder);
  // Above: the parent on the longer way counts, for a composite in two.
  auto shallow = chain(2), deep = chain(deepest - 1);
  auto inTwo = section();
  shallow.second->addElement(inTwo);
  deep.second->addElement(inTwo);
  EXPECT_PRECONDITION(inTwo->addElement(section()), tooDeep);
  inTwo->addElement(opt("leaf"));
}

// The depth is counted through the parents' observation of their children;
// a host that takes that away can still nest deeper. Destroying such a tree
// must not take a stack frame per level.
TEST(Composite, ATreeDeeperThanTheLimitIsDestroyedWithAFlatStack) {
  auto top = YIniSection::sectionWithName(S("top"));
  YIniSection* at = top.get();
  for (int i = 0; i < 100'000; ++i) {
    auto next = YIniSection::sectionWithName(S("s"));
    at->addElement(next);
    at->unsubscribeForChangesInElement(next);  // its parent no longer counts above it
    at = next.get();
  }
  at->addElement(opt("k"));
  top.reset();
}

TEST(Composite, PreconditionTexts) {
  auto a = opt("a");
  auto c = composite({a});
  for (const auto& act : std::vector<std::function<void()>>{
           [&] { c->addElement(nullptr); }, [&] { c->insertObjectInElementsAtIndex(nullptr, 0); },
           [&] { c->removeElement(nullptr); }, [&] { c->replaceObjectInElementsAtIndexWithObject(0, nullptr); },
           [&] { c->replaceElementWith(nullptr, a); }, [&] { c->subscribeForChangesInElement(nullptr); },
           [&] { c->unsubscribeForChangesInElement(nullptr); }})
    EXPECT_PRECONDITION(act(), "element != nil");
  EXPECT_PRECONDITION(c->insertObjectInElementsAtIndex(opt("b"), 2), "index >= 0 && index <= [elements count]");
  EXPECT_PRECONDITION(c->removeObjectFromElementsAtIndex(1), "index >= 0 && index < [elements count]");
  EXPECT_PRECONDITION(c->removeElement(opt("stranger")), "index >= 0 && index < [elements count]");
  EXPECT_PRECONDITION(c->replaceElementWith(a, nullptr), "otherElement != nil");
  EXPECT_PRECONDITION(c->setElements(nullptr), "value != nil");
  // A list made with the public constructor may hold a null: refused, and
  // the composite keeps its children.
  EXPECT_THROW(c->setElements(std::make_shared<List>(std::vector<std::shared_ptr<YIniElement>>{a, nullptr}, true)),
               YInvalidArgumentException);
  EXPECT_EQ(c->elements()->count(), 1u);
  EXPECT_EQ(c->elements()->objectAtIndex(0), a);
  EXPECT_PRECONDITION(c->compareArrayAgainst(nullptr, c->elements()), "a1 != nil");
  EXPECT_PRECONDITION(c->compareArrayAgainst(c->elements(), nullptr), "a2 != nil");
  EXPECT_THROW(c->replaceElementWith(opt("stranger"), opt("b")), YRangeException);
  EXPECT_THROW(c->stringValue(), YInvalidArgumentException);
  EXPECT_EQ(observations(a, *c), 1u);
  c->insertObjectInElementsAtIndex(opt("b"), 1);  // index == count appends

  RecordingScope recording;
  c->removeObjectFromElementsAtIndex(7);
  EXPECT_EQ(recording.handler->units(), std::vector<std::string>{"YIniCompositeElement"});
  EXPECT_EQ(c->elements()->count(), 2u);
}

}  // namespace
