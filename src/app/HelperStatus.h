// What the helper knows about its own work, kept as it happens so that a
// status request is answered from memory and never waits on the disk. Each
// subsystem fills its own part; the status interface only reads.
#pragma once

#include <cstddef>
#include <cstdint>
#include <deque>
#include <map>
#include <string>
#include <vector>

namespace wf {

// How a watched folder is watched: "inotify", "poll" (inotify for this
// computer's changes and a poll for the rest) or "off" with a reason.
struct FolderWatchStatus {
  std::string path;
  std::string fileSystem;  // the kernel's name of its type: "ext4", "nfs", "fuse.sshfs"
  std::string watch = "off";
  std::string reason;  // why it is off; empty otherwise
};

// The last push and the last announcement of one list file. Times are
// seconds since 2001-01-01 (the platform clock); 0 when it never happened.
struct SyncListStatus {
  double lastPushTime = 0;
  std::string lastPushOutcome;  // "pushed", "identical", "refused: …", "failed: …"
  double lastAnnouncementTime = 0;
  std::string lastAnnouncementOutcome;  // "announced", "identical", "refused: …"
};

struct SyncConflictCopy {
  std::string path;
  std::string list;    // "WrenfoldKeywords.plist"
  std::string engine;  // "Syncthing", "Nextcloud/ownCloud", "Dropbox", …
  double seenTime = 0;
};

struct RefusedSyncFile {
  std::string path;
  std::string reason;
  double time = 0;
};

struct SyncFolderStatus : FolderWatchStatus {
  std::map<std::string, SyncListStatus> lists;  // by list file name
  std::vector<SyncConflictCopy> conflicts;
  std::deque<RefusedSyncFile> refused;  // the most recent few
};

struct MailStoreStatus : FolderWatchStatus {
  std::uint64_t watchesHeld = 0;
  std::uint64_t watchLimit = 0;  // the user's max_user_watches, 0 when unknown
  std::uint64_t overflowsRecovered = 0;
  std::uint64_t imported = 0;
  std::uint64_t stubsLeft = 0;
  std::uint64_t nothingToDo = 0;
  std::uint64_t refused = 0;
  std::deque<std::string> lastRefusedReasons;  // the most recent few
  std::size_t pending = 0;                     // messages waiting for the import
};

// The interval run: when it ran and what each source's last run came to.
struct SourceRunStatus {
  double time = 0;
  std::string outcome;  // "written", "unchanged", "not running", "switched off", "failed: …"
};

struct IntervalRunStatus {
  double lastRun = 0;
  double nextRun = 0;
  std::map<std::string, SourceRunStatus> sources;  // "OmniFocus", "Things 3", "Finder tags", …
};

// A preference the helper acts on, as last applied, and where it came from:
// "command line", "plug-in file", "own defaults" or "absent".
struct PreferenceStatus {
  std::string key;
  std::string value;  // as the log prints it
  std::string source;
};

}  // namespace wf
