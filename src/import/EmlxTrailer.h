// The property list that Mail appends to a message file (.emlx): the file
// begins with a line holding the message's byte count, then the message,
// then the property list. Only the first line and the property list are
// read; the message itself is skipped by seeking.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "platform/plist/Value.h"

namespace wf {

// How many bytes of the file's head hold the count line and its line feed.
inline constexpr std::size_t kEmlxHeadSize = 11;

// The largest trailer read. Mail's trailers are a few hundred bytes (flags,
// dates, the plug-in's dictionary with its note); anything above this is
// treated as no trailer, so that a hostile count or a huge file cannot make
// the helper allocate without bound.
inline constexpr std::int64_t kEmlxMaxTrailerSize = 4 * 1024 * 1024;

// Where the trailer begins, from the first kEmlxHeadSize bytes of the file:
// the index of the first line feed + the leading decimal count + 1.
// nullopt when the head holds no line feed or the sum overflows.
std::optional<std::int64_t> emlxTrailerOffset(std::string_view head);

// The trailer of the message file at `path`, parsed; nil when there is
// none (unreadable, not a regular file, short, no line feed in the head,
// an offset outside the file, a trailer above the cap, no property list).
// The file is opened read-only and never changed.
Value readEmlxTrailer(const std::string& path);
// The same for an open descriptor, read from the file's start wherever the
// descriptor stands (it is left open). `knownSize`: the file's size as the
// caller has just found it (under its lock), so that it is not asked again.
Value readEmlxTrailerFromDescriptor(int fd, std::optional<std::uint64_t> knownSize = std::nullopt);

}  // namespace wf
