// How the main loop runs one callback: an NSException that escapes it ends
// that operation only. It is written to the log and the loop goes on, as
// AppKit does for exceptions in run-loop callbacks. Every source that the
// Linux platform attaches to the main context (timeouts, bus signals,
// inotify, Unix signals) calls back through dispatchGuarded().
#pragma once

#include <exception>
#include <functional>
#include <string>

#include "platform/Platform.h"

namespace wf::platform {

// The log record of an exception that nothing caught.
inline std::string uncaughtExceptionMessage(const std::exception& e) {
  return std::string("An uncaught exception was raised\n") + e.what();
}

// Where the platform layer writes its own records (failures of the bus,
// uncaught exceptions); set once by the program, stderr when unset.
void setDispatchLog(Log* log);
void logPlatformMessage(const std::string& message);

// Runs fn; a wf::NSException thrown by it is logged and swallowed.
void dispatchGuarded(const std::function<void()>& fn);

}  // namespace wf::platform
