#include <cstdio>

#include "app/WFHelperAppDelegate.h"

namespace wf {
namespace {
platform::Log* gSink = nullptr;
}

void setNSLogSink(platform::Log* log) { gSink = log; }

void NSLogMessage(const std::string& message) {
  if (gSink)
    gSink->write(message);
  else
    std::fprintf(stderr, "%s\n", message.c_str());
}

}  // namespace wf
