#include "platform/foundation/FileManager.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <vector>

#include "platform/FileEvents.h"
#include "platform/base/Files.h"
#include "platform/foundation/Strings.h"

namespace wf {

namespace {

// Cocoa error codes that Foundation's file operations report.
constexpr long kFileNoSuchFile = 4;
constexpr long kFileReadNoSuchFile = 260;
constexpr long kFileReadNoPermission = 257;
constexpr long kFileWriteUnknown = 512;
constexpr long kFileWriteNoPermission = 513;
constexpr long kFileWriteFileExists = 516;
constexpr long kFileWriteOutOfSpace = 640;
constexpr long kFileWriteVolumeReadOnly = 642;

std::string quoted(const std::string& path) {
  return "\u201c" + ns::lastPathComponent(path) + "\u201d";
}

Error cocoaError(long code, std::string description, const std::string& path, int err) {
  Error e;
  e.domain = Error::CocoaDomain;
  e.code = code;
  e.description = std::move(description);
  e.userInfo["NSFilePath"] = Value(path);
  if (err) {
    Error under = Error::posix(err);
    e.userInfo["NSUnderlyingError"] = Value(under.describe());
  }
  return e;
}

long writeCodeFor(int err) {
  switch (err) {
    case EACCES:
    case EPERM:
      return kFileWriteNoPermission;
    case ENOSPC:
    case EDQUOT:
      return kFileWriteOutOfSpace;
    case EROFS:
      return kFileWriteVolumeReadOnly;
    case EEXIST:
      return kFileWriteFileExists;
    default:
      return kFileWriteUnknown;
  }
}

Error removalError(const std::string& path, int err) {
  if (err == ENOENT)
    return cocoaError(kFileNoSuchFile, quoted(path) + " couldn\u2019t be removed.", path, err);
  if (err == EACCES || err == EPERM)
    return cocoaError(kFileWriteNoPermission,
                      quoted(path) +
                          " couldn\u2019t be removed because you don\u2019t have "
                          "permission to access it.",
                      path, err);
  return cocoaError(writeCodeFor(err), quoted(path) + " couldn\u2019t be removed.", path, err);
}

void setError(OptError* out, Error e) {
  if (out) *out = std::move(e);
}

}  // namespace

FileManager& FileManager::defaultManager() {
  static FileManager manager;
  return manager;
}

bool FileManager::fileExistsAtPath(const std::string& path, bool* isDirectory) const {
  struct stat st;
  if (path.empty() || stat(path.c_str(), &st) != 0) {
    // A dangling symbolic link still names something, as Foundation sees it.
    if (!path.empty() && lstat(path.c_str(), &st) == 0) {
      if (isDirectory) *isDirectory = false;
      return true;
    }
    return false;
  }
  if (isDirectory) *isDirectory = S_ISDIR(st.st_mode);
  return true;
}

bool FileManager::createDirectoryAtPath(const std::string& path, bool intermediates,
                                        OptError* error) {
  if (path.empty()) {
    setError(error,
             cocoaError(kFileWriteUnknown, "The file couldn\u2019t be saved.", path, ENOENT));
    return false;
  }
  if (intermediates) {
    bool isDir = false;
    if (fileExistsAtPath(path, &isDir) && isDir) return true;
    std::string parent = ns::stringByDeletingLastPathComponent(path);
    if (!parent.empty() && parent != path && !fileExistsAtPath(parent)) {
      if (!createDirectoryAtPath(parent, true, error)) return false;
    }
  }
  int made;
  {
    platform::OwnChange own(path);
    made = mkdir(path.c_str(), 0777);
  }
  if (made != 0) {
    int err = errno;
    if (intermediates && err == EEXIST) {
      bool isDir = false;
      if (fileExistsAtPath(path, &isDir) && isDir) return true;
    }
    std::string folder = ns::lastPathComponent(ns::stringByDeletingLastPathComponent(path));
    long code = writeCodeFor(err);
    std::string text = code == kFileWriteNoPermission
                           ? "You don\u2019t have permission to save the file " + quoted(path) +
                                 " in the folder \u201c" + folder + "\u201d."
                           : "The file " + quoted(path) +
                                 " couldn\u2019t be saved in the folder \u201c" + folder +
                                 "\u201d.";
    if (code == kFileWriteFileExists)
      text = "The file " + quoted(path) + " couldn\u2019t be saved in the folder \u201c" + folder +
             "\u201d because a file with the same name already exists.";
    setError(error, cocoaError(code, text, path, err));
    return false;
  }
  return true;
}

bool FileManager::removeItemAtPath(const std::string& path, OptError* error) {
  int err = 0;
  {
    platform::OwnChange own(path);
    auto removed = sys::removePath(path, sys::Removal::Tree);
    if (removed) return true;
    err = removed.error().errnoValue();
  }
  setError(error, removalError(path, err));
  return false;
}

namespace {

// The Cocoa error for a source that cannot be opened or is no file.
Error sourceError(const std::string& src, const std::string& dst, const sys::SysError& e) {
  int err = e.errnoValue();
  if (err == ENOENT)
    return cocoaError(
        kFileReadNoSuchFile,
        "The file " + quoted(src) + " couldn\u2019t be opened because there is no such file.", src,
        err);
  if (err == EACCES || err == EPERM)
    return cocoaError(kFileReadNoPermission,
                      "The file " + quoted(src) +
                          " couldn\u2019t be opened because you don\u2019t have "
                          "permission to view it.",
                      src, err);
  return cocoaError(kFileWriteUnknown,
                    quoted(src) + " couldn\u2019t be copied to \u201c" +
                        ns::lastPathComponent(ns::stringByDeletingLastPathComponent(dst)) +
                        "\u201d.",
                    src, err ? err : EINVAL);
}

Error copyWriteError(const std::string& src, const std::string& dst, int err) {
  std::string folder = ns::lastPathComponent(ns::stringByDeletingLastPathComponent(dst));
  long code = writeCodeFor(err);
  std::string text = code == kFileWriteNoPermission
                         ? quoted(src) +
                               " couldn\u2019t be copied because you don\u2019t have "
                               "permission to access \u201c" +
                               folder + "\u201d."
                         : quoted(src) + " couldn\u2019t be copied to \u201c" + folder + "\u201d.";
  return cocoaError(code, text, dst, err);
}

// Copies the regular file at `src` to a temporary beside `dst` and renames
// it into place, with the source's permission bits: no reader ever sees a
// partial file, and a failure leaves whatever was at `dst` as it was.
bool copyReplacing(const std::string& src, const std::string& dst, OptError* error) {
  auto in = sys::openRegularFile(src);
  if (!in) {
    setError(error, sourceError(src, dst, in.error()));
    return false;
  }
  struct stat st {};
  sys::AtomicWriteOptions options;
  options.keepMetadata = false;
  options.temporaryTag = "wfcopy-";
  if (fstat(in->get(), &st) == 0) options.exactMode = st.st_mode & 07777;
  platform::OwnChange own(dst);  // the temporary and the final name
  auto copied = sys::copyFileAtomically(in->get(), dst, options);
  if (copied) return true;
  setError(error, copyWriteError(src, dst, copied.error().errnoValue()));
  return false;
}

}  // namespace

bool FileManager::copyItemAtPath(const std::string& src, const std::string& dst, OptError* error) {
  struct stat dst_st;
  if (lstat(dst.c_str(), &dst_st) == 0) {
    // Checked before the source, as Foundation reports it.
    auto in = sys::openRegularFile(src);
    if (!in) {
      setError(error, sourceError(src, dst, in.error()));
      return false;
    }
    setError(error,
             cocoaError(kFileWriteFileExists,
                        quoted(src) + " couldn\u2019t be copied to \u201c" +
                            ns::lastPathComponent(ns::stringByDeletingLastPathComponent(dst)) +
                            "\u201d because an item with the same name already exists.",
                        dst, EEXIST));
    return false;
  }
  return copyReplacing(src, dst, error);
}

bool FileManager::checkReplaceableItemAtPath(const std::string& path, OptError* error) const {
  struct stat st;
  int err = 0;
  bool missing = lstat(path.c_str(), &st) != 0;
  if (!missing && S_ISDIR(st.st_mode)) err = EISDIR;
  // A copy in a folder we may not change could not be removed either; say
  // so as a removal would (read-only, immutable, no write permission).
  else if (missing || faccessat(AT_FDCWD, ns::stringByDeletingLastPathComponent(path).c_str(), W_OK,
                                AT_EACCESS) != 0)
    err = errno;
  if (!err) return true;
  setError(error, removalError(path, err));
  return false;
}

bool FileManager::replaceItemAtPath(const std::string& dst, const std::string& src,
                                    OptError* error) {
  return copyReplacing(src, dst, error);
}

bool FileManager::replaceItemAtPathWithContents(const std::string& dst, const std::string& src,
                                                std::string_view bytes, mode_t mode,
                                                OptError* error) {
  sys::AtomicWriteOptions options;
  options.keepMetadata = false;
  options.temporaryTag = "wfcopy-";
  options.exactMode = mode & 07777;
  platform::OwnChange own(dst);  // the temporary and the final name
  auto written = sys::writeFileAtomically(dst, bytes, options);
  if (written) return true;
  setError(error, copyWriteError(src, dst, written.error().errnoValue()));
  return false;
}

bool FileManager::contentsEqualAtPath(const std::string& a, const std::string& b) const {
  // Without blocking: a FIFO at either name is no file, so unequal.
  auto fa = sys::openRegularFile(a);
  if (!fa) return false;
  auto fb = sys::openRegularFile(b);
  if (!fb) return false;
  struct stat sa, sb;
  bool equal = fstat(fa->get(), &sa) == 0 && fstat(fb->get(), &sb) == 0 && sa.st_size == sb.st_size;
  if (equal && !(sa.st_dev == sb.st_dev && sa.st_ino == sb.st_ino)) {
    std::vector<char> ba(1 << 16), bb(1 << 16);
    while (equal) {
      ssize_t na = read(fa->get(), ba.data(), ba.size());
      if (na < 0 && errno == EINTR) continue;
      if (na <= 0) {
        equal = na == 0;
        // Both must end together: the other file may have grown meanwhile.
        if (equal) equal = read(fb->get(), bb.data(), 1) == 0;
        break;
      }
      size_t got = 0;
      while (got < static_cast<size_t>(na)) {
        ssize_t nb = read(fb->get(), bb.data() + got, static_cast<size_t>(na) - got);
        if (nb < 0 && errno == EINTR) continue;
        if (nb <= 0) break;
        got += static_cast<size_t>(nb);
      }
      equal = got == static_cast<size_t>(na) && memcmp(ba.data(), bb.data(), got) == 0;
    }
  }
  return equal;
}

}  // namespace wf
