#include "YIniCompositeElement.h"

#include <algorithm>
#include <exception>
#include <typeinfo>
#include <unordered_map>
#include <unordered_set>
#include <utility>
#include <vector>

#include "YAssertionHandler.h"
#include "YIniDocument.h"
#include "YIniSection.h"

static constexpr const char YUnitName[] = "YIniCompositeElement";

const YString& YElementsKey = YObject::internedKey(u"elements");

namespace {
// What taking `element` into `composite` would do to the tree.
enum class Nesting { Fits, Cycle, TooDeep };

constexpr std::size_t kDeepest = YIniCompositeElement::maximumNestingDepth;
constexpr const char kNestingCondition[] = "element keeps the tree within 256 levels";
static_assert(kDeepest == 256, "the condition's text names the depth");

// The composites on the longest chain from `start` down through composite
// children (1 for one holding none), or 0 when the chain meets `composite`,
// which would close a cycle that every walk over the tree would follow
// forever. A subtree seen before is counted once (a DAG stays linear).
std::size_t levelsDown(YIniCompositeElement* start, const YIniCompositeElement& composite) {
  if (start == &composite) return 0;
  // Most often (a section of options) no child is a composite.
  const auto& top = start->elementsList()->vector();
  if (std::none_of(top.begin(), top.end(), [](const auto& child) { return YCast<YIniCompositeElement>(child.get()); }))
    return 1;
  std::unordered_map<const YIniCompositeElement*, std::size_t> levels{{start, 0}};  // 0: being walked
  struct Step {
    YIniCompositeElement* at;
    std::size_t next;     // the child to look at next
    std::size_t deepest;  // the most levels below found so far
  };
  std::vector<Step> path{{start, 0, 0}};
  while (true) {
    Step& step = path.back();
    const auto& children = step.at->elementsList()->vector();
    if (step.next < children.size()) {
      auto* inner = YCast<YIniCompositeElement>(children[step.next++].get());
      if (!inner) continue;
      if (inner == &composite) return 0;
      const auto [found, isNew] = levels.try_emplace(inner, 0);
      // A composite met again while it is walked holds itself: too deep to count.
      if (!isNew && found->second == 0) return SIZE_MAX;
      if (isNew) path.push_back({inner, 0, 0});
      else step.deepest = std::max(step.deepest, found->second);
      continue;
    }
    const std::size_t here = step.deepest + 1;
    levels[step.at] = here;
    path.pop_back();
    if (path.empty()) return here;
    path.back().deepest = std::max(path.back().deepest, here);
  }
}

// The composites on the longest chain above `composite`: those that observe
// it for "modified" (its parents), theirs in turn, and so on, counted up to
// one past the deepest a tree may be. A chain of observation that comes
// round to itself counts as too deep.
std::size_t levelsUp(const YIniCompositeElement& composite) {
  std::vector<const YIniCompositeElement*> level{&composite}, next;
  std::size_t levels = 0;
  while (levels <= kDeepest) {
    next.clear();
    for (const auto* at : level)
      for (std::size_t i = 0, n = at->observationCount(); i < n; ++i) {
        const YObject::Observation r = at->observationAtIndex(i);
        if (r.observer == at || !YKeysEqual(r.key, YModifiedKey)) continue;
        const auto* parent = YCast<YIniCompositeElement>(r.observer);
        if (parent && std::find(next.begin(), next.end(), parent) == next.end()) next.push_back(parent);
      }
    if (next.empty()) return levels;
    ++levels;
    level.swap(next);
  }
  return levels;
}

Nesting nestingOf(YIniElement* element, const YIniCompositeElement& composite) {
  auto* start = YCast<YIniCompositeElement>(element);
  if (!start) return Nesting::Fits;  // a leaf nests no deeper than its composite
  const std::size_t below = levelsDown(start, composite);
  if (below == 0) return Nesting::Cycle;
  if (below > kDeepest) return Nesting::TooDeep;
  return levelsUp(composite) + 1 + below > kDeepest ? Nesting::TooDeep : Nesting::Fits;
}
}  // namespace

