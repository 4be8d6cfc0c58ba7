#include "SystemFaults.h"

#include <dirent.h>
#include <fcntl.h>
#include <glib.h>
#include <linux/capability.h>
#include <poll.h>
#include <signal.h>
#include <spawn.h>
#include <sys/mount.h>
#include <sys/prctl.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <fstream>
#include <set>
#include <sstream>

extern char** environ;

namespace wf::faults {

namespace {

std::string errnoText(const std::string& what, int err) { return what + ": " + std::strerror(err); }

}  // namespace

TmpfsMount::TmpfsMount(const std::string& path, std::size_t bytes) : path_(path) {
  std::string options = "size=" + std::to_string(bytes) + ",mode=0755";
  if (mount("tmpfs", path.c_str(), "tmpfs", MS_NOSUID | MS_NODEV, options.c_str()) == 0)
    mounted_ = true;
  else
    reason_ = errnoText("mount -t tmpfs -o " + options + " " + path, errno);
}

TmpfsMount::~TmpfsMount() {
  if (!mounted_) return;
  // Lazily, so that a helper still holding a watch there cannot keep it.
  if (umount2(path_.c_str(), MNT_DETACH) != 0) {
  }
}

bool TmpfsMount::makeReadOnly() {
  if (mount(nullptr, path_.c_str(), nullptr, MS_REMOUNT | MS_RDONLY | MS_NOSUID | MS_NODEV,
            nullptr) == 0)
    return true;
  reason_ = errnoText("remount read-only " + path_, errno);
  return false;
}

std::string TmpfsMount::fill() {
  std::string filler = path_ + "/.filler";
  int fd = open(filler.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0600);
  if (fd < 0) return filler;
  std::string block(4096, 'f');
  while (write(fd, block.data(), block.size()) > 0) {
  }
  // The last partial page too.
  while (write(fd, "f", 1) > 0) {
  }
  close(fd);
  // Inodes are limited by size as well; take what may be left of them.
  for (int i = 0; i < 100000; ++i) {
    std::string empty = path_ + "/.filler-" + std::to_string(i);
    int e = open(empty.c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0600);
    if (e < 0) break;
    close(e);
  }
  return filler;
}

ProcSysValue::ProcSysValue(std::string file) : file_(std::move(file)) {
  std::ifstream in(file_);
  long v;
  if (in >> v) original_ = v;
}

ProcSysValue::~ProcSysValue() { restore(); }

bool ProcSysValue::set(long value) {
  if (!original_) {
    reason_ = "cannot read " + file_;
    return false;
  }
  int fd = open(file_.c_str(), O_WRONLY | O_CLOEXEC);
  if (fd < 0) {
    reason_ = errnoText("cannot write " + file_, errno);
    return false;
  }
  std::string text = std::to_string(value) + "\n";
  bool ok = write(fd, text.data(), text.size()) == static_cast<ssize_t>(text.size());
  int err = errno;
  close(fd);
  if (!ok) {
    reason_ = errnoText("cannot write " + file_, err);
    return false;
  }
  changed_ = true;
  return true;
}

void ProcSysValue::restore() {
  if (!changed_) return;
  changed_ = false;
  int fd = open(file_.c_str(), O_WRONLY | O_CLOEXEC);
  if (fd < 0) return;
  std::string text = std::to_string(*original_) + "\n";
  if (write(fd, text.data(), text.size()) < 0) {
  }
  close(fd);
}

bool dropPermissionOverrideForChildren(std::string* reason) {
  for (int cap : {CAP_DAC_OVERRIDE, CAP_DAC_READ_SEARCH, CAP_FOWNER}) {
    if (prctl(PR_CAPBSET_READ, cap, 0, 0, 0) == 0) continue;  // gone already
    if (prctl(PR_CAPBSET_DROP, cap, 0, 0, 0) != 0) {
      if (reason) *reason = errnoText("cannot drop a capability from the bounding set", errno);
      return false;
    }
  }
  return true;
}

std::optional<pid_t> privateBusDaemon() {
  DIR* proc = opendir("/proc");
  if (!proc) return std::nullopt;
  std::optional<pid_t> found;
  pid_t self = getpid();
  while (dirent* e = readdir(proc)) {
    char* end;
    long pid = std::strtol(e->d_name, &end, 10);
    if (*end || pid <= 0) continue;
    std::ifstream stat("/proc/" + std::string(e->d_name) + "/stat");
    std::string line;
    if (!std::getline(stat, line)) continue;
    // pid (comm) state ppid ...
    auto close = line.rfind(')');
    auto open = line.find('(');
    if (close == std::string::npos || open == std::string::npos) continue;
    std::string comm = line.substr(open + 1, close - open - 1);
    std::istringstream rest(line.substr(close + 2));
    char state;
    long ppid;
    rest >> state >> ppid;
    if (comm == "dbus-daemon" && ppid == self && state != 'Z') found = static_cast<pid_t>(pid);
  }
  closedir(proc);
  return found;
}

namespace {

std::set<unsigned long> socketInodes(pid_t pid) {
  std::set<unsigned long> inodes;
  std::string dir = "/proc/" + std::to_string(pid) + "/fd";
  DIR* d = opendir(dir.c_str());
  if (!d) return inodes;
  while (dirent* e = readdir(d)) {
    char target[256];
    ssize_t n = readlink((dir + "/" + e->d_name).c_str(), target, sizeof target - 1);
    if (n <= 0) continue;
    target[n] = '\0';
    unsigned long inode;
    if (std::sscanf(target, "socket:[%lu]", &inode) == 1) inodes.insert(inode);
  }
  closedir(d);
  return inodes;
}

}  // namespace

std::vector<std::string> listeningSockets(pid_t pid) {
  std::set<unsigned long> mine = socketInodes(pid);
  std::vector<std::string> found;
  // Any TCP or UDP socket at all is more than the helper needs.
  for (const char* table : {"tcp", "tcp6", "udp", "udp6", "raw", "raw6"}) {
    std::ifstream in(std::string("/proc/") + std::to_string(pid) + "/net/" + table);
    std::string line;
    std::getline(in, line);  // heading
    while (std::getline(in, line)) {
      std::istringstream fields(line);
      std::string f[10];
      for (auto& x : f) fields >> x;
      unsigned long inode = std::strtoul(f[9].c_str(), nullptr, 10);
      if (mine.count(inode)) found.push_back(std::string(table) + " " + line);
    }
  }
  // Unix sockets: Num RefCount Protocol Flags Type St Inode [Path]. The
  // flag __SO_ACCEPTCON (0x10000) marks a listening one.
  std::ifstream unixTable("/proc/" + std::to_string(pid) + "/net/unix");
  std::string line;
  std::getline(unixTable, line);
  while (std::getline(unixTable, line)) {
    std::istringstream fields(line);
    std::string num, ref, protocol, flags, type, st;
    unsigned long inode = 0;
    fields >> num >> ref >> protocol >> flags >> type >> st >> inode;
    unsigned long flagBits = std::strtoul(flags.c_str(), nullptr, 16);
    if (mine.count(inode) && (flagBits & 0x10000)) found.push_back("unix listening " + line);
  }
  return found;
}

int inotifyWatchCount(pid_t pid) {
  int count = 0;
  std::string dir = "/proc/" + std::to_string(pid) + "/fdinfo";
  DIR* d = opendir(dir.c_str());
  if (!d) return -1;
  while (dirent* e = readdir(d)) {
    std::ifstream in(dir + "/" + e->d_name);
    std::string line;
    while (std::getline(in, line))
      if (line.rfind("inotify wd:", 0) == 0) ++count;
  }
  closedir(d);
  return count;
}

std::string inotifyWatches(pid_t pid) {
  std::string text;
  std::string dir = "/proc/" + std::to_string(pid) + "/fdinfo";
  DIR* d = opendir(dir.c_str());
  if (!d) return text;
  while (dirent* e = readdir(d)) {
    std::ifstream in(dir + "/" + e->d_name);
    std::string line;
    while (std::getline(in, line))
      if (line.rfind("inotify wd:", 0) == 0) text += line + "\n";
  }
  closedir(d);
  return text;
}

DoubleProcess::DoubleProcess(const std::string& busAddress, std::vector<std::string> arguments) {
  int pipeFds[2];
  if (pipe2(pipeFds, O_CLOEXEC) != 0) return;
  std::vector<std::string> env;
  for (char** e = environ; *e; ++e)
    if (std::strncmp(*e, "DBUS_SESSION_BUS_ADDRESS=", 25) != 0) env.emplace_back(*e);
  env.push_back("DBUS_SESSION_BUS_ADDRESS=" + busAddress);
  std::vector<char*> argv, envp;
  arguments.insert(arguments.begin(), WF_SCRIPTING_APP_BINARY);
  for (auto& a : arguments) argv.push_back(a.data());
  argv.push_back(nullptr);
  for (auto& e : env) envp.push_back(e.data());
  envp.push_back(nullptr);
  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  posix_spawn_file_actions_adddup2(&actions, pipeFds[1], 1);
  if (posix_spawn(&pid_, argv[0], &actions, nullptr, argv.data(), envp.data()) != 0) pid_ = 0;
  posix_spawn_file_actions_destroy(&actions);
  close(pipeFds[1]);
  out_ = pipeFds[0];
}

DoubleProcess::~DoubleProcess() {
  if (pid_ > 0) {
    kill(pid_, SIGKILL);
    waitpid(pid_, nullptr, 0);
  }
  if (out_ >= 0) close(out_);
}

bool DoubleProcess::waitReady(double seconds) {
  if (pid_ <= 0 || out_ < 0) return false;
  std::string text;
  gint64 deadline = g_get_monotonic_time() + static_cast<gint64>(seconds * G_USEC_PER_SEC);
  while (text.find("ready") == std::string::npos) {
    int left = static_cast<int>((deadline - g_get_monotonic_time()) / 1000);
    pollfd p{out_, POLLIN, 0};
    if (left <= 0 || poll(&p, 1, left) <= 0) return false;
    char buf[256];
    ssize_t n = read(out_, buf, sizeof buf);
    if (n <= 0) return false;
    text.append(buf, static_cast<std::size_t>(n));
  }
  return true;
}

}  // namespace wf::faults
