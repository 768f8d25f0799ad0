#include "YObject.h"

#include <cxxabi.h>

#include <algorithm>
#include <cstdlib>
#include <atomic>
#include <exception>
#include <mutex>
#include <stdexcept>

#include "YException.h"

// ---- YIndexSet -------------------------------------------------------------

bool YIndexSet::containsIndex(std::size_t index) const noexcept {
  if (_count == 0) return false;
  return index == _first || std::binary_search(_rest.begin(), _rest.end(), index);
}

std::size_t YIndexSet::firstIndex() const noexcept { return _count ? _first : YNotFound; }

void YIndexSet::addIndex(std::size_t index) {
  if (containsIndex(index)) return;
  if (_count == 0) {
    _first = index;
  } else {
    std::size_t other = index;
    if (index < _first) std::swap(other, _first);
    _rest.insert(std::lower_bound(_rest.begin(), _rest.end(), other), other);
  }
  ++_count;
}

std::vector<std::size_t> YIndexSet::indexes() const {
  std::vector<std::size_t> all;
  all.reserve(_count);
  if (_count) all.push_back(_first);
  all.insert(all.end(), _rest.begin(), _rest.end());
  return all;
}

// ---- registrations ---------------------------------------------------------

struct YObject::PendingChange {
  YString key;
  YValue oldValue;
};

// An observer to notify, copied out of the registrations so that observers
// may register or unregister while a delivery is running.
struct YObject::Target {
  YObject* observer;
  void* context;
  unsigned options;
};

// A few targets on the stack, more on the heap.
class YObject::TargetList {
 public:
  void push(const Target& t) {
    if (_count < kInline) _inline[_count] = t;
    else _more.push_back(t);
    ++_count;
  }
  std::size_t size() const { return _count; }
  const Target& operator[](std::size_t i) const { return i < kInline ? _inline[i] : _more[i - kInline]; }

 private:
  static constexpr std::size_t kInline = 4;
  Target _inline[kInline];
  std::vector<Target> _more;
  std::size_t _count = 0;
};

struct YObject::ObservationInfo {
  std::vector<Registration> more;         // the registrations after the first, in order
  std::vector<PendingChange> pending;     // only while Old or Prior is asked for
};

namespace {

// Interned keys, numbered from 1; entries once set never change, so reading
// them needs no lock once their count has been read.
constexpr unsigned kMaxInternedKeys = 15;
struct InternedKeys {
  std::mutex mutex;
  YString keys[kMaxInternedKeys + 1];
};
// How many keys are interned; outside the table, so that reading it takes no
// guarded call.
constinit std::atomic<unsigned> internedCount{0};
InternedKeys& internedKeys() {
  static InternedKeys* const table = new InternedKeys;  // never destroyed: keys outlive static destructors
  return *table;
}

// The number of an interned key object, or 0.
unsigned internedNumber(const YString& key) noexcept {
  const unsigned n = internedCount.load(std::memory_order_acquire);
  if (!n) return 0;
  InternedKeys& table = internedKeys();
  for (unsigned i = 1; i <= n; ++i)
    if (key.isIdenticalTo(table.keys[i])) return i;
  return 0;
}

const YString& internedKeyNumbered(unsigned number) noexcept { return internedKeys().keys[number]; }

}  // namespace

const YString& YObject::internedKey(std::u16string_view text) {
  InternedKeys& table = internedKeys();
  std::lock_guard<std::mutex> lock(table.mutex);
  const unsigned n = internedCount.load(std::memory_order_relaxed);
  for (unsigned i = 1; i <= n; ++i)
    if (table.keys[i].view() == text) return table.keys[i];
  if (n == kMaxInternedKeys) throw std::length_error("YObject::internedKey: too many interned keys");
  table.keys[n + 1] = YString(text);
  internedCount.store(n + 1, std::memory_order_release);
  return table.keys[n + 1];
}