namespace {
// The number of the key a composite observes its children under.
[[gnu::always_inline]] inline unsigned modifiedKeyNumber() noexcept {
  static const unsigned number = YObject::internedKeyNumber(YModifiedKey);
  return number;
}
}  // namespace

// What hasModifiedElements() would find, kept for one state of the lists:
// whether they differ, which distinct children were last seen modified, and
// which children may change without telling (they are asked each time).
// While the lists differ the composite is modified whatever its children
// are, so the modified children are not tracked then.
struct YIniCompositeElement::ModifiedCache {
  const ElementList* elements = nullptr;
  const ElementList* initial = nullptr;
  std::uint64_t mutations = 0;
  bool listDiffers = false;
  bool modifiedKnown = false;  // `modified` is complete (only kept while the lists are equal)
  std::unordered_set<const YIniElement*> modified;     // of the children that announce their changes
  std::unordered_set<const YIniElement*> unannounced;  // children that may change unannounced
};

namespace {
// Every new composite starts from the same empty immutable list: nothing can
// change it, and a document of many empty sections need not hold one each.
const std::shared_ptr<YIniCompositeElement::ElementList>& emptyList() {
  static const auto list = YIniCompositeElement::ElementList::array();
  return list;
}
}  // namespace

YIniCompositeElement::YIniCompositeElement() : _initialElements(emptyList()), _elements(ElementList::mutableArray()) {
  static const unsigned elementsKey = YObject::internedKeyNumber(YElementsKey);
  addObserverForKeyNumber(this, elementsKey, YKeyValueObservingOptionNew);
}

namespace {
// Destroying a composite destroys the composites its lists hold, inside its
// own destruction. Past this many nested destructions, a composite's lists
// are left to the outermost one, which lets go of them one after another, so
// that the stack stays flat however deep the tree.
constexpr unsigned kNestedDestructions = 64;
constinit thread_local unsigned nestedDestructions = 0;
constinit thread_local std::vector<std::shared_ptr<YIniCompositeElement::ElementList>>* listsLeftToRelease = nullptr;
}  // namespace

YIniCompositeElement::~YIniCompositeElement() {
  // Never throw from here: registrations that a failed operation already
  // removed are simply skipped. The composite's observation of its own list
  // goes with it; nothing announces on it while it is destroyed.
  for (const auto& child : _elements->vector()) {
    // A child that only this list holds goes with it, registrations and
    // all: releasing a document does not unsubscribe its every element.
    if (child.use_count() == 1) continue;
    if (child->observationCountForObserver(this, YModifiedKey) > 0) child->removeObserver(this, YModifiedKey);
  }
  if (nestedDestructions >= kNestedDestructions && listsLeftToRelease) {
    try {
      listsLeftToRelease->reserve(listsLeftToRelease->size() + 2);
      listsLeftToRelease->push_back(std::move(_elements));
      listsLeftToRelease->push_back(std::move(_initialElements));
      return;
    } catch (...) {
      // No room to leave them: they go with this composite, as they would by themselves.
    }
  }
  std::vector<std::shared_ptr<ElementList>> left;
  const bool outermost = !listsLeftToRelease;
  if (outermost) listsLeftToRelease = &left;
  ++nestedDestructions;
  _elements.reset();
  _initialElements.reset();
  --nestedDestructions;
  if (!outermost) return;
  while (!left.empty()) {
    std::shared_ptr<ElementList> list = std::move(left.back());
    left.pop_back();
    list.reset();  // may leave more lists
  }
  listsLeftToRelease = nullptr;
}

bool YIniCompositeElement::isModified() const { return _bits.modified; }

void YIniCompositeElement::setModified(bool modified) {
  ChangeScope scope(*this, YModifiedKey);
  _bits.modified = modified;
}

