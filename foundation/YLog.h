/// \file YLog.h
/// The diagnostic log.
#pragma once

#include <functional>

#include "YString.h"

/// Receives each formatted log message (without prefix or line end).
using YLogSink = std::function<void(const YString& message)>;

/// Installs a sink for all later log lines of the process and returns the
/// previous one; an empty sink restores the default, which writes to standard
/// error "2026-11-22 10:15:02.118 name[pid:tid] message" and a line end.
/// Install sinks before other threads log. A sink may install another (or
/// none) from inside its call: it stays alive until that call returns, and
/// what is returned then is a copy of it.
YLogSink YSetLogSink(YLogSink sink);

/// Sends one message to the log sink.
void YLogMessage(const YString& message);

/// Formats like YString::stringWithFormat and logs the result as one line.
template <class... Args>
void YLog(const char* format, const Args&... args) {
  YLogMessage(YString::stringWithFormat(format, args...));
}
