// The poll beside the sync folder's stream, for a folder on a file system
// where inotify hears only this computer (a network share, any FUSE mount):
// every few seconds the list files and their conflict copies are read off
// the main thread, and what changed is handed to the stream's callback as
// event paths, so the road through syncFilesDidChange: stays one.
#pragma once

#include <string>

#include "platform/RemoteFolders.h"

namespace wf {

class WFHelperAppDelegate;

inline constexpr double kSyncFolderPollInterval = 2.0;  // a change arrives within ~3 s
inline constexpr double kSyncFolderPollStalledAfter = 10.0;

struct SyncFolderPollState {
  std::string folder;  // as stored: the stem syncFilesDidChange: compares with
  std::unique_ptr<platform::FolderPoll> poll;
  platform::PolledFolder seen;
  bool first = true;
  bool stalled = false;
  bool unreadable = false;
  // What each of the helper's own pushes left behind: not announced back.
  platform::PolledFolder ownPushes;
};

// Finds the folder's file system, records and logs it, and polls when
// inotify cannot hear other computers there. Stops any earlier poll.
void watchSyncFolderFileSystem(WFHelperAppDelegate& delegate, const std::string& folder);
void stopSyncFolderPoll(WFHelperAppDelegate& delegate);
// After a push: the sync copy as the helper left it.
void noteOwnSyncPush(WFHelperAppDelegate& delegate, const std::string& fileName,
                     const std::string& destination);

}  // namespace wf