void YIniCompositeElement::setElements(const std::shared_ptr<ElementList>& value) {
  ChangeScope scope(*this, YElementsKey);
  if (YParameterFailed(value != nullptr, "value != nil")) return;
  // Through the checked factory: a list made with the public constructor
  // may hold nulls, which are refused here rather than met later.
  const auto& given = value->vector();
  for (const auto& child : given) {
    const Nesting nesting = nestingOf(child.get(), *this);
    if (YParameterFailed(nesting != Nesting::Cycle, "element does not hold the receiver")) return;
    if (YParameterFailed(nesting != Nesting::TooDeep, kNestingCondition)) return;
  }
  auto replacement =
      ElementList::mutableArrayWithObjects(std::vector<std::shared_ptr<YIniElement>>(given.begin(), given.end()));
  auto old = _elements;
  for (const auto& child : *old) unsubscribeForChangesInElement(child);
  _elements = std::move(replacement);
  old.reset();
  auto current = _elements;
  for (const auto& child : *current) subscribeChild(child);
  _walkChildren = _observesOthers;  // every child is observed again
  if (_cache) _cache->elements = nullptr;
}

void YIniCompositeElement::insertObjectInElementsAtIndex(std::shared_ptr<YIniElement> element, std::size_t index) {
  ChangeScope scope(*this, YKeyValueChangeKind::Insertion, index, YElementsKey);
  if (YParameterFailed(element != nullptr, "element != nil")) return;
  if (YParameterFailed(index <= _elements->count(), "index >= 0 && index <= [elements count]")) return;
  const Nesting nesting = nestingOf(element.get(), *this);
  if (YParameterFailed(nesting != Nesting::Cycle, "element does not hold the receiver")) return;
  if (YParameterFailed(nesting != Nesting::TooDeep, kNestingCondition)) return;
  const bool wasCurrent = cacheIsCurrent();
  _elements->insertObjectAtIndex(element, index);
  subscribeChild(element);
  noteListChanged(wasCurrent, element.get(), nullptr);
}

void YIniCompositeElement::removeObjectFromElementsAtIndex(std::size_t index) {
  ChangeScope scope(*this, YKeyValueChangeKind::Removal, index, YElementsKey);
  if (YParameterFailed(index < _elements->count(), "index >= 0 && index < [elements count]")) return;
  std::shared_ptr<YIniElement> child = _elements->objectAtIndex(index);
  const bool wasCurrent = cacheIsCurrent();
  unsubscribeForChangesInElement(child);
  try {
    _elements->removeObjectAtIndex(index);
  } catch (...) {
    _walkChildren = true;  // the child stays in the list, unobserved
    throw;
  }
  noteListChanged(wasCurrent, nullptr, child.get());
}

void YIniCompositeElement::replaceObjectInElementsAtIndexWithObject(std::size_t index,
                                                                    std::shared_ptr<YIniElement> element) {
  ChangeScope scope(*this, YKeyValueChangeKind::Replacement, index, YElementsKey);
  if (YParameterFailed(element != nullptr, "element != nil")) return;
  const Nesting nesting = nestingOf(element.get(), *this);
  if (YParameterFailed(nesting != Nesting::Cycle, "element does not hold the receiver")) return;
  if (YParameterFailed(nesting != Nesting::TooDeep, kNestingCondition)) return;
  std::shared_ptr<YIniElement> old = _elements->objectAtIndex(index);
  const bool wasCurrent = cacheIsCurrent();
  unsubscribeForChangesInElement(old);
  try {
    _elements->replaceObjectAtIndexWithObject(index, element);
  } catch (...) {
    _walkChildren = true;  // the old child stays in the list, unobserved
    throw;
  }
  subscribeChild(element);
  noteListChanged(wasCurrent, element.get(), old.get());
}

void YIniCompositeElement::addElement(std::shared_ptr<YIniElement> element) {
  if (YParameterFailed(element != nullptr, "element != nil")) return;
  insertObjectInElementsAtIndex(std::move(element), _elements->count());
}

void YIniCompositeElement::replaceElementWith(const std::shared_ptr<YIniElement>& element,
                                              std::shared_ptr<YIniElement> otherElement) {
  if (YParameterFailed(element != nullptr, "element != nil")) return;
  if (YParameterFailed(otherElement != nullptr, "otherElement != nil")) return;
  replaceObjectInElementsAtIndexWithObject(_elements->indexOfObject(element), std::move(otherElement));
}

void YIniCompositeElement::removeElement(const std::shared_ptr<YIniElement>& element) {
  if (YParameterFailed(element != nullptr, "element != nil")) return;
  removeObjectFromElementsAtIndex(_elements->indexOfObject(element));
}

