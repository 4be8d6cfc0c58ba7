#include "sync/SyncFolderPoll.h"

#include <sys/stat.h>

#include "app/WFHelperAppDelegate.h"
#include "platform/LogKeys.h"
#include "platform/foundation/Strings.h"
#include "sync/SyncFolderWatcher.h"
#include "sync/SyncListFiles.h"

namespace wf {
namespace {

std::int64_t nanoseconds(const timespec& t) {
  return static_cast<std::int64_t>(t.tv_sec) * 1000000000 + t.tv_nsec;
}

void pollDidReturn(WFHelperAppDelegate* delegate, const platform::PolledFolder& entries,
                   bool reachable) {
  auto& state = *delegate->syncFolderPoll;
  if (state.stalled) {
    NSLog("Sync folder %@ answers again", state.folder);
    state.stalled = false;
  }
  if (!reachable) {
    if (!state.unreadable)
      NSLog("Sync folder %@ cannot be read; it is read again every %g seconds", state.folder,
            kSyncFolderPollInterval);
    state.unreadable = true;
    delegate->syncStatus.reason = "unreadable";
    return;
  }
  state.unreadable = false;
  delegate->syncStatus.reason.clear();
  if (state.first) {
    // What is there when the watch begins is no change.
    state.first = false;
    state.seen = entries;
    delegate->logForKey(kLogSettingsSync, __FILE__, __func__, __LINE__,
                        "Sync folder %@ first read: %lu lists and copies", state.folder,
                        static_cast<unsigned long>(entries.size()));
    return;
  }
  std::vector<std::string> changed;
  auto report = [&](const std::string& name, const platform::PolledEntry* now) {
    auto own = state.ownPushes.find(name);
    if (now && own != state.ownPushes.end() && own->second == *now) return;
    changed.push_back(state.folder + "/" + name);
  };
  for (const auto& [name, entry] : entries) {
    auto before = state.seen.find(name);
    if (before == state.seen.end() || !(before->second == entry)) report(name, &entry);
  }
  for (const auto& [name, entry] : state.seen)
    if (!entries.contains(name)) report(name, nullptr);
  state.seen = entries;
  if (!changed.empty()) fseventsSyncFolder_callback(delegate, changed);
}

}  // namespace

void watchSyncFolderFileSystem(WFHelperAppDelegate& delegate, const std::string& folder) {
  stopSyncFolderPoll(delegate);
  auto& status = delegate.syncStatus;
  status.path = folder;
  status.watch = "inotify";
  status.reason.clear();
  platform::RemoteFolders* remote = delegate.services().remoteFolders;
  if (!remote) return;
  platform::FolderFileSystem fs = remote->fileSystemOf(folder);
  status.fileSystem = fs.type;
  if (!fs.remote) {
    delegate.logForKey(kLogSettingsSync, __FILE__, __func__, __LINE__,
                       "Sync folder %@ is on %@: inotify hears every change", folder, fs.type);
    return;
  }
  NSLog(
      "Sync folder %@ is on %@, where inotify hears only this computer's changes: its lists "
      "are also read every %g seconds",
      folder, fs.type, kSyncFolderPollInterval);
  status.watch = "poll";

  auto state = std::make_shared<SyncFolderPollState>();
  state->folder = folder;
  delegate.syncFolderPoll = state;
  platform::FolderPollParams params;
  params.folder = folder;
  for (const SyncList& list : syncLists()) {
    std::string_view name = list.fileName;
    params.namePrefixes.emplace_back(name.substr(0, name.rfind('.')));
  }
  params.interval = kSyncFolderPollInterval;
  params.stalledAfter = kSyncFolderPollStalledAfter;
  WFHelperAppDelegate* d = &delegate;
  // The poll lives in the state the delegate holds: its callbacks end with it.
  params.onResult = [d](const platform::PolledFolder& entries, bool reachable) {
    if (d->syncFolderPoll) pollDidReturn(d, entries, reachable);
  };
  params.onStalled = [d] {
    if (!d->syncFolderPoll) return;
    d->syncFolderPoll->stalled = true;
    d->syncStatus.reason = "not answering";
    NSLog(
        "Sync folder %@ does not answer: a read has not returned in %g seconds; no new read "
        "starts until it does",
        d->syncFolderPoll->folder, kSyncFolderPollStalledAfter);
  };
  state->poll = remote->startPoll(std::move(params));
}

void stopSyncFolderPoll(WFHelperAppDelegate& delegate) {
  // Released here, the poll drops any result still on its way.
  delegate.syncFolderPoll.reset();
}

void noteOwnSyncPush(WFHelperAppDelegate& delegate, const std::string& fileName,
                     const std::string& destination) {
  if (!delegate.syncFolderPoll) return;
  struct stat st {};
  if (lstat(destination.c_str(), &st) != 0) return;
  delegate.syncFolderPoll->ownPushes[fileName] =
      platform::PolledEntry{static_cast<std::int64_t>(st.st_size), nanoseconds(st.st_mtim),
                            nanoseconds(st.st_ctim), static_cast<std::uint64_t>(st.st_ino)};
}

}  // namespace wf
