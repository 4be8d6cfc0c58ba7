// Watch setup on a large tree, ours against `inotifywait -r -m` in the same
// run: time until every folder is watched and the peak memory of the
// watching process, and how many files each misses when a folder is made and
// filled at once (mkdir -p d/a/b && touch d/a/b/f).
//
// Both watchers run as child processes started the same way, so time and
// peak RSS (from wait4) are measured alike: from the fork until the child
// says "Watches established.".
#include <fcntl.h>
#include <glib.h>
#include <poll.h>
#include <signal.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <set>
#include <string>
#include <vector>

#include "platform/linux/InotifyFileEventStream.h"

namespace {

struct QuietLog : wf::platform::Log {
  void write(const std::string& message) override { std::fprintf(stderr, "%s\n", message.c_str()); }
};

double monotonicSeconds() {
  timespec t{};
  clock_gettime(CLOCK_MONOTONIC, &t);
  return static_cast<double>(t.tv_sec) + static_cast<double>(t.tv_nsec) / 1e9;
}

// The child side: watch the tree, say so, leave.
int watchAndReport(const char* root) {
  QuietLog log;
  wf::platform::InotifyFileEventStreamFactory factory(log);
  wf::platform::FileEventStreamParams params;
  params.paths = {root};
  auto stream = factory.create(params, [](const std::vector<std::string>&) {});
  if (!stream || !stream->start()) {
    std::fprintf(stderr, "cannot watch %s\n", root);
    return 1;
  }
  auto& inotify = dynamic_cast<wf::platform::InotifyFileEventStream&>(*stream);
  std::fprintf(stderr, "Watches established. %zu\n", inotify.watchCount());
  return 0;
}

void makeTree(const std::string& root, int folders, int files) {
  // Like a mail store: mailboxes, each with message folders below.
  const int mailboxes = std::max(1, folders / 100);
  const int perMailbox = folders / mailboxes;
  std::vector<std::string> made;
  mkdir(root.c_str(), 0755);
  for (int m = 0; m < mailboxes; ++m) {
    std::string box = root + "/Mailbox-" + std::to_string(m) + ".mbox";
    mkdir(box.c_str(), 0755);
    made.push_back(box);
    for (int s = 1; s < perMailbox; ++s) {
      std::string sub = box + "/Messages-" + std::to_string(s);
      mkdir(sub.c_str(), 0755);
      made.push_back(sub);
    }
  }
  for (int f = 0; f < files; ++f) {
    std::string path =
        made[static_cast<std::size_t>(f) % made.size()] + "/" + std::to_string(f) + ".emlx";
    int fd = open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644);
    if (fd >= 0) close(fd);
  }
}

struct Child {
  pid_t pid = -1;
  int err = -1;  // its standard error
  int out = -1;  // its standard output
};

Child spawn(const std::vector<std::string>& args) {
  int errPipe[2], outPipe[2];
  if (pipe2(errPipe, O_CLOEXEC) != 0 || pipe2(outPipe, O_CLOEXEC) != 0) std::exit(2);
  Child c;
  c.pid = fork();
  if (c.pid == 0) {
    dup2(errPipe[1], 2);
    dup2(outPipe[1], 1);
    std::vector<char*> argv;
    for (const auto& a : args) argv.push_back(const_cast<char*>(a.c_str()));
    argv.push_back(nullptr);
    execvp(argv[0], argv.data());
    _exit(127);
  }
  close(errPipe[1]);
  close(outPipe[1]);
  c.err = errPipe[0];
  c.out = outPipe[0];
  return c;
}

// Reads `fd` until a line contains `text` or `seconds` pass; returns the line.
std::string readUntil(int fd, const std::string& text, double seconds) {
  std::string buffer;
  double deadline = monotonicSeconds() + seconds;
  while (monotonicSeconds() < deadline) {
    pollfd p{fd, POLLIN, 0};
    int left = static_cast<int>((deadline - monotonicSeconds()) * 1000) + 1;
    if (poll(&p, 1, left) <= 0) continue;
    char chunk[4096];
    ssize_t n = read(fd, chunk, sizeof chunk);
    if (n <= 0) break;
    buffer.append(chunk, static_cast<std::size_t>(n));
    auto at = buffer.find(text);
    if (at != std::string::npos) {
      auto end = buffer.find('\n', at);
      return buffer.substr(at, end == std::string::npos ? std::string::npos : end - at);
    }
  }
  return {};
}

struct Setup {
  double seconds = 0;
  long peakKiB = 0;
  std::string line;
};

