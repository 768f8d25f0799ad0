#include "YAssertionHandler.h"

#include "YException.h"
#include "YObject.h"

namespace {
thread_local std::shared_ptr<YAssertionHandler> tCurrentHandler;
}

YAssertionHandler::~YAssertionHandler() = default;

YAssertionHandler& YAssertionHandler::currentHandler() {
  if (!tCurrentHandler) tCurrentHandler = std::make_shared<YAssertionHandler>();
  return *tCurrentHandler;
}

std::shared_ptr<YAssertionHandler> YAssertionHandler::setCurrentHandler(std::shared_ptr<YAssertionHandler> handler) {
  auto previous = std::move(tCurrentHandler);
  tCurrentHandler = std::move(handler);
  return previous;
}

void YAssertionHandler::handleFailureInMethod(const char*, const YObject*, const char*, int,
                                              const YString& description) {
  throw YInternalInconsistencyException(description);
}

void YAssertionHandler::handleFailureInFunction(const char*, const char*, int, const YString& description) {
  throw YInternalInconsistencyException(description);
}

void YReportAssertionFailure(const char* method, const YObject* object, const char* unit, int line,
                             const YString& description) {
  YAssertionHandler::currentHandler();
  std::shared_ptr<YAssertionHandler> handler = tCurrentHandler;  // kept alive if it replaces itself
  if (object) handler->handleFailureInMethod(method, object, unit, line, description);
  else handler->handleFailureInFunction(method, unit, line, description);
}

void YReportParameterFailure(const char* method, const YObject* object, const char* unit, int line,
                             const char* conditionText) {
  YReportAssertionFailure(method, object, unit, line,
                          YString::stringWithFormat("Invalid parameter not satisfying: %s", conditionText));
}
