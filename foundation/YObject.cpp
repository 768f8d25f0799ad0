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

namespace {

struct Registration {
  YObject* observer;
  YString key;
  void* context;
  unsigned options;
};

struct PendingChange {
  YString key;
  YValue oldValue;
};

// An observer to notify, copied out of the registrations so that observers
// may register or unregister while a delivery is running.
struct Target {
  YObject* observer;
  void* context;
  unsigned options;
};

// A few targets on the stack, more on the heap.
class TargetList {
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

inline bool sameKey(const YString& a, const YString& b) noexcept {
  return a.isIdenticalTo(b) || a.isEqualToString(b);
}

// Registrations in order; the first lives inline, since most objects have
// exactly one observer (their parent).
class RegistrationList {
 public:
  RegistrationList() noexcept : _data(reinterpret_cast<Registration*>(_inline)) {}
  RegistrationList(const RegistrationList&) = delete;
  RegistrationList& operator=(const RegistrationList&) = delete;
  ~RegistrationList() {
    clear();
    if (!isInline()) ::operator delete(_data);
  }
  Registration* begin() noexcept { return _data; }
  Registration* end() noexcept { return _data + _size; }
  const Registration* begin() const noexcept { return _data; }
  const Registration* end() const noexcept { return _data + _size; }
  bool empty() const noexcept { return _size == 0; }
  void push_back(Registration r) {
    if (_size == _capacity) grow();
    new (_data + _size) Registration(std::move(r));
    ++_size;
  }
  void erase(Registration* at) {
    for (Registration* p = at; p + 1 < end(); ++p) *p = std::move(p[1]);
    (end() - 1)->~Registration();
    --_size;
  }

 private:
  bool isInline() const noexcept { return _data == reinterpret_cast<const Registration*>(_inline); }
  void clear() noexcept {
    for (Registration* p = begin(); p != end(); ++p) p->~Registration();
    _size = 0;
  }
  void grow() {
    std::uint32_t capacity = _capacity * 2;
    auto* fresh = static_cast<Registration*>(::operator new(capacity * sizeof(Registration)));
    for (std::uint32_t i = 0; i < _size; ++i) {
      new (fresh + i) Registration(std::move(_data[i]));
      _data[i].~Registration();
    }
    if (!isInline()) ::operator delete(_data);
    _data = fresh;
    _capacity = capacity;
  }
  Registration* _data;
  std::uint32_t _size = 0;
  std::uint32_t _capacity = 1;
  alignas(Registration) unsigned char _inline[sizeof(Registration)];
};

}  // namespace

struct YObject::ObservationInfo {
  RegistrationList registrations;
  std::unique_ptr<std::vector<PendingChange>> pending;  // only while Old or Prior is asked for

  bool isRegistered(const Target& t, const YString& key) const {
    for (const auto& r : registrations)
      if (r.observer == t.observer && r.context == t.context && sameKey(r.key, key)) return true;
    return false;
  }
};

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
  if (!_observationInfo) _observationInfo = new ObservationInfo;
  _observationInfo->registrations.push_back(Registration{observer, keyPath, context, options});
  if (options & YKeyValueObservingOptionInitial) {
    YKeyValueChange change;
    if (options & YKeyValueObservingOptionNew) change.newValue = valueForKey(keyPath);
    observer->observeValueForKeyPath(keyPath, this, change, context);
  }
}

void YObject::removeObserver(YObject* observer, const YString& keyPath) {
  ObservationInfo* info = _observationInfo;
  if (info) {
    auto& regs = info->registrations;
    for (Registration* it = regs.end(); it != regs.begin();) {
      --it;
      if (it->observer == observer && sameKey(it->key, keyPath)) {
        regs.erase(it);
        if (regs.empty() && (!info->pending || info->pending->empty())) {
          delete info;
          _observationInfo = nullptr;
        }
        return;
      }
    }
  }
  throw YRangeException(YString::stringWithFormat(
      "Cannot remove an observer %@ for the key path \"%@\" from %@ because it is not registered as an observer.",
      observer, keyPath, this));
}

std::size_t YObject::observationCountForKey(const YString& keyPath) const noexcept {
  if (!_observationInfo) return 0;
  return static_cast<std::size_t>(std::count_if(_observationInfo->registrations.begin(),
                                                _observationInfo->registrations.end(),
                                                [&](const Registration& r) { return sameKey(r.key, keyPath); }));
}

std::size_t YObject::observationCountForObserver(const YObject* observer, const YString& keyPath) const noexcept {
  if (!_observationInfo) return 0;
  return static_cast<std::size_t>(
      std::count_if(_observationInfo->registrations.begin(), _observationInfo->registrations.end(),
                    [&](const Registration& r) { return r.observer == observer && sameKey(r.key, keyPath); }));
}

