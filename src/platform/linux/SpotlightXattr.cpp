#include "platform/linux/SpotlightXattr.h"

#include <sys/stat.h>
#include <sys/xattr.h>

#include <cerrno>
#include <string>
#include <vector>

#include "platform/Spotlight.h"
#include "platform/plist/PropertyList.h"

namespace wf::platform {

namespace {

// The whole name list of a file (not following a symbolic link, as the
// metadata store writes the link's own attributes); empty on any failure.
std::string listAttributeNames(const std::string& path) {
  // A message's list is short: one call into a buffer on the stack, and
  // the size asked first only for a longer one.
  char small[1024];
  ssize_t first = llistxattr(path.c_str(), small, sizeof small);
  if (first >= 0) return std::string(small, static_cast<std::size_t>(first));
  if (errno != ERANGE) return {};
  for (int attempt = 0; attempt < 4; ++attempt) {
    ssize_t size = llistxattr(path.c_str(), nullptr, 0);
    if (size <= 0) return {};
    std::string names(static_cast<std::size_t>(size), '\0');
    ssize_t got = llistxattr(path.c_str(), names.data(), names.size());
    if (got >= 0) {
      names.resize(static_cast<std::size_t>(got));
      return names;
    }
    if (errno != ERANGE) return {};  // ERANGE: the list grew meanwhile
  }
  return {};
}

// Values are short: a small buffer on the stack first, and only a longer
// value is asked for its size. The kernel zeroes a buffer as large as the
// one offered, so offering the largest size to every read costs more than
// the read itself.
bool readAttribute(const std::string& path, const std::string& name, std::string& out) {
  char small[4096];
  ssize_t got = lgetxattr(path.c_str(), name.c_str(), small, sizeof small);
  if (got >= 0) {
    out.assign(small, static_cast<std::size_t>(got));
    return true;
  }
  for (int attempt = 0; attempt < 4 && errno == ERANGE; ++attempt) {
    const ssize_t size = lgetxattr(path.c_str(), name.c_str(), nullptr, 0);
    if (size < 0 || static_cast<std::size_t>(size) > kSpotlightAttributeMaxSize) return false;
    out.assign(static_cast<std::size_t>(size), '\0');
    got = lgetxattr(path.c_str(), name.c_str(), out.data(), out.size());
    if (got >= 0) {
      out.resize(static_cast<std::size_t>(got));
      return true;
    }
  }
  return false;  // ERANGE still: the value keeps growing between the calls
}

}  // namespace

std::optional<SpotlightItem> SpotlightItem::createWithPath(const std::string& path) {
  struct stat st;
  if (path.empty() || lstat(path.c_str(), &st) != 0) return std::nullopt;
  return SpotlightItem(path);
}

std::vector<std::string> SpotlightItem::copyAttributeNames() const {
  std::vector<std::string> keys;
  std::string names = listAttributeNames(path_);
  std::size_t pos = 0;
  while (pos < names.size()) {
    std::size_t end = names.find('\0', pos);
    if (end == std::string::npos) end = names.size();
    std::string_view name(names.data() + pos, end - pos);
    if (name.size() > kSpotlightAttributePrefix.size() &&
        name.substr(0, kSpotlightAttributePrefix.size()) == kSpotlightAttributePrefix)
      keys.emplace_back(name.substr(kSpotlightAttributePrefix.size()));
    pos = end + 1;
  }
  return keys;
}

Value SpotlightItem::copyAttributes(const std::vector<std::string>& names) const {
  Dictionary::Entries attributes;
  std::string bytes;
  for (const auto& key : names) {
    if (!readAttribute(path_, std::string(kSpotlightAttributePrefix) + key, bytes)) continue;
    std::string error;
    Value v = plist::parse(bytes, &error);
    if (v.isNil()) continue;  // not a property list: Spotlight would not know it
    attributes.emplace_back(key, std::move(v));
  }
  if (attributes.empty()) return {};
  return Value(Dictionary::fromEntries(std::move(attributes)));
}

}  // namespace wf::platform
