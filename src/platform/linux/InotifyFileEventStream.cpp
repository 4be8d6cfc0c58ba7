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

namespace wf::platform {

namespace {

// The changes that become event paths.
constexpr std::uint32_t kReported =
    IN_CREATE | IN_CLOSE_WRITE | IN_ATTRIB | IN_MOVED_FROM | IN_MOVED_TO | IN_DELETE;
// What every folder is watched for: the above plus its own end. Unlinked
// files still open elsewhere say nothing more.
constexpr std::uint32_t kWatchMask =
    kReported | IN_DELETE_SELF | IN_MOVE_SELF | IN_ONLYDIR | IN_EXCL_UNLINK;

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

}  // namespace

InotifyFileEventStream::InotifyFileEventStream(int fd, FileEventStreamParams params,
                                               FileEventCallback callback, Log& log,
                                               std::size_t watchLimit)
    : fd_(fd),
      params_(std::move(params)),
      callback_(std::move(callback)),
      log_(log),
      watchLimit_(watchLimit) {}

InotifyFileEventStream::~InotifyFileEventStream() {
  stop();
  if (fd_ >= 0) close(fd_);
}

bool InotifyFileEventStream::start() {
  if (stopped_ || fd_ < 0) return false;
  if (started_) return true;

  for (const std::string& root : params_.paths) {
    bool known = false;
    if (addWatch(root, -1, root, &known) < 0) {
      if (errno == ENOSPC) logWatchLimitOnce(root);
      folders_.clear();
      close(fd_);  // drops every watch made so far
      fd_ = -1;
      return false;
    }
  }
  for (const auto& [wd, folder] : std::unordered_map<int, Folder>(folders_))
    watchTree(folder.name, -1, folder.name, Scan::Quiet);

  caughtUpAt_ = realtimeNow();
  readSource_ = g_unix_fd_add(fd_, G_IO_IN, &InotifyFileEventStream::onReadable, this);
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
  readSource_ = latencyTimer_ = 0;
  pending_.clear();
  folders_.clear();
  awaitedRoots_.clear();
  if (started_) {
    // A stopped stream stays stopped, as an invalidated one would.
    started_ = false;
    stopped_ = true;
    if (fd_ >= 0) close(fd_);
    fd_ = -1;
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
    wd = inotify_add_watch(fd_, path.c_str(), kWatchMask | (parent >= 0 ? IN_DONT_FOLLOW : 0));
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
  struct Pending {
    std::string path;
    int parent;
    std::string name;
  };
  std::vector<Pending> todo;
  todo.push_back({path, parent, name});
  std::string entryPath;
  while (!todo.empty()) {
    Pending folder = std::move(todo.back());
    todo.pop_back();

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
    if (wd >= 0 && rescanned_ && !rescanned_->insert(wd).second) continue;  // met already
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
    int dirFd = open(folder.path.c_str(), flags);
    if (dirFd < 0) continue;
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
    close(dirFd);
  }
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
    inotify_rm_watch(fd_, wd);
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
  static_cast<InotifyFileEventStream*>(self)->readQueue();
  return G_SOURCE_CONTINUE;
}

void InotifyFileEventStream::drainForeignEvents() {
  if (started_ && !stopped_) readQueue();
}

void InotifyFileEventStream::drainOwnEvents(const std::string& path) {
  if (!started_ || stopped_) return;
  ownPath_ = &path;
  readQueue();
  ownPath_ = nullptr;
}

void InotifyFileEventStream::readQueue() {
  alignas(inotify_event) char buffer[64 * 1024];
  bool overflowed = false;
  while (fd_ >= 0) {
    ssize_t n = read(fd_, buffer, sizeof buffer);
    if (n < 0 && errno == EINTR) continue;
    if (n <= 0) break;
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
  caughtUpAt_ = realtimeNow();
}

void InotifyFileEventStream::handleEvent(int wd, std::uint32_t mask, const char* name) {
  if (auto waiting = awaitedRoots_.find(wd); waiting != awaitedRoots_.end()) {
    handleAwaitedRootEvent(waiting, mask, name);
    return;
  }
  auto it = folders_.find(wd);
  if (it == folders_.end()) return;  // a folder already forgotten
  if (mask & IN_IGNORED) {
    folders_.erase(it);
    return;
  }
  if (name[0] == '\0') {
    // The folder itself. A root that is deleted or moved away ends the
    // watching of its tree, quietly, until a folder of that name is back;
    // sub-folders are handled through their parent's events.
    if ((mask & (IN_DELETE_SELF | IN_MOVE_SELF)) && it->second.parent < 0) {
      std::string root = it->second.name;
      forgetTree(wd);
      awaitReturnOf(root);
    }
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

// The watched folder went away: watch its parent for a folder of the same
// name, made again or moved back. Only the one level above is watched; if
// the parent goes too, the stream stays quiet for good.
void InotifyFileEventStream::awaitReturnOf(const std::string& root) {
  std::string trimmed = root;
  while (trimmed.size() > 1 && trimmed.back() == '/') trimmed.pop_back();
  auto slash = trimmed.rfind('/');
  std::string parent = slash == std::string::npos ? "."
                       : slash == 0               ? "/"
                                                  : trimmed.substr(0, slash);
  std::string name = slash == std::string::npos ? trimmed : trimmed.substr(slash + 1);
  if (name.empty() || name == "/") return;
  // IN_MASK_CREATE: never change a watch this stream already has on the parent.
  int wd = inotify_add_watch(
      fd_, parent.c_str(),
      IN_CREATE | IN_MOVED_TO | IN_DELETE_SELF | IN_MOVE_SELF | IN_ONLYDIR | IN_MASK_CREATE);
  if (wd < 0) return;
  awaitedRoots_[wd] = AwaitedRoot{root, name};
}

void InotifyFileEventStream::handleAwaitedRootEvent(
    std::unordered_map<int, AwaitedRoot>::iterator waiting, std::uint32_t mask, const char* name) {
  int wd = waiting->first;
  if (mask & (IN_IGNORED | IN_DELETE_SELF | IN_MOVE_SELF)) {
    awaitedRoots_.erase(waiting);
    return;
  }
  if (!(mask & IN_ISDIR) || !(mask & (IN_CREATE | IN_MOVED_TO)) || waiting->second.name != name)
    return;
  AwaitedRoot back = waiting->second;
  awaitedRoots_.erase(waiting);
  inotify_rm_watch(fd_, wd);
  bool known = false;
  if (addWatch(back.root, -1, back.root, &known) < 0) {
    if (errno == ENOSPC) logWatchLimitOnce(back.root);
    return;
  }
  // Back again: everything in it is new to whoever listens.
  watchTree(back.root, -1, back.root, Scan::ReportAll);
}

void InotifyFileEventStream::report(std::string path) {
  if (ownPath_ && OwnChanges::isOwnEventPath(path, *ownPath_)) return;
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
  if (batch.empty()) return;
  FileEventCallback callback = callback_;  // the callback may destroy the stream
  dispatchGuarded([&] { callback(batch); });
}

// The kernel dropped events. Find the lost changes again: walk the trees,
// watch what is not watched yet, forget what is gone, and report every item
// whose change time is not older than the moment the queue was last read
// empty. Deletions in that gap cannot be found and are not reported.
void InotifyFileEventStream::recoverFromOverflow() {
  changedSince_ = minus(caughtUpAt_, kCoarseClockSlackNs);
  std::size_t before = pending_.size();

  std::vector<std::string> roots;
  for (const auto& [wd, folder] : folders_)
    if (folder.parent < 0) roots.push_back(folder.name);
  // A watched folder that came back while events were lost.
  for (auto it = awaitedRoots_.begin(); it != awaitedRoots_.end();) {
    struct stat st;
    bool known = false;
    if (stat(it->second.root.c_str(), &st) == 0 && S_ISDIR(st.st_mode) &&
        addWatch(it->second.root, -1, it->second.root, &known) >= 0) {
      roots.push_back(it->second.root);
      inotify_rm_watch(fd_, it->first);
      it = awaitedRoots_.erase(it);
    } else {
      ++it;
    }
  }
  std::unordered_set<int> met;
  rescanned_ = &met;
  for (const std::string& root : roots) watchTree(root, -1, root, Scan::ReportChangedSince);
  rescanned_ = nullptr;

  // Forget folders the walk did not meet again: their IN_IGNORED may have
  // been lost with the rest.
  for (auto it = folders_.begin(); it != folders_.end();) {
    if (met.count(it->first)) {
      ++it;
    } else {
      inotify_rm_watch(fd_, it->first);
      it = folders_.erase(it);
    }
  }

  std::string where;
  for (const std::string& root : roots) where += (where.empty() ? "" : ", ") + root;
  log_.write("File events were lost in " + where +
             " (the kernel's inotify event queue overflowed); the folder was scanned again and " +
             std::to_string(pending_.size() - before) +
             " changed items were reported in their place (deletions in the meantime cannot be "
             "recovered). If this happens often, raise the queue length, for example with "
             "\"sudo sysctl fs.inotify.max_queued_events=65536\".");
}

// ---- factory ---------------------------------------------------------------

std::unique_ptr<FileEventStream> InotifyFileEventStreamFactory::create(
    const FileEventStreamParams& params, FileEventCallback callback) {
  int fd = inotify_init1(IN_NONBLOCK | IN_CLOEXEC);
  if (fd < 0) return nullptr;
  return std::make_unique<InotifyFileEventStream>(fd, params, std::move(callback), log_,
                                                  watchLimit_);
}

}  // namespace wf::platform
