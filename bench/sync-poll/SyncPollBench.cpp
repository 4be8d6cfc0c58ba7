// The sync-folder poll: what it costs per interval on a FUSE share (bindfs
// over a folder on tmpfs, standing in for a network share), beside the
// least a poll can cost, and that it never wakes the process when the sync
// folder is local (inotify hears every change there, so no poll runs).
//
//   1. A local sync folder, watched through the delegate as the helper
//      does: context switches of the whole process over a window, against
//      the same window of an empty main loop. Goal: no extra wake-up.
//   2. The FUSE share through the delegate at the helper's own interval:
//      polls made, CPU time and wake-ups per interval, and the FUSE
//      server's CPU time (every poll also runs bindfs).
//   3. The FUSE share polled back to back through the platform layer, with
//      the delegate's name prefixes: CPU time per poll against the system
//      calls alone (open, getdents64, fstatat per list, close) done on the
//      main thread. The ratio is the poll's machinery above the floor.
//
// Needs root (or fuse permissions), /dev/fuse and bindfs; exits 77 without.
#include <dirent.h>
#include <fcntl.h>
#include <glib.h>
#include <signal.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/statfs.h>
#include <sys/wait.h>
#include <time.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

#include "app/WFHelperAppDelegate.h"
#include "platform/linux/LinuxRemoteFolders.h"
#include "support/Fakes.h"
#include "sync/SyncFolderPoll.h"
#include "sync/SyncListFiles.h"

namespace {

double cpuNow() {
  timespec ts{};
  clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &ts);
  return static_cast<double>(ts.tv_sec) + static_cast<double>(ts.tv_nsec) * 1e-9;
}

double monotonicNow() {
  timespec ts{};
  clock_gettime(CLOCK_MONOTONIC, &ts);
  return static_cast<double>(ts.tv_sec) + static_cast<double>(ts.tv_nsec) * 1e-9;
}

// Voluntary context switches of every thread of the process, the ended
// ones too: each is a sleep that something ended, a wake-up. (Involuntary
// ones are the scheduler's preemptions of a running thread.)
long contextSwitches() {
  rusage usage{};
  getrusage(RUSAGE_SELF, &usage);
  return usage.ru_nvcsw;
}

int threadCount() {
  int n = 0;
  if (DIR* d = opendir("/proc/self/task")) {
    while (dirent* e = readdir(d))
      if (e->d_name[0] != '.') ++n;
    closedir(d);
  }
  return n;
}

