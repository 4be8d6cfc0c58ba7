// The advisory lock that every writer of this project (wf-defaults,
// wf-plutil, openmeta and the helper's tag import) holds on one file while
// it reads, changes and writes it back, so that two of them take turns
// instead of one losing the other's change.
//
// The lock is flock(2) on the file itself, opened for reading only: opening
// it for writing would look like a change to anyone watching the file. A
// writer that replaces the file by rename leaves the lock on the old inode,
// so after locking, the name is looked up again and must still lead to the
// locked inode; otherwise the lock is dropped and taken on the new file.
// Where nothing exists at the name yet, the folder that will hold it is
// locked instead and the name is checked to be still free.
//
// Nothing is locked (and the caller carries on as it would without the
// lock) where the file system does not lock (flock refused, as on NFS
// mounted without locking), where the file cannot be opened for reading, or
// where the name leads to something that is neither a regular file nor a
// folder (a link that is not followed, a FIFO, a device).
#pragma once

#include <chrono>
#include <cstdint>
#include <string>

#include "platform/base/Files.h"
#include "platform/base/Owners.h"
#include "platform/base/Result.h"

namespace wf::sys {

// How long a tool waits for another writer before it gives up.
constexpr std::chrono::milliseconds kUpdateLockWait{10000};

class UpdateLock {
 public:
  UpdateLock() = default;
  explicit UpdateLock(UniqueFd fd, bool regularFile = false, std::uint64_t size = 0)
      : fd_(std::move(fd)), regularFile_(regularFile), size_(size) {}
  // Whether a lock is held (false where nothing could be locked, see above).
  bool held() const { return fd_.get() >= 0; }
  // The locked file, open for reading, where it is a regular file (not
  // its folder): a reader under the lock needs no descriptor of its own.
  // -1 otherwise. It was opened without blocking, which a regular file's
  // reads ignore.
  int regularFile() const { return regularFile_ ? fd_.get() : -1; }
  // Its size when it was locked (its writers of other programs replace it
  // whole, by rename, which the lock's check of the name sees).
  std::uint64_t regularFileSize() const { return size_; }

 private:
  UniqueFd fd_;  // closing it releases the lock
  bool regularFile_ = false;
  std::uint64_t size_ = 0;
};

// Locks `path` for an update, waiting at most `wait` for the writer that
// holds it (zero: one try). With Links::Follow a link at the name is
// followed to the file it leads to. Fails with EWOULDBLOCK (no wait) or
// ETIMEDOUT (the wait ran out) when another writer held it the whole time;
// the message then says so in words.
Result<UpdateLock> lockForUpdate(const std::string& path, Links links,
                                 std::chrono::milliseconds wait = kUpdateLockWait);

}  // namespace wf::sys
