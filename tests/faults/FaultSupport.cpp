#include "FaultSupport.h"

#include <sys/stat.h>

#include <cstdlib>
#include <filesystem>
#include <stdexcept>

#include "platform/plist/PropertyList.h"
#include "support/Fakes.h"

namespace fs = std::filesystem;

namespace wf::faults {

void writeMessage(const std::string& path, const std::string& bytes) {
  test::writeFile(path, bytes);
  setSpotlightAttribute(path, "kMDItemWrenfoldTimeStamp", Value(Date{100.0}));
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
