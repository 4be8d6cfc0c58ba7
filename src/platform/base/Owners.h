// Owners of the resources the system hands out: file descriptors and
// directory streams (GLib's memory and objects: platform/glib/Owners.h).
// Nothing outside these headers calls a release function by hand.
#pragma once

#include <dirent.h>
#include <unistd.h>

#include <memory>
#include <utility>

namespace wf::sys {

class UniqueFd {
 public:
  UniqueFd() = default;
  explicit UniqueFd(int fd) : fd_(fd) {}
  ~UniqueFd() { reset(); }
  UniqueFd(UniqueFd&& other) noexcept : fd_(other.release()) {}
  UniqueFd& operator=(UniqueFd&& other) noexcept {
    if (this != &other) reset(other.release());
    return *this;
  }
  UniqueFd(const UniqueFd&) = delete;
  UniqueFd& operator=(const UniqueFd&) = delete;

  int get() const { return fd_; }
  bool valid() const { return fd_ >= 0; }
  explicit operator bool() const { return valid(); }
  int release() { return std::exchange(fd_, -1); }
  void reset(int fd = -1) {
    if (fd_ >= 0) ::close(fd_);
    fd_ = fd;
  }
  // close() whose result counts: a write-back error surfaces here.
  int closeChecked() {
    int fd = release();
    return fd >= 0 ? ::close(fd) : 0;
  }

 private:
  int fd_ = -1;
};

struct DirCloser {
  void operator()(DIR* d) const { ::closedir(d); }
};
using UniqueDir = std::unique_ptr<DIR, DirCloser>;

}  // namespace wf::sys
