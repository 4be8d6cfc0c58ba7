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
#include "platform/foundation/NSLog.h"

namespace wf::platform {

// The platform layer's own records (failures of the bus, uncaught
// exceptions) go where every record goes: NSLog's sink.
inline void logPlatformMessage(const std::string& message) { NSLogMessage(message); }

// Runs fn; a wf::NSException thrown by it is logged and swallowed.
void dispatchGuarded(const std::function<void()>& fn);

}  // namespace wf::platform
