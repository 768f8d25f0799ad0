/// \file YArray.h
/// Shared ordered lists of objects.
#pragma once

#include <cstddef>
#include <cstdint>
#include <initializer_list>
#include <memory>
#include <utility>
#include <vector>

#include "YAllocator.h"
#include "YException.h"
#include "YObject.h"

namespace ydetail {
[[noreturn]] void throwImmutableMutation(const YObject* list, const char* operation);
[[noreturn]] void throwIndexBeyondBounds(const YObject* list, const char* operation, std::size_t index,
                                         std::size_t count);
[[noreturn]] void throwNilObject(const YObject* list, const char* operation);
[[noreturn]] void throwMutatedDuringEnumeration(const YObject* list);

// Marks a list as being described on this thread for the scope's life, so
// that a list met again within its own description is seen. The marks form a
// chain through the callers' stack frames.
class YDescribingScope {
 public:
  explicit YDescribingScope(const YObject* list) noexcept;
  ~YDescribingScope();
  YDescribingScope(const YDescribingScope&) = delete;
  YDescribingScope& operator=(const YDescribingScope&) = delete;
  // Whether the list was already being described when the scope began.
  bool isRepeat() const noexcept { return _repeat; }

 private:
  const YObject* _list;
  const YDescribingScope* _outer;
  bool _repeat;
};
}  // namespace ydetail

/// A shared, ordered list of std::shared_ptr<T>, mutable or immutable for
/// life. The list is an object with identity: whoever holds it sees every
/// change. Entries are never null. Lookups compare entries by identity.
///
/// Failures: mutating an immutable list or inserting null throws
/// YInvalidArgumentException; an index out of bounds throws YRangeException;
/// changing the list during a range-for walk over it makes the walk throw
/// YMutationDuringEnumerationException at its next step.
template <class T>
class YArray : public YObject {
 public:
  using Element = std::shared_ptr<T>;  ///< an entry: shared, never null
  /// The entries' storage: a vector whose buffer comes from the small-object pool while it is small.
  using Storage = std::vector<Element, YSmallObjectAllocator<Element>>;

  /// Guarded forward iterator: checks the list's mutation count at each step
  /// and throws YMutationDuringEnumerationException once the list has changed.
  class iterator {
   public:
    /// An iterator at `index` of `list` (which must outlive it); begin() and end() make them.
    iterator(const YArray* list, std::size_t index) noexcept
        : _list(list), _index(index), _mutations(list->_mutations) {}
    /// The entry at the iterator (checked).
    const Element& operator*() const {
      check();
      return _list->_items[_index];
    }
    /// Steps to the next entry (checked).
    iterator& operator++() {
      check();
      ++_index;
      return *this;
    }
    /// True while the walk goes on: the iterators differ and this one is inside the list (checked).
    bool operator!=(const iterator& other) const {
      check();
      return _index < _list->_items.size() && _index != other._index;
    }
    /// The negation of operator!=.
    bool operator==(const iterator& other) const { return !(*this != other); }

   private:
    void check() const {
      if (_list->_mutations != _mutations) ydetail::throwMutatedDuringEnumeration(_list);
    }
    const YArray* _list;
    std::size_t _index;
    std::uint64_t _mutations;
  };

  /// Use the factory functions; the constructor is public only for them
  /// (lists come from the small-object pool, with their counts).
  YArray(std::vector<Element> items, bool isMutable)
      : _items(std::make_move_iterator(items.begin()), std::make_move_iterator(items.end())), _mutable(isMutable) {}
  /// The same, for the list's own storage type.
  YArray(Storage items, bool isMutable) noexcept : _items(std::move(items)), _mutable(isMutable) {}

  /// A new immutable list of `items` (nulls are refused).
  static std::shared_ptr<YArray> arrayWithObjects(std::vector<Element> items) {
    checkNoNulls(items);
    return YMakeShared<YArray>(std::move(items), false);
  }
  /// A new, empty immutable list.
  static std::shared_ptr<YArray> array() { return YMakeShared<YArray>(Storage{}, false); }
  /// A new, empty mutable list.
  static std::shared_ptr<YArray> mutableArray(std::size_t capacity = 0) {
    auto list = YMakeShared<YArray>(Storage{}, true);
    list->_items.reserve(capacity);
    return list;
  }
  /// A new mutable list of `items` (nulls are refused).
  static std::shared_ptr<YArray> mutableArrayWithObjects(std::vector<Element> items) {
    checkNoNulls(items);
    return YMakeShared<YArray>(std::move(items), true);
  }

  /// An immutable list of the same entries (a snapshot).
  std::shared_ptr<YArray> copy() const { return YMakeShared<YArray>(_items, false); }
  /// A mutable list of the same entries.
  std::shared_ptr<YArray> mutableCopy() const { return YMakeShared<YArray>(_items, true); }
  /// This list's entries as a list of a base class.
  template <class U>
  std::shared_ptr<YArray<U>> arrayOfBase(bool isMutable = false) const {
    return YMakeShared<YArray<U>>(typename YArray<U>::Storage(_items.begin(), _items.end()), isMutable);
  }

