// Extended attributes of a file, by their full Linux name ("user." + …).
// None of the calls follows a symbolic link: an attribute of a link is the
// link's own. The OpenMeta store reads and writes its values through this,
// so a test can watch (or change) what reaches the file.
#pragma once

#include <cerrno>
#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

#include "platform/base/Result.h"

namespace wf::platform {

class ExtendedAttributes {
 public:
  virtual ~ExtendedAttributes() = default;

  // The largest value Linux keeps in one attribute.
  static constexpr std::size_t kLargestValue = 64 * 1024;

  // The value of `name`, at most `limit` bytes long (ERANGE when longer,
  // ENODATA when the file has no such attribute).
  virtual sys::Result<std::string> get(const std::string& path, const std::string& name,
                                       std::size_t limit) = 0;
  // Creates or replaces `name`.
  virtual sys::Result<void> set(const std::string& path, const std::string& name,
                                std::string_view bytes) = 0;
  // Creates `name` where the file has none (EEXIST when it has): a setter
  // that must be able to put an attribute back learns that it was missing
  // from the write itself, without reading it first. This default asks
  // first; the file system's own creates in one call.
  virtual sys::Result<void> create(const std::string& path, const std::string& name,
                                   std::string_view bytes) {
    auto existing = get(path, name, kLargestValue);
    if (existing || existing.error().isErrno(ERANGE)) return sys::errnoError(EEXIST);
    if (!existing.error().isErrno(ENODATA)) return existing.error();
    return set(path, name, bytes);
  }
  // Removes `name` (ENODATA when it is missing).
  virtual sys::Result<void> remove(const std::string& path, const std::string& name) = 0;
  // The names of every attribute of the file.
  virtual sys::Result<std::vector<std::string>> list(const std::string& path) = 0;
};

// The file system's own attributes (platform/linux/SystemExtendedAttributes.cpp).
ExtendedAttributes& systemExtendedAttributes();

}  // namespace wf::platform
