#include "YError.h"

const YString YFoundationErrorDomain(u"YFoundationErrorDomain");

YError::YError(YString domain, std::int64_t code, YString localizedDescription, int underlyingErrno)
    : _domain(std::move(domain)), _code(code), _description(std::move(localizedDescription)),
      _errno(underlyingErrno) {}

std::shared_ptr<YError> YError::errorWithDomainCodeDescription(YString domain, std::int64_t code,
                                                               YString localizedDescription, int underlyingErrno) {
  return std::make_shared<YError>(std::move(domain), code, std::move(localizedDescription), underlyingErrno);
}

YString YError::description() const {
  return YString::stringWithFormat("Error Domain=%@ Code=%lld \"%@\"", _domain, static_cast<long long>(_code),
                                   _description);
}
