// The file edge: every file the helper and its tools open, read, replace or
// remove goes through these calls, so the rules hold in one place:
// - opening never blocks (a FIFO or device at a name is refused, not waited
//   on) and reads admit regular files only, up to a size cap;
// - removal never follows a link and never leaves the folder it was given;
// - replacement is atomic (a temporary beside the file, renamed over it) and
//   keeps the replaced file's mode, owner and extended attributes.
#pragma once

#include <sys/types.h>

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "platform/base/Owners.h"
#include "platform/base/Result.h"

namespace wf::sys {

// Far above any real preferences, list or tag file; a larger file is not a
// property list the helper or its tools deal with.
constexpr std::size_t kMaxPropertyListFileBytes = std::size_t{64} << 20;

// Desktop entries, mimeapps.list and other small text settings.
constexpr std::size_t kMaxConfigFileBytes = std::size_t{8} << 20;

enum class Links { Follow, NoFollow };

// Opens `path` read-only without blocking. A folder gives EISDIR, anything
// else that is not a regular file (FIFO, device, socket) EINVAL with the text
// "Not a regular file"; with Links::NoFollow a link at the name gives ELOOP.
Result<UniqueFd> openRegularFile(const std::string& path, Links links = Links::Follow);
// The rest of `fd`, at most `maxBytes` (EFBIG beyond).
Result<std::string> readAll(int fd, std::size_t maxBytes);
// Up to `maxBytes` of `fd` from `offset` on (fewer where the file ends).
Result<std::string> readRange(int fd, std::uint64_t offset, std::size_t maxBytes);
// The size of the open file.
Result<std::uint64_t> fileSize(int fd);
// openRegularFile + readAll.
Result<std::string> readRegularFile(const std::string& path, std::size_t maxBytes,
                                    Links links = Links::Follow);

Result<void> writeAll(int fd, std::string_view bytes);

// Opens `path` for writing in place, created when missing (createMode less
// umask) and truncated once opened. Never through a link at the name
// (ELOOP) and never into anything but a regular file.
Result<UniqueFd> openForOverwrite(const std::string& path, mode_t createMode = 0666);

enum class Removal {
  FileOrLink,  // a folder at the name is refused with EISDIR
  Tree,        // a folder is emptied and removed, without entering links
};
// Removes the entry `name` of the folder open as `dirFd`. Links are removed
// themselves, never followed; a tree removal enters sub-folders only through
// descriptors opened without following links and stays on one file system.
Result<void> removeAt(int dirFd, const std::string& name, Removal how);
// The same for the last component of `path`; the folders before it are
// taken as given (the folder itself may be a link the user made).
Result<void> removePath(const std::string& path, Removal how);

// Which file a name led to when it was read.
struct FileIdentity {
  dev_t device = 0;
  ino_t inode = 0;
};

struct AtomicWriteOptions {
  // NoFollow: a link at the name is replaced by the file. Follow: the link's
  // final target is written and the link stays (what a person editing a
  // linked file expects of a tool).
  Links finalLink = Links::NoFollow;
  // Mode, owner (where the caller may keep it) and extended attributes of
  // the file that is replaced.
  bool keepMetadata = true;
  // For a file that does not exist yet, less umask.
  mode_t createMode = 0666;
  // Permission bits to set whatever umask says (a copy keeps its source's).
  std::optional<mode_t> exactMode;
  // The temporary is ".<name>.<tag>XXXXXX" beside the file.
  std::string temporaryTag = "tmp-";
  // The file the caller read and changed. When the name leads to another
  // file just before the rename (someone replaced it meanwhile), the write
  // fails with ESTALE and leaves that file alone instead of overwriting it.
  std::optional<FileIdentity> expected;
};
// Writes the bytes to a temporary beside `path`, fsyncs it and renames it
// over `path`; on any failure the old file stays as it was and no temporary
// is left.
Result<void> writeFileAtomically(const std::string& path, std::string_view bytes,
                                 const AtomicWriteOptions& options = {});
// The same with the bytes streamed from `sourceFd`.
Result<void> copyFileAtomically(int sourceFd, const std::string& path,
                                const AtomicWriteOptions& options = {});

// Whether `name` is a temporary of the atomic writers above for one of
// `fileNames` (".<name>.tmp-XXXXXX", ".<name>.wfcopy-XXXXXX").
bool isOwnTemporaryName(std::string_view name, std::string_view fileName);
// Removes such temporaries (regular files only) from `folder`; returns how
// many went. Left behind only by a process that was killed mid-write.
std::size_t removeOwnTemporaries(const std::string& folder,
                                 const std::vector<std::string>& fileNames);

}  // namespace wf::sys
