#include "platform/linux/LinuxRemoteFolders.h"

#include <dirent.h>
#include <fcntl.h>
#include <glib.h>
#include <sys/stat.h>
#include <sys/statfs.h>
#include <unistd.h>

#include <atomic>
#include <condition_variable>
#include <cstdlib>
#include <fstream>
#include <mutex>
#include <sstream>
#include <thread>

#include "platform/linux/Dispatch.h"

namespace wf::platform {
namespace {

// mountinfo writes space, tab, newline and backslash in octal.
std::string unescapeMountField(std::string_view field) {
  std::string out;
  for (std::size_t i = 0; i < field.size(); ++i) {
    if (field[i] == '\\' && i + 3 < field.size()) {
      int value = 0;
      bool octal = true;
      for (std::size_t k = 1; k <= 3; ++k) {
        char c = field[i + k];
        if (c < '0' || c > '7') octal = false;
        value = value * 8 + (c - '0');
      }
      if (octal) {
        out += static_cast<char>(value);
        i += 3;
        continue;
      }
    }
    out += field[i];
  }
  return out;
}

bool holds(std::string_view mountPoint, std::string_view path) {
  if (mountPoint == "/") return true;
  return path.starts_with(mountPoint) &&
         (path.size() == mountPoint.size() || path[mountPoint.size()] == '/');
}

// The kernel's magic numbers of remote file systems, for when mountinfo
// cannot be read.
std::string typeFromMagic(long magic) {
  switch (static_cast<unsigned long>(magic) & 0xffffffffUL) {
    case 0x65735546UL:
      return "fuse";
    case 0x6969UL:
      return "nfs";
    case 0xFF534D42UL:
      return "cifs";
    case 0xFE534D42UL:
      return "smb3";
    case 0x517BUL:
      return "smbfs";
    case 0x01021997UL:
      return "9p";
    case 0x00C36400UL:
      return "ceph";
    case 0x5346414FUL:
      return "afs";
    case 0x0BD00BD0UL:
      return "lustre";
    default:
      return {};
  }
}

std::int64_t nanoseconds(const timespec& t) {
  return static_cast<std::int64_t>(t.tv_sec) * 1000000000 + t.tv_nsec;
}

// The state the worker and the main loop share; it outlives the poll when
// the worker is stuck in the kernel.
struct PollState {
  FolderPollParams params;
  std::mutex mutex;
  std::condition_variable wake;
  bool stopped = false;
  bool requested = false;
  bool inFlight = false;
  bool stallReported = false;
  guint nextPoll = 0;    // main loop: the timer of the next poll
  guint stallTimer = 0;  // main loop: the watch on the poll in flight
};

PolledFolder readFolder(const FolderPollParams& params, bool& reachable) {
  PolledFolder entries;
  reachable = false;
  int fd = open(params.folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
  if (fd < 0) return entries;
  DIR* dir = fdopendir(fd);
  if (!dir) {
    close(fd);
    return entries;
  }
  reachable = true;
  while (dirent* e = readdir(dir)) {
    std::string_view name = e->d_name;
    bool wanted = false;
    for (const std::string& prefix : params.namePrefixes)
      if (name.starts_with(prefix)) wanted = true;
    if (!wanted) continue;
    struct stat st {};
    if (fstatat(dirfd(dir), e->d_name, &st, AT_SYMLINK_NOFOLLOW) != 0) continue;
    entries.emplace(std::string(name),
                    PolledEntry{static_cast<std::int64_t>(st.st_size), nanoseconds(st.st_mtim),
                                nanoseconds(st.st_ctim), static_cast<std::uint64_t>(st.st_ino)});
  }
  closedir(dir);
  return entries;
}

void scheduleNext(const std::shared_ptr<PollState>& state);

void requestPoll(const std::shared_ptr<PollState>& state) {
  {
    std::lock_guard lock(state->mutex);
    if (state->stopped || state->inFlight) return;
    state->inFlight = true;
    state->requested = true;
  }
  state->wake.notify_one();
  // A poll that does not come back is reported once; no new one starts
  // until it does.
  auto* held = new std::shared_ptr<PollState>(state);
  state->stallTimer = g_timeout_add_full(
      G_PRIORITY_DEFAULT, static_cast<guint>(state->params.stalledAfter * 1000),
      [](gpointer data) -> gboolean {
        auto& s = *static_cast<std::shared_ptr<PollState>*>(data);
        s->stallTimer = 0;
        if (!s->stopped && !s->stallReported && s->params.onStalled) {
          s->stallReported = true;
          dispatchGuarded([&] { s->params.onStalled(); });
        }
        return G_SOURCE_REMOVE;
      },
      held, [](gpointer data) { delete static_cast<std::shared_ptr<PollState>*>(data); });
}

void scheduleNext(const std::shared_ptr<PollState>& state) {
  auto* held = new std::shared_ptr<PollState>(state);
  state->nextPoll = g_timeout_add_full(
      G_PRIORITY_DEFAULT, static_cast<guint>(state->params.interval * 1000),
      [](gpointer data) -> gboolean {
        auto& s = *static_cast<std::shared_ptr<PollState>*>(data);
        s->nextPoll = 0;
        requestPoll(s);
        return G_SOURCE_REMOVE;
      },
      held, [](gpointer data) { delete static_cast<std::shared_ptr<PollState>*>(data); });
}

struct PollResult {
  std::shared_ptr<PollState> state;
  PolledFolder entries;
  bool reachable = false;
};

// Back on the main loop with one poll's result.
gboolean deliver(gpointer data) {
  auto* result = static_cast<PollResult*>(data);
  auto& s = result->state;
  s->inFlight = false;
  if (s->stallTimer) {
    g_source_remove(s->stallTimer);
    s->stallTimer = 0;
  }
  s->stallReported = false;
  if (!s->stopped) {
    dispatchGuarded([&] { s->params.onResult(result->entries, result->reachable); });
    if (!s->stopped) scheduleNext(s);
  }
  return G_SOURCE_REMOVE;
}

void work(const std::shared_ptr<PollState>& state) {
  for (;;) {
    {
      std::unique_lock lock(state->mutex);
      state->wake.wait(lock, [&] { return state->stopped || state->requested; });
      if (state->stopped) return;
      state->requested = false;
    }
    auto* result = new PollResult{state, {}, false};
    result->entries = readFolder(state->params, result->reachable);
    g_idle_add_full(G_PRIORITY_DEFAULT, deliver, result,
                    [](gpointer data) { delete static_cast<PollResult*>(data); });
  }
}

class LinuxFolderPoll : public FolderPoll {
 public:
  explicit LinuxFolderPoll(FolderPollParams params) : state_(std::make_shared<PollState>()) {
    state_->params = std::move(params);
    // Detached: a poll stuck in a dead server's kernel call cannot be
    // joined; it ends when the call returns, and its result is dropped.
    std::thread([state = state_] { work(state); }).detach();
    requestPoll(state_);
  }
  ~LinuxFolderPoll() override {
    {
      std::lock_guard lock(state_->mutex);
      state_->stopped = true;
    }
    state_->wake.notify_one();
    if (state_->nextPoll) g_source_remove(state_->nextPoll);
    if (state_->stallTimer) g_source_remove(state_->stallTimer);
    state_->nextPoll = state_->stallTimer = 0;
  }
  LinuxFolderPoll(const LinuxFolderPoll&) = delete;
  LinuxFolderPoll& operator=(const LinuxFolderPoll&) = delete;

 private:
  std::shared_ptr<PollState> state_;
};

}  // namespace

std::string mountTypeFromMountInfo(std::string_view mountInfo, std::string_view path) {
  std::string best;
  std::size_t bestLength = 0;
  bool found = false;
  std::istringstream lines{std::string(mountInfo)};
  std::string line;
  while (std::getline(lines, line)) {
    std::istringstream fields(line);
    std::vector<std::string> words;
    std::string word;
    while (fields >> word) words.push_back(word);
    if (words.size() < 7) continue;
    std::size_t separator = 6;
    while (separator < words.size() && words[separator] != "-") ++separator;
    if (separator + 1 >= words.size()) continue;
    std::string mountPoint = unescapeMountField(words[4]);
    if (!holds(mountPoint, path)) continue;
    // The later of two mounts on one point is the one on top.
    if (!found || mountPoint.size() >= bestLength) {
      found = true;
      bestLength = mountPoint.size();
      best = words[separator + 1];
    }
  }
  return best;
}

FolderFileSystem LinuxRemoteFolders::fileSystemOf(const std::string& path) {
  FolderFileSystem fs;
  char* resolved = realpath(path.c_str(), nullptr);
  std::string real = resolved ? resolved : path;
  std::free(resolved);

  std::ifstream file("/proc/self/mountinfo");
  std::stringstream text;
  text << file.rdbuf();
  fs.type = mountTypeFromMountInfo(text.str(), real);

  struct statfs st {};
  std::string byMagic = statfs(real.c_str(), &st) == 0 ? typeFromMagic(st.f_type) : std::string();
  if (fs.type.empty()) fs.type = byMagic.empty() ? "unknown" : byMagic;
  fs.remote = isRemoteFileSystemType(fs.type) || isRemoteFileSystemType(byMagic);
  return fs;
}

std::unique_ptr<FolderPoll> LinuxRemoteFolders::startPoll(FolderPollParams params) {
  return std::make_unique<LinuxFolderPoll>(std::move(params));
}

}  // namespace wf::platform
