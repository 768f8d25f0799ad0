/// \file YObject.h
/// The root object: identity, description, kind tests and the observer mechanism.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <type_traits>
#include <typeinfo>
#include <variant>
#include <vector>

#include "YString.h"

class YObject;

/// Options of an observer registration (they combine as bits).
enum YKeyValueObservingOptions : unsigned {
  YKeyValueObservingOptionNew = 1,      ///< deliver the value after the change
  YKeyValueObservingOptionOld = 2,      ///< deliver the value before the change
  YKeyValueObservingOptionInitial = 4,  ///< notify once at registration
  YKeyValueObservingOptionPrior = 8,    ///< notify also before the change
};

/// The kind of a change.
enum class YKeyValueChangeKind : unsigned { Setting = 1, Insertion = 2, Removal = 3, Replacement = 4 };

/// A value carried by a change record: none, a boolean, or an object (a list
/// of children for indexed changes).
using YValue = std::variant<std::monostate, bool, std::shared_ptr<YObject>>;

/// An ordered set of indexes (what an indexed change touched). One index is
/// held inline, so the common single-index change allocates nothing.
class YIndexSet {
 public:
  YIndexSet() = default;
  /// The set of the one index `index`.
  explicit YIndexSet(std::size_t index) noexcept : _first(index), _count(1) {}
  /// The number of indexes.
  std::size_t count() const noexcept { return _count; }
  /// Whether `index` is in the set.
  bool containsIndex(std::size_t index) const noexcept;
  /// The smallest index, or YNotFound when empty.
  std::size_t firstIndex() const noexcept;
  /// Adds `index` (nothing when it is there already).
  void addIndex(std::size_t index);
  /// The indexes in ascending order.
  std::vector<std::size_t> indexes() const;
  /// Whether both sets hold the same indexes.
  friend bool operator==(const YIndexSet& a, const YIndexSet& b) { return a.indexes() == b.indexes(); }

 private:
  std::size_t _first = 0;           // the smallest index, when count > 0
  std::size_t _count = 0;
  std::vector<std::size_t> _rest;   // the others, ascending
};

/// Not-found index: lies beyond every count.
inline constexpr std::size_t YNotFound = static_cast<std::size_t>(PTRDIFF_MAX);

/// What an observer is told about one change.
struct YKeyValueChange {
  /// A setting for a plain key; an insertion, removal or replacement for an indexed change.
  YKeyValueChangeKind kind = YKeyValueChangeKind::Setting;
  /// For a setting: the key's value after the change (when New was asked);
  /// for an insertion or replacement: the new children at `indexes`.
  YValue newValue;
  /// The value before the change (when Old was asked).
  YValue oldValue;
  /// For indexed kinds: the indexes that changed.
  YIndexSet indexes;
  /// True for the early notification that Prior asks for.
  bool isPrior = false;
};

/// Key equality for the observer mechanism: the same string object, or equal text.
inline bool YKeysEqual(const YString& a, const YString& b) noexcept {
  return a.isIdenticalTo(b) || a.isEqualToString(b);
}

/// Root of every library object. Objects are shared through std::shared_ptr;
/// an object equals only itself and hashes by identity.
///
/// Observer mechanism: an observer registers on an object for a key; the
/// object brackets each change of that key with will-change and did-change,
/// and at did-change each registered observer's observeValueForKeyPath() runs,
/// synchronously, on the changing thread, after the change. Registrations live
/// with the observed object; an object nobody observes pays one null pointer.
/// The registration does not own the observer: an observer must unregister
/// before it is destroyed.
class YObject : public std::enable_shared_from_this<YObject> {
 public:
  YObject() noexcept;
  YObject(const YObject&) = delete;
  YObject& operator=(const YObject&) = delete;
  virtual ~YObject() = default;

  /// "<ClassName: 0x…>"; subclasses may describe themselves more fully.
  virtual YString description() const;
  /// The generic description above, whatever the subclass does.
  YString defaultDescription() const;
  /// The object's dynamic class name.
  YString className() const;

