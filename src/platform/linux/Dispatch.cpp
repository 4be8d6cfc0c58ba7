#include "platform/linux/Dispatch.h"

namespace wf::platform {

void dispatchGuarded(const std::function<void()>& fn) {
  try {
    fn();
  } catch (const wf::NSException& e) {
    logPlatformMessage(uncaughtExceptionMessage(e));
  }
}

}  // namespace wf::platform
