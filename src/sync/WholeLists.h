// What the exchange checks before a list travels: that it stood still while
// it was read, and that it is a whole property list.
#pragma once

#include <sys/types.h>

#include <string>

namespace wf {

struct StillRead {
  bool opened = false;  // false: the file could not be opened (see `error`)
  bool still = false;   // true: the bytes are one version of the file, whole
  std::string bytes;
  mode_t mode = 0;
  std::string error;
};

// Reads the file twice, with its size, times and inode before and after;
// a file that changed meanwhile is read again, a few times within a second.
StillRead readWhileStill(const std::string& path);

// Empty when `bytes` is a whole property list; otherwise the codec's reason.
std::string notAWholeList(const std::string& bytes);

// A list file is small: more than this is refused rather than read.
inline constexpr std::size_t kMaxListBytes = 64u << 20;

}  // namespace wf
