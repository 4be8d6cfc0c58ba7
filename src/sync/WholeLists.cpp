#include "sync/WholeLists.h"

#include <sys/stat.h>

#include <chrono>
#include <thread>

#include "platform/base/Files.h"
#include "platform/plist/PropertyList.h"

namespace wf {
namespace {

constexpr int kAttempts = 6;
constexpr auto kFirstPause = std::chrono::milliseconds(30);

bool sameVersion(const struct stat& a, const struct stat& b) {
  return a.st_dev == b.st_dev && a.st_ino == b.st_ino && a.st_size == b.st_size &&
         a.st_mtim.tv_sec == b.st_mtim.tv_sec && a.st_mtim.tv_nsec == b.st_mtim.tv_nsec &&
         a.st_ctim.tv_sec == b.st_ctim.tv_sec && a.st_ctim.tv_nsec == b.st_ctim.tv_nsec;
}

// One read with the file's identity around it; false when it moved.
bool readOnce(const std::string& path, StillRead& out) {
  auto fd = sys::openRegularFile(path);
  if (!fd) {
    out.opened = false;
    out.error = fd.error().describe();
    return false;
  }
  out.opened = true;
  struct stat before {};
  struct stat after {};
  struct stat byName {};
  if (fstat(fd->get(), &before) != 0) return false;
  auto first = sys::readAll(fd->get(), kMaxListBytes);
  if (!first) {
    out.error = first.error().describe();
    return false;
  }
  // The timestamps tick coarsely: a second read catches a write that left
  // them as they were.
  auto second = sys::readRange(fd->get(), 0, kMaxListBytes);
  if (!second || *second != *first) return false;
  if (fstat(fd->get(), &after) != 0 || stat(path.c_str(), &byName) != 0) return false;
  if (!sameVersion(before, after) || !sameVersion(after, byName)) return false;
  if (static_cast<std::size_t>(after.st_size) != first->size()) return false;
  out.bytes = std::move(*first);
  out.mode = after.st_mode;
  out.error.clear();
  return true;
}

}  // namespace

StillRead readWhileStill(const std::string& path) {
  StillRead out;
  auto pause = kFirstPause;
  for (int attempt = 0; attempt < kAttempts; ++attempt) {
    if (attempt > 0) {
      // Blocks the loop for at most about a second in all, and only while
      // another program is writing the list.
      std::this_thread::sleep_for(pause);
      pause += kFirstPause;
    }
    if (readOnce(path, out)) {
      out.still = true;
      return out;
    }
    if (!out.opened || !out.error.empty()) return out;
  }
  out.still = false;
  return out;
}

std::string notAWholeList(const std::string& bytes) {
  if (bytes.empty()) return "the file is empty";
  std::string error;
  Value parsed = plist::parse(bytes, &error);
  if (parsed.isNil()) return error.empty() ? std::string("not a property list") : error;
  return {};
}

}  // namespace wf
