#include "FaultSupport.h"

#include <sys/stat.h>
#include <sys/xattr.h>

#include <filesystem>
#include <stdexcept>

#include "platform/plist/PropertyList.h"
#include "support/Fakes.h"

namespace fs = std::filesystem;

namespace wf::faults {

std::string emlxBytes(const std::string& body, const Dictionary& wrenfold) {
  std::string trailer;
  plist::toXML(Value(Dictionary{{"wrenfold", Value(wrenfold)}, {"flags", Value(8590195841LL)}}),
               trailer);
  return std::to_string(body.size()) + "\n" + body + trailer;
}

void writeMessage(const std::string& path, const std::string& bytes) {
  test::writeFile(path, bytes);
  setSpotlightAttribute(path, "kMDItemWrenfoldTimeStamp", Value(Date{100.0}));
}

void setSpotlightAttribute(const std::string& path, const std::string& key, const Value& value) {
  std::string bytes;
  if (!plist::toXML(value, bytes)) throw std::runtime_error("cannot encode " + key);
  std::string name = "user.com.apple.metadata:" + key;
  if (lsetxattr(path.c_str(), name.c_str(), bytes.data(), bytes.size(), 0) != 0)
    throw std::runtime_error("cannot set " + name + " on " + path);
}

Value spotlightAttribute(const std::string& path, const std::string& key) {
  std::string name = "user.com.apple.metadata:" + key;
  char buffer[8192];
  ssize_t n = lgetxattr(path.c_str(), name.c_str(), buffer, sizeof buffer);
  if (n < 0) return {};
  return plist::parse(std::string_view(buffer, static_cast<std::size_t>(n)));
}

bool hasSpotlightAttribute(const std::string& path, const std::string& key) {
  std::string name = "user.com.apple.metadata:" + key;
  return lgetxattr(path.c_str(), name.c_str(), nullptr, 0) >= 0;
}

std::map<std::string, std::string> filesBelow(const std::string& root) {
  std::map<std::string, std::string> files;
  std::error_code ec;
  for (auto it = fs::recursive_directory_iterator(
           root, fs::directory_options::skip_permission_denied, ec);
       !ec && it != fs::recursive_directory_iterator(); it.increment(ec)) {
    if (it->is_symlink() || !it->is_regular_file()) continue;
    files[it->path().string()] = test::readFile(it->path().string());
  }
  return files;
}

std::vector<std::string> temporariesBelow(const std::string& root) {
  std::vector<std::string> found;
  std::error_code ec;
  for (auto it = fs::recursive_directory_iterator(
           root, fs::directory_options::skip_permission_denied, ec);
       !ec && it != fs::recursive_directory_iterator(); it.increment(ec)) {
    std::string name = it->path().filename().string();
    if (name.size() > 1 && name[0] == '.' &&
        (name.find(".tmp-") != std::string::npos || name.find(".wfcopy-") != std::string::npos))
      found.push_back(it->path().string());
  }
  return found;
}

void makeFolders(const std::string& path) { fs::create_directories(path); }

}  // namespace wf::faults