void YIniCompositeElement::removeAllElements() {
  while (!_elements->isEmpty()) {
    if (const std::size_t quiet = quietlyRemovable()) removeQuietly(quiet);
    else removeObjectFromElementsAtIndex(0);
  }
}

std::size_t YIniCompositeElement::quietlyRemovable() const noexcept {
  // While the list's length differs from the initial list's the flag stays
  // set, whatever the children are: removals that keep it so change nothing
  // anybody could be told, when nobody hears of "elements" but the composite
  // itself and its "modified" reaches only composites that would find
  // nothing changed (announcesOnlyToComposites, which also rules out a
  // subclass and children observed outside the list operations).
  if (!_bits.modified || !_elements->isMutable()) return 0;
  const std::size_t count = _elements->count(), initial = _initialElements->count();
  // Each removal leaves one fewer: those leaving a length other than the initial one.
  const std::size_t removable = count > initial ? count - initial - 1 : count;
  if (removable < 2 || !announcesOnlyToComposites()) return 0;
  return removable;
}

void YIniCompositeElement::removeQuietly(const std::shared_ptr<YIniElement>* elements, std::size_t count) {
  std::unordered_map<const YIniElement*, std::size_t> wanted;  // occurrences still to remove
  for (std::size_t i = 0; i < count; ++i) ++wanted[elements[i].get()];
  // The test meets the children once each, in order: the first occurrences go.
  _elements->removeObjectsPassingTest([&](const std::shared_ptr<YIniElement>& child) {
    const auto found = wanted.find(child.get());
    if (found == wanted.end() || found->second == 0) return false;
    --found->second;
    unsubscribeForChangesInElement(child);  // goes too
    return true;
  });
}

void YIniCompositeElement::removeQuietly(std::size_t count) {
  const auto& children = _elements->vector();
  for (std::size_t i = 0; i < count; ++i) unsubscribeForChangesInElement(children[i]);
  // The list's mutation count tells the kept state that it is out of date.
  _elements->removeObjectsInRange(0, count);
}

YString YIniCompositeElement::stringValue() { doesNotRecognizeSelector("stringValue"); }

namespace {
// Sets a flag for the lifetime of the scope, and clears it on every way out.
template <class Set, class Clear>
class FlagScope {
 public:
  FlagScope(Set set, Clear clear) : _clear(clear) { set(); }
  ~FlagScope() { _clear(); }
  FlagScope(const FlagScope&) = delete;
  FlagScope& operator=(const FlagScope&) = delete;

 private:
  Clear _clear;
};
}  // namespace

void YIniCompositeElement::commit() {
  {
    // The children's announcements during the walk are dropped.
    FlagScope ignoring([this] { _bits.ignoreChanges = true; }, [this] { _bits.ignoreChanges = false; });
    auto current = _elements;
    for (const auto& child : *current) child->commit();
  }
  _initialElements = _elements->copy();
  forgetCache();
  setModified(false);
}

void YIniCompositeElement::revert() {
  // A child of the last commit may since have come to hold this composite:
  // put back, it would close a cycle.
  for (const auto& child : _initialElements->vector())
    if (YParameterFailed(nestingOf(child.get(), *this) != Nesting::Cycle, "element does not hold the receiver")) return;
  {
    FlagScope ignoring([this] { _bits.ignoreChanges = true; }, [this] { _bits.ignoreChanges = false; });
    auto current = _elements;
    for (const auto& child : *current) {
      unsubscribeForChangesInElement(child);
      child->revert();
    }
  }
  // A direct replacement, not announced. The list stays immutable until
  // setElements() installs a new one.
  _elements = _initialElements->copy();
  auto current = _elements;
  for (const auto& child : *current) subscribeChild(child);
  _walkChildren = _observesOthers;  // every child is observed again
  forgetCache();
  setModified(false);
}

std::shared_ptr<YIniElement> YIniCompositeElement::copyWithZone(void* zone) const {
  std::shared_ptr<YIniCompositeElement> copy = makeEmptyCopy();
  auto current = _elements;
  for (const auto& child : *current) copy->addElement(child->copyWithZone(zone));
  copy->commit();
  return copy;
}

