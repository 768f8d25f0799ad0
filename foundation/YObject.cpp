#include "YObject.h"

#include <cxxabi.h>

#include <algorithm>
#include <cstdlib>
#include <exception>

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

std::size_t YObject::registrationCount() const noexcept {
  if (!_first.observer) return 0;
  return 1 + (_observationInfo ? _observationInfo->more.size() : 0);
}

YObject::Registration& YObject::registrationAt(std::size_t index) noexcept {
  return index == 0 ? _first : _observationInfo->more[index - 1];
}

void YObject::eraseRegistration(std::size_t index) {
  std::vector<Registration>* more = _observationInfo ? &_observationInfo->more : nullptr;
  if (index == 0) {
    if (more && !more->empty()) {
      _first = std::move(more->front());
      more->erase(more->begin());
    } else {
      _first = Registration{};
    }
  } else {
    more->erase(more->begin() + static_cast<std::ptrdiff_t>(index - 1));
  }
  if (_observationInfo && _observationInfo->more.empty() && _observationInfo->pending.empty()) {
    delete _observationInfo;
    _observationInfo = nullptr;
  }
  unsigned all = 0;
  for (std::size_t i = 0, n = registrationCount(); i < n; ++i) all |= registrationAt(i).options;
  _first.allOptions = all;
}

bool YObject::isRegistered(const Target& t, const YString& key) const noexcept {
  const std::size_t n = registrationCount();
  for (std::size_t i = 0; i < n; ++i) {
    const Registration& r = registrationAt(i);
    if (r.observer == t.observer && r.context == t.context && YKeysEqual(r.key, key)) return true;
  }
  return false;
}

bool YObject::wantsEarlyState(const YString& key) const noexcept {
  if (!(_first.allOptions & (YKeyValueObservingOptionOld | YKeyValueObservingOptionPrior))) return false;
  const std::size_t n = registrationCount();
  for (std::size_t i = 0; i < n; ++i) {
    const Registration& r = registrationAt(i);
    if ((r.options & (YKeyValueObservingOptionOld | YKeyValueObservingOptionPrior)) && YKeysEqual(r.key, key))
      return true;
  }
  return false;
}

std::vector<YObject::PendingChange>& YObject::pendingChanges() {
  if (!_observationInfo) _observationInfo = new ObservationInfo;
  return _observationInfo->pending;
}

YObject::~YObject() { delete _observationInfo; }

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
  if (!observer) throw YInvalidArgumentException(YString(u"addObserver: nil observer"));
  if (keyPath.isNull()) throw YInvalidArgumentException(YString(u"addObserver: nil key path"));
  Registration registration{observer, keyPath, context, options};
  const unsigned all = _first.allOptions | options;
  if (!_first.observer) {
    _first = std::move(registration);
  } else {
    if (!_observationInfo) _observationInfo = new ObservationInfo;
    _observationInfo->more.push_back(std::move(registration));
  }
  _first.allOptions = all;
  if (options & YKeyValueObservingOptionInitial) {
    YKeyValueChange change;
    if (options & YKeyValueObservingOptionNew) change.newValue = valueForKey(keyPath);
    observer->observeValueForKeyPath(keyPath, this, change, context);
  }
}

void YObject::removeObserver(YObject* observer, const YString& keyPath) {
  for (std::size_t i = registrationCount(); i-- > 0;) {
    const Registration& r = registrationAt(i);
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
    const Registration& r = registrationAt(i);
    count += (r.observer == observer && YKeysEqual(r.key, keyPath)) ? 1 : 0;
  }
  return count;
}

void YObject::announce(const YString& key, YKeyValueChangeKind kind, const YIndexSet* indexes, bool prior) {
  if (!_first.observer) return;
  TargetList targets;
  bool wantsNew = false;  // by an observer that reads values
  bool wantsOld = false;
  const std::size_t n = registrationCount();
  for (std::size_t i = 0; i < n; ++i) {
    const Registration& r = registrationAt(i);
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
  if (!_first.observer || !wantsEarlyState(key)) return;
  pendingChanges().push_back(PendingChange{key, valueForKey(key)});
  announce(key, YKeyValueChangeKind::Setting, nullptr, true);
}

void YObject::didChangeValueForKey(const YString& key) { announce(key, YKeyValueChangeKind::Setting, nullptr, false); }

void YObject::willChangeValuesAtIndexesForKey(YKeyValueChangeKind kind, const YIndexSet& indexes, const YString& key) {
  if (!_first.observer || !wantsEarlyState(key)) return;
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

// An object nobody observes pays two loads for a scope; the constant keys
// are referred to rather than copied.
namespace {
const YString* constantKey(const YString& key) noexcept {
  if (key.isIdenticalTo(YModifiedKey)) return &YModifiedKey;
  if (key.isIdenticalTo(YElementsKey)) return &YElementsKey;
  return nullptr;
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
      _observed(object._first.observer != nullptr), _exceptions(_observed ? std::uncaught_exceptions() : 0) {
  if (!_key) {
    _ownKey = key;
    _key = &_ownKey;
  }
}

YObject::ChangeScope::~ChangeScope() noexcept(false) {
  // Nobody observed the object before the change, and nobody does now.
  if (!_observed && !_object._first.observer) return;
  if (std::uncaught_exceptions() > _exceptions) {
    _object.cancelChangeForKey(*_key);
    return;
  }
  if (_indexed) _object.didChangeValuesAtIndexesForKey(_kind, YIndexSet(_index), *_key);
  else _object.didChangeValueForKey(*_key);
}
