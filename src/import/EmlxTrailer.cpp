#include "import/EmlxTrailer.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <limits>

#include "platform/foundation/Strings.h"
#include "platform/plist/PropertyList.h"

namespace wf {

namespace {

// read() until `size` bytes arrived, the file ended or an error occurred.
std::size_t readFully(int fd, char* buffer, std::size_t size) {
  std::size_t got = 0;
  while (got < size) {
    ssize_t n = read(fd, buffer + got, size - got);
    if (n < 0 && errno == EINTR) continue;
    if (n <= 0) break;
    got += static_cast<std::size_t>(n);
  }
  return got;
}

}  // namespace

std::optional<std::int64_t> emlxTrailerOffset(std::string_view head) {
  // The head is taken as a C string: a NUL byte ends it.
  std::size_t end = head.find('\0');
  if (end != std::string_view::npos) head = head.substr(0, end);
  std::size_t lineFeed = head.find('\n');
  if (lineFeed == std::string_view::npos) return std::nullopt;
  std::int64_t count = ns::integerValue(head);
  std::int64_t offset = 0;
  if (__builtin_add_overflow(count, static_cast<std::int64_t>(lineFeed) + 1, &offset))
    return std::nullopt;
  return offset;
}

Value readEmlxTrailerFromDescriptor(int fd) {
  char head[kEmlxHeadSize + 1] = {};
  if (readFully(fd, head, kEmlxHeadSize) < kEmlxHeadSize) return {};
  std::optional<std::int64_t> offset = emlxTrailerOffset(std::string_view(head, kEmlxHeadSize));
  if (!offset || *offset < 0) return {};

  off_t length = lseek(fd, 0, SEEK_END);
  if (length < 0) return {};
  if (lseek(fd, static_cast<off_t>(*offset), SEEK_SET) != static_cast<off_t>(*offset)) return {};
  std::int64_t size = static_cast<std::int64_t>(length) - *offset;
  if (size < 0 || size > kEmlxMaxTrailerSize) return {};

  std::string bytes(static_cast<std::size_t>(size), '\0');
  if (readFully(fd, bytes.data(), bytes.size()) < bytes.size()) return {};
  std::string error;
  return plist::parse(bytes, &error);
}

Value readEmlxTrailer(const std::string& path) {
  // Non-blocking so that a FIFO under a message's name cannot stall the
  // main loop; anything but a regular file has no trailer.
  int fd = open(path.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC | O_NOCTTY);
  if (fd < 0) return {};
  Value trailer;
  struct stat st;
  if (fstat(fd, &st) == 0 && S_ISREG(st.st_mode)) trailer = readEmlxTrailerFromDescriptor(fd);
  close(fd);
  return trailer;
}

}  // namespace wf
