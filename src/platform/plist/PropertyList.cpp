#include "platform/plist/PropertyList.h"

#include <fcntl.h>
#include <glib.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "platform/FileEvents.h"
#include "platform/plist/Codec.h"

namespace wf::plist {

namespace {

// Files larger than this are not property lists the helper deals with;
// refusing them keeps a stray huge file from exhausting memory.
constexpr off_t kMaxFileSize = off_t{1} << 30;

std::string errnoText(const std::string& what, const std::string& path, int err) {
  return what + " " + path + ": " + std::strerror(err);
}

void setError(std::string* error, std::string message) {
  if (error) *error = std::move(message);
}

bool writeAll(int fd, std::string_view bytes, int& err) {
  const char* p = bytes.data();
  std::size_t left = bytes.size();
  while (left > 0) {
    ssize_t n = ::write(fd, p, left);
    if (n < 0) {
      if (errno == EINTR) continue;
      err = errno;
      return false;
    }
    p += n;
    left -= static_cast<std::size_t>(n);
  }
  return true;
}

std::string directoryOf(const std::string& path) {
  auto slash = path.rfind('/');
  if (slash == std::string::npos) return ".";
  if (slash == 0) return "/";
  return path.substr(0, slash);
}

}  // namespace

Value parse(std::string_view bytes, std::string* error, Format* format) {
  if (bytes.size() >= 8 && bytes.substr(0, 6) == "bplist") {
    if (format) *format = Format::Binary;
    return detail::parseBinary(bytes, error);
  }
  if (format) *format = Format::XML;
  return detail::parseXML(bytes, error);
}

bool toXML(const Value& v, std::string& out, std::string* error) {
  return detail::writeXML(v, out, error);
}

bool toBinary(const Value& v, std::string& out, std::string* error) {
  return detail::writeBinary(v, out, error);
}

bool serialize(const Value& v, Format f, std::string& out, std::string* error) {
  return f == Format::Binary ? toBinary(v, out, error) : toXML(v, out, error);
}

Value readFile(const std::string& path, std::string* error) {
  int fd = ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
  if (fd < 0) {
    setError(error, errnoText("cannot open", path, errno));
    return Value();
  }
  struct stat st {};
  if (::fstat(fd, &st) != 0 || !S_ISREG(st.st_mode)) {
    int err = S_ISDIR(st.st_mode) ? EISDIR : errno;
    ::close(fd);
    setError(error, errnoText("cannot read", path, err ? err : EINVAL));
    return Value();
  }
  if (st.st_size > kMaxFileSize) {
    ::close(fd);
    setError(error, path + ": file too large for a property list");
    return Value();
  }
  std::string bytes;
  bytes.resize(static_cast<std::size_t>(st.st_size));
  std::size_t have = 0;
  while (true) {
    if (have == bytes.size()) bytes.resize(bytes.size() + 4096);  // the file may have grown
    ssize_t n = ::read(fd, bytes.data() + have, bytes.size() - have);
    if (n < 0) {
      if (errno == EINTR) continue;
      int err = errno;
      ::close(fd);
      setError(error, errnoText("cannot read", path, err));
      return Value();
    }
    if (n == 0) break;
    have += static_cast<std::size_t>(n);
    if (have > static_cast<std::size_t>(kMaxFileSize)) {
      ::close(fd);
      setError(error, path + ": file too large for a property list");
      return Value();
    }
  }
  ::close(fd);
  bytes.resize(have);
  std::string message;
  Value v = parse(bytes, &message);
  if (v.isNil()) setError(error, path + ": " + message);
  return v;
}

Value dictionaryWithContentsOfFile(const std::string& path) {
  Value v = readFile(path);
  return v.isDictionary() ? v : Value();
}

Value arrayWithContentsOfFile(const std::string& path) {
  Value v = readFile(path);
  return v.isArray() ? v : Value();
}

bool writeFileAtomically(const std::string& path, std::string_view bytes, std::string* error) {
  // Streams that leave out this process's own changes must not see this one.
  platform::OwnChange own(path);
  std::string dir = directoryOf(path);
  auto slash = path.rfind('/');
  std::string base = slash == std::string::npos ? path : path.substr(slash + 1);
  if (base.empty()) {
    setError(error, "cannot write " + path + ": not a file name");
    return false;
  }
  // A hidden name beside the target, so the rename stays within one file
  // system; O_EXCL makes sure we never write into someone else's file.
  std::string temp;
  int fd = -1;
  for (int attempt = 0; attempt < 100 && fd < 0; ++attempt) {
    char suffix[16];
    std::snprintf(suffix, sizeof suffix, "%08x", g_random_int());
    temp = dir + "/." + base + ".tmp-" + suffix;
    fd = ::open(temp.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0666);
    if (fd < 0 && errno != EEXIST) break;
  }
  if (fd < 0) {
    setError(error, errnoText("cannot create a temporary file for", path, errno));
    return false;
  }
  int err = 0;
  bool ok = writeAll(fd, bytes, err);
  if (ok && ::fsync(fd) != 0) ok = false, err = errno;
  if (::close(fd) != 0 && ok) ok = false, err = errno;
  if (ok && ::rename(temp.c_str(), path.c_str()) != 0) ok = false, err = errno;
  if (!ok) {
    ::unlink(temp.c_str());
    setError(error, errnoText("cannot write", path, err));
    return false;
  }
  // Make the rename itself durable; failure here loses nothing written.
  int dfd = ::open(dir.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
  if (dfd >= 0) {
    ::fsync(dfd);
    ::close(dfd);
  }
  return true;
}

bool writeToFile(const Value& v, const std::string& path, bool atomically, std::string* error) {
  std::string bytes;
  if (!toXML(v, bytes, error)) return false;
  if (atomically) return writeFileAtomically(path, bytes, error);
  platform::OwnChange own(path);
  int fd = ::open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0666);
  if (fd < 0) {
    setError(error, errnoText("cannot write", path, errno));
    return false;
  }
  int err = 0;
  bool ok = writeAll(fd, bytes, err);
  if (::close(fd) != 0 && ok) ok = false, err = errno;
  if (!ok) setError(error, errnoText("cannot write", path, err));
  return ok;
}

}  // namespace wf::plist
