#include "support/Attributes.h"

#include <sys/xattr.h>

#include <stdexcept>

#include "platform/plist/PropertyList.h"

namespace wf::test {

namespace {
const std::string kPrefix = "user.com.apple.metadata:";
}  // namespace

void setRawSpotlightAttribute(const std::string& path, const std::string& key,
                              const std::string& bytes) {
  std::string name = kPrefix + key;
  if (lsetxattr(path.c_str(), name.c_str(), bytes.data(), bytes.size(), 0) != 0)
    throw std::runtime_error("cannot set " + name + " on " + path);
}

void setSpotlightAttribute(const std::string& path, const std::string& key, const Value& value) {
  std::string bytes;
  if (!plist::toXML(value, bytes)) throw std::runtime_error("cannot encode " + key);
  setRawSpotlightAttribute(path, key, bytes);
}

Value spotlightAttribute(const std::string& path, const std::string& key) {
  std::string name = kPrefix + key;
  std::string buffer(65536, '\0');
  ssize_t n = lgetxattr(path.c_str(), name.c_str(), buffer.data(), buffer.size());
  if (n < 0) return {};
  buffer.resize(static_cast<std::size_t>(n));
  return plist::parse(buffer);
}

bool hasSpotlightAttribute(const std::string& path, const std::string& key) {
  std::string name = kPrefix + key;
  return lgetxattr(path.c_str(), name.c_str(), nullptr, 0) >= 0;
}

std::vector<std::string> spotlightKeys(const std::string& path) {
  std::string names(65536, '\0');
  ssize_t n = llistxattr(path.c_str(), names.data(), names.size());
  std::vector<std::string> keys;
  if (n <= 0) return keys;
  names.resize(static_cast<std::size_t>(n));
  std::size_t pos = 0;
  while (pos < names.size()) {
    std::string name = names.c_str() + pos;
    pos += name.size() + 1;
    if (name.rfind(kPrefix, 0) == 0) keys.push_back(name.substr(kPrefix.size()));
  }
  return keys;
}

}  // namespace wf::test
