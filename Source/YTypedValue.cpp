#include "YTypedValue.h"

#include "YAssertionHandler.h"
#include "YException.h"

static constexpr const char YUnitName[] = "YTypedValue";

YString YTypedValueError::description() const {
  const YString where = sectionName.isNull()
                            ? YString::stringWithFormat("option \"%@\"", optionName)
                            : YString::stringWithFormat("option \"%@\" in section \"%@\"", optionName, sectionName);
  switch (failure) {
    case YTypedValueFailure::MissingSection:
      return YString::stringWithFormat("section \"%@\" not found (expected %s option \"%@\")", sectionName,
                                       expectedType, optionName);
    case YTypedValueFailure::MissingOption:
      return YString::stringWithFormat("%@ not found (expected %s)", where, expectedType);
    case YTypedValueFailure::Malformed:
      return YString::stringWithFormat("%@: \"%@\" is not a valid %s", where, text, expectedType);
    case YTypedValueFailure::OutOfRange:
      return YString::stringWithFormat("%@: \"%@\" is out of range (expected %s)", where, text, expectedType);
  }
  return YString();
}

void YTypedValueFailedPrecondition(const char* method, const char* conditionText) {
  YReportParameterFailure(method, nullptr, YUnitName, __LINE__, conditionText);
  throw YInternalInconsistencyException(
      YString::stringWithFormat("Invalid parameter not satisfying: %s", conditionText));
}
