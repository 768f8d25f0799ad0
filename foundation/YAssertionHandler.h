/// \file YAssertionHandler.h
/// Precondition failures and the per-thread handler that reports them.
#pragma once

#include <memory>

#include "YString.h"

class YObject;

/// Receives every failed precondition on its thread. The default handler
/// throws YInternalInconsistencyException with the description as reason, so
/// the failing operation ends and the error reaches the caller. A handler
/// that returns lets the operation go on (as far as it safely can).
class YAssertionHandler {
 public:
  virtual ~YAssertionHandler();

  /// The handler of the calling thread (the default one unless replaced).
  static YAssertionHandler& currentHandler();
  /// Installs `handler` for the calling thread and returns the previous one;
  /// null restores the default.
  static std::shared_ptr<YAssertionHandler> setCurrentHandler(std::shared_ptr<YAssertionHandler> handler);

  /// A failure in `method` of `object`, checked in source unit `unit` at `line`.
  virtual void handleFailureInMethod(const char* method, const YObject* object, const char* unit, int line,
                                     const YString& description);
  /// A failure in the free function `function`.
  virtual void handleFailureInFunction(const char* function, const char* unit, int line, const YString& description);
};

/// Reports a failed precondition through the current handler. Returns when
/// the handler returns. `object` may be null (a free function).
void YReportAssertionFailure(const char* method, const YObject* object, const char* unit, int line,
                             const YString& description);
/// Reports "Invalid parameter not satisfying: <conditionText>".
void YReportParameterFailure(const char* method, const YObject* object, const char* unit, int line,
                             const char* conditionText);

// Each source unit that checks preconditions defines its unit name, which
// the macros below report:
//   static constexpr const char YUnitName[] = "YIniSection";

/// True when `condition` is false and the handler returned: reports "Invalid
/// parameter not satisfying: <conditionText>" for the calling member
/// function and its object, at `line` of unit YUnitName. The caller then
/// bails out: `if (YParameterFailedAtLine(x, "x != nil", YXCheckLine)) return;`
/// Use it for checks whose reported line must not move with the file's
/// layout, with a named constant defined beside YUnitName:
/// `static constexpr int YTextWriterCheckLine = 75;  // "textWriter != nil"`
#define YParameterFailedAtLine(condition, conditionText, line) \
  (!(condition) && (YReportParameterFailure(__func__, this, YUnitName, line, conditionText), true))
/// YParameterFailedAtLine() at the line where it stands:
/// `if (YParameterFailed(x, "x != nil")) return;`
#define YParameterFailed(condition, conditionText) YParameterFailedAtLine(condition, conditionText, __LINE__)
/// YParameterFailedAtLine() for a free function (no object is reported).
#define YCParameterFailedAtLine(condition, conditionText, line) \
  (!(condition) && (YReportParameterFailure(__func__, nullptr, YUnitName, line, conditionText), true))
/// YParameterFailed() for a free function (no object is reported).
#define YCParameterFailed(condition, conditionText) YCParameterFailedAtLine(condition, conditionText, __LINE__)
/// Checks and goes on even when the handler returns.
#define YParameterAssert(condition, conditionText) (void)YParameterFailed(condition, conditionText)
/// YParameterAssert() for a free function.
#define YCParameterAssert(condition, conditionText) (void)YCParameterFailed(condition, conditionText)