  /// Whether the list can be changed (fixed at creation).
  bool isMutable() const noexcept { return _mutable; }
  /// The number of entries.
  std::size_t count() const noexcept { return _items.size(); }
  /// Whether the list has no entries.
  bool isEmpty() const noexcept { return _items.empty(); }
  /// The entry at `index`; YRangeException when `index` >= count().
  const Element& objectAtIndex(std::size_t index) const {
    if (index >= _items.size()) ydetail::throwIndexBeyondBounds(this, "objectAtIndex", index, _items.size());
    return _items[index];
  }
  /// The same as objectAtIndex() (bounds-checked).
  const Element& operator[](std::size_t index) const { return objectAtIndex(index); }
  /// The first entry, or null when the list is empty.
  Element firstObject() const { return _items.empty() ? nullptr : _items.front(); }
  /// The last entry, or null when the list is empty.
  Element lastObject() const { return _items.empty() ? nullptr : _items.back(); }

  /// Index of the first entry that is `object` itself, or YNotFound.
  std::size_t indexOfObject(const T* object) const noexcept {
    for (std::size_t i = 0; i < _items.size(); ++i)
      if (_items[i].get() == object) return i;
    return YNotFound;
  }
  /// Index of the first entry that is `object` itself, or YNotFound.
  std::size_t indexOfObject(const Element& object) const noexcept { return indexOfObject(object.get()); }
  /// Whether an entry is `object` itself.
  bool containsObject(const Element& object) const noexcept { return indexOfObject(object) != YNotFound; }

  /// Lists are equal when they hold the same objects in the same order.
  bool isEqualToArray(const YArray& other) const noexcept { return _items == other._items; }

  /// Makes room for `capacity` entries in all, so that appending up to that
  /// many allocates nothing. Never shrinks the list's storage.
  void reserveCapacity(std::size_t capacity) { _items.reserve(capacity); }
  /// Appends `object`. Fails as insertObjectAtIndex() does.
  void addObject(Element object) {
    if (!_mutable) ydetail::throwImmutableMutation(this, "insertObjectAtIndex");
    if (!object) ydetail::throwNilObject(this, "insertObjectAtIndex");
    _items.push_back(std::move(object));
    ++_mutations;
  }
  /// Inserts `object` before the entry at `index` (at the end when `index`
  /// is count()). An immutable list or a null object throws
  /// YInvalidArgumentException, an index past count() YRangeException.
  void insertObjectAtIndex(Element object, std::size_t index) {
    if (!_mutable) ydetail::throwImmutableMutation(this, "insertObjectAtIndex");
    if (!object) ydetail::throwNilObject(this, "insertObjectAtIndex");
    if (index > _items.size()) ydetail::throwIndexBeyondBounds(this, "insertObjectAtIndex", index, _items.size());
    _items.insert(_items.begin() + static_cast<std::ptrdiff_t>(index), std::move(object));
    ++_mutations;
  }
  /// Removes the entry at `index`. An immutable list throws
  /// YInvalidArgumentException, `index` >= count() YRangeException.
  void removeObjectAtIndex(std::size_t index) {
    if (!_mutable) ydetail::throwImmutableMutation(this, "removeObjectAtIndex");
    if (index >= _items.size()) ydetail::throwIndexBeyondBounds(this, "removeObjectAtIndex", index, _items.size());
    _items.erase(_items.begin() + static_cast<std::ptrdiff_t>(index));
    ++_mutations;
  }
  /// Removes the `length` entries from `location` on, at once. An immutable
  /// list throws YInvalidArgumentException, a range past count() YRangeException.
  void removeObjectsInRange(std::size_t location, std::size_t length) {
    if (!_mutable) ydetail::throwImmutableMutation(this, "removeObjectsInRange");
    if (location > _items.size() || length > _items.size() - location)
      ydetail::throwIndexBeyondBounds(this, "removeObjectsInRange", location + length, _items.size());
    const auto first = _items.begin() + static_cast<std::ptrdiff_t>(location);
    _items.erase(first, first + static_cast<std::ptrdiff_t>(length));
    ++_mutations;
  }
  /// Removes, at once, each entry for which `test(entry)` is true; `test` is
  /// called once per entry, in order, and must not change the list. An
  /// immutable list throws YInvalidArgumentException.
  template <class Test>
  void removeObjectsPassingTest(Test test) {
    if (!_mutable) ydetail::throwImmutableMutation(this, "removeObjectsPassingTest");
    std::size_t kept = 0;
    for (std::size_t i = 0; i < _items.size(); ++i) {
      if (test(std::as_const(_items[i]))) continue;
      if (kept != i) std::swap(_items[kept], _items[i]);
      ++kept;
    }
    // The entries removed are gathered at the end, and released only now,
    // with the list already in its new order.
    _items.erase(_items.begin() + static_cast<std::ptrdiff_t>(kept), _items.end());
    ++_mutations;
  }
  /// Removes the last entry; fails as removeObjectAtIndex() does (an empty list throws YRangeException).
  void removeLastObject() {
    if (!_mutable) ydetail::throwImmutableMutation(this, "removeLastObject");
    if (_items.empty()) ydetail::throwIndexBeyondBounds(this, "removeLastObject", 0, 0);
    _items.pop_back();
    ++_mutations;
  }
  /// Puts `object` in place of the entry at `index`; fails as
  /// insertObjectAtIndex() does, and for `index` >= count().
  void replaceObjectAtIndexWithObject(std::size_t index, Element object) {
    if (!_mutable) ydetail::throwImmutableMutation(this, "replaceObjectAtIndexWithObject");
    if (!object) ydetail::throwNilObject(this, "replaceObjectAtIndexWithObject");
    if (index >= _items.size())
      ydetail::throwIndexBeyondBounds(this, "replaceObjectAtIndexWithObject", index, _items.size());
    _items[index] = std::move(object);
    ++_mutations;
  }
  /// Removes every entry; an immutable list throws YInvalidArgumentException.
  void removeAllObjects() {
    if (!_mutable) ydetail::throwImmutableMutation(this, "removeAllObjects");
    _items.clear();
    ++_mutations;
  }

