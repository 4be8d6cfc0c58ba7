// NSLog: the one place every log record of the process goes, whoever writes
// it (the delegate, the platform layer, the main loop's exception guard).
#pragma once

#include <string>
#include <string_view>

#include "platform/Platform.h"
#include "platform/foundation/Format.h"

namespace wf {

// One record to the sink; standard error while none is set.
void NSLogMessage(const std::string& message);
template <typename... Args>
void NSLog(std::string_view fmt, const Args&... args) {
  NSLogMessage(format(fmt, args...));
}
// Where NSLog writes: set by the program at start (tests set a fake).
// Returns the sink it replaces, so that a shorter-lived owner can put it back.
platform::Log* setNSLogSink(platform::Log* log);

}  // namespace wf
