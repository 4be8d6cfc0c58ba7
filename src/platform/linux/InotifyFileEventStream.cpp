#include "platform/linux/InotifyFileEventStream.h"

#include <dirent.h>
#include <fcntl.h>
#include <glib-unix.h>
#include <linux/magic.h>
#include <sys/inotify.h>
#include <sys/stat.h>
#include <sys/statfs.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <unordered_set>

#include "platform/linux/Dispatch.h"
#include "platform/linux/MemoryRelease.h"

namespace wf::platform {

namespace {

// The changes that become event paths.
constexpr std::uint32_t kReported =
    IN_CREATE | IN_CLOSE_WRITE | IN_ATTRIB | IN_MOVED_FROM | IN_MOVED_TO | IN_DELETE;
// What every folder is watched for: the above plus its own end. Unlinked
// files still open elsewhere say nothing more.
constexpr std::uint32_t kWatchMask =
    kReported | IN_DELETE_SELF | IN_MOVE_SELF | IN_ONLYDIR | IN_EXCL_UNLINK;
// What the folder holding a watched path is watched for: its entries
// coming and going (the path naming something else) and its own end. A
// subset of kWatchMask, so a folder that is both keeps every event.
constexpr std::uint32_t kParentMask = IN_CREATE | IN_MOVED_FROM | IN_MOVED_TO | IN_DELETE |
                                      IN_DELETE_SELF | IN_MOVE_SELF | IN_ONLYDIR;

// How much of the event queue one turn of the main loop reads: a flood is
// worked off in slices, with everything else of the helper in between.
constexpr std::size_t kReadBudget = 256 * 1024;
// ... and for how long at most: a slow machine reads less per turn, so that
// a call on the bus (the status) waits for one short slice at most.
constexpr gint64 kReadTimeBudgetUs = 10 * 1000;
// How much a drain around the process's own change reads at most. It
// normally finds a few events; under a flood it must not hold the loop.
constexpr std::size_t kDrainBudget = 1024 * 1024;

// The kernel stamps change times from a coarse clock that may lag the
// real-time clock by a tick; look back a little further than that.
constexpr long kCoarseClockSlackNs = 100 * 1000 * 1000;

timespec realtimeNow() {
  timespec t{};
  clock_gettime(CLOCK_REALTIME, &t);
  return t;
}

timespec minus(timespec t, long ns) {
  t.tv_nsec -= ns;
  while (t.tv_nsec < 0) {
    t.tv_nsec += 1000000000L;
    --t.tv_sec;
  }
  return t;
}

bool notBefore(const timespec& a, const timespec& b) {
  return a.tv_sec > b.tv_sec || (a.tv_sec == b.tv_sec && a.tv_nsec >= b.tv_nsec);
}

bool isDotOrDotDot(const char* name) {
  return name[0] == '.' && (name[1] == '\0' || (name[1] == '.' && name[2] == '\0'));
}

// The folder that holds `path` and the path's last component ("" when
// there is none, as for "/").
std::pair<std::string, std::string> splitLast(const std::string& path) {
  std::string trimmed = path;
  while (trimmed.size() > 1 && trimmed.back() == '/') trimmed.pop_back();
  auto slash = trimmed.rfind('/');
  if (slash == std::string::npos) return {".", trimmed};
  std::string name = trimmed.substr(slash + 1);
  return {slash == 0 ? "/" : trimmed.substr(0, slash), name == "/" ? "" : name};
}

}  // namespace

InotifyFileEventStream::InotifyFileEventStream(int fd, FileEventStreamParams params,
                                               FileEventCallback callback, Log& log,
                                               std::size_t watchLimit)
    : fd_(fd),
      params_(std::move(params)),
      callback_(std::move(callback)),
      log_(log),
      watchLimit_(watchLimit) {}

InotifyFileEventStream::~InotifyFileEventStream() { stop(); }

bool InotifyFileEventStream::start() {
  if (stopped_ || !fd_.valid()) return false;
  if (started_) return true;

  for (const std::string& path : params_.paths) {
    Root root;
    root.path = path;
    root.name = splitLast(path).second;
    bool known = false;
    struct stat st;
    root.wd = addWatch(path, -1, path, &known);
    if (root.wd < 0 || stat(path.c_str(), &st) != 0) {
      if (errno == ENOSPC) logWatchLimitOnce(path);
      folders_.clear();
      roots_.clear();
      fd_.reset();  // drops every watch made so far
      return false;
    }
    root.device = st.st_dev;
    root.inode = st.st_ino;
    roots_.push_back(std::move(root));
  }
  for (Root& root : roots_) watchParentOf(root);
  for (const Root& root : roots_) watchTree(root.path, -1, root.path, Scan::Quiet);

  caughtUpAt_ = realtimeNow();
  readSource_ = g_unix_fd_add(fd_.get(), G_IO_IN, &InotifyFileEventStream::onReadable, this);
  if (params_.ignoreSelf) {
    OwnChanges::addListener(this);
    listening_ = true;
  }
  started_ = true;
  return true;
}

void InotifyFileEventStream::stop() {
  if (listening_) {
    OwnChanges::removeListener(this);
    listening_ = false;
  }
  if (readSource_) g_source_remove(readSource_);
  if (latencyTimer_) g_source_remove(latencyTimer_);
  if (recovery_ && recovery_->source) g_source_remove(recovery_->source);
  recovery_.reset();
  rescanned_ = nullptr;
  readSource_ = latencyTimer_ = 0;
  pending_.clear();
  pendingSet_.clear();
  folders_.clear();
  roots_.clear();
  if (started_) {
    // A stopped stream stays stopped, as an invalidated one would.
    started_ = false;
    stopped_ = true;
    fd_.reset();
  }
}

// ---- watches ---------------------------------------------------------------

int InotifyFileEventStream::addWatch(const std::string& path, int parent, const std::string& name,
                                     bool* known) {
  *known = false;
  int wd;
  if (folders_.size() >= watchLimit_) {
    errno = ENOSPC;
    wd = -1;
  } else {
    // Below a root, symbolic links are entries, never folders to enter.
    wd =
        inotify_add_watch(fd_.get(), path.c_str(), kWatchMask | (parent >= 0 ? IN_DONT_FOLLOW : 0));
  }
  if (wd < 0) return -1;
  auto [it, inserted] = folders_.try_emplace(wd, Folder{parent, name});
  *known = !inserted;
  return wd;
}

// Watches the folder at `path` and everything below it, each folder before
// it is read, so that nothing made in it meanwhile goes unseen. Entries
// found are reported according to `scan`.
void InotifyFileEventStream::watchTree(const std::string& path, int parent, const std::string& name,
                                       Scan scan) {
  std::vector<FolderToWalk> todo;
  todo.push_back({path, parent, name});
  walkFolders(todo, scan, G_MAXINT64);
}

bool InotifyFileEventStream::walkFolders(std::vector<FolderToWalk>& todo, Scan scan,
                                         gint64 deadline) {
  std::string entryPath;
  while (!todo.empty()) {
    if (g_get_monotonic_time() >= deadline) return false;
    FolderToWalk folder = std::move(todo.back());
    todo.pop_back();
    // A walk spread over several turns: the folder's parent may have been
    // moved away or deleted since; if it went elsewhere in the tree, its
    // new place was walked whole when the move was seen.
    if (folder.parent >= 0 && !folders_.count(folder.parent)) continue;

    int wd;
    bool known = false;
    if (folder.parent < 0) {
      wd = -1;
      for (const auto& [w, f] : folders_)
        if (f.parent < 0 && f.name == folder.name) wd = w;
      known = wd >= 0;
    } else {
      wd = addWatch(folder.path, folder.parent, folder.name, &known);
    }
    // Met already in this scan; a folder watched anew (moved back in
    // meanwhile) is read all the same.
    if (wd >= 0 && rescanned_ && !rescanned_->insert(wd).second && known) continue;
    if (wd < 0) {
      if (errno == ENOSPC) logWatchLimitOnce(folder.path);
      if (scan == Scan::Quiet) continue;
      // Still report what is in it; it just goes unwatched.
    } else if (known && folder.parent >= 0) {
      if (scan != Scan::ReportChangedSince) continue;     // a loop through a bind mount
      folders_[wd] = Folder{folder.parent, folder.name};  // where it is now
    }

    // Nothing to report and no sub-folder in it: no need to read it. The
    // watch is in place already, so a sub-folder made from now on is an event.
    if (scan == Scan::Quiet && wd >= 0 && hasNoSubfolders(folder.path)) continue;

    int flags = O_RDONLY | O_DIRECTORY | O_CLOEXEC | (folder.parent >= 0 ? O_NOFOLLOW : 0);
    sys::UniqueFd dir(open(folder.path.c_str(), flags));
    if (!dir) continue;
    int dirFd = dir.get();
    if (directoryBuffer_.empty()) directoryBuffer_.resize(32 * 1024);
    ssize_t n;
    while ((n = getdents64(dirFd, directoryBuffer_.data(), directoryBuffer_.size())) > 0) {
      for (ssize_t offset = 0; offset < n;) {
        auto* entry = reinterpret_cast<dirent64*>(directoryBuffer_.data() + offset);
        offset += entry->d_reclen;
        if (isDotOrDotDot(entry->d_name)) continue;
        // The entry's type comes with it; a stat only where the file
        // system does not say, or where the change time is wanted.
        bool isFolder = entry->d_type == DT_DIR;
        bool needStat = entry->d_type == DT_UNKNOWN || scan == Scan::ReportChangedSince;
        struct stat st;
        bool haveStat = needStat && fstatat(dirFd, entry->d_name, &st, AT_SYMLINK_NOFOLLOW) == 0;
        if (entry->d_type == DT_UNKNOWN) isFolder = haveStat && S_ISDIR(st.st_mode);

        entryPath.assign(folder.path).append("/").append(entry->d_name);
        if (scan == Scan::ReportAll ||
            (scan == Scan::ReportChangedSince && haveStat && notBefore(st.st_ctim, changedSince_)))
          report(entryPath);
        if (isFolder && wd >= 0) todo.push_back({entryPath, wd, entry->d_name});
      }
    }
  }
  return true;
}

// A folder's link count is 2 + its number of sub-folders on the file
// systems that keep it so (ext2/3/4, tmpfs, xfs); others say 1 or cannot be
// trusted, and their folders are always read.
bool InotifyFileEventStream::hasNoSubfolders(const std::string& path) {
  struct stat st;
  if (lstat(path.c_str(), &st) != 0 || !S_ISDIR(st.st_mode) || st.st_nlink != 2) return false;
  for (const auto& [dev, counts] : linkCountingDevices_)
    if (dev == st.st_dev) return counts;
  struct statfs fs;
  bool counts =
      statfs(path.c_str(), &fs) == 0 &&
      (fs.f_type == EXT4_SUPER_MAGIC || fs.f_type == TMPFS_MAGIC || fs.f_type == XFS_SUPER_MAGIC);
  linkCountingDevices_.emplace_back(st.st_dev, counts);
  return counts;
}

void InotifyFileEventStream::forgetChild(int parent, const std::string& name) {
  for (const auto& [wd, folder] : folders_) {
    if (folder.parent == parent && folder.name == name) {
      forgetTree(wd);
      return;
    }
  }
}

// Stops watching `wd` and every folder below it (moved away or gone).
void InotifyFileEventStream::forgetTree(int top) {
  std::unordered_map<int, bool> below;  // memo: is it inside `top`'s tree?
  below[top] = true;
  std::vector<int> doomed;
  for (const auto& [wd, folder] : folders_) {
    std::vector<int> chain;
    int at = wd;
    bool inside = false;
    while (true) {
      auto memo = below.find(at);
      if (memo != below.end()) {
        inside = memo->second;
        break;
      }
      chain.push_back(at);
      auto it = folders_.find(at);
      if (it == folders_.end() || it->second.parent < 0) break;
      at = it->second.parent;
    }
    for (int c : chain) below[c] = inside;
    if (inside) doomed.push_back(wd);
  }
  for (int wd : doomed) {
    if (!isParentWatch(wd)) inotify_rm_watch(fd_.get(), wd);
    folders_.erase(wd);
  }
}

std::string InotifyFileEventStream::pathOf(int wd) const {
  std::vector<const std::string*> names;
  for (auto it = folders_.find(wd); it != folders_.end(); it = folders_.find(it->second.parent)) {
    names.push_back(&it->second.name);
    if (it->second.parent < 0) break;
  }
  std::string path;
  for (auto n = names.rbegin(); n != names.rend(); ++n) {
    if (n != names.rbegin()) path += '/';
    path += **n;
  }
  return path;
}

void InotifyFileEventStream::logWatchLimitOnce(const std::string& where) {
  if (watchLimitLogged_) return;
  watchLimitLogged_ = true;
  log_.write("Cannot watch every folder below " + where +
             ": the per-user limit of inotify watches (fs.inotify.max_user_watches) is reached, "
             "so changes in the folders left out go unnoticed. Raise the limit, for example with "
             "\"sudo sysctl fs.inotify.max_user_watches=524288\" (and the line "
             "\"fs.inotify.max_user_watches=524288\" in /etc/sysctl.d/ to keep it), then restart "
             "wrenfold-helper.");
}

// ---- events ----------------------------------------------------------------

gboolean InotifyFileEventStream::onReadable(gint, GIOCondition, gpointer self) {
  static_cast<InotifyFileEventStream*>(self)->readQueue(kReadBudget, kReadTimeBudgetUs);
  return G_SOURCE_CONTINUE;
}

void InotifyFileEventStream::drainForeignEvents() {
  if (started_ && !stopped_) readQueue(kDrainBudget);
}

void InotifyFileEventStream::drainOwnEvents(const std::string& path) {
  if (!started_ || stopped_) return;
  ownPath_ = &path;
  readQueue(kDrainBudget);
  ownPath_ = nullptr;
}

bool InotifyFileEventStream::readQueue(std::size_t budget, gint64 timeBudgetUs) {
  alignas(inotify_event) char buffer[64 * 1024];
  const gint64 deadline = timeBudgetUs > 0 ? g_get_monotonic_time() + timeBudgetUs : G_MAXINT64;
  bool overflowed = false;
  bool empty = false;
  std::size_t taken = 0;
  while (fd_.valid()) {
    // The rest at the next turn of the loop.
    if (taken >= budget || (taken > 0 && g_get_monotonic_time() >= deadline)) break;
    ssize_t n = read(fd_.get(), buffer, sizeof buffer);
    if (n < 0 && errno == EINTR) continue;
    if (n <= 0) {
      empty = true;
      break;
    }
    taken += static_cast<std::size_t>(n);
    for (char* p = buffer; p < buffer + n;) {
      auto* event = reinterpret_cast<inotify_event*>(p);
      p += sizeof(inotify_event) + event->len;
      if (event->mask & IN_Q_OVERFLOW) {
        overflowed = true;
        continue;
      }
      handleEvent(event->wd, event->mask, event->len ? event->name : "");
    }
  }
  if (overflowed) recoverFromOverflow();
  // A flood of events: what it took to read them goes back afterwards.
  if (taken >= budget || overflowed) noteBurst();
  // Only a queue read empty vouches for everything before this moment.
  if (empty) caughtUpAt_ = realtimeNow();
  return empty;
}

void InotifyFileEventStream::handleEvent(int wd, std::uint32_t mask, const char* name) {
  // The folder holding a watched path: did the path come to name something
  // else? (It may also be a folder of a tree; then it goes on below.)
  for (Root& root : roots_) {
    if (root.parentWd != wd) continue;
    if (mask & IN_IGNORED) {
      root.parentWd = -1;
      watchParentOf(root);  // the path's folder may be another one now
    } else if ((mask & (IN_DELETE_SELF | IN_MOVE_SELF)) || root.name == name) {
      followRoot(root, Scan::ReportAll);
    }
  }
  auto it = folders_.find(wd);
  if (it == folders_.end()) return;  // a folder already forgotten, or only a parent
  if (mask & IN_IGNORED) {
    folders_.erase(it);
    return;
  }
  if (name[0] == '\0') {
    // The folder itself. A top folder that is deleted or moved away ends
    // the watching of its tree; whatever the path names now is watched in
    // its place (or, when nothing, once something is there again).
    // Sub-folders are handled through their parent's events.
    if ((mask & (IN_DELETE_SELF | IN_MOVE_SELF)) && it->second.parent < 0)
      for (Root& root : roots_)
        if (root.wd == wd) followRoot(root, Scan::ReportAll);
    return;
  }

  std::string folderPath = pathOf(wd);
  std::string path = folderPath + "/" + name;
  if (mask & IN_ISDIR) {
    if (mask & IN_MOVED_FROM) forgetChild(wd, name);
    if (mask & kReported) report(path);
    // A new folder (made here or moved in whole): watch it, then report
    // everything already in it, so a folder made and filled at once loses
    // nothing.
    if (mask & (IN_CREATE | IN_MOVED_TO)) watchTree(path, wd, name, Scan::ReportAll);
    return;
  }
  if (mask & kReported) report(std::move(path));
}

// True when the path still names the folder watched as its tree's top.
bool InotifyFileEventStream::namesWatchedFolder(const Root& root) const {
  struct stat st;
  return root.wd >= 0 && folders_.count(root.wd) && stat(root.path.c_str(), &st) == 0 &&
         S_ISDIR(st.st_mode) && st.st_dev == root.device && st.st_ino == root.inode;
}

bool InotifyFileEventStream::watchesCurrentFolders() const {
  if (!started_ || stopped_) return false;
  for (const Root& root : roots_)
    if (!namesWatchedFolder(root)) return false;
  return true;
}

// Makes the tree of `root` the one its path names now (following a link):
// nothing changes while it names the folder already watched; otherwise the
// old tree is forgotten and the folder now named, if any, is watched and
// its entries reported as `scan` says.
void InotifyFileEventStream::followRoot(Root& root, Scan scan) {
  watchParentOf(root);
  if (namesWatchedFolder(root)) return;
  if (root.wd >= 0 && folders_.count(root.wd)) forgetTree(root.wd);
  root.wd = -1;
  struct stat st;
  if (stat(root.path.c_str(), &st) != 0 || !S_ISDIR(st.st_mode)) return;  // wait for it
  bool known = false;
  int wd = addWatch(root.path, -1, root.path, &known);
  if (wd < 0) {
    if (errno == ENOSPC) logWatchLimitOnce(root.path);
    return;
  }
  // What the watch is on, should the path have changed once more.
  struct stat watched;
  if (stat(root.path.c_str(), &watched) == 0) st = watched;
  root.wd = wd;
  root.device = st.st_dev;
  root.inode = st.st_ino;
  // Everything in it is new to whoever listens.
  watchTree(root.path, -1, root.path, scan);
}

// Watches the folder that holds the path now, and only that one: a path
// whose folder is itself moved or replaced is followed one level up.
void InotifyFileEventStream::watchParentOf(Root& root) {
  if (root.name.empty()) return;  // "/": nothing holds it
  // IN_MASK_ADD: a folder of a tree keeps its events; adding ours to a
  // watch already there gives its number.
  int wd =
      inotify_add_watch(fd_.get(), splitLast(root.path).first.c_str(), kParentMask | IN_MASK_ADD);
  if (wd == root.parentWd) return;
  int old = root.parentWd;
  root.parentWd = wd < 0 ? -1 : wd;
  if (old >= 0 && !folders_.count(old) && !isParentWatch(old)) inotify_rm_watch(fd_.get(), old);
}

bool InotifyFileEventStream::isParentWatch(int wd) const {
  for (const Root& root : roots_)
    if (root.parentWd == wd) return true;
  return false;
}

void InotifyFileEventStream::report(std::string path) {
  if (ownPath_ && OwnChanges::isOwnEventPath(path, *ownPath_)) return;
  if (params_.mergeRepeatedPaths && !pendingSet_.insert(path).second) return;
  pending_.push_back(std::move(path));
  if (!latencyTimer_) {
    auto ms = static_cast<guint>(params_.latency > 0 ? params_.latency * 1000.0 + 0.5 : 0);
    latencyTimer_ = g_timeout_add(ms, &InotifyFileEventStream::onLatencyElapsed, this);
  }
}

gboolean InotifyFileEventStream::onLatencyElapsed(gpointer self) {
  auto* stream = static_cast<InotifyFileEventStream*>(self);
  stream->latencyTimer_ = 0;
  stream->deliver();  // may end the stream: nothing after this touches it
  return G_SOURCE_REMOVE;
}

void InotifyFileEventStream::deliver() {
  std::vector<std::string> batch;
  batch.swap(pending_);
  pendingSet_.clear();
  if (batch.empty()) return;
  noteBurstWork(batch.size());
  FileEventCallback callback = callback_;  // the callback may destroy the stream
  dispatchGuarded([&] { callback(batch); });
}

// The kernel dropped events. Find the lost changes again: walk the trees,
// watch what is not watched yet, forget what is gone, and report every item
// whose change time is not older than the moment the queue was last read
// empty. Deletions in that gap cannot be found and are not reported. The
// walk goes on over several turns of the main loop, a few folders at a
// time, so that a large store never holds the loop (or a call on the bus)
// for long; events that arrive meanwhile are handled as usual.
void InotifyFileEventStream::recoverFromOverflow() {
  ++overflows_;
  timespec since = minus(caughtUpAt_, kCoarseClockSlackNs);
  if (recovery_) {
    // Lost again while still looking: start over, from the earlier of the
    // two moments, so that nothing changed in a folder not yet read is missed.
    if (notBefore(since, changedSince_)) since = changedSince_;
    if (recovery_->source) g_source_remove(recovery_->source);
  }
  changedSince_ = since;
  recovery_ = std::make_unique<Recovery>();
  rescanned_ = &recovery_->met;
  for (Root& root : roots_) {
    // A path that came to name another folder while events were lost: that
    // folder is new as a whole. The same folder: look for what changed.
    if (namesWatchedFolder(root)) {
      watchParentOf(root);
      recovery_->todo.push_back({root.path, -1, root.path});
    } else {
      std::size_t before = pending_.size();
      followRoot(root, Scan::ReportAll);
      recovery_->reported += pending_.size() - before;
    }
    // (The walk counts each folder it reads as met, the top ones too.)
    if (root.wd >= 0) recovery_->roots.push_back(root.path);
  }
  continueRecovery();
}

gboolean InotifyFileEventStream::onRecoverySlice(gpointer self) {
  auto* stream = static_cast<InotifyFileEventStream*>(self);
  stream->recovery_->source = 0;
  stream->continueRecovery();
  return G_SOURCE_REMOVE;
}

void InotifyFileEventStream::continueRecovery() {
  std::size_t before = pending_.size();
  bool done = walkFolders(recovery_->todo, Scan::ReportChangedSince,
                          g_get_monotonic_time() + kReadTimeBudgetUs);
  recovery_->reported += pending_.size() - before;
  if (!done) {
    recovery_->source = g_timeout_add(0, &InotifyFileEventStream::onRecoverySlice, this);
    return;
  }
  finishRecovery();
}

void InotifyFileEventStream::finishRecovery() {
  // Forget folders the walk did not meet again: their IN_IGNORED may have
  // been lost with the rest.
  for (auto it = folders_.begin(); it != folders_.end();) {
    if (recovery_->met.count(it->first)) {
      ++it;
    } else {
      if (!isParentWatch(it->first)) inotify_rm_watch(fd_.get(), it->first);
      it = folders_.erase(it);
    }
  }
  rescanned_ = nullptr;
  std::unique_ptr<Recovery> done = std::move(recovery_);

  std::string where;
  for (const std::string& root : done->roots) where += (where.empty() ? "" : ", ") + root;
  log_.write("File events were lost in " + where +
             " (the kernel's inotify event queue overflowed); the folder was scanned again and " +
             std::to_string(done->reported) +
             " changed items were reported in their place (deletions in the meantime cannot be "
             "recovered). If this happens often, raise the queue length, for example with "
             "\"sudo sysctl fs.inotify.max_queued_events=65536\".");
}

// ---- factory ---------------------------------------------------------------

std::unique_ptr<FileEventStream> InotifyFileEventStreamFactory::create(
    const FileEventStreamParams& params, FileEventCallback callback) {
  int fd = inotify_init1(IN_NONBLOCK | IN_CLOEXEC);
  if (fd < 0) {
    int error = errno;
    lastFailure_ = std::string("no inotify instance could be made (") + std::strerror(error) + ")";
    if (error == EMFILE)
      lastFailure_ +=
          ": other programs use up the per-user limit fs.inotify.max_user_instances; raise it, "
          "for example with \"sudo sysctl fs.inotify.max_user_instances=1024\"";
    return nullptr;
  }
  return std::make_unique<InotifyFileEventStream>(fd, params, std::move(callback), log_,
                                                  watchLimit_);
}

}  // namespace wf::platform