// _registrationBits: 0-3 the options of all registrations together; 4-7 and
// 8-11 the options and key number of the registration held in
// _firstObserver; 12-15 and 16-19 those of the object's own registration
// for itself, when that was the first one made (a composite observing its
// own children list), which then needs no pointer at all.
namespace {
constexpr unsigned kFirstShift = 4, kSelfShift = 12;
inline unsigned fieldOptions(std::uint32_t bits, unsigned shift) { return (bits >> shift) & 0xF; }
inline unsigned fieldKey(std::uint32_t bits, unsigned shift) { return (bits >> (shift + 4)) & 0xF; }
inline std::uint32_t field(unsigned options, unsigned key, unsigned shift) {
  return ((key << 4) | options) << shift;
}
inline std::uint32_t withoutField(std::uint32_t bits, unsigned shift) { return bits & ~(0xFFu << shift); }
}  // namespace

std::size_t YObject::registrationCount() const noexcept {
  return (fieldKey(_registrationBits, kSelfShift) ? 1 : 0) + (_firstObserver ? 1 : 0) +
         (_observationInfo ? _observationInfo->more.size() : 0);
}

YObject::RegistrationView YObject::registrationAt(std::size_t index) const noexcept {
  if (const unsigned self = fieldKey(_registrationBits, kSelfShift)) {
    if (index == 0)
      return {const_cast<YObject*>(this), internedKeyNumbered(self), nullptr,
              fieldOptions(_registrationBits, kSelfShift)};
    --index;
  }
  if (_firstObserver) {
    if (index == 0)
      return {_firstObserver, internedKeyNumbered(fieldKey(_registrationBits, kFirstShift)), nullptr,
              fieldOptions(_registrationBits, kFirstShift)};
    --index;
  }
  const Registration& r = _observationInfo->more[index];
  return {r.observer, r.key, r.context, r.options};
}

YObject* YObject::soleObserverForKeyWithOptions(const YString& key, unsigned options) const noexcept {
  // Most objects: the one registration, their parent's, held in the object.
  if (_firstObserver && !_observationInfo && !fieldKey(_registrationBits, kSelfShift))
    return fieldOptions(_registrationBits, kFirstShift) == options &&
                   YKeysEqual(internedKeyNumbered(fieldKey(_registrationBits, kFirstShift)), key)
               ? _firstObserver
               : nullptr;
  if (registrationCount() != 1) return nullptr;
  const RegistrationView r = registrationAt(0);
  return r.options == options && !r.context && YKeysEqual(r.key, key) ? r.observer : nullptr;
}

unsigned YObject::internedKeyNumber(const YString& key) noexcept { return internedNumber(key); }

YObject* YObject::soleObserverForKeyNumberSlowly(unsigned keyNumber, unsigned options) const noexcept {
  static_assert(kSelfKeyMask == 0xFu << (kSelfShift + 4) && kFirstShift == 4);  // as the inline part reads them
  if (keyNumber == 0 || keyNumber > kMaxInternedKeys) return nullptr;
  return soleObserverForKeyWithOptions(internedKeyNumbered(keyNumber), options);
}

void YObject::eraseRegistration(std::size_t index) {
  if (fieldKey(_registrationBits, kSelfShift)) {
    if (index == 0) {
      _registrationBits = withoutField(_registrationBits, kSelfShift);
      index = SIZE_MAX;
    } else {
      --index;
    }
  }
  if (index != SIZE_MAX) {
    if (_firstObserver && index == 0) {
      _firstObserver = nullptr;
      _registrationBits = withoutField(_registrationBits, kFirstShift);
    } else {
      auto& more = _observationInfo->more;
      more.erase(more.begin() + static_cast<std::ptrdiff_t>(index - (_firstObserver ? 1 : 0)));
    }
  }
  if (_observationInfo && _observationInfo->more.empty() && _observationInfo->pending.empty()) {
    _observationInfo.reset();
  }
  unsigned all = 0;
  for (std::size_t i = 0, n = registrationCount(); i < n; ++i) all |= registrationAt(i).options;
  _registrationBits = (_registrationBits & ~0xFu) | (all & 0xF);
}

bool YObject::isRegistered(const Target& t, const YString& key) const noexcept {
  const std::size_t n = registrationCount();
  for (std::size_t i = 0; i < n; ++i) {
    const RegistrationView r = registrationAt(i);
    if (r.observer == t.observer && r.context == t.context && YKeysEqual(r.key, key)) return true;
  }
  return false;
}

