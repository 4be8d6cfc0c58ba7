#include "platform/foundation/NSLog.h"

#include <cstdio>
#include <utility>

namespace wf {
namespace {
platform::Log* gSink = nullptr;
}

platform::Log* setNSLogSink(platform::Log* log) { return std::exchange(gSink, log); }

void NSLogMessage(const std::string& message) {
  if (gSink)
    gSink->write(message);
  else
    std::fprintf(stderr, "%s\n", message.c_str());
}

}  // namespace wf