std::shared_ptr<YIniCompositeElement> YIniCompositeElement::makeEmptyCopy() const {
  return std::make_shared<YIniCompositeElement>();
}

void YIniCompositeElement::subscribeForChangesInElement(const std::shared_ptr<YIniElement>& element) {
  if (YParameterFailed(element != nullptr, "element != nil")) return;
  // Observing something outside the list operations: its notifications may
  // come from a non-child, so recomputations ask the children themselves.
  if (!_internalSubscribe) _walkChildren = _observesOthers = true;
  element->addObserver(this, YModifiedKey, YKeyValueObservingOptionNew, nullptr);
}

void YIniCompositeElement::subscribeChild(const std::shared_ptr<YIniElement>& child) {
  FlagScope internal([this] { _internalSubscribe = true; }, [this] { _internalSubscribe = false; });
  subscribeForChangesInElement(child);
}

void YIniCompositeElement::unsubscribeForChangesInElement(const std::shared_ptr<YIniElement>& element) {
  if (YParameterFailed(element != nullptr, "element != nil")) return;
  // A child left unobserved by a failed removal on an immutable list has no
  // registration to remove; skipping it keeps setElements() and destruction working.
  if (element->observationCountForObserver(this, YModifiedKey) == 0) return;
  element->removeObserver(this, YModifiedKey);
}

bool YIniCompositeElement::compareArrayAgainst(const std::shared_ptr<ElementList>& a1,
                                               const std::shared_ptr<ElementList>& a2) const {
  if (YParameterFailed(a1 != nullptr, "a1 != nil")) return false;
  if (YParameterFailed(a2 != nullptr, "a2 != nil")) return false;
  const auto& v1 = a1->vector();
  const auto& v2 = a2->vector();
  if (v1.size() != v2.size()) return false;
  for (std::size_t i = 0; i < v1.size(); ++i)
    if (v1[i].get() != v2[i].get()) return false;
  return true;
}

bool YIniCompositeElement::cacheIsCurrent() const noexcept {
  return _cache && !_walkChildren && _cache->elements == _elements.get() &&
         _cache->initial == _initialElements.get() && _cache->mutations == _elements->mutationCount();
}

void YIniCompositeElement::rebuildCache() const {
  if (!_cache) _cache = std::make_unique<ModifiedCache>();
  ModifiedCache& cache = *_cache;
  cache.listDiffers = !compareArrayAgainst(_elements, _initialElements);
  cache.modified.clear();
  cache.unannounced.clear();
  for (const auto& child : _elements->vector()) {
    if (child->mayChangeUnannounced()) cache.unannounced.insert(child.get());
    else if (!cache.listDiffers && child->isModified()) cache.modified.insert(child.get());
  }
  cache.modifiedKnown = !cache.listDiffers;
  cache.elements = _elements.get();
  cache.initial = _initialElements.get();
  cache.mutations = _elements->mutationCount();
}

// Files `child` under what it is now: asked each time, or known modified or not.
void YIniCompositeElement::noteChildState(const YIniElement* child) const {
  ModifiedCache& cache = *_cache;
  if (child->mayChangeUnannounced()) {
    cache.unannounced.insert(child);
    cache.modified.erase(child);
    return;
  }
  if (!cache.unannounced.empty()) cache.unannounced.erase(child);
  if (!cache.modifiedKnown) return;
  if (child->isModified()) cache.modified.insert(child);
  else cache.modified.erase(child);
}

void YIniCompositeElement::noteListChanged(bool wasCurrent, const YIniElement* added, const YIniElement* removed) {
  if (!wasCurrent) return;  // rebuilt on the next recomputation
  ModifiedCache& cache = *_cache;
  if (removed && (cache.modified.count(removed) || cache.unannounced.count(removed)) &&
      _elements->indexOfObject(removed) == YNotFound) {
    cache.modified.erase(removed);
    cache.unannounced.erase(removed);
  }
  cache.listDiffers = !compareArrayAgainst(_elements, _initialElements);
  cache.mutations = _elements->mutationCount();
  if (cache.listDiffers) {
    cache.modifiedKnown = false;
    cache.modified.clear();
    if (added && added->mayChangeUnannounced()) cache.unannounced.insert(added);
  } else if (!cache.modifiedKnown) {
    rebuildCache();  // the lists became equal: find the modified children once
  } else if (added) {
    noteChildState(added);
  }
}