bool YObject::wantsEarlyState(const YString& key) const noexcept {
  if (!(allOptions() & (YKeyValueObservingOptionOld | YKeyValueObservingOptionPrior))) return false;
  const std::size_t n = registrationCount();
  for (std::size_t i = 0; i < n; ++i) {
    const RegistrationView r = registrationAt(i);
    if ((r.options & (YKeyValueObservingOptionOld | YKeyValueObservingOptionPrior)) && YKeysEqual(r.key, key))
      return true;
  }
  return false;
}

std::vector<YObject::PendingChange>& YObject::pendingChanges() {
  if (!_observationInfo) _observationInfo.reset(new ObservationInfo);
  return _observationInfo->pending;
}

YObject::YObject() noexcept = default;

void YObject::ObservationInfoDeleter::operator()(ObservationInfo* info) const noexcept { delete info; }

// ---- description and identity ----------------------------------------------

YString YObject::className() const {
  const char* mangled = typeid(*this).name();
  int status = 0;
  char* demangled = abi::__cxa_demangle(mangled, nullptr, nullptr, &status);
  YString name = YString::fromUTF8(status == 0 && demangled ? demangled : mangled);
  std::free(demangled);
  return name;
}

YString YObject::defaultDescription() const {
  return YString::stringWithFormat("<%@: %p>", className(), static_cast<const void*>(this));
}

YString YObject::description() const { return defaultDescription(); }

void YObject::doesNotRecognizeSelector(const char* selector) const {
  throw YInvalidArgumentException(
      YString::stringWithFormat("-[%@ %s]: unrecognized selector sent to instance %p", className(), selector,
                                static_cast<const void*>(this)));
}

// ---- observer mechanism ----------------------------------------------------

void YObject::observeValueForKeyPath(const YString&, YObject*, const YKeyValueChange&, void*) {}

YValue YObject::valueForKey(const YString&) const { return {}; }

YValue YObject::valuesAtIndexesForKey(const YIndexSet&, const YString&) const { return {}; }

void YObject::addObserver(YObject* observer, const YString& keyPath, unsigned options, void* context) {
  // An interned key without a context is registered by its number (the
  // number's key is this very object).
  if (!context)
    if (const unsigned key = internedNumber(keyPath)) return addObserverForKeyNumber(observer, key, options);
  addObserverSlowly(observer, keyPath, options, context);
}

void YObject::addObserverForKeyNumber(YObject* observer, unsigned keyNumber, unsigned options) {
  // The common case, a first observer of another object with plain options,
  // is kept in the object without anything else; a number of no key (0 wraps
  // round) goes to the slow path, which refuses it.
  if (keyNumber - 1 < internedCount.load(std::memory_order_acquire) && observer && observer != this &&
      !_firstObserver && !_observationInfo && options <= 0xF && !(options & YKeyValueObservingOptionInitial))
      [[likely]] {
    _firstObserver = observer;
    _registrationBits |= field(options, keyNumber, kFirstShift) | options;
    return;
  }
  addObserverForKeyNumberSlowly(observer, keyNumber, options);
}

void YObject::addObserverForKeyNumberSlowly(YObject* observer, unsigned keyNumber, unsigned options) {
  if (keyNumber - 1 >= internedCount.load(std::memory_order_acquire))
    throw YInvalidArgumentException(YString(u"addObserver: no interned key of that number"));
  addObserverSlowly(observer, internedKeyNumbered(keyNumber), options, nullptr);
}

void YObject::addObserverSlowly(YObject* observer, const YString& keyPath, unsigned options, void* context) {
  if (!observer) throw YInvalidArgumentException(YString(u"addObserver: nil observer"));
  if (keyPath.isNull()) throw YInvalidArgumentException(YString(u"addObserver: nil key path"));
  const unsigned key = internedNumber(keyPath);
  const bool compact = key && !context && options <= 0xF;
  const bool moreEmpty = !_observationInfo || _observationInfo->more.empty();
  if (compact && observer == this && registrationCount() == 0) {
    _registrationBits |= field(options, key, kSelfShift) | options;
  } else if (compact && !_firstObserver && moreEmpty) {
    _firstObserver = observer;
    _registrationBits |= field(options, key, kFirstShift) | options;
  } else {
    if (!_observationInfo) _observationInfo.reset(new ObservationInfo);
    _observationInfo->more.push_back(Registration{observer, keyPath, context, options});
    _registrationBits |= options & 0xF;
  }
  if (options & YKeyValueObservingOptionInitial) {
    YKeyValueChange change;
    if (options & YKeyValueObservingOptionNew) change.newValue = valueForKey(keyPath);
    observer->observeValueForKeyPath(keyPath, this, change, context);
  }
}