  /// Identity: true only for this very object.
  bool isEqual(const YObject* other) const noexcept { return this == other; }
  /// The object's address, consistent with isEqual().
  std::size_t hash() const noexcept { return reinterpret_cast<std::uintptr_t>(this); }

  /// True when the object is a T or of a class derived from T.
  template <class T>
  bool isKindOfClass() const noexcept {
    if constexpr (std::is_base_of_v<T, YObject>) return true;  // every object is a YObject
    else return dynamic_cast<const T*>(this) != nullptr;
  }

  /// Raises YInvalidArgumentException saying that this object does not
  /// implement `selector`.
  [[noreturn]] void doesNotRecognizeSelector(const char* selector) const;

  // ---- observer mechanism ----

  /// A key that lives as long as the process, the same object for the same
  /// text: a registration for an interned key without a context is kept in
  /// the observed object itself, which most objects need. At most 15 keys
  /// can be interned; more throws std::length_error. Thread-safe.
  static const YString& internedKey(std::u16string_view text);
  /// The number of a key object internedKey() returned (from 1), or 0 for
  /// any other string, even one of equal text.
  static unsigned internedKeyNumber(const YString& key) noexcept;

  /// Registers `observer` for `keyPath` with YKeyValueObservingOptions bits
  /// and an opaque `context`. With Initial the observer is notified at once.
  /// A null observer throws YInvalidArgumentException.
  void addObserver(YObject* observer, const YString& keyPath, unsigned options, void* context);
  /// The same as addObserver(observer, key, options, nullptr) for the
  /// interned key numbered `keyNumber` (internedKeyNumber), without looking
  /// the key up: for callers that register with many objects in turn. A
  /// number no key has throws YInvalidArgumentException.
  void addObserverForKeyNumber(YObject* observer, unsigned keyNumber, unsigned options);
  /// Removes the most recent registration of `observer` for `keyPath`; throws
  /// YRangeException when there is none.
  void removeObserver(YObject* observer, const YString& keyPath);
  /// Number of registrations for `keyPath` (for tests and diagnostics).
  std::size_t observationCountForKey(const YString& keyPath) const noexcept;
  /// Number of registrations of `observer` for `keyPath`.
  std::size_t observationCountForObserver(const YObject* observer, const YString& keyPath) const noexcept;

  /// One registration, as observationAtIndex() reports it.
  struct Observation {
    YObject* observer;   ///< the observer (not owned)
    const YString& key;  ///< the key observed; valid while the registration stands
    unsigned options;    ///< YKeyValueObservingOptions bits
    void* context;       ///< the context given at registration
  };
  /// Number of registrations on this object, whatever their key.
  std::size_t observationCount() const noexcept { return registrationCount(); }
  /// The registration at `index` (0 <= index < observationCount()), in the
  /// order they were made. For an observed object that wants to know every
  /// party to its announcements, so as to skip work none of them could see.
  Observation observationAtIndex(std::size_t index) const noexcept {
    const RegistrationView r = registrationAt(index);
    return {r.observer, r.key, r.options, r.context};
  }
  /// The observer of this object's one and only registration when that is
  /// for `key` with exactly `options` and no context; null otherwise (no
  /// registration, several, or another one). The same answer as
  /// observationCount() and observationAtIndex(0), in one call.
  YObject* soleObserverForKeyWithOptions(const YString& key, unsigned options) const noexcept;
  /// The same for the interned key numbered `keyNumber` (internedKeyNumber,
  /// nonzero), answered inline for the registration held in the object: for
  /// callers that ask of many objects in turn.
  YObject* soleObserverForKeyNumberWithOptions(unsigned keyNumber, unsigned options) const noexcept {
    if (_firstObserver && !_observationInfo && !(_registrationBits & kSelfKeyMask) && options <= 0xF)
      return ((_registrationBits >> 4) & 0xFF) == ((keyNumber << 4) | options) ? _firstObserver : nullptr;
    return soleObserverForKeyNumberSlowly(keyNumber, options);
  }