void YObject::announce(const YString& key, YKeyValueChangeKind kind, const YIndexSet* indexes, bool prior) {
  ObservationInfo* info = _observationInfo;
  if (!info) return;
  TargetList targets;
  unsigned wanted = 0;
  for (const auto& r : info->registrations) {
    if (!sameKey(r.key, key)) continue;
    if (prior && !(r.options & YKeyValueObservingOptionPrior)) continue;
    targets.push(Target{r.observer, r.context, r.options});
    wanted |= r.options;
  }
  YValue oldValue;
  if (!prior && info->pending) {
    auto& pending = *info->pending;
    for (auto it = pending.rbegin(); it != pending.rend(); ++it) {
      if (sameKey(it->key, key)) {
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
    if (wanted & YKeyValueObservingOptionOld) change.oldValue = info->pending && !info->pending->empty()
                                                                    ? info->pending->back().oldValue
                                                                    : YValue{};
  } else {
    change.oldValue = std::move(oldValue);
    if (wanted & YKeyValueObservingOptionNew) {
      if (!indexes) change.newValue = valueForKey(key);
      else if (kind != YKeyValueChangeKind::Removal) change.newValue = valuesAtIndexesForKey(*indexes, key);
    }
  }
  const bool hasNew = !std::holds_alternative<std::monostate>(change.newValue);
  const bool hasOld = !std::holds_alternative<std::monostate>(change.oldValue);
  for (std::size_t i = 0; i < targets.size(); ++i) {
    const Target& t = targets[i];
    // Skip observers that unregistered during this delivery.
    if (i > 0 && (!_observationInfo || !_observationInfo->isRegistered(t, key))) continue;
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

namespace {
bool wantsEarlyState(const RegistrationList& regs, const YString& key) {
  for (const auto& r : regs)
    if ((r.options & (YKeyValueObservingOptionOld | YKeyValueObservingOptionPrior)) && sameKey(r.key, key))
      return true;
  return false;
}
}  // namespace

void YObject::willChangeValueForKey(const YString& key) {
  ObservationInfo* info = _observationInfo;
  if (!info || !wantsEarlyState(info->registrations, key)) return;
  if (!info->pending) info->pending = std::make_unique<std::vector<PendingChange>>();
  info->pending->push_back(PendingChange{key, valueForKey(key)});
  announce(key, YKeyValueChangeKind::Setting, nullptr, true);
}

void YObject::didChangeValueForKey(const YString& key) { announce(key, YKeyValueChangeKind::Setting, nullptr, false); }

void YObject::willChangeValuesAtIndexesForKey(YKeyValueChangeKind kind, const YIndexSet& indexes, const YString& key) {
  ObservationInfo* info = _observationInfo;
  if (!info || !wantsEarlyState(info->registrations, key)) return;
  if (!info->pending) info->pending = std::make_unique<std::vector<PendingChange>>();
  YValue old = kind == YKeyValueChangeKind::Insertion ? YValue{} : valuesAtIndexesForKey(indexes, key);
  info->pending->push_back(PendingChange{key, std::move(old)});
  announce(key, kind, &indexes, true);
}

void YObject::didChangeValuesAtIndexesForKey(YKeyValueChangeKind kind, const YIndexSet& indexes, const YString& key) {
  announce(key, kind, &indexes, false);
}

void YObject::cancelChangeForKey(const YString& key) {
  if (!_observationInfo || !_observationInfo->pending) return;
  auto& pending = *_observationInfo->pending;
  for (auto it = pending.rbegin(); it != pending.rend(); ++it) {
    if (sameKey(it->key, key)) {
      pending.erase(std::next(it).base());
      return;
    }
  }
}

// ---- ChangeScope -----------------------------------------------------------

YObject::ChangeScope::ChangeScope(YObject& object, const YString& key)
    : _object(object), _key(key), _kind(YKeyValueChangeKind::Setting), _indexed(false),
      _exceptions(std::uncaught_exceptions()) {
  _object.willChangeValueForKey(_key);
}

YObject::ChangeScope::ChangeScope(YObject& object, YKeyValueChangeKind kind, std::size_t index, const YString& key)
    : _object(object), _key(key), _kind(kind), _indexes(index), _indexed(true),
      _exceptions(std::uncaught_exceptions()) {
  _object.willChangeValuesAtIndexesForKey(_kind, _indexes, _key);
}

YObject::ChangeScope::~ChangeScope() noexcept(false) {
  if (std::uncaught_exceptions() > _exceptions) {
    _object.cancelChangeForKey(_key);
    return;
  }
  if (_indexed) _object.didChangeValuesAtIndexesForKey(_kind, _indexes, _key);
  else _object.didChangeValueForKey(_key);
}
