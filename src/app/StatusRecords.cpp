// What the delegate records for its status as things happen: the watchers'
// state, the preferences as applied and the interval run's sources.
#include <cstring>

#include "app/WFHelperAppDelegate.h"
#include "prefs/PreferenceKeys.h"
#include "projects/ListFile.h"

namespace wf {
namespace {

std::string shown(const Value& v) { return v.isNil() ? std::string() : describe(v); }

}  // namespace

void WFHelperAppDelegate::noteWatcherOutcome(FolderWatchStatus& status, const std::string& what,
                                             const std::optional<std::string>& path, bool started,
                                             int error) {
  if (path) status.path = *path;
  if (started) {
    // Back after a failure: said once, so that the failure line is not the
    // last word in the log.
    if (!status.reason.empty()) NSLogMessage("The " + what + " is watched again: " + status.path);
    if (status.watch == "off") status.watch = "inotify";
    status.reason.clear();
    return;
  }
  std::string reason;
  if (!path) {
    reason = "there is no Library folder (no home folder)";
  } else if (error != 0) {
    reason = std::string("the folder cannot be watched (") + std::strerror(error) +
             "); check that it exists and is readable";
  } else {
    reason = services_.fileEvents->lastFailure();
    if (reason.empty()) reason = "the watch could not be made";
  }
  status.watch = "off";
  // One line per new reason; the retries of every interval run stay quiet.
  if (reason != status.reason)
    NSLogMessage("Cannot watch the " + what + " (" + status.path + "): " + reason +
                 ". Changes there go unnoticed; the helper tries again at every interval run.");
  status.reason = reason;
}

void WFHelperAppDelegate::retryStoppedWatchers() {
  if (mailStoreStatus.watch == "off" && !mailStoreStatus.reason.empty() &&
      !services_.defaults->boolForKey(kDisableOpenMetaScanning)) {
    // A stream that never started kept the watcher counted as present; it
    // is given up here for a new try.
    _openMetaStreamRef.reset();
    _openMetaStreamUnusable = false;
    startOpenMetaFolderWatcher();
  }
  if (syncStatus.watch == "off" && !syncStatus.reason.empty() && syncStatus.reason != kSyncOff &&
      currentSyncFolderPath() == std::nullopt)
    startSyncFolderWatcher();
}

void WFHelperAppDelegate::notePreferencesApplied() {
  const Dictionary& arguments = services_.defaults->argumentDomain();
  Value file = cachedDefaults();
  preferences.clear();
  for (const char* key :
       {kSettingsSyncMethod, kSyncFolderPath, kLaunchAtLogin, kRecognizeOpenMetaTags}) {
    PreferenceStatus p{key, shown(defaultForKey(key)), "absent"};
    if (arguments.count(std::string("WF") + key))
      p.source = "command line";
    else if (!file.get(key).isNil())
      p.source = "plug-in file";
    preferences.push_back(std::move(p));
  }
  for (const char* key : {kDisableOpenMetaScanning, kDisableExternalProjectScanning}) {
    Value value = services_.defaults->objectForKey(key);
    PreferenceStatus p{key, shown(value), "absent"};
    if (arguments.count(key))
      p.source = "command line";
    else if (!value.isNil())
      p.source = "own defaults";
    preferences.push_back(std::move(p));
  }
}

void WFHelperAppDelegate::noteImportRefused(const std::string& reason) {
  ++mailStoreStatus.refused;
  mailStoreStatus.lastRefusedReasons.push_back(reason);
  if (mailStoreStatus.lastRefusedReasons.size() > 5) mailStoreStatus.lastRefusedReasons.pop_front();
}

void WFHelperAppDelegate::beginSourceRun() { listWriteTally() = ListWriteTally{}; }

void WFHelperAppDelegate::endSourceRun(const std::string& source, const std::string& failure) {
  SourceRunStatus& s = intervalStatus.sources[source];
  s.time = services_.clock->now();
  if (!failure.empty())
    s.outcome = "failed: " + failure;
  else if (listWriteTally().failed > 0)
    s.outcome = "failed: the list file could not be written";
  else if (listWriteTally().written > 0)
    s.outcome = "written";
  else
    s.outcome = "unchanged";
}

}  // namespace wf
