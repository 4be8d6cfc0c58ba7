// The sync-folder watcher: one file-event stream over the sync folder whose
// callback hands the changed paths to its delegate's syncFilesDidChange:. The helper's own
// pushes are left out by the stream (ignoreSelf). Every reported path is
// handed on, repeats included: the stream does not merge them here.
#include "sync/SyncFolderWatcher.h"

#include <cerrno>

#include "app/WFHelperAppDelegate.h"
#include "platform/LogKeys.h"
#include "platform/base/Files.h"
#include "sync/SyncFolderPoll.h"
#include "sync/SyncListFiles.h"
#include "sync/SyncReports.h"

namespace wf {

namespace {
constexpr double kSyncFolderLatency = 1.0;
}  // namespace

void fseventsSyncFolder_callback(WFHelperAppDelegate* delegate,
                                 const std::vector<std::string>& eventPaths) {
  delegate->logForKey(kLogSettingsSync, __FILE__, __func__, __LINE__,
                      "Sync Folder Item did Change calledBack");
  // Flags and kinds of change do not matter: the filtering by folder and
  // file name is syncFilesDidChange:'s.
  delegate->syncFilesDidChange(eventPaths);
}

bool WFHelperAppDelegate::startSyncFolderWatcher() {
  // A running stream stays when syncing is off; preferencesDidChange: stops it.
  auto path = activeSyncFolderPathCreateIfNecessary(true);
  if (!path) return false;

  // Only while the stream watches the folder the path names now: the folder
  // may have been moved, swapped or replaced by a link meanwhile, and the
  // stream may not have caught up; then it is made anew below.
  if (_syncFolderStreamRef && currentSyncFolderPath() == path &&
      _syncFolderStreamRef->watchesCurrentFolders()) {
    WFLogKeyed(kLogSettingsSync, "Already watching folder  %@", *path);
    return true;
  }
  if (_syncFolderStreamRef) stopSyncFolderWatcher();

  WFLogKeyed(kLogSettingsSync, "starting up Sync Folder Watcher for Path: %@", *path);
  // A helper killed in the middle of a push leaves its temporary beside the
  // list; nobody else will ever remove it.
  sys::removeOwnTemporaries(*path, syncListFileNames());
  platform::FileEventStreamParams params;
  params.paths = {*path};
  params.latency = kSyncFolderLatency;
  params.ignoreSelf = true;
  params.fileEvents = true;
  // The stream dies with the delegate (it holds it), so the callback may
  // carry the delegate itself.
  _syncFolderStreamRef = services().fileEvents->create(
      params,
      [this](const std::vector<std::string>& paths) { fseventsSyncFolder_callback(this, paths); });

  if (_syncFolderStreamRef) {
    if (_syncFolderStreamRef->start()) {
      WFLogKeyed(kLogSettingsSync, "Successfully set up SyncFolder Listener");
      setCurrentSyncFolderPath(path);
      noteWatcherOutcome(syncStatus, "sync folder", path, true, 0);
      // What inotify cannot hear there is polled; copies that lost a
      // conflict while the helper was away are reported now.
      watchSyncFolderFileSystem(*this, *path);
      noteConflictCopiesIn(*this, *path);
      return true;
    }
    noteWatcherOutcome(syncStatus, "sync folder", path, false, errno);
    WFLogKeyed(kLogSettingsSync, "failed to start the SyncFolder Listener\n");
  } else {
    noteWatcherOutcome(syncStatus, "sync folder", path, false, 0);
  }
  _syncFolderStreamRef.reset();
  return false;
}

void WFHelperAppDelegate::stopSyncFolderWatcher() {
  if (_syncFolderStreamRef) {
    WFLogKeyed(kLogSettingsSync, "stopSyncFolderWatcher ");
    _syncFolderStreamRef->stop();
    _syncFolderStreamRef.reset();
  }
  stopSyncFolderPoll(*this);
  syncStatus.watch = "off";
  syncStatus.reason = "stopped";
  setCurrentSyncFolderPath(std::nullopt);
}

}  // namespace wf
