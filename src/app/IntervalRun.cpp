// The interval run and the watch on Mail: a chain of one-shot delayed calls,
// 30 seconds apart while Mail runs and 300 while it does not.
#include "app/WFHelperAppDelegate.h"
#include "prefs/PreferenceKeys.h"

namespace wf {
namespace {

bool isMailNotice(const platform::Notification& notification) {
  Value id = notification.userInfo.count("NSApplicationBundleIdentifier")
                 ? notification.userInfo.at("NSApplicationBundleIdentifier")
                 : Value();
  return id == Value("com.apple.mail");
}

}  // namespace

void WFHelperAppDelegate::runIntervalActions() {
  intervalStatus.lastRun = services_.clock->now();
  intervalStatus.nextRun = intervalStatus.lastRun + static_cast<double>(runInterval_);
  // A watcher that could not start gets another chance at every run.
  retryStoppedWatchers();
  fetchExternalProjects();
  pendingIntervalRun_ =
      services_.loop->performAfterDelay(static_cast<double>(runInterval_), [this] {
        pendingIntervalRun_ = 0;
        runIntervalActions();
      });
}

void WFHelperAppDelegate::mailDidLaunch(const platform::Notification& notification) {
  if (!isMailNotice(notification)) return;
  runInterval_ = isMailRunning() ? 30 : 300;
  // Mail's start restarts the rhythm with an immediate run.
  if (pendingIntervalRun_) {
    services_.loop->cancel(pendingIntervalRun_);
    pendingIntervalRun_ = 0;
  }
  runIntervalActions();
}

void WFHelperAppDelegate::mailDidTerminate(const platform::Notification& notification) {
  if (!isMailNotice(notification)) return;
  // The pending run keeps its delay; the new interval applies from the next.
  runInterval_ = isMailRunning() ? 30 : 300;
  // A helper that is not meant to run at login lives only as long as Mail.
  if (!defaultForKey(kLaunchAtLogin).boolValue()) services_.loop->terminate();
}

}  // namespace wf
