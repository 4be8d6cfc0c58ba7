// The file system's extended attributes: lgetxattr(2) and its kin.
#include <sys/xattr.h>

#include <algorithm>
#include <cerrno>

#include "platform/ExtendedAttributes.h"

namespace wf::platform {

namespace {

class SystemExtendedAttributes : public ExtendedAttributes {
 public:
  sys::Result<std::string> get(const std::string& path, const std::string& name,
                               std::size_t limit) override {
    // Most values are short: read into a buffer on the stack, so that a
    // short value costs one allocation of its own size; the exact size is
    // asked only for a longer one (again while the value grows in between).
    char small[1024];
    const std::size_t first = std::min(limit, sizeof small);
    ssize_t got = lgetxattr(path.c_str(), name.c_str(), small, first);
    if (got >= 0) return std::string(small, static_cast<std::size_t>(got));
    std::string value;
    for (int attempt = 0; attempt < 8 && got < 0 && errno == ERANGE && first < limit; ++attempt) {
      const ssize_t size = lgetxattr(path.c_str(), name.c_str(), nullptr, 0);
      if (size < 0) return sys::errnoError(errno);
      if (static_cast<std::size_t>(size) > limit) return sys::errnoError(ERANGE);
      value.resize(static_cast<std::size_t>(size));
      got = lgetxattr(path.c_str(), name.c_str(), value.data(), value.size());
    }
    if (got < 0) return sys::errnoError(errno);
    value.resize(static_cast<std::size_t>(got));
    return value;
  }

  sys::Result<void> set(const std::string& path, const std::string& name,
                        std::string_view bytes) override {
    if (lsetxattr(path.c_str(), name.c_str(), bytes.data(), bytes.size(), 0) != 0)
      return sys::errnoError(errno);
    return sys::success();
  }

  sys::Result<void> create(const std::string& path, const std::string& name,
                           std::string_view bytes) override {
    if (lsetxattr(path.c_str(), name.c_str(), bytes.data(), bytes.size(), XATTR_CREATE) != 0)
      return sys::errnoError(errno);
    return sys::success();
  }

  sys::Result<void> remove(const std::string& path, const std::string& name) override {
    if (lremovexattr(path.c_str(), name.c_str()) != 0) return sys::errnoError(errno);
    return sys::success();
  }

  sys::Result<std::vector<std::string>> list(const std::string& path) override {
    std::string names;
    // The list may grow between asking its size and reading it: ask again.
    for (;;) {
      const ssize_t size = llistxattr(path.c_str(), nullptr, 0);
      if (size < 0) return sys::errnoError(errno);
      names.resize(static_cast<std::size_t>(size));
      const ssize_t got = llistxattr(path.c_str(), names.data(), names.size());
      if (got >= 0) {
        names.resize(static_cast<std::size_t>(got));
        break;
      }
      if (errno != ERANGE) return sys::errnoError(errno);
    }
    std::vector<std::string> out;
    for (std::size_t start = 0; start < names.size();) {
      std::size_t end = names.find('\0', start);
      if (end == std::string::npos) end = names.size();
      out.push_back(names.substr(start, end - start));
      start = end + 1;
    }
    return out;
  }
};

}  // namespace

ExtendedAttributes& systemExtendedAttributes() {
  static SystemExtendedAttributes attributes;
  return attributes;
}

}  // namespace wf::platform
