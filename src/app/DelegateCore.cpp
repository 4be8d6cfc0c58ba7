#include "app/WFHelperAppDelegate.h"
#include "paths/Paths.h"

namespace wf {
namespace {
WFHelperAppDelegate* gShared = nullptr;
}

WFHelperAppDelegate::WFHelperAppDelegate(platform::Services services) : services_(services) {
  gShared = this;
  previousLogSink_ = setNSLogSink(services_.log.get());
  setPathEnvironment(services_.environment.get());
}

WFHelperAppDelegate::~WFHelperAppDelegate() {
  if (gShared != this) return;
  gShared = nullptr;
  // The log and the environment may go with the services: later lines go
  // where they went before the delegate, and the path functions find no
  // Library folder.
  setNSLogSink(previousLogSink_);
  setPathEnvironment(nullptr);
}

WFHelperAppDelegate* WFHelperAppDelegate::shared() { return gShared; }

bool isMailRunning() {
  WFHelperAppDelegate* delegate = WFHelperAppDelegate::shared();
  if (!delegate) return false;
  for (const std::string& id : delegate->services().workspace->runningApplicationIdentifiers())
    if (id == "com.apple.mail") return true;
  return false;
}

}  // namespace wf