void YIniCompositeElement::forgetCache() const {
  // Rebuilt when first needed: most composites are never asked again.
  if (_cache) _cache->elements = nullptr;
}

bool YIniCompositeElement::hasModifiedElements() const {
  // Lists of different lengths differ: nothing needs to be kept to know it.
  if (!_walkChildren && _elements->count() != _initialElements->count()) return true;
  if (_walkChildren) {
    if (!compareArrayAgainst(_elements, _initialElements)) return true;
    for (const auto& child : _elements->vector())
      if (child->isModified()) return true;
    return false;
  }
  if (!cacheIsCurrent()) rebuildCache();
  ModifiedCache& cache = *_cache;
  if (cache.listDiffers) return true;
  if (!cache.modifiedKnown) rebuildCache();
  if (!cache.modified.empty()) return true;
  for (const YIniElement* child : cache.unannounced)
    if (child->isModified()) return true;
  return false;
}

void YIniCompositeElement::appendQuietly(std::shared_ptr<YIniElement> element) {
  // A loaded section usually holds several elements: its list starts with
  // room for a few instead of growing one by one.
  constexpr std::size_t kLoadedListCapacity = 8;
  if (_elements->count() == 0) _elements->reserveCapacity(kLoadedListCapacity);
  YIniElement& child = *element;
  _elements->addObject(std::move(element));
  // Only the library's own composites append quietly, and they subscribe no
  // differently: the child is observed as subscribeChild() would.
  child.addObserverForKeyNumber(this, modifiedKeyNumber(), YKeyValueObservingOptionNew);
}

void YIniCompositeElement::appendQuietly(std::shared_ptr<YIniElement>* elements, std::size_t count) {
  const unsigned key = modifiedKeyNumber();
  _elements->reserveCapacity(_elements->count() + count);
  for (std::size_t i = 0; i < count; ++i) {
    YIniElement& child = *elements[i];
    _elements->addObject(std::move(elements[i]));
    child.addObserverForKeyNumber(this, key, YKeyValueObservingOptionNew);
  }
}

void YIniCompositeElement::settleQuietly() { _bits.modified = hasModifiedElements(); }

void YIniCompositeElement::elementsChanged() { setModified(hasModifiedElements()); }

void YIniCompositeElement::modifiedChangedForElement(YIniElement* element) {
  // Only a child's own announcement is filed: a host may pass any element.
  if (element && _delivering && cacheIsCurrent()) noteChildState(element);
  // Announcing an unchanged flag to observers that are all the library's
  // own composites, relying on it as this one does, tells nobody anything.
  if (hasModifiedElements() == _bits.modified && announcesOnlyToComposites()) return;
  elementsChanged();
}

bool YIniCompositeElement::nobodyHearsUnchanged(const YIniElement& child) noexcept {
  YObject* const observer =
      child.soleObserverForKeyNumberWithOptions(modifiedKeyNumber(), YKeyValueObservingOptionNew);
  if (!observer || child.mayChangeUnannounced()) return false;
  // A silent scope over this parent has found, for an earlier child, all that
  // is asked of the parent below, and nothing has run since that could change it.
  SilenceScope* scope = currentScope();
  const bool silentHere = scope && scope->_silent && static_cast<const YObject*>(scope->_parent) == observer;
  const auto* parent = silentHere ? scope->_parent : YCast<YIniCompositeElement>(observer);
  if (!silentHere && (!parent || !parent->isLibraryClass() || parent->_bits.ignoreChanges ||
                      !parent->answersWithoutAsking()))
    return false;
  // The parent's kept state of this child stays right: it was filed under
  // what it is, and that does not change.
  if (parent->cacheIsCurrent()) {
    const ModifiedCache& cache = *parent->_cache;
    if (cache.unannounced.count(&child)) return false;
    if (cache.modifiedKnown && cache.modified.count(&child) != (child.isModified() ? 1u : 0u)) return false;
  }
  if (silentHere) return true;
  const bool kept = scope && scope->_parent == parent;
  const bool silent = parent->hasModifiedElements() == parent->_bits.modified && parent->announcesOnlyToComposites();
  if (kept) scope->_silent = silent;
  return silent;
}

