#include "import/EmlxTrailer.h"

#include <cstdint>
#include <limits>

#include "platform/base/Files.h"
#include "platform/foundation/Strings.h"
#include "platform/plist/PropertyList.h"

namespace wf {

std::optional<std::int64_t> emlxTrailerOffset(std::string_view head) {
  // The head is taken as a C string: a NUL byte ends it.
  std::size_t end = head.find('\0');
  if (end != std::string_view::npos) head = head.substr(0, end);
  std::size_t lineFeed = head.find('\n');
  if (lineFeed == std::string_view::npos) return std::nullopt;
  std::int64_t count = ns::integerValue(head);
  auto headLength = static_cast<std::int64_t>(lineFeed) + 1;
  if (count > std::numeric_limits<std::int64_t>::max() - headLength) return std::nullopt;
  return count + headLength;
}

Value readEmlxTrailerFromDescriptor(int fd, std::optional<std::uint64_t> knownSize) {
  auto head = sys::readRange(fd, 0, kEmlxHeadSize);
  if (!head || head->size() < kEmlxHeadSize) return {};
  std::optional<std::int64_t> offset = emlxTrailerOffset(*head);
  if (!offset || *offset < 0) return {};

  sys::Result<std::uint64_t> length =
      knownSize ? sys::Result<std::uint64_t>(*knownSize) : sys::fileSize(fd);
  if (!length) return {};
  auto start = static_cast<std::uint64_t>(*offset);
  if (start > *length || *length - start > static_cast<std::uint64_t>(kEmlxMaxTrailerSize))
    return {};
  auto size = static_cast<std::size_t>(*length - start);
  auto bytes = sys::readRange(fd, start, size);
  if (!bytes || bytes->size() < size) return {};
  std::string error;
  return plist::parse(*bytes, &error);
}

Value readEmlxTrailer(const std::string& path) {
  // Opened without blocking, so that a FIFO under a message's name cannot
  // stall the main loop; anything but a regular file has no trailer.
  auto fd = sys::openRegularFile(path);
  if (!fd) return {};
  return readEmlxTrailerFromDescriptor(fd->get());
}

}  // namespace wf
