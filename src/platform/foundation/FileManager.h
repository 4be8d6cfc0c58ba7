// NSFileManager stand-in: the file operations the helper's logic uses.
// Operations that change files tell OwnChanges (platform/FileEvents.h) so
// that event streams which leave out the process's own changes can do so.
#pragma once

#include <sys/types.h>

#include <string>
#include <string_view>

#include "platform/foundation/Error.h"

namespace wf {

class FileManager {
 public:
  // NSFileReadNoSuchFileError: the source of a copy is missing.
  static constexpr long kFileReadNoSuchFileError = 260;

  static FileManager& defaultManager();

  // fileExistsAtPath:isDirectory: (follows symbolic links, as Foundation does).
  bool fileExistsAtPath(const std::string& path, bool* isDirectory = nullptr) const;
  // createDirectoryAtPath:withIntermediateDirectories:attributes:error:
  bool createDirectoryAtPath(const std::string& path, bool intermediates,
                             OptError* error = nullptr);
  // removeItemAtPath:error: (recursive for folders, never follows links).
  bool removeItemAtPath(const std::string& path, OptError* error = nullptr);
  // copyItemAtPath:toPath:error: for regular files; fails when the
  // destination exists. Written to a temporary name and renamed into place,
  // so a reader never sees a partial copy.
  bool copyItemAtPath(const std::string& src, const std::string& dst, OptError* error = nullptr);
  // Whether the sync push may replace what is at `path`: a file or a link
  // (replaced itself, never followed) in a folder we may change. Otherwise
  // the error removeItemAtPath:error: would give ("couldn't be removed").
  bool checkReplaceableItemAtPath(const std::string& path, OptError* error = nullptr) const;
  // Copies the regular file `src` to a temporary beside `dst` and renames it
  // over whatever is at `dst`. On failure `dst` stays as it was.
  bool replaceItemAtPath(const std::string& dst, const std::string& src, OptError* error = nullptr);
  // The same with the bytes already read from `src` (whose permission bits
  // are `mode`): what is written is exactly what the caller checked.
  bool replaceItemAtPathWithContents(const std::string& dst, const std::string& src,
                                     std::string_view bytes, mode_t mode,
                                     OptError* error = nullptr);
  // contentsEqualAtPath:andPath: sizes first, then blocks; stops at the
  // first difference. A missing file is unequal to anything.
  bool contentsEqualAtPath(const std::string& a, const std::string& b) const;
};

}  // namespace wf