void YObject::removeObserver(YObject* observer, const YString& keyPath) {
  for (std::size_t i = registrationCount(); i-- > 0;) {
    const RegistrationView r = registrationAt(i);
    if (r.observer == observer && YKeysEqual(r.key, keyPath)) {
      eraseRegistration(i);
      return;
    }
  }
  throw YRangeException(YString::stringWithFormat(
      "Cannot remove an observer %@ for the key path \"%@\" from %@ because it is not registered as an observer.",
      observer, keyPath, this));
}

std::size_t YObject::observationCountForKey(const YString& keyPath) const noexcept {
  std::size_t count = 0;
  const std::size_t n = registrationCount();
  for (std::size_t i = 0; i < n; ++i) count += YKeysEqual(registrationAt(i).key, keyPath) ? 1 : 0;
  return count;
}

std::size_t YObject::observationCountForObserver(const YObject* observer, const YString& keyPath) const noexcept {
  std::size_t count = 0;
  const std::size_t n = registrationCount();
  for (std::size_t i = 0; i < n; ++i) {
    const RegistrationView r = registrationAt(i);
    count += (r.observer == observer && YKeysEqual(r.key, keyPath)) ? 1 : 0;
  }
  return count;
}

void YObject::announce(const YString& key, YKeyValueChangeKind kind, const YIndexSet* indexes, bool prior) {
  if (registrationCount() == 0) return;
  // The common case: one registration, held in the object, by an observer
  // that asked for New alone and reads no values. It gets a record with the
  // kind and indexes, and nothing is kept for the delivery: nothing here
  // touches this object once the observer has been called.
  if (!_observationInfo && !prior) {
    const unsigned self = fieldKey(_registrationBits, kSelfShift);
    const bool toSelf = self && YKeysEqual(internedKeyNumbered(self), key);
    const bool toFirst = _firstObserver && YKeysEqual(internedKeyNumbered(fieldKey(_registrationBits, kFirstShift)), key);
    YObject* const observer = toSelf ? this : _firstObserver;
    const unsigned options = fieldOptions(_registrationBits, toSelf ? kSelfShift : kFirstShift);
    if (toSelf != toFirst && options == YKeyValueObservingOptionNew && observer->ignoresChangeValues()) {
      YKeyValueChange change;
      change.kind = kind;
      if (indexes) change.indexes = *indexes;
      observer->observeValueForKeyPath(key, this, change, nullptr);
      return;
    }
    if (!toSelf && !toFirst) return;
  }
  TargetList targets;
  bool wantsNew = false;  // by an observer that reads values
  bool wantsOld = false;
  const std::size_t n = registrationCount();
  for (std::size_t i = 0; i < n; ++i) {
    const RegistrationView r = registrationAt(i);
    if (!YKeysEqual(r.key, key)) continue;
    if (prior && !(r.options & YKeyValueObservingOptionPrior)) continue;
    targets.push(Target{r.observer, r.context, r.options});
    if (r.options & YKeyValueObservingOptionOld) wantsOld = true;
    if ((r.options & YKeyValueObservingOptionNew) && !wantsNew) wantsNew = !r.observer->ignoresChangeValues();
  }
  YValue oldValue;
  if (!prior && _observationInfo && !_observationInfo->pending.empty()) {
    auto& pending = _observationInfo->pending;
    for (auto it = pending.rbegin(); it != pending.rend(); ++it) {
      if (YKeysEqual(it->key, key)) {
        oldValue = std::move(it->oldValue);
        pending.erase(std::next(it).base());
        break;
      }
    }
  }
  if (targets.size() == 0) return;
  // An observer may drop the last reference to this object during delivery.
  const std::shared_ptr<YObject> keepAlive = weak_from_this().lock();

  YKeyValueChange change;
  change.kind = kind;
  change.isPrior = prior;
  if (indexes) change.indexes = *indexes;
  if (prior) {
    if (wantsOld && _observationInfo && !_observationInfo->pending.empty())
      change.oldValue = _observationInfo->pending.back().oldValue;
  } else {
    change.oldValue = std::move(oldValue);
    if (wantsNew) {
      if (!indexes) change.newValue = valueForKey(key);
      else if (kind != YKeyValueChangeKind::Removal) change.newValue = valuesAtIndexesForKey(*indexes, key);
    }
  }
  const bool hasNew = !std::holds_alternative<std::monostate>(change.newValue);
  const bool hasOld = !std::holds_alternative<std::monostate>(change.oldValue);
  for (std::size_t i = 0; i < targets.size(); ++i) {
    const Target& t = targets[i];
    // Skip observers that unregistered during this delivery.
    if (i > 0 && !isRegistered(t, key)) continue;
    // Each registration gets only the values its options ask for.
    const bool dropNew = hasNew && !(t.options & YKeyValueObservingOptionNew);
    const bool dropOld = hasOld && !(t.options & YKeyValueObservingOptionOld);
    if (!dropNew && !dropOld) {
      t.observer->observeValueForKeyPath(key, this, change, t.context);
      continue;
    }
    YKeyValueChange own = change;
    if (dropNew) own.newValue = {};
    if (dropOld) own.oldValue = {};
    t.observer->observeValueForKeyPath(key, this, own, t.context);
  }
}

