#include "platform/base/UpdateLock.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstdlib>
#include <thread>

namespace wf::sys {

namespace {

using Clock = std::chrono::steady_clock;

enum class Taken { Yes, Busy, Unsupported };

// One holder works for milliseconds; short naps keep a waiter close behind
// it without spinning. The nap grows a little while the wait lasts.
std::chrono::microseconds napAfter(int attempt) {
  return std::chrono::microseconds(500 + 250 * std::min(attempt, 38));
}

// Takes the exclusive lock on `fd`, waiting until `deadline`.
Taken takeLock(int fd, Clock::time_point deadline) {
  for (int attempt = 0;; ++attempt) {
    if (::flock(fd, LOCK_EX | LOCK_NB) == 0) return Taken::Yes;
    const int err = errno;
    if (err == EINTR) continue;
    if (err != EWOULDBLOCK) {
      // EBADF, ENOLCK, EOPNOTSUPP: a file system that does not lock this
      // way (NFS maps flock to the server's locks, which may refuse a
      // file open for reading only, or be switched off).
      return Taken::Unsupported;
    }
    if (Clock::now() >= deadline) return Taken::Busy;
    std::this_thread::sleep_for(napAfter(attempt));
  }
}

std::string folderOf(const std::string& path) {
  auto slash = path.rfind('/');
  if (slash == std::string::npos) return ".";
  return slash == 0 ? "/" : path.substr(0, slash);
}

// The name the writer will write: with Links::Follow, where the links at
// the name lead (the name itself while that does not exist yet).
std::string finalName(const std::string& path, Links links) {
  if (links == Links::NoFollow) return path;
  char resolved[PATH_MAX];
  if (::realpath(path.c_str(), resolved)) return resolved;
  return path;
}

bool sameFile(const struct stat& a, const struct stat& b) {
  return a.st_dev == b.st_dev && a.st_ino == b.st_ino;
}

SysError heldByAnother(std::chrono::milliseconds wait) {
  if (wait.count() <= 0)
    return SysError{SysError::kErrnoDomain, EWOULDBLOCK, "Being changed by another writer"};
  return SysError{SysError::kErrnoDomain, ETIMEDOUT,
                  "Another writer held the file for " + std::to_string(wait.count() / 1000) +
                      " s; nothing was changed"};
}

}  // namespace

Result<UpdateLock> lockForUpdate(const std::string& path, Links links,
                                 std::chrono::milliseconds wait) {
  const Clock::time_point deadline = Clock::now() + wait;
  const int statFlags = links == Links::NoFollow ? AT_SYMLINK_NOFOLLOW : 0;
  // A round that does not return saw the file replaced, created or removed
  // by another writer while it waited; rounds go on until the deadline (a
  // few at least, so that a try without waiting survives one such change).
  for (int round = 0;; ++round) {
    const std::string name = finalName(path, links);
    int flags = O_RDONLY | O_NONBLOCK | O_CLOEXEC | O_NOCTTY;
    if (links == Links::NoFollow) flags |= O_NOFOLLOW;
    UniqueFd fd(::open(name.c_str(), flags));
    bool onFolder = false;
    if (!fd) {
      if (errno != ENOENT) return UpdateLock();  // unreadable, or a link not followed
      fd = UniqueFd(::open(folderOf(name).c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
      if (!fd) return UpdateLock();  // the write will say why the folder is no good
      onFolder = true;
    }
    struct stat locked {};
    if (::fstat(fd.get(), &locked) != 0) return UpdateLock();
    if (!S_ISREG(locked.st_mode) && !S_ISDIR(locked.st_mode)) return UpdateLock();

    const Taken taken = takeLock(fd.get(), deadline);
    if (taken == Taken::Unsupported) return UpdateLock();
    if (taken == Taken::Busy) return heldByAnother(wait);

    // The lock counts only if the name still leads where it did.
    struct stat now {};
    const bool present = ::fstatat(AT_FDCWD, name.c_str(), &now, statFlags) == 0;
    if (onFolder ? !present : (present && sameFile(now, locked)))
      return UpdateLock(std::move(fd), !onFolder && S_ISREG(locked.st_mode),
                        static_cast<std::uint64_t>(locked.st_size));
    if (Clock::now() >= deadline && round >= 3) return heldByAnother(wait);
  }
}

}  // namespace wf::sys