Setup measure(const std::vector<std::string>& args) {
  Setup s;
  double begin = monotonicSeconds();
  Child c = spawn(args);
  s.line = readUntil(c.err, "Watches established.", 600);
  s.seconds = monotonicSeconds() - begin;
  kill(c.pid, SIGTERM);
  int status = 0;
  rusage usage{};
  wait4(c.pid, &status, 0, &usage);
  s.peakKiB = usage.ru_maxrss;
  close(c.err);
  close(c.out);
  if (s.line.empty()) {
    std::fprintf(stderr, "%s did not finish setting up its watches\n", args[0].c_str());
    std::exit(1);
  }
  return s;
}

double median(std::vector<double> v) {
  std::sort(v.begin(), v.end());
  return v[v.size() / 2];
}

gboolean flagDone(gpointer flag) {
  *static_cast<bool*>(flag) = true;
  return G_SOURCE_REMOVE;
}

// mkdir -p d/<i>/a/b && touch d/<i>/a/b/f, `rounds` times, while both
// watchers watch d; returns {ours missed, inotifywait missed}.
std::pair<int, int> raceMadeAndFilledFolders(const std::string& dir, int rounds) {
  mkdir(dir.c_str(), 0755);
  Child theirs = spawn({"inotifywait", "-r", "-m", "-e", "create", "-e", "close_write", "-e",
                        "moved_to", "--format", "%w%f", dir});
  if (readUntil(theirs.err, "Watches established.", 60).empty()) std::exit(1);

  QuietLog log;
  wf::platform::InotifyFileEventStreamFactory factory(log);
  wf::platform::FileEventStreamParams params;
  params.paths = {dir};
  params.latency = 0.05;
  std::set<std::string> ours;
  auto stream = factory.create(params, [&](const std::vector<std::string>& paths) {
    ours.insert(paths.begin(), paths.end());
  });
  if (!stream || !stream->start()) std::exit(1);

  // The shell runs beside our main loop, as another program would.
  for (int i = 0; i < rounds; ++i) {
    std::string target = dir + "/" + std::to_string(i) + "/a/b";
    std::string command = "mkdir -p '" + target + "' && touch '" + target + "/f'";
    gchar* argv[] = {const_cast<gchar*>("/bin/sh"), const_cast<gchar*>("-c"), command.data(),
                     nullptr};
    GPid pid;
    if (!g_spawn_async(nullptr, argv, nullptr, G_SPAWN_DO_NOT_REAP_CHILD, nullptr, nullptr, &pid,
                       nullptr))
      std::exit(1);
    bool exited = false;
    auto onExit = [](GPid p, gint, gpointer flag) {
      g_spawn_close_pid(p);
      *static_cast<bool*>(flag) = true;
    };
    g_child_watch_add(pid, onExit, &exited);
    while (!exited) g_main_context_iteration(nullptr, TRUE);
  }

  auto wanted = [&](int i) { return dir + "/" + std::to_string(i) + "/a/b/f"; };
  auto oursFound = [&] {
    int n = 0;
    for (int i = 0; i < rounds; ++i) n += ours.count(wanted(i)) > 0;
    return n;
  };
  bool expired = false;
  g_timeout_add(10000, flagDone, &expired);
  while (oursFound() < rounds && !expired) g_main_context_iteration(nullptr, TRUE);

  // inotifywait's lines, until all are there or it has been quiet a while.
  std::set<std::string> theirsSeen;
  std::string pendingText;
  double quietUntil = monotonicSeconds() + 2;
  while (monotonicSeconds() < quietUntil) {
    pollfd p{theirs.out, POLLIN, 0};
    if (poll(&p, 1, 100) <= 0) continue;
    char chunk[8192];
    ssize_t n = read(theirs.out, chunk, sizeof chunk);
    if (n <= 0) break;
    pendingText.append(chunk, static_cast<std::size_t>(n));
    std::size_t nl;
    while ((nl = pendingText.find('\n')) != std::string::npos) {
      theirsSeen.insert(pendingText.substr(0, nl));
      pendingText.erase(0, nl + 1);
    }
    quietUntil = monotonicSeconds() + 2;
  }
  kill(theirs.pid, SIGTERM);
  waitpid(theirs.pid, nullptr, 0);
  close(theirs.err);
  close(theirs.out);

  int theirsFound = 0;
  for (int i = 0; i < rounds; ++i) theirsFound += theirsSeen.count(wanted(i)) > 0;
  return {rounds - oursFound(), rounds - theirsFound};
}

}  // namespace