// user + system seconds of another process, from /proc/PID/stat.
double processCpu(pid_t pid) {
  std::ifstream in("/proc/" + std::to_string(pid) + "/stat");
  std::string text((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
  auto close = text.rfind(')');
  if (close == std::string::npos) return 0;
  std::istringstream fields(text.substr(close + 2));
  std::string field;
  // Fields 3 to 13 come before utime (14) and stime (15).
  for (int i = 3; i <= 13; ++i) fields >> field;
  long utime = 0, stime = 0;
  fields >> utime >> stime;
  return static_cast<double>(utime + stime) / static_cast<double>(sysconf(_SC_CLK_TCK));
}

gboolean flagDone(gpointer flag) {
  *static_cast<bool*>(flag) = true;
  return G_SOURCE_REMOVE;
}

// Runs the default main context for `seconds`; the timer that ends the
// window is its one wake-up of its own.
void runLoop(double seconds) {
  bool done = false;
  g_timeout_add(static_cast<guint>(seconds * 1000), flagDone, &done);
  while (!done) g_main_context_iteration(nullptr, TRUE);
}

// The helper's own file systems, counting each poll's result.
class CountingRemoteFolders : public wf::platform::RemoteFolders {
 public:
  wf::platform::FolderFileSystem fileSystemOf(const std::string& path) override {
    return real_.fileSystemOf(path);
  }
  std::unique_ptr<wf::platform::FolderPoll> startPoll(wf::platform::FolderPollParams p) override {
    auto inner = std::move(p.onResult);
    p.onResult = [this, inner](const wf::platform::PolledFolder& entries, bool reachable) {
      ++polls;
      inner(entries, reachable);
    };
    return real_.startPoll(std::move(p));
  }
  long polls = 0;

 private:
  wf::platform::LinuxRemoteFolders real_;
};

// A sync folder as a user's share holds it: the lists, a conflict copy of
// one, and other programs' files the poll passes over.
void fillSyncFolder(const std::string& folder) {
  for (const std::string& name : wf::syncListFileNames())
    wf::test::writeFile(folder + "/" + name, std::string(4096, 'x'));
  wf::test::writeFile(folder + "/WrenfoldKeywords (conflicted copy 2026-11-25).plist", "x");
  for (int i = 0; i < 40; ++i)
    wf::test::writeFile(folder + "/Document " + std::to_string(i) + ".txt", "x");
}

struct Mount {
  pid_t server = -1;
  std::string point;
};

// bindfs in the foreground, so that its process (and CPU time) is ours to
// find; ready once the mount point is a FUSE file system.
Mount mountBindfs(const std::string& from, const std::string& to) {
  Mount m;
  m.point = to;
  m.server = fork();
  if (m.server == 0) {
    int null = open("/dev/null", O_WRONLY);
    dup2(null, 1);
    dup2(null, 2);
    execlp("bindfs", "bindfs", "-f", from.c_str(), to.c_str(), static_cast<char*>(nullptr));
    _exit(127);
  }
  const double deadline = monotonicNow() + 10;
  while (monotonicNow() < deadline) {
    struct statfs st {};
    if (statfs(to.c_str(), &st) == 0 &&
        (static_cast<unsigned long>(st.f_type) & 0xffffffffUL) == 0x65735546UL)  // FUSE_SUPER_MAGIC
      return m;
    int status = 0;
    if (waitpid(m.server, &status, WNOHANG) == m.server) {
      m.server = -1;
      return m;
    }
    usleep(20000);
  }
  kill(m.server, SIGTERM);
  waitpid(m.server, nullptr, 0);
  m.server = -1;
  return m;
}

void unmount(Mount& m) {
  if (m.server < 0) return;
  if (std::system(("fusermount3 -u -z '" + m.point + "' 2>/dev/null").c_str()) != 0)
    kill(m.server, SIGTERM);
  waitpid(m.server, nullptr, 0);
  m.server = -1;
}

// What every poll must do at the least: the folder opened and listed, each
// list and copy stat'ed, closed.
void floorPoll(const std::string& folder, const std::vector<std::string>& prefixes) {
  int fd = open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
  if (fd < 0) return;
  DIR* dir = fdopendir(fd);
  while (dirent* e = readdir(dir)) {
    std::string_view name = e->d_name;
    for (const std::string& prefix : prefixes) {
      if (!name.starts_with(prefix)) continue;
      struct stat st {};
      fstatat(dirfd(dir), e->d_name, &st, AT_SYMLINK_NOFOLLOW);
      break;
    }
  }
  closedir(dir);
}

std::vector<std::string> listPrefixes() {
  std::vector<std::string> out;
  for (const wf::SyncList& list : wf::syncLists()) {
    std::string_view name = list.fileName;
    out.emplace_back(name.substr(0, name.rfind('.')));
  }
  return out;
}

struct PollCost {
  double cpu = 1e300;     // our process, seconds per poll
  double server = 1e300;  // the FUSE server, seconds per poll
};

// `count` polls back to back (interval 0) through the platform layer.
PollCost backToBack(const std::string& folder, pid_t server, int count) {
  wf::platform::LinuxRemoteFolders folders;
  wf::platform::FolderPollParams params;
  params.folder = folder;
  params.namePrefixes = listPrefixes();
  params.interval = 0;
  params.stalledAfter = 10;
  long results = 0;
  bool reachable = true;
  params.onResult = [&](const wf::platform::PolledFolder&, bool r) {
    ++results;
    reachable = reachable && r;
  };
  const double c0 = cpuNow(), s0 = processCpu(server);
  {
    auto poll = folders.startPoll(std::move(params));
    while (results < count) g_main_context_iteration(nullptr, TRUE);
  }
  PollCost cost;
  cost.cpu = (cpuNow() - c0) / static_cast<double>(results);
  cost.server = (processCpu(server) - s0) / static_cast<double>(results);
  if (!reachable) {
    std::fprintf(stderr, "the share could not be read\n");
    std::exit(1);
  }
  return cost;
}

PollCost floorBackToBack(const std::string& folder, pid_t server, int count) {
  const std::vector<std::string> prefixes = listPrefixes();
  const double c0 = cpuNow(), s0 = processCpu(server);
  for (int i = 0; i < count; ++i) floorPoll(folder, prefixes);
  return {(cpuNow() - c0) / count, (processCpu(server) - s0) / count};
}

}  // namespace

int main(int argc, char** argv) {
  const double window = argc > 1 ? std::atof(argv[1]) : 10.0;
  const int backToBackPolls = argc > 2 ? std::atoi(argv[2]) : 400;

  wf::test::FakePlatform fake;
  CountingRemoteFolders remote;
  wf::platform::Services services = fake.services();
  services.remoteFolders = &remote;
  wf::WFHelperAppDelegate delegate(services);

  // 1. A local sync folder, against an empty loop of the same window.
  wf::test::TempDir local(true);
  fillSyncFolder(local.path());
  const int threadsBefore = threadCount();
  long s0 = contextSwitches();
  runLoop(window);
  const long emptyLoop = contextSwitches() - s0;
  wf::watchSyncFolderFileSystem(delegate, local.path());
  s0 = contextSwitches();
  runLoop(window);
  const long localLoop = contextSwitches() - s0;
  const int localThreads = threadCount() - threadsBefore;
  const std::string localWatch = delegate.syncStatus.watch;
  wf::stopSyncFolderPoll(delegate);
  std::printf("local sync folder (%s, watched by %s), %.0f s of the main loop:\n",
              delegate.syncStatus.fileSystem.c_str(), localWatch.c_str(), window);
  std::printf("  wake-ups: %ld (an empty loop: %ld), threads started: %d\n", localLoop, emptyLoop,
              localThreads);
  const long extraWakeUps = std::max(0L, localLoop - emptyLoop);
  const bool localQuiet = extraWakeUps == 0 && localThreads == 0;

  // 2. and 3. on a FUSE share.
  wf::test::TempDir share(true);
  const std::string server = share / "server", mounted = share / "Shared Sync";
  mkdir(server.c_str(), 0755);
  mkdir(mounted.c_str(), 0755);
  fillSyncFolder(server);
  Mount mount = mountBindfs(server, mounted);
  if (mount.server < 0) {
    std::printf("FUSE share: not measured (bindfs could not mount; it needs /dev/fuse)\n");
    if (std::getenv("WF_BENCH_ROWS"))
      std::printf(
          "@row {\"measure\": \"sync-folder poll, local folder: extra wake-ups in %.0f s\", "
          "\"ours\": %ld, \"peer\": %ld, \"peer_name\": \"empty loop\", \"goal\": \"0\", "
          "\"met\": %s}\n",
          window, extraWakeUps, emptyLoop, localQuiet ? "true" : "false");
    return 77;
  }

  wf::watchSyncFolderFileSystem(delegate, mounted);
  const std::string fuseWatch = delegate.syncStatus.watch;
  // The first poll starts at once; what follows runs at the helper's interval.
  while (remote.polls < 1) g_main_context_iteration(nullptr, TRUE);
  s0 = contextSwitches();
  double c0 = cpuNow(), b0 = processCpu(mount.server);
  const long p0 = remote.polls;
  runLoop(window);
  const long polls = remote.polls - p0;
  const double perInterval = polls > 0 ? (cpuNow() - c0) / static_cast<double>(polls) : 0;
  const double serverPerInterval =
      polls > 0 ? (processCpu(mount.server) - b0) / static_cast<double>(polls) : 0;
  const double wakeUpsPerInterval =
      polls > 0 ? static_cast<double>(contextSwitches() - s0 - emptyLoop) / polls : 0;
  wf::stopSyncFolderPoll(delegate);

  // The floor at the same interval: a timer on the main loop that makes the
  // system calls itself. At 2 s the share's cached entries have expired
  // (FUSE keeps them 1 s), so every poll goes to the server, as ours do.
  struct FloorTimer {
    std::string folder;
    std::vector<std::string> prefixes;
    long polls = 0;
  } floorTimer{mounted, listPrefixes(), 0};
  s0 = contextSwitches();
  c0 = cpuNow();
  b0 = processCpu(mount.server);
  const guint timer = g_timeout_add(
      static_cast<guint>(wf::kSyncFolderPollInterval * 1000),
      [](gpointer data) -> gboolean {
        auto* t = static_cast<FloorTimer*>(data);
        floorPoll(t->folder, t->prefixes);
        ++t->polls;
        return G_SOURCE_CONTINUE;
      },
      &floorTimer);
  runLoop(window);
  g_source_remove(timer);
  const long floorPolls = std::max(1L, floorTimer.polls);
  const double floorPerInterval = (cpuNow() - c0) / static_cast<double>(floorPolls);
  const double floorServerPerInterval =
      (processCpu(mount.server) - b0) / static_cast<double>(floorPolls);
  const double floorWakeUps =
      static_cast<double>(contextSwitches() - s0 - emptyLoop) / static_cast<double>(floorPolls);

  PollCost ours, bare;
  for (int round = 0; round < 3; ++round) {
    PollCost o = backToBack(mounted, mount.server, backToBackPolls);
    PollCost f = floorBackToBack(mounted, mount.server, backToBackPolls);
    ours.cpu = std::min(ours.cpu, o.cpu);
    ours.server = std::min(ours.server, o.server);
    bare.cpu = std::min(bare.cpu, f.cpu);
    bare.server = std::min(bare.server, f.server);
  }
  unmount(mount);

  std::printf("FUSE share (bindfs, watched by %s), %.0f s at the helper's interval of %g s:\n",
              fuseWatch.c_str(), window, wf::kSyncFolderPollInterval);
  std::printf("  %-22s %5s %16s %22s %20s\n", "", "polls", "CPU per interval",
              "wake-ups per interval", "bindfs CPU per poll");
  std::printf("  %-22s %5ld %13.1f us %22.1f %17.0f us\n", "the poll", polls, perInterval * 1e6,
              wakeUpsPerInterval, serverPerInterval * 1e6);
  std::printf("  %-22s %5ld %13.1f us %22.1f %17.0f us\n", "system calls alone", floorPolls,
              floorPerInterval * 1e6, floorWakeUps, floorServerPerInterval * 1e6);
  std::printf("  ratio poll / system calls alone: %.2fx CPU\n", perInterval / floorPerInterval);
  std::printf("FUSE share, %d polls back to back (entries cached), best of 3 (CPU per poll):\n",
              backToBackPolls);
  std::printf("  the poll               %8.1f us   bindfs %8.1f us\n", ours.cpu * 1e6,
              ours.server * 1e6);
  std::printf("  system calls alone     %8.1f us   bindfs %8.1f us\n", bare.cpu * 1e6,
              bare.server * 1e6);
  std::printf("  ratio poll / system calls alone: %.2fx CPU\n", ours.cpu / bare.cpu);

  if (std::getenv("WF_BENCH_ROWS")) {
    std::printf(
        "@row {\"measure\": \"sync-folder poll, local folder: extra wake-ups in %.0f s\", "
        "\"ours\": %ld, \"peer\": %ld, \"peer_name\": \"empty loop\", \"goal\": \"0\", "
        "\"met\": %s}\n",
        window, extraWakeUps, emptyLoop, localQuiet ? "true" : "false");
    std::printf(
        "@row {\"measure\": \"sync-folder poll, FUSE share, CPU per %g s interval\", \"ours\": "
        "%.1f, \"unit\": \"us\", \"floor\": %.1f, \"floor_ratio\": %.3f, \"goal\": "
        "\"measured (bindfs: %.0f us)\"}\n",
        wf::kSyncFolderPollInterval, perInterval * 1e6, floorPerInterval * 1e6,
        perInterval / floorPerInterval, serverPerInterval * 1e6);
    std::printf(
        "@row {\"measure\": \"sync-folder poll, FUSE share, wake-ups per interval\", "
        "\"ours\": %.1f, \"floor\": %.1f, \"floor_ratio\": %.3f, \"goal\": \"measured "
        "(each FUSE request is one)\"}\n",
        wakeUpsPerInterval, floorWakeUps, wakeUpsPerInterval / floorWakeUps);
    std::printf(
        "@row {\"measure\": \"sync-folder poll, FUSE share, CPU per poll, cached\", "
        "\"ours\": %.1f, \"unit\": \"us\", \"floor\": %.1f, \"floor_ratio\": %.3f, "
        "\"goal\": \"measured\"}\n",
        ours.cpu * 1e6, bare.cpu * 1e6, ours.cpu / bare.cpu);
  }
  return localQuiet ? 0 : 1;
}
