#include "platform/base/Files.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/xattr.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <functional>
#include <limits>
#include <random>
#include <vector>

namespace wf::sys {

namespace {

SysError notRegular() { return SysError{SysError::kErrnoDomain, EINVAL, "Not a regular file"}; }

SysError lastError() { return SysError::fromErrno(errno); }

// The folder part and the name part of a path ("." for a bare name).
std::pair<std::string, std::string> splitPath(const std::string& path) {
  auto slash = path.rfind('/');
  if (slash == std::string::npos) return {".", path};
  return {slash == 0 ? "/" : path.substr(0, slash), path.substr(slash + 1)};
}

Result<UniqueFd> openFolder(const std::string& folder) {
  UniqueFd fd(::open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  if (!fd) return lastError();
  return fd;
}

Result<void> removeContents(int dirFd, dev_t device);
Result<void> removeEntry(int dirFd, const std::string& name, Removal how, const dev_t* device);

// A directory stream over a folder already open, leaving that descriptor open.
Result<UniqueDir> listingOf(int dirFd) {
  UniqueFd copy(::dup(dirFd));
  if (!copy) return lastError();
  UniqueDir dir(::fdopendir(copy.get()));
  if (!dir) return lastError();
  copy.release();  // the stream owns it now
  return dir;
}

Result<void> removeFolderAt(int dirFd, const std::string& name, dev_t device) {
  // O_NOFOLLOW: a folder swapped for a link since it was looked at is not
  // entered, so the removal never reaches outside the folder it was given.
  UniqueFd sub(
      ::openat(dirFd, name.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC | O_NONBLOCK));
  if (!sub) return lastError();
  struct stat st {};
  if (::fstat(sub.get(), &st) != 0) return lastError();
  if (st.st_dev != device) return SysError::fromErrno(EXDEV);
  WF_TRY(removeContents(sub.get(), device));
  if (::unlinkat(dirFd, name.c_str(), AT_REMOVEDIR) != 0) return lastError();
  return success();
}

Result<void> removeContents(int dirFd, dev_t device) {
  UniqueDir dir = WF_TRY(listingOf(dirFd));
  std::vector<std::string> names;
  while (dirent* e = ::readdir(dir.get())) {
    if (!std::strcmp(e->d_name, ".") || !std::strcmp(e->d_name, "..")) continue;
    names.emplace_back(e->d_name);
  }
  Result<void> result = success();
  for (const std::string& n : names) {
    // Every level is held to the device of the folder the removal began
    // in: a file system mounted below it is left as it is.
    auto r = removeEntry(dirFd, n, Removal::Tree, &device);
    if (!r && !r.error().isErrno(ENOENT) && result) result = r;
  }
  return result;
}

Result<void> fillFrom(int sourceFd, int out) {
  std::vector<char> buf(1 << 16);
  while (true) {
    ssize_t n = ::read(sourceFd, buf.data(), buf.size());
    if (n < 0) {
      if (errno == EINTR) continue;
      return lastError();
    }
    if (n == 0) return success();
    WF_TRY(writeAll(out, std::string_view(buf.data(), static_cast<std::size_t>(n))));
  }
}

// The final target of a chain of links at `path` (the path itself when it is
// no link, or a dangling link's target, which the write then creates).
Result<std::string> resolveFinalLink(std::string path) {
  for (int hops = 0; hops < 40; ++hops) {
    std::vector<char> buf(4096);
    ssize_t n = ::readlink(path.c_str(), buf.data(), buf.size());
    if (n < 0) {
      if (errno == EINVAL || errno == ENOENT) return path;  // not a link / nothing there
      return lastError();
    }
    std::string target(buf.data(), static_cast<std::size_t>(n));
    if (target.empty()) return SysError::fromErrno(ENOENT);
    if (target[0] != '/') target = splitPath(path).first + "/" + target;
    path = std::move(target);
  }
  return SysError::fromErrno(ELOOP);
}

void copyExtendedAttributes(int from, int to) {
  std::vector<char> names(4096);
  ssize_t n = ::flistxattr(from, names.data(), names.size());
  if (n < 0 && errno == ERANGE) {
    n = ::flistxattr(from, nullptr, 0);
    if (n > 0) {
      names.resize(static_cast<std::size_t>(n));
      n = ::flistxattr(from, names.data(), names.size());
    }
  }
  if (n <= 0) return;
  std::vector<char> value;
  for (const char* p = names.data(); p < names.data() + n; p += std::strlen(p) + 1) {
    ssize_t size = ::fgetxattr(from, p, nullptr, 0);
    if (size < 0) continue;
    value.resize(static_cast<std::size_t>(size));
    size = ::fgetxattr(from, p, value.data(), value.size());
    // Attributes the caller may not set (other namespaces) stay behind.
    if (size >= 0) (void)::fsetxattr(to, p, value.data(), static_cast<std::size_t>(size), 0);
  }
}

Result<void> replaceAtomically(const std::string& path, const AtomicWriteOptions& options,
                               const std::function<Result<void>(int)>& fill) {
  std::string target = path;
  if (options.finalLink == Links::Follow) target = WF_TRY(resolveFinalLink(path));
  auto [folder, name] = splitPath(target);
  if (name.empty() || name == "." || name == "..") return SysError::fromErrno(EISDIR);
  UniqueFd dir = WF_TRY(openFolder(folder));

  struct stat old {};
  bool replacing = ::fstatat(dir.get(), name.c_str(), &old, AT_SYMLINK_NOFOLLOW) == 0;
  if (replacing && S_ISDIR(old.st_mode)) return SysError::fromErrno(EISDIR);

  std::string temporary = "." + name + "." + options.temporaryTag + "XXXXXX";
  static thread_local std::minstd_rand random(std::random_device{}());
  UniqueFd out;
  for (int attempt = 0; attempt < 100 && !out; ++attempt) {
    std::string candidate = temporary;
    static const char kChars[] = "abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789";
    for (std::size_t i = candidate.size() - 6; i < candidate.size(); ++i)
      candidate[i] =
          kChars[std::uniform_int_distribution<std::size_t>(0, sizeof kChars - 2)(random)];
    mode_t mode = replacing && S_ISREG(old.st_mode) && options.keepMetadata ? (old.st_mode & 07777)
                                                                            : options.createMode;
    out.reset(::openat(dir.get(), candidate.c_str(),
                       O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, mode));
    if (out)
      temporary = candidate;
    else if (errno != EEXIST)
      return lastError();
  }
  if (!out) return SysError::fromErrno(EEXIST);

  auto fail = [&](SysError e) -> Result<void> {
    out.reset();
    ::unlinkat(dir.get(), temporary.c_str(), 0);
    return e;
  };
  if (replacing && S_ISREG(old.st_mode) && options.keepMetadata) {
    // The exact mode, not the one umask left; the owner where we may keep it.
    (void)::fchmod(out.get(), old.st_mode & 07777);
    if ((old.st_uid != ::geteuid() || old.st_gid != ::getegid()) &&
        ::fchown(out.get(), old.st_uid, old.st_gid) != 0) {
      // Only root may give a file away (EPERM): the new copy is then the
      // caller's, as any editor leaves it. Its checked result also keeps
      // glibc's fortified fchown (warn_unused_result) quiet.
    }
    UniqueFd oldFd(::openat(dir.get(), name.c_str(),
                            O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC | O_NOCTTY));
    if (oldFd) copyExtendedAttributes(oldFd.get(), out.get());
  }
  if (options.exactMode) (void)::fchmod(out.get(), *options.exactMode);
  if (auto r = fill(out.get()); !r) return fail(r.error());
  if (::fsync(out.get()) != 0) return fail(lastError());
  if (out.closeChecked() != 0) return fail(lastError());
  if (options.expected) {
    struct stat now {};
    if (::fstatat(dir.get(), name.c_str(), &now, AT_SYMLINK_NOFOLLOW) != 0 ||
        now.st_dev != options.expected->device || now.st_ino != options.expected->inode)
      return fail(SysError{SysError::kErrnoDomain, ESTALE,
                           "Replaced by another program while being changed; left as it is now"});
  }
  if (::renameat(dir.get(), temporary.c_str(), dir.get(), name.c_str()) != 0)
    return fail(lastError());
  // Make the rename itself durable; a failure here loses nothing written.
  (void)::fsync(dir.get());
  return success();
}

}  // namespace

Result<UniqueFd> openRegularFile(const std::string& path, Links links) {
  int flags = O_RDONLY | O_NONBLOCK | O_CLOEXEC | O_NOCTTY;
  if (links == Links::NoFollow) flags |= O_NOFOLLOW;
  UniqueFd fd(::open(path.c_str(), flags));
  if (!fd) return lastError();
  struct stat st {};
  if (::fstat(fd.get(), &st) != 0) return lastError();
  if (S_ISDIR(st.st_mode)) return SysError::fromErrno(EISDIR);
  if (!S_ISREG(st.st_mode)) return notRegular();
  // Reads from here on may block as any file read does; only the open had to
  // be kept from waiting on a writer.
  int fl = ::fcntl(fd.get(), F_GETFL);
  if (fl >= 0) (void)::fcntl(fd.get(), F_SETFL, fl & ~O_NONBLOCK);
  return fd;
}

Result<std::string> readAll(int fd, std::size_t maxBytes) {
  std::string bytes;
  struct stat st {};
  if (::fstat(fd, &st) == 0 && st.st_size > 0) {
    if (static_cast<std::size_t>(st.st_size) > maxBytes) return SysError::fromErrno(EFBIG);
    bytes.resize(static_cast<std::size_t>(st.st_size));
  }
  std::size_t have = 0;
  while (true) {
    if (have == bytes.size()) {
      // The file grew (or reports no size): read on, up to one byte past the cap.
      if (have > maxBytes) return SysError::fromErrno(EFBIG);
      bytes.resize(std::min(maxBytes + 1, have + 65536));
    }
    ssize_t n = ::read(fd, bytes.data() + have, bytes.size() - have);
    if (n < 0) {
      if (errno == EINTR) continue;
      return lastError();
    }
    if (n == 0) break;
    have += static_cast<std::size_t>(n);
  }
  if (have > maxBytes) return SysError::fromErrno(EFBIG);
  bytes.resize(have);
  return bytes;
}

Result<std::string> readRange(int fd, std::uint64_t offset, std::size_t maxBytes) {
  if (offset > static_cast<std::uint64_t>(std::numeric_limits<off_t>::max()))
    return SysError::fromErrno(EINVAL);
  std::string bytes(maxBytes, '\0');
  std::size_t have = 0;
  while (have < maxBytes) {
    ssize_t n =
        ::pread(fd, bytes.data() + have, maxBytes - have, static_cast<off_t>(offset + have));
    if (n < 0) {
      if (errno == EINTR) continue;
      return lastError();
    }
    if (n == 0) break;
    have += static_cast<std::size_t>(n);
  }
  bytes.resize(have);
  return bytes;
}

Result<std::uint64_t> fileSize(int fd) {
  struct stat st {};
  if (::fstat(fd, &st) != 0) return lastError();
  return static_cast<std::uint64_t>(st.st_size);
}

Result<std::string> readRegularFile(const std::string& path, std::size_t maxBytes, Links links) {
  UniqueFd fd = WF_TRY(openRegularFile(path, links));
  return readAll(fd.get(), maxBytes);
}

Result<void> writeAll(int fd, std::string_view bytes) {
  const char* p = bytes.data();
  std::size_t left = bytes.size();
  while (left > 0) {
    ssize_t n = ::write(fd, p, left);
    if (n < 0) {
      if (errno == EINTR) continue;
      return lastError();
    }
    p += n;
    left -= static_cast<std::size_t>(n);
  }
  return success();
}

Result<UniqueFd> openForOverwrite(const std::string& path, mode_t createMode) {
  // No O_TRUNC before the type is known: truncating is for regular files.
  UniqueFd fd(::open(path.c_str(),
                     O_WRONLY | O_CREAT | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC | O_NOCTTY,
                     createMode));
  if (!fd) return lastError();
  struct stat st {};
  if (::fstat(fd.get(), &st) != 0) return lastError();
  if (!S_ISREG(st.st_mode)) return notRegular();
  if (::ftruncate(fd.get(), 0) != 0) return lastError();
  int fl = ::fcntl(fd.get(), F_GETFL);
  if (fl >= 0) (void)::fcntl(fd.get(), F_SETFL, fl & ~O_NONBLOCK);
  return fd;
}

namespace {

// `device`: the file system a tree removal began on, or null at its top.
Result<void> removeEntry(int dirFd, const std::string& name, Removal how, const dev_t* device) {
  if (name.empty() || name == "." || name == ".." || name.find('/') != std::string::npos)
    return SysError::fromErrno(EINVAL);
  struct stat st {};
  if (::fstatat(dirFd, name.c_str(), &st, AT_SYMLINK_NOFOLLOW) != 0) return lastError();
  if (!S_ISDIR(st.st_mode)) {
    if (::unlinkat(dirFd, name.c_str(), 0) != 0) return lastError();
    return success();
  }
  if (how != Removal::Tree) return SysError::fromErrno(EISDIR);
  if (device && st.st_dev != *device) return SysError::fromErrno(EXDEV);
  return removeFolderAt(dirFd, name, st.st_dev);
}

}  // namespace

Result<void> removeAt(int dirFd, const std::string& name, Removal how) {
  return removeEntry(dirFd, name, how, nullptr);
}

Result<void> removePath(const std::string& path, Removal how) {
  std::string trimmed = path;
  while (trimmed.size() > 1 && trimmed.back() == '/') trimmed.pop_back();
  auto [folder, name] = splitPath(trimmed);
  UniqueFd dir = WF_TRY(openFolder(folder));
  return removeAt(dir.get(), name, how);
}

Result<void> writeFileAtomically(const std::string& path, std::string_view bytes,
                                 const AtomicWriteOptions& options) {
  return replaceAtomically(path, options, [&](int out) { return writeAll(out, bytes); });
}

Result<void> copyFileAtomically(int sourceFd, const std::string& path,
                                const AtomicWriteOptions& options) {
  return replaceAtomically(path, options, [&](int out) { return fillFrom(sourceFd, out); });
}

bool isOwnTemporaryName(std::string_view name, std::string_view fileName) {
  for (std::string_view tag : {".tmp-", ".wfcopy-"}) {
    std::size_t prefix = 1 + fileName.size() + tag.size();
    if (name.size() == prefix + 6 && name[0] == '.' &&
        name.substr(1, fileName.size()) == fileName &&
        name.substr(1 + fileName.size(), tag.size()) == tag)
      return true;
    // The earlier writer named its temporaries with eight hex digits.
    if (tag == ".tmp-" && name.size() == prefix + 8 && name[0] == '.' &&
        name.substr(1, fileName.size()) == fileName &&
        name.substr(1 + fileName.size(), tag.size()) == tag)
      return true;
  }
  return false;
}

std::size_t removeOwnTemporaries(const std::string& folder,
                                 const std::vector<std::string>& fileNames) {
  auto dir = openFolder(folder);
  if (!dir) return 0;
  auto listing = listingOf(dir->get());
  if (!listing) return 0;
  std::vector<std::string> stale;
  while (dirent* e = ::readdir(listing->get())) {
    for (const std::string& f : fileNames)
      if (isOwnTemporaryName(e->d_name, f)) stale.emplace_back(e->d_name);
  }
  std::size_t removed = 0;
  for (const std::string& name : stale) {
    struct stat st {};
    if (::fstatat(dir->get(), name.c_str(), &st, AT_SYMLINK_NOFOLLOW) != 0 || !S_ISREG(st.st_mode))
      continue;
    if (::unlinkat(dir->get(), name.c_str(), 0) == 0) ++removed;
  }
  return removed;
}

}  // namespace wf::sys
