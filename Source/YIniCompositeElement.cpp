#include "YIniCompositeElement.h"

#include <exception>
#include <typeinfo>
#include <unordered_set>

#include "YAssertionHandler.h"

static constexpr const char YUnitName[] = "YIniCompositeElement";

// What hasModifiedElements() would find, kept for one state of the lists:
// whether they differ, and which distinct children were last seen modified.
struct YIniCompositeElement::ModifiedCache {
  const ElementList* elements = nullptr;
  const ElementList* initial = nullptr;
  std::uint64_t mutations = 0;
  bool listDiffers = false;
  std::unordered_set<const YIniElement*> modified;
};

YIniCompositeElement::YIniCompositeElement()
    : _initialElements(ElementList::array()), _elements(ElementList::mutableArray()) {
  addObserver(this, YElementsKey, YKeyValueObservingOptionNew, nullptr);
}

YIniCompositeElement::~YIniCompositeElement() {
  // Never throw from here: registrations that a failed operation already
  // removed are simply skipped.
  if (observationCountForObserver(this, YElementsKey) > 0) removeObserver(this, YElementsKey);
  for (const auto& child : _elements->vector()) {
    if (child->observationCountForObserver(this, YModifiedKey) > 0) child->removeObserver(this, YModifiedKey);
  }
}

bool YIniCompositeElement::isModified() const { return _bits.modified; }

void YIniCompositeElement::setModified(bool modified) {
  ChangeScope scope(*this, YModifiedKey);
  _bits.modified = modified;
}

void YIniCompositeElement::setElements(const std::shared_ptr<ElementList>& value) {
  ChangeScope scope(*this, YElementsKey);
  if (YParameterFailed(value != nullptr, "value != nil")) return;
  auto replacement = ElementList::mutableArrayWithObjects(value->vector());
  auto old = _elements;
  for (const auto& child : *old) unsubscribeForChangesInElement(child);
  _elements = std::move(replacement);
  old.reset();
  auto current = _elements;
  for (const auto& child : *current) subscribeChild(child);
  _walkChildren = false;  // every child is observed again
  if (_cache) _cache->elements = nullptr;
}

void YIniCompositeElement::insertObjectInElementsAtIndex(std::shared_ptr<YIniElement> element, std::size_t index) {
  ChangeScope scope(*this, YKeyValueChangeKind::Insertion, index, YElementsKey);
  if (YParameterFailed(element != nullptr, "element != nil")) return;
  if (YParameterFailed(index <= _elements->count(), "index >= 0 && index <= [elements count]")) return;
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
  while (!_elements->isEmpty()) removeObjectFromElementsAtIndex(0);
}

YString YIniCompositeElement::stringValue() { doesNotRecognizeSelector("stringValue"); }

void YIniCompositeElement::commit() {
  _bits.ignoreChanges = true;
  try {
    auto current = _elements;
    for (const auto& child : *current) child->commit();
  } catch (...) {
    _bits.ignoreChanges = false;
    throw;
  }
  _bits.ignoreChanges = false;
  _initialElements = _elements->copy();
  rebuildCache();
  setModified(false);
}

void YIniCompositeElement::revert() {
  _bits.ignoreChanges = true;
  try {
    auto current = _elements;
    for (const auto& child : *current) {
      unsubscribeForChangesInElement(child);
      child->revert();
    }
  } catch (...) {
    _bits.ignoreChanges = false;
    throw;
  }
  _bits.ignoreChanges = false;
  // A direct replacement, not announced. The list stays immutable until
  // setElements() installs a new one.
  _elements = _initialElements->copy();
  auto current = _elements;
  for (const auto& child : *current) subscribeChild(child);
  _walkChildren = false;  // every child is observed again
  rebuildCache();
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
  if (!_internalSubscribe) _walkChildren = true;
  element->addObserver(this, YModifiedKey, YKeyValueObservingOptionNew, nullptr);
}

void YIniCompositeElement::subscribeChild(const std::shared_ptr<YIniElement>& child) {
  _internalSubscribe = true;
  try {
    subscribeForChangesInElement(child);
  } catch (...) {
    _internalSubscribe = false;
    throw;
  }
  _internalSubscribe = false;
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
  for (const auto& child : _elements->vector())
    if (child->isModified()) cache.modified.insert(child.get());
  cache.elements = _elements.get();
  cache.initial = _initialElements.get();
  cache.mutations = _elements->mutationCount();
}

void YIniCompositeElement::noteListChanged(bool wasCurrent, const YIniElement* added, const YIniElement* removed) {
  if (!wasCurrent) return;  // rebuilt on the next recomputation
  ModifiedCache& cache = *_cache;
  if (removed && cache.modified.count(removed) && _elements->indexOfObject(removed) == YNotFound)
    cache.modified.erase(removed);
  if (added && added->isModified()) cache.modified.insert(added);
  cache.listDiffers = !compareArrayAgainst(_elements, _initialElements);
  cache.mutations = _elements->mutationCount();
}

bool YIniCompositeElement::hasModifiedElements() const {
  if (_walkChildren) {
    if (!compareArrayAgainst(_elements, _initialElements)) return true;
    for (const auto& child : _elements->vector())
      if (child->isModified()) return true;
    return false;
  }
  if (!cacheIsCurrent()) rebuildCache();
  return _cache->listDiffers || !_cache->modified.empty();
}

void YIniCompositeElement::elementsChanged() { setModified(hasModifiedElements()); }

void YIniCompositeElement::modifiedChangedForElement(YIniElement* element) {
  if (element && cacheIsCurrent()) {
    if (element->isModified()) _cache->modified.insert(element);
    else _cache->modified.erase(element);
  }
  elementsChanged();
}

void YIniCompositeElement::observeValueForKeyPath(const YString& keyPath, YObject* object, const YKeyValueChange&,
                                                  void*) {
  if (object == this) {
    if (YKeysEqual(keyPath, YElementsKey)) elementsChanged();
    return;
  }
  if (YKeysEqual(keyPath, YModifiedKey) && !_bits.ignoreChanges)
    modifiedChangedForElement(YCast<YIniElement>(object));
}

bool YIniCompositeElement::ignoresChangeValues() const noexcept {
  return typeid(*this) == typeid(YIniCompositeElement);
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
