#include "platform/foundation/FileManager.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <vector>

#include "platform/FileEvents.h"
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

std::string quoted(const std::string& path) { return "\u201c" + ns::lastPathComponent(path) + "\u201d"; }

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

void setError(OptError* out, Error e) {
  if (out) *out = std::move(e);
}

bool removeTree(const std::string& path, int& err) {
  struct stat st;
  if (lstat(path.c_str(), &st) != 0) {
    err = errno;
    return false;
  }
  if (S_ISDIR(st.st_mode)) {
    DIR* d = opendir(path.c_str());
    if (!d) {
      err = errno;
      return false;
    }
    bool ok = true;
    while (dirent* e = readdir(d)) {
      if (!strcmp(e->d_name, ".") || !strcmp(e->d_name, "..")) continue;
      if (!removeTree(path + "/" + e->d_name, err)) ok = false;
    }
    closedir(d);
    if (!ok) return false;
    if (rmdir(path.c_str()) != 0) {
      err = errno;
      return false;
    }
    return true;
  }
  if (unlink(path.c_str()) != 0) {
    err = errno;
    return false;
  }
  return true;
}

bool writeAll(int fd, const char* p, size_t n) {
  while (n > 0) {
    ssize_t w = write(fd, p, n);
    if (w < 0) {
      if (errno == EINTR) continue;
      return false;
    }
    p += w;
    n -= static_cast<size_t>(w);
  }
  return true;
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
    setError(error, cocoaError(kFileWriteUnknown, "The file couldn\u2019t be saved.", path, ENOENT));
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
                           : "The file " + quoted(path) + " couldn\u2019t be saved in the folder \u201c" +
                                 folder + "\u201d.";
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
  bool removed;
  {
    platform::OwnChange own(path);
    removed = removeTree(path, err);
  }
  if (removed) return true;
  if (err == ENOENT) {
    setError(error, cocoaError(kFileNoSuchFile, quoted(path) + " couldn\u2019t be removed.", path, err));
  } else if (err == EACCES || err == EPERM) {
    setError(error, cocoaError(kFileWriteNoPermission,
                               quoted(path) + " couldn\u2019t be removed because you don\u2019t have "
                                              "permission to access it.",
                               path, err));
  } else {
    setError(error, cocoaError(writeCodeFor(err), quoted(path) + " couldn\u2019t be removed.", path, err));
  }
  return false;
}

bool FileManager::copyItemAtPath(const std::string& src, const std::string& dst, OptError* error) {
  int in = open(src.c_str(), O_RDONLY | O_CLOEXEC);
  if (in < 0) {
    int err = errno;
    if (err == ENOENT)
      setError(error, cocoaError(kFileReadNoSuchFile,
                                 "The file " + quoted(src) +
                                     " couldn\u2019t be opened because there is no such file.",
                                 src, err));
    else
      setError(error, cocoaError(kFileReadNoPermission,
                                 "The file " + quoted(src) +
                                     " couldn\u2019t be opened because you don\u2019t have "
                                     "permission to view it.",
                                 src, err));
    return false;
  }
  struct stat st;
  if (fstat(in, &st) != 0 || !S_ISREG(st.st_mode)) {
    int err = S_ISDIR(st.st_mode) ? EISDIR : errno;
    close(in);
    setError(error, cocoaError(kFileWriteUnknown,
                               quoted(src) + " couldn\u2019t be copied to \u201c" +
                                   ns::lastPathComponent(ns::stringByDeletingLastPathComponent(dst)) + "\u201d.",
                               src, err));
    return false;
  }
  struct stat dst_st;
  if (lstat(dst.c_str(), &dst_st) == 0) {
    close(in);
    setError(error, cocoaError(kFileWriteFileExists,
                               quoted(src) + " couldn\u2019t be copied to \u201c" +
                                   ns::lastPathComponent(ns::stringByDeletingLastPathComponent(dst)) +
                                   "\u201d because an item with the same name already exists.",
                               dst, EEXIST));
    return false;
  }
  // Copy to a hidden temporary beside the destination, then rename it into
  // place: no reader ever sees a partial file, and a failure leaves nothing.
  std::string folder = ns::stringByDeletingLastPathComponent(dst);
  std::string tmpl = (folder.empty() ? std::string(".") : folder) + "/." +
                     ns::lastPathComponent(dst) + ".wfcopy-XXXXXX";
  std::vector<char> name(tmpl.begin(), tmpl.end());
  name.push_back('\0');
  platform::OwnChange own(dst);  // the temporary and the final name
  int out = mkostemp(name.data(), O_CLOEXEC);
  int err = 0;
  if (out < 0) {
    err = errno;
  } else {
    fchmod(out, st.st_mode & 07777);
    std::vector<char> buf(1 << 16);
    while (true) {
      ssize_t n = read(in, buf.data(), buf.size());
      if (n < 0 && errno == EINTR) continue;
      if (n < 0) {
        err = errno;
        break;
      }
      if (n == 0) break;
      if (!writeAll(out, buf.data(), static_cast<size_t>(n))) {
        err = errno;
        break;
      }
    }
    if (!err && fsync(out) != 0) err = errno;
    if (close(out) != 0 && !err) err = errno;
    if (!err && rename(name.data(), dst.c_str()) != 0) err = errno;
    if (err) unlink(name.data());
  }
  close(in);
  if (err) {
    long code = writeCodeFor(err);
    std::string text = code == kFileWriteNoPermission
                           ? quoted(src) + " couldn\u2019t be copied because you don\u2019t have "
                                           "permission to access \u201c" +
                                 ns::lastPathComponent(folder) + "\u201d."
                           : quoted(src) + " couldn\u2019t be copied to \u201c" +
                                 ns::lastPathComponent(folder) + "\u201d.";
    setError(error, cocoaError(code, text, dst, err));
    return false;
  }
  return true;
}

bool FileManager::contentsEqualAtPath(const std::string& a, const std::string& b) const {
  int fa = open(a.c_str(), O_RDONLY | O_CLOEXEC);
  if (fa < 0) return false;
  int fb = open(b.c_str(), O_RDONLY | O_CLOEXEC);
  if (fb < 0) {
    close(fa);
    return false;
  }
  struct stat sa, sb;
  bool equal = fstat(fa, &sa) == 0 && fstat(fb, &sb) == 0 && S_ISREG(sa.st_mode) &&
               S_ISREG(sb.st_mode) && sa.st_size == sb.st_size;
  if (equal && !(sa.st_dev == sb.st_dev && sa.st_ino == sb.st_ino)) {
    std::vector<char> ba(1 << 16), bb(1 << 16);
    while (equal) {
      ssize_t na = read(fa, ba.data(), ba.size());
      if (na < 0 && errno == EINTR) continue;
      if (na <= 0) {
        equal = na == 0;
        // Both must end together: the other file may have grown meanwhile.
        if (equal) equal = read(fb, bb.data(), 1) == 0;
        break;
      }
      size_t got = 0;
      while (got < static_cast<size_t>(na)) {
        ssize_t nb = read(fb, bb.data() + got, static_cast<size_t>(na) - got);
        if (nb < 0 && errno == EINTR) continue;
        if (nb <= 0) break;
        got += static_cast<size_t>(nb);
      }
      equal = got == static_cast<size_t>(na) && memcmp(ba.data(), bb.data(), got) == 0;
    }
  }
  close(fa);
  close(fb);
  return equal;
}

}  // namespace wf