int main(int argc, char** argv) {
  if (argc == 3 && std::strcmp(argv[1], "--watch") == 0) return watchAndReport(argv[2]);

  int folders = 20000, files = 200000, rounds = 200, repeats = 3;
  std::string base = access("/dev/shm", W_OK) == 0 ? "/dev/shm" : "/tmp";
  for (int i = 1; i + 1 < argc; i += 2) {
    std::string key = argv[i];
    if (key == "--folders")
      folders = std::atoi(argv[i + 1]);
    else if (key == "--files")
      files = std::atoi(argv[i + 1]);
    else if (key == "--rounds")
      rounds = std::atoi(argv[i + 1]);
    else if (key == "--repeats")
      repeats = std::atoi(argv[i + 1]);
    else if (key == "--base")
      base = argv[i + 1];
  }
  std::string tmpl = base + "/wf-watch-bench-XXXXXX";
  std::vector<char> name(tmpl.begin(), tmpl.end());
  name.push_back('\0');
  if (!mkdtemp(name.data())) return 2;
  std::string work = name.data();
  std::string store = work + "/store";
  std::string self = "/proc/self/exe";
  char exe[4096];
  ssize_t len = readlink(self.c_str(), exe, sizeof exe - 1);
  if (len <= 0) return 2;
  exe[len] = '\0';

  std::printf("making %d folders and %d files in %s ...\n", folders, files, store.c_str());
  std::fflush(stdout);
  makeTree(store, folders, files);

  std::vector<double> oursTime, theirsTime;
  long oursPeak = 0, theirsPeak = 0;
  std::string oursLine;
  for (int r = 0; r < repeats; ++r) {
    Setup o = measure({exe, "--watch", store});
    Setup t = measure({"inotifywait", "-r", "-m", store});
    oursTime.push_back(o.seconds);
    theirsTime.push_back(t.seconds);
    oursPeak = std::max(oursPeak, o.peakKiB);
    theirsPeak = std::max(theirsPeak, t.peakKiB);
    oursLine = o.line;
  }
  double ours = median(oursTime), theirs = median(theirsTime);
  std::printf("watch setup, %d folders and %d files, median of %d runs each:\n", folders, files,
              repeats);
  std::printf("  ours:        %.3f s, peak RSS %ld KiB (%s)\n", ours, oursPeak, oursLine.c_str());
  std::printf("  inotifywait: %.3f s, peak RSS %ld KiB\n", theirs, theirsPeak);
  std::printf("  speed ratio  inotifywait time / our time       = %.2fx (goal >= 3)\n",
              theirs / ours);
  std::printf("  memory ratio our peak RSS / inotifywait's      = %.2f (goal <= 1)\n",
              static_cast<double>(oursPeak) / static_cast<double>(theirsPeak));
  std::fflush(stdout);

  auto [oursMissed, theirsMissed] = raceMadeAndFilledFolders(work + "/race", rounds);
  std::printf("mkdir -p d/N/a/b && touch d/N/a/b/f, %d times, both watching d:\n", rounds);
  std::printf("  files missed: ours %d, inotifywait %d\n", oursMissed, theirsMissed);
  if (std::getenv("WF_BENCH_ROWS")) {
    const double memory = static_cast<double>(oursPeak) / static_cast<double>(theirsPeak);
    std::printf(
        "@row {\"measure\": \"watch setup, %d folders / %d files\", \"ours\": %.3f, \"unit\": "
        "\"s\", \"peer\": %.3f, \"peer_name\": \"inotifywait\", \"ratio\": %.3f, \"goal\": "
        "\"≥ 3×\", \"met\": %s}\n",
        folders, files, ours, theirs, theirs / ours, theirs / ours >= 3 ? "true" : "false");
    std::printf(
        "@row {\"measure\": \"watch setup, peak memory\", \"ours\": %.1f, \"unit\": \"MiB\", "
        "\"peer\": %.1f, \"peer_name\": \"inotifywait\", \"ratio\": %.3f, \"goal\": \"ours ≤ "
        "peer\", \"met\": %s}\n",
        static_cast<double>(oursPeak) / 1024, static_cast<double>(theirsPeak) / 1024, 1 / memory,
        memory <= 1 ? "true" : "false");
    std::printf(
        "@row {\"measure\": \"watch setup, files missed of %d mkdir -p\", \"ours\": %d, "
        "\"peer\": %d, \"peer_name\": \"inotifywait\", \"goal\": \"0\", \"met\": %s}\n",
        rounds, oursMissed, theirsMissed, oursMissed == 0 ? "true" : "false");
  }

  std::string cleanup = "rm -rf '" + work + "'";
  if (std::system(cleanup.c_str()) != 0)
    std::fprintf(stderr, "could not remove %s\n", work.c_str());
  return oursMissed == 0 ? 0 : 1;
}