YIniCompositeElement::SilenceScope*& YIniCompositeElement::currentScope() noexcept {
  // The innermost section writer's scope on this thread.
  thread_local SilenceScope* scope = nullptr;
  return scope;
}

void YIniCompositeElement::forgetSilence() noexcept {
  if (currentScope()) currentScope()->forget();
}

YIniCompositeElement::SilenceScope::SilenceScope(const YIniCompositeElement& parent) noexcept
    : _parent(&parent), _outer(currentScope()) {
  currentScope() = this;
}

YIniCompositeElement::SilenceScope::~SilenceScope() {
  currentScope() = _outer;
  // What an inner writer found may not hold for the outer one's section.
  if (_outer) _outer->forget();
}

bool YIniCompositeElement::answersWithoutAsking() const noexcept {
  // Lists of different lengths make the composite modified whatever its
  // children are (a loaded, uncommitted document's sections); otherwise the
  // kept state must be current and ask no child that may change unannounced.
  if (_walkChildren) return false;
  if (_elements->count() != _initialElements->count()) return true;
  return cacheIsCurrent() && _cache->unannounced.empty();
}

bool YIniCompositeElement::isLibraryClass() const noexcept {
  // Asked after construction only, when the dynamic type is final.
  if (!_bits.classKnown) {
    const std::type_info& type = typeid(*this);
    _bits.libraryClass =
        type == typeid(YIniCompositeElement) || type == typeid(YIniSection) || type == typeid(YIniDocument);
    _bits.classKnown = true;
  }
  return _bits.libraryClass;
}

bool YIniCompositeElement::announcesOnlyToComposites() const noexcept {
  // A subclass may do something of its own in setModified or elementsChanged.
  if (!isLibraryClass() || _walkChildren) return false;
  for (std::size_t i = 0, n = observationCount(); i < n; ++i) {
    const Observation r = observationAtIndex(i);
    if (r.observer == this) continue;  // its own "elements"
    if (r.options != YKeyValueObservingOptionNew || r.context || !YKeysEqual(r.key, YModifiedKey)) return false;
    const auto* parent = YCast<YIniCompositeElement>(r.observer);
    if (!parent || !parent->isLibraryClass()) return false;
    // The parent must answer from what it kept, not from asking again, find
    // its own flag as it stands, and be as silent in turn: then nothing
    // anywhere up the tree would have been told anything.
    if (!parent->answersWithoutAsking() || parent->hasModifiedElements() != parent->_bits.modified ||
        !parent->announcesOnlyToComposites())
      return false;
  }
  return true;
}

void YIniCompositeElement::observeValueForKeyPath(const YString& keyPath, YObject* object, const YKeyValueChange&,
                                                  void*) {
  if (object == this) {
    if (YKeysEqual(keyPath, YElementsKey)) elementsChanged();
    return;
  }
  if (YKeysEqual(keyPath, YModifiedKey) && !_bits.ignoreChanges) {
    const bool outer = _delivering;
    FlagScope delivering([this] { _delivering = true; }, [this, outer] { _delivering = outer; });
    modifiedChangedForElement(YCast<YIniElement>(object));
  }
}

bool YIniCompositeElement::ignoresChangeValues() const noexcept {
  return isLibraryClass() && typeid(*this) == typeid(YIniCompositeElement);
}

YValue YIniCompositeElement::valueForKey(const YString& key) const {
  if (YKeysEqual(key, YModifiedKey)) return isModified();
  if (YKeysEqual(key, YElementsKey)) return std::static_pointer_cast<YObject>(_elements);
  return {};
}

YValue YIniCompositeElement::valuesAtIndexesForKey(const YIndexSet& indexes, const YString& key) const {
  if (!YKeysEqual(key, YElementsKey)) return {};
  std::vector<std::shared_ptr<YObject>> children;
  for (std::size_t index : indexes.indexes())
    if (index < _elements->count()) children.push_back(_elements->vector()[index]);
  return std::static_pointer_cast<YObject>(YArray<YObject>::arrayWithObjects(std::move(children)));
}