void YObject::willChangeValueForKey(const YString& key) {
  if (!wantsEarlyState(key)) return;
  pendingChanges().push_back(PendingChange{key, valueForKey(key)});
  announce(key, YKeyValueChangeKind::Setting, nullptr, true);
}

void YObject::didChangeValueForKey(const YString& key) { announce(key, YKeyValueChangeKind::Setting, nullptr, false); }

void YObject::willChangeValuesAtIndexesForKey(YKeyValueChangeKind kind, const YIndexSet& indexes, const YString& key) {
  if (!wantsEarlyState(key)) return;
  YValue old = kind == YKeyValueChangeKind::Insertion ? YValue{} : valuesAtIndexesForKey(indexes, key);
  pendingChanges().push_back(PendingChange{key, std::move(old)});
  announce(key, kind, &indexes, true);
}

void YObject::didChangeValuesAtIndexesForKey(YKeyValueChangeKind kind, const YIndexSet& indexes, const YString& key) {
  announce(key, kind, &indexes, false);
}

void YObject::cancelChangeForKey(const YString& key) {
  if (!_observationInfo) return;
  auto& pending = _observationInfo->pending;
  for (auto it = pending.rbegin(); it != pending.rend(); ++it) {
    if (YKeysEqual(it->key, key)) {
      pending.erase(std::next(it).base());
      return;
    }
  }
}

// ---- ChangeScope -----------------------------------------------------------

// An object nobody observes pays two loads for a scope; interned keys are
// referred to rather than copied.
namespace {
const YString* constantKey(const YString& key) noexcept {
  const unsigned number = internedNumber(key);
  return number ? &internedKeyNumbered(number) : nullptr;
}
}  // namespace

YObject::ChangeScope::ChangeScope(YObject& object, const YString& key)
    : ChangeScope(object, YKeyValueChangeKind::Setting, 0, key, false) {
  if (_observed) _object.willChangeValueForKey(*_key);
}

YObject::ChangeScope::ChangeScope(YObject& object, YKeyValueChangeKind kind, std::size_t index, const YString& key)
    : ChangeScope(object, kind, index, key, true) {
  if (_observed) _object.willChangeValuesAtIndexesForKey(_kind, YIndexSet(_index), *_key);
}

YObject::ChangeScope::ChangeScope(YObject& object, YKeyValueChangeKind kind, std::size_t index, const YString& key,
                                  bool indexed)
    : _object(object), _key(constantKey(key)), _index(index), _kind(kind), _indexed(indexed),
      _observed(object.registrationCount() != 0), _exceptions(_observed ? std::uncaught_exceptions() : 0) {
  if (!_key) {
    _ownKey = key;
    _key = &_ownKey;
  }
}

YObject::ChangeScope::~ChangeScope() noexcept(false) {
  // Nobody observed the object before the change, and nobody does now.
  if (!_observed && _object.registrationCount() == 0) return;
  if (std::uncaught_exceptions() > _exceptions) {
    _object.cancelChangeForKey(*_key);
    return;
  }
  if (_indexed) _object.didChangeValuesAtIndexesForKey(_kind, YIndexSet(_index), *_key);
  else _object.didChangeValueForKey(*_key);
}
