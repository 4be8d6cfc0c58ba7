// File-event streams on inotify, delivered on the GLib main context, with
// the behaviour of FSEvents file-event streams: the whole tree below each
// watched folder, one path per change, coalesced by the latency, the
// process's own changes left out on request. docs/file-events.md tells the
// whole story (overflow, watch limit, vanished folders).
#pragma once

#include <glib.h>
#include <sys/types.h>

#include <cstddef>
#include <ctime>
#include <limits>
#include <memory>
#include <string>
#include <unordered_map>
#include <unordered_set>
#include <utility>
#include <vector>

#include "platform/FileEvents.h"
#include "platform/Platform.h"
#include "platform/base/Owners.h"

namespace wf::platform {

class InotifyFileEventStream final : public FileEventStream, private OwnChangeListener {
 public:
  // Takes the inotify descriptor `fd`.
  InotifyFileEventStream(int fd, FileEventStreamParams params, FileEventCallback callback, Log& log,
                         std::size_t watchLimit);
  ~InotifyFileEventStream() override;
  InotifyFileEventStream(const InotifyFileEventStream&) = delete;
  InotifyFileEventStream& operator=(const InotifyFileEventStream&) = delete;

  // Watches every folder of the trees and begins delivering. Fails when a
  // watched folder is missing, not a folder, or cannot be watched.
  bool start() override;
  // No callback after this; the watches are gone.
  void stop() override;

  bool watchesCurrentFolders() const override;
  std::uint64_t watchesHeld() const override { return folders_.size(); }
  std::uint64_t overflowsRecovered() const override { return overflows_; }

  // Folders watched at present.
  std::size_t watchCount() const { return folders_.size(); }

 private:
  // One watched folder: its parent's watch descriptor (-1 for a watched
  // root) and its name in the parent (the path as given for a root). Full
  // paths are built on demand, which keeps the table small for large trees.
  struct Folder {
    int parent;
    std::string name;
  };
  enum class Scan { Quiet, ReportAll, ReportChangedSince };
  // A folder still to be watched and read in a walk.
  struct FolderToWalk {
    std::string path;
    int parent;
    std::string name;
  };
  // A watched path and what it names: the folder watched as its tree's top
  // (-1 while the path names no folder), that folder's identity, and the
  // watch on the folder that holds the path's last component, which tells
  // when the path comes to name something else (moved away, swapped,
  // deleted, made again, a link put in its place or pointed elsewhere).
  struct Root {
    std::string path;  // as given
    std::string name;  // its last component
    int wd = -1;
    dev_t device = 0;
    ino_t inode = 0;
    int parentWd = -1;
  };

  void drainForeignEvents() override;
  void drainOwnEvents(const std::string& path) override;

  static gboolean onReadable(gint fd, GIOCondition condition, gpointer self);
  static gboolean onLatencyElapsed(gpointer self);

  // Reads and handles at most `budget` bytes of events, and when a time
  // budget is given, stops once it is spent; true when the queue was read
  // empty.
  bool readQueue(std::size_t budget, gint64 timeBudgetUs = 0);
  void handleEvent(int wd, std::uint32_t mask, const char* name);
  void report(std::string path);
  void deliver();

  int addWatch(const std::string& path, int parent, const std::string& name, bool* known);
  void watchTree(const std::string& path, int parent, const std::string& name, Scan scan);
  // Walks the folders of `todo` (and those found in them) until none is
  // left or, with a deadline, until it has passed; false when some are left.
  bool walkFolders(std::vector<FolderToWalk>& todo, Scan scan, gint64 deadline);
  bool hasNoSubfolders(const std::string& path);
  void forgetChild(int parent, const std::string& name);
  bool namesWatchedFolder(const Root& root) const;
  void followRoot(Root& root, Scan scan);
  void watchParentOf(Root& root);
  bool isParentWatch(int wd) const;
  void forgetTree(int wd);
  std::string pathOf(int wd) const;
  void recoverFromOverflow();
  static gboolean onRecoverySlice(gpointer self);
  void continueRecovery();
  void finishRecovery();
  void logWatchLimitOnce(const std::string& where);

  sys::UniqueFd fd_;
  FileEventStreamParams params_;
  FileEventCallback callback_;
  Log& log_;
  std::size_t watchLimit_;

  std::unordered_map<int, Folder> folders_;
  std::uint64_t overflows_ = 0;
  std::vector<Root> roots_;
  std::vector<std::string> pending_;
  std::unordered_set<std::string> pendingSet_;  // with mergeRepeatedPaths
  std::vector<char> directoryBuffer_;           // for reading folders, kept between reads
  // Devices whose folders' link counts tell their sub-folders.
  std::vector<std::pair<dev_t, bool>> linkCountingDevices_;
  guint readSource_ = 0;
  guint latencyTimer_ = 0;
  bool started_ = false;
  bool stopped_ = false;
  bool watchLimitLogged_ = false;
  bool listening_ = false;                // registered with OwnChanges
  const std::string* ownPath_ = nullptr;  // while draining after an own change
  // When the queue was last read empty: anything later is either still
  // queued or, after an overflow, lost and found again by change time.
  timespec caughtUpAt_{};
  // While scanning after an overflow: the folders met so far, and the
  // time from which on a change counts.
  std::unordered_set<int>* rescanned_ = nullptr;
  timespec changedSince_{};
  // The scan after an overflow, worked off a few folders per turn of the
  // main loop; events go on being handled in between.
  struct Recovery {
    std::unordered_set<int> met;
    std::vector<FolderToWalk> todo;
    std::vector<std::string> roots;
    std::size_t reported = 0;
    guint source = 0;
  };
  std::unique_ptr<Recovery> recovery_;
};

class InotifyFileEventStreamFactory : public FileEventStreamFactory {
 public:
  // The log receives the lines about lost events and the watch limit.
  explicit InotifyFileEventStreamFactory(Log& log) : log_(log) {}
  std::unique_ptr<FileEventStream> create(const FileEventStreamParams& params,
                                          FileEventCallback callback) override;
  std::string lastFailure() const override { return lastFailure_; }
  // Streams made afterwards act as if the per-user watch limit left room
  // for only `watches` folders (tests and benchmarks).
  void setWatchLimitForTesting(std::size_t watches) { watchLimit_ = watches; }

 private:
  Log& log_;
  std::string lastFailure_;
  std::size_t watchLimit_ = std::numeric_limits<std::size_t>::max();
};

}  // namespace wf::platform