  /// Opens a change of `key`: takes the Old value and sends Prior
  /// notifications, for the observers that asked for them. Pair it with
  /// didChangeValueForKey(), or use ChangeScope.
  void willChangeValueForKey(const YString& key);
  /// Closes a change of `key`: each observer of `key` is notified, in
  /// registration order. An exception from an observer passes to the caller.
  void didChangeValueForKey(const YString& key);
  /// Opens an indexed change of the to-many `key` at `indexes`, as
  /// willChangeValueForKey() does for a plain key.
  void willChangeValuesAtIndexesForKey(YKeyValueChangeKind kind, const YIndexSet& indexes, const YString& key);
  /// Closes an indexed change of the to-many `key` at `indexes`, as
  /// didChangeValueForKey() does for a plain key.
  void didChangeValuesAtIndexesForKey(YKeyValueChangeKind kind, const YIndexSet& indexes, const YString& key);

  /// Called on an observer after a change it registered for. The default does nothing.
  virtual void observeValueForKeyPath(const YString& keyPath, YObject* object, const YKeyValueChange& change,
                                      void* context);

  /// The value of `key`, delivered as New and Old values. Default: none.
  virtual YValue valueForKey(const YString& key) const;
  /// The values at `indexes` of the to-many `key`. Default: none.
  virtual YValue valuesAtIndexesForKey(const YIndexSet& indexes, const YString& key) const;

  /// True when this object, as an observer, never reads the values of a
  /// change record; changes observed only by such objects then compute no
  /// values. Default: false.
  virtual bool ignoresChangeValues() const noexcept { return false; }

  /// Brackets one change: will-change now, did-change when the scope ends
  /// normally. When the scope ends by an exception no did-change is sent.
  /// An object nobody observes pays two loads for it.
  ///
  /// The destructor sends did-change, which runs the observers; an exception
  /// one of them raises (the assertion handler's, for instance) has to reach
  /// the code that made the change, so the destructor is noexcept(false). It
  /// never throws while the scope is unwinding from another exception.
  class ChangeScope {
   public:
    /// Opens a change of the plain `key` of `object`.
    ChangeScope(YObject& object, const YString& key);
    /// Opens an indexed change of kind `kind` at `index` of the to-many `key` of `object`.
    ChangeScope(YObject& object, YKeyValueChangeKind kind, std::size_t index, const YString& key);
    /// Closes the change (see the class comment).
    ~ChangeScope() noexcept(false);
    ChangeScope(const ChangeScope&) = delete;
    ChangeScope& operator=(const ChangeScope&) = delete;

   private:
    // Sets up the scope; the public constructors then send their will-change.
    ChangeScope(YObject& object, YKeyValueChangeKind kind, std::size_t index, const YString& key, bool indexed);

    YObject& _object;
    const YString* _key;  // a constant key itself, else _ownKey
    YString _ownKey;      // own handle: the caller's key may be a temporary
    std::size_t _index;
    YKeyValueChangeKind _kind;
    bool _indexed;
    bool _observed;  // will-change went to observers
    int _exceptions;
  };

 private:
  // One registration, as kept in ObservationInfo.
  struct Registration {
    YObject* observer = nullptr;
    YString key;
    void* context = nullptr;
    unsigned options = 0;
  };
  // A registration as the code reads it, wherever it is kept.
  struct RegistrationView {
    YObject* observer;
    const YString& key;
    void* context;
    unsigned options;
  };
  struct ObservationInfo;
  struct PendingChange;
  struct Target;
  class TargetList;
  std::size_t registrationCount() const noexcept;
  YObject* soleObserverForKeyNumberSlowly(unsigned keyNumber, unsigned options) const noexcept;
  // The key bits of the object's own registration in _registrationBits (see
  // registrationCount() in YObject.cpp for the layout).
  static constexpr std::uint32_t kSelfKeyMask = 0xFu << 16;
  void addObserverSlowly(YObject* observer, const YString& keyPath, unsigned options, void* context);
  void addObserverForKeyNumberSlowly(YObject* observer, unsigned keyNumber, unsigned options);
  RegistrationView registrationAt(std::size_t index) const noexcept;
  void eraseRegistration(std::size_t index);
  bool isRegistered(const Target& target, const YString& key) const noexcept;
  bool wantsEarlyState(const YString& key) const noexcept;
  std::vector<PendingChange>& pendingChanges();
  void announce(const YString& key, YKeyValueChangeKind kind, const YIndexSet* indexes, bool prior);
  void cancelChangeForKey(const YString& key);
  unsigned allOptions() const noexcept { return _registrationBits & 0xF; }