  /// Guarded walk (range-for).
  iterator begin() const noexcept { return iterator(this, 0); }
  /// The end of the guarded walk.
  iterator end() const noexcept { return iterator(this, _items.size()); }
  /// Unguarded read access to the entries: a std::vector whose allocator is
  /// the small-object pool's (bind it with `auto` or `Storage`; copy() and
  /// mutableCopy() make a list of the same entries).
  const Storage& vector() const noexcept { return _items; }
  /// The number of changes made to the list so far (what the guarded walk checks).
  std::uint64_t mutationCount() const noexcept { return _mutations; }

  /// "(", each entry's description on a line of its own, ")". A list met
  /// again within its own description (it holds itself, directly or through
  /// other lists) stands there as "(...)".
  YString description() const override {
    const ydetail::YDescribingScope scope(this);
    if (scope.isRepeat()) return YString(u"(...)");
    YString text = YString::mutableStringWithString(YString(u"("));
    for (std::size_t i = 0; i < _items.size(); ++i) {
      text.appendString(YString(i ? u",\n    " : u"\n    "));
      text.appendString(_items[i]->description());
    }
    text.appendString(YString(_items.empty() ? u")" : u"\n)"));
    return text.copy();
  }

 private:
  static void checkNoNulls(const std::vector<Element>& items) {
    for (const auto& e : items)
      if (!e) ydetail::throwNilObject(nullptr, "arrayWithObjects");
  }
  Storage _items;
  std::uint64_t _mutations = 0;
  bool _mutable;
};

/// A shared map from strings to objects. Keys are compared by text.
template <class T>
class YDictionary : public YObject {
 public:
  using Element = std::shared_ptr<T>;  ///< a value: shared, never null
  /// An empty map; prefer dictionary().
  YDictionary() = default;
  /// A new, empty map.
  static std::shared_ptr<YDictionary> dictionary() { return std::make_shared<YDictionary>(); }
  /// A new map of `entries`, set in order (a later key replaces an earlier
  /// equal one). A null key or object throws YInvalidArgumentException.
  static std::shared_ptr<YDictionary> dictionaryWithObjectsAndKeys(
      std::initializer_list<std::pair<YString, Element>> entries) {
    auto d = dictionary();
    for (const auto& [key, value] : entries) d->setObjectForKey(value, key);
    return d;
  }
  /// The object for `key`, or null.
  Element objectForKey(const YString& key) const {
    for (const auto& [k, v] : _entries)
      if (k.isEqualToString(key)) return v;
    return nullptr;
  }
  /// Sets or replaces the object for `key`. A null key or object throws YInvalidArgumentException.
  void setObjectForKey(Element object, const YString& key) {
    if (!object || key.isNull()) ydetail::throwNilObject(this, "setObjectForKey");
    for (auto& [k, v] : _entries)
      if (k.isEqualToString(key)) {
        v = std::move(object);
        return;
      }
    _entries.emplace_back(key.copy(), std::move(object));
  }
  /// Removes the entry for `key`, if any.
  void removeObjectForKey(const YString& key) {
    std::erase_if(_entries, [&](const auto& e) { return e.first.isEqualToString(key); });
  }
  /// The number of entries.
  std::size_t count() const noexcept { return _entries.size(); }
  /// Entries in insertion order.
  const std::vector<std::pair<YString, Element>>& entries() const noexcept { return _entries; }

 private:
  std::vector<std::pair<YString, Element>> _entries;  // few keys: a flat list beats hashing
};
