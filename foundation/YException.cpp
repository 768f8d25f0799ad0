#include "YException.h"

#include "YArray.h"

YException::YException(YString name, YString reason)
    : _name(std::move(name)), _reason(reason.isNull() ? YString(u"") : std::move(reason)),
      _what(_reason.UTF8String()) {}

YException::~YException() = default;

YInternalInconsistencyException::YInternalInconsistencyException(YString reason)
    : YException(YString(u"YInternalInconsistencyException"), std::move(reason)) {}

YInvalidArgumentException::YInvalidArgumentException(YString reason)
    : YException(YString(u"YInvalidArgumentException"), std::move(reason)) {}

YRangeException::YRangeException(YString reason) : YException(YString(u"YRangeException"), std::move(reason)) {}

YMutationDuringEnumerationException::YMutationDuringEnumerationException(YString reason)
    : YException(YString(u"YMutationDuringEnumerationException"), std::move(reason)) {}

namespace ydetail {

void throwImmutableMutation(const YObject* list, const char* operation) {
  throw YInvalidArgumentException(YString::stringWithFormat(
      "-[%@ %s]: mutating method sent to immutable object", list ? list->className() : YString(u"YArray"),
      operation));
}

void throwIndexBeyondBounds(const YObject* list, const char* operation, std::size_t index, std::size_t count) {
  YString name = list ? list->className() : YString(u"YArray");
  if (count == 0)
    throw YRangeException(
        YString::stringWithFormat("-[%@ %s]: index %zu beyond bounds for empty array", name, operation, index));
  throw YRangeException(YString::stringWithFormat("-[%@ %s]: index %zu beyond bounds [0 .. %zu]", name, operation,
                                                  index, count - 1));
}

void throwNilObject(const YObject* list, const char* operation) {
  throw YInvalidArgumentException(YString::stringWithFormat(
      "-[%@ %s]: object cannot be nil", list ? list->className() : YString(u"YArray"), operation));
}

void throwMutatedDuringEnumeration(const YObject* list) {
  throw YMutationDuringEnumerationException(
      YString::stringWithFormat("*** Collection %p was mutated while being enumerated.", list));
}

namespace {
thread_local const YDescribingScope* describing = nullptr;  // the innermost list being described
}  // namespace

YDescribingScope::YDescribingScope(const YObject* list) noexcept : _list(list), _outer(describing), _repeat(false) {
  for (const YDescribingScope* scope = _outer; scope && !_repeat; scope = scope->_outer) _repeat = scope->_list == list;
  if (!_repeat) describing = this;
}

YDescribingScope::~YDescribingScope() {
  if (!_repeat) describing = _outer;
}

}  // namespace ydetail