  // Most objects have one observer, their parent, registered for an interned
  // key without a context: that registration is kept in the object itself,
  // in an observer pointer and a few bits; so is a composite's registration
  // for itself, in bits alone. Any other registration, every one made after
  // them, and the state kept between will-change and did-change live in
  // ObservationInfo. Registrations keep the order they were made in: the
  // object's own comes first, then the one held in _firstObserver.
  YObject* _firstObserver = nullptr;
  // Freed out of line: destroying an object that has none (nearly every one)
  // is inline and needs no saved registers.
  struct ObservationInfoDeleter {
    void operator()(ObservationInfo* info) const noexcept;
  };
  std::unique_ptr<ObservationInfo, ObservationInfoDeleter> _observationInfo;
  // See registrationCount() in YObject.cpp for the layout.
  std::uint32_t _registrationBits = 0;

 protected:
  /// A word of the object's own layout that a subclass may use for its own
  /// bookkeeping (it would otherwise be padding). Zero at construction.
  std::uint32_t _objectWord = 0;
};

namespace ydetail {
// Remembers a few dynamic types already found to be (or not to be) a T, so
// that a repeated kind test costs a type lookup instead of a hierarchy walk.
template <class T>
struct KindCache {
  static constexpr int kSize = 8;
  const std::type_info* types[kSize] = {};
  bool matches[kSize] = {};
  int next = 0;
};
template <class T>
inline thread_local KindCache<T> kindCache;

// Whether `object` is exactly a T, judged by the identity of the type
// record alone: no name comparison, so a T whose record some library holds
// a second copy of may be answered false. For fast paths only, whose
// general path gives the same result.
template <class T, class U>
inline bool isExactly(const U& object) noexcept {
  return &typeid(object) == &typeid(T);
}
}  // namespace ydetail

/// The object as a T when it is a T or of a class derived from T (a kind-of
/// test), else null. Same result as dynamic_cast, faster when repeated.
template <class T, class U>
T* YCast(U* object) noexcept {
  if (!object) return nullptr;
  if constexpr (std::is_base_of_v<T, U>) {
    return object;
  } else {
    // An object of exactly T needs no lookup.
    if (ydetail::isExactly<T>(*object)) return static_cast<T*>(object);
    const std::type_info* type = &typeid(*object);
    auto& cache = ydetail::kindCache<T>;
    for (int i = 0; i < cache.kSize; ++i) {
      if (cache.types[i] == type) return cache.matches[i] ? static_cast<T*>(object) : nullptr;
    }
    T* result = dynamic_cast<T*>(object);
    // Only a T reached by a plain downcast may take the fast path later.
    const bool plain = result && static_cast<void*>(static_cast<T*>(object)) == static_cast<void*>(result);
    if (!result || plain) {
      cache.types[cache.next] = type;
      cache.matches[cache.next] = result != nullptr;
      cache.next = (cache.next + 1) % cache.kSize;
    }
    return result;
  }
}

/// The shared object as a T (sharing ownership) when it is a T or derived from T, else null.
template <class T, class U>
std::shared_ptr<T> YCast(const std::shared_ptr<U>& object) noexcept {
  T* result = YCast<T>(object.get());
  return result ? std::shared_ptr<T>(object, result) : nullptr;
}
