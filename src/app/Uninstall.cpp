#include "app/LoginItems.h"
#include "app/WFHelperAppDelegate.h"

namespace wf {

void WFHelperAppDelegate::wrenfoldWillUninstall(const platform::Notification*) {
  NSLog("Wrenfold is uninstalling!");
  removeWrenfoldHelperFromLoginItems();
  stopOpenMetaFolderWatcher();
  stopSyncFolderWatcher();
  services_.loop->terminate();
}

// No operation of the helper starts an updater process, so there is never
// one to stop.
void WFHelperAppDelegate::quitSparkleHelper() {}

}  // namespace wf
