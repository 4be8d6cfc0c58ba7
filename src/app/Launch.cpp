// The launch sequence: the order of its steps is part of the helper's
// contract with the plug-in (the first application of the preferences must
// come before the interval run, the observers last).
#include "app/LoginItems.h"
#include "app/WFHelperAppDelegate.h"
#include "platform/LogKeys.h"
#include "platform/foundation/FileManager.h"
#include "platform/foundation/Strings.h"
#include "prefs/PreferenceKeys.h"
#include "sync/SyncListFiles.h"

namespace wf {
namespace {

// The notifications of the plug-in and their handlers, in registration order.
void observePlugInNotifications(WFHelperAppDelegate* self) {
  platform::NotificationCenter* center = self->services().notifications.get();
  center->addObserver("WrenfoldPreferencesDidChange",
                      [self](const platform::Notification& n) { self->preferencesDidChange(&n); });
  for (const SyncList& list : syncLists()) {
    auto handler = list.handler;
    center->addObserver(std::string(list.savedSignal),
                        [self, handler](const platform::Notification& n) { (self->*handler)(&n); });
  }
  center->addObserver("WrenfoldWillUninstall",
                      [self](const platform::Notification& n) { self->wrenfoldWillUninstall(&n); });
}

// Where the plug-in was looked for, so that a user can put it there.
std::string plugInLookedForMessage(const std::string& path) {
  if (path.empty())
    return "The Wrenfold plug-in was looked for at ~/Library/Mail/Bundles/Wrenfold.mailbundle, "
           "but this process has no home folder (neither HOME nor the password database gives "
           "one).";
  return "The Wrenfold plug-in was looked for at " + path +
         " and nothing is there; install the plug-in there for this user, then start the helper "
         "again.";
}

}  // namespace

void WFHelperAppDelegate::applicationDidFinishLaunching() {
  // 1. The plug-in's URL schemes belong to Mail.
  registerWrenfoldUrlSchema();

  // 2. Command-line overrides: the "WF" arguments.
  Dictionary launchArguments;
  for (const auto& [key, value] : services_.defaults->argumentDomain())
    if (ns::hasPrefix(key, "WF")) launchArguments.emplace(key, value);

  // 3. The plug-in must be installed in the user's own Library.
  std::vector<std::string> libraries = services_.environment->userLibraryDirectories();
  std::string plugIn =
      libraries.empty() ? std::string() : libraries.back() + "/Mail/Bundles/Wrenfold.mailbundle";
  bool installed = !plugIn.empty() && FileManager::defaultManager().fileExistsAtPath(plugIn);
  if (!installed) {
    NSLog(
        "Wrenfold is not installed -- Quitting Wrenfold Helper App and removing from login items");
    NSLogMessage(plugInLookedForMessage(plugIn));
    removeWrenfoldHelperFromLoginItems();
    services_.loop->terminate();
  }

  // 4. The banner.
  NSLog(
      "WrenfoldHelper %@ Launched \nWrenfoldHelper supports Wrenfold interfacing with other "
      "applications and automatic updating",
      services_.environment->infoValue("CFBundleVersion"));

  // 5.
  if (!launchArguments.empty())
    NSLog("WrenfoldHelper Launch Arguments:\n%@", Value(std::move(launchArguments)));

  // 6. Apply the preferences once.
  preferencesDidChange(nullptr);

  // 7. Project scanning, the interval run and the watch on Mail.
  if (!services_.defaults->boolForKey(kDisableExternalProjectScanning)) {
    WFLogKeyed(kLogExternalProjects, "External Project Scanning Enabled");
    runInterval_ = isMailRunning() ? 30 : 300;
    services_.workspace->addLaunchObserver(
        [this](const platform::Notification& n) { mailDidLaunch(n); });
    services_.workspace->addTerminateObserver(
        [this](const platform::Notification& n) { mailDidTerminate(n); });
    // The first run is an operation of its own: an exception in it ends
    // that run, not the launch.
    try {
      runIntervalActions();
    } catch (const NSException& e) {
      NSLogMessage(platform::uncaughtExceptionMessage(e));
    }
  }

  // 8.
  observePlugInNotifications(this);
}

}  // namespace wf
