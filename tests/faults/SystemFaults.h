// Faults made with the system's own means, each undone when its object
// goes: a small tmpfs (full or read-only file systems), a lowered or raised
// value under /proc/sys, a process of a test double, the private bus's
// daemon, and what a process listens on.
#pragma once

#include <sys/types.h>

#include <optional>
#include <string>
#include <vector>

namespace wf::faults {

// A tmpfs of `bytes` mounted over `path` (which must exist) for as long as
// the object lives. mounted() is false when the system refused (not root,
// no mount namespace rights); reason() says why.
class TmpfsMount {
 public:
  TmpfsMount(const std::string& path, std::size_t bytes);
  ~TmpfsMount();
  TmpfsMount(const TmpfsMount&) = delete;
  TmpfsMount& operator=(const TmpfsMount&) = delete;
  bool mounted() const { return mounted_; }
  const std::string& reason() const { return reason_; }
  // Remounts read-only; false (with reason()) when refused.
  bool makeReadOnly();
  // Writes a filler file until the file system is full; returns its path.
  std::string fill();

 private:
  std::string path_;
  bool mounted_ = false;
  std::string reason_;
};

// A value under /proc/sys set for as long as the object lives and then
// restored. These are machine-wide: tests that use this run serially and
// keep the change as short as they can.
class ProcSysValue {
 public:
  explicit ProcSysValue(std::string file);
  ~ProcSysValue();
  ProcSysValue(const ProcSysValue&) = delete;
  ProcSysValue& operator=(const ProcSysValue&) = delete;
  std::optional<long> original() const { return original_; }
  // False (with reason()) when the value cannot be written.
  bool set(long value);
  void restore();
  const std::string& reason() const { return reason_; }

 private:
  std::string file_;
  std::optional<long> original_;
  bool changed_ = false;
  std::string reason_;
};

// Children of this process started later lose the power to override file
// permissions (a root test process could otherwise read a folder of mode
// 000 in the helper's place). False when the system refused.
bool dropPermissionOverrideForChildren(std::string* reason);

// The dbus-daemon that this process started (the session's private bus).
std::optional<pid_t> privateBusDaemon();

// Sockets of process `pid` that listen or are bound to a network address:
// "tcp ...", "udp ...", "unix listening ..." descriptions; empty when none.
std::vector<std::string> listeningSockets(pid_t pid);

// Number of inotify watches that process `pid` holds.
int inotifyWatchCount(pid_t pid);
// Its watches as /proc describes them (one "inotify wd:..." line each).
std::string inotifyWatches(pid_t pid);

// A test double (tests/doubles/scripting-app) on the session's bus, ended
// with SIGKILL when the object goes.
class DoubleProcess {
 public:
  DoubleProcess(const std::string& busAddress, std::vector<std::string> arguments);
  ~DoubleProcess();
  DoubleProcess(const DoubleProcess&) = delete;
  DoubleProcess& operator=(const DoubleProcess&) = delete;
  // Waits until it printed "ready" (it owns its name then).
  bool waitReady(double seconds);
  pid_t pid() const { return pid_; }

 private:
  pid_t pid_ = 0;
  int out_ = -1;
};

}  // namespace wf::faults
