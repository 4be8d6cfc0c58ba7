// What kind of file system a watched folder is on, and a poll for folders
// whose changes from other computers inotify never sees (network and FUSE
// file systems: inotify reports only what this kernel did).
#pragma once

#include <array>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

namespace wf::platform {

// File-system types whose other writers (another computer, a server, a
// user-space daemon) change files without inotify hearing of it. Every
// "fuse" and "fuse.*" type counts as well.
inline constexpr std::array<std::string_view, 16> kRemoteFileSystemTypes{
    "nfs",    "nfs4",      "cifs",  "smb3", "smbfs", "9p",   "ceph",  "afs",
    "lustre", "glusterfs", "ocfs2", "gfs2", "ncpfs", "coda", "davfs", "virtiofs"};

inline bool isRemoteFileSystemType(std::string_view type) {
  if (type == "fuse" || type == "fuseblk" || type.starts_with("fuse.")) return true;
  for (std::string_view remote : kRemoteFileSystemTypes)
    if (type == remote) return true;
  return false;
}

struct FolderFileSystem {
  std::string type;  // the mount's type as the kernel names it: "ext4", "fuse.bindfs"
  bool remote = false;
};

// One entry's identity as a poll sees it; equal when nothing changed.
struct PolledEntry {
  std::int64_t size = 0;
  std::int64_t modifiedNs = 0;
  std::int64_t changedNs = 0;
  std::uint64_t inode = 0;
  bool operator==(const PolledEntry&) const = default;
};
using PolledFolder = std::map<std::string, PolledEntry>;  // by file name

// A running poll; it stops when released (a poll stuck in the kernel is
// left to return on its own and its result is dropped).
class FolderPoll {
 public:
  virtual ~FolderPoll() = default;
};

struct FolderPollParams {
  std::string folder;
  // Entries whose names begin with one of these are read; others are not.
  std::vector<std::string> namePrefixes;
  double interval = 2.0;     // seconds between the end of a poll and the next
  double stalledAfter = 10;  // a poll not back by then is reported once
  // On the main loop: each poll's entries, or `reachable` false when the
  // folder could not be read.
  std::function<void(const PolledFolder& entries, bool reachable)> onResult;
  // On the main loop, once per stuck poll.
  std::function<void()> onStalled;
};

class RemoteFolders {
 public:
  virtual ~RemoteFolders() = default;
  // The file system `path` is on; type "unknown" when it cannot be told.
  virtual FolderFileSystem fileSystemOf(const std::string& path) = 0;
  // Reads the folder off the main thread every interval until released.
  virtual std::unique_ptr<FolderPoll> startPoll(FolderPollParams params) = 0;
};

// The mount type of `path` from the text of /proc/self/mountinfo: the
// longest mount point that holds it; "fuse.sshfs" for FUSE sub-types.
std::string mountTypeFromMountInfo(std::string_view mountInfo, std::string_view path);

}  // namespace wf::platform
