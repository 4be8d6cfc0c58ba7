#include "platform/linux/Dispatch.h"

#include <cstdio>

namespace wf::platform {
namespace {
Log* gDispatchLog = nullptr;
}

void setDispatchLog(Log* log) { gDispatchLog = log; }

void logPlatformMessage(const std::string& message) {
  if (gDispatchLog)
    gDispatchLog->write(message);
  else
    std::fprintf(stderr, "%s\n", message.c_str());
}

void dispatchGuarded(const std::function<void()>& fn) {
  try {
    fn();
  } catch (const wf::NSException& e) {
    logPlatformMessage(uncaughtExceptionMessage(e));
  }
}

}  // namespace wf::platform
