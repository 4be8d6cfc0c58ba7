#include "platform/linux/ProcessEnvironment.h"

#include <sys/utsname.h>
#include <unistd.h>

#include <climits>
#include <cstdlib>

#include "platform/base/HomeFolder.h"
#include "platform/plist/PropertyList.h"

#ifndef WF_SOURCE_RESOURCES
#define WF_SOURCE_RESOURCES ""
#endif
#ifndef WF_INSTALL_DATADIR
#define WF_INSTALL_DATADIR "share"
#endif

namespace wf::platform {
namespace {

std::string realPath(const std::string& path) {
  char buf[PATH_MAX];
  if (realpath(path.c_str(), buf)) return buf;
  return path;
}

std::string parentOf(const std::string& path) {
  std::size_t slash = path.rfind('/');
  if (slash == std::string::npos) return ".";
  if (slash == 0) return "/";
  return path.substr(0, slash);
}

}  // namespace

ProcessEnvironment::ProcessEnvironment() : bundlePath_(realPath("/proc/self/exe")) {
  std::string installed =
      parentOf(parentOf(bundlePath_)) + "/" + WF_INSTALL_DATADIR + "/wrenfold-helper";
  if (access((installed + "/Info.plist").c_str(), R_OK) == 0)
    resources_ = installed;
  else
    resources_ = WF_SOURCE_RESOURCES;
  Value info = plist::dictionaryWithContentsOfFile(resources_ + "/Info.plist");
  if (info.isDictionary()) info_ = info.asDictionary();
}

std::string ProcessEnvironment::bundleIdentifier() const {
  Value id = infoValue("CFBundleIdentifier");
  return id.isString() ? id.asString() : "org.ardel.WrenfoldHelper";
}

Value ProcessEnvironment::infoValue(const std::string& key) const {
  auto it = info_.find(key);
  return it == info_.end() ? Value() : it->second;
}

std::optional<std::string> ProcessEnvironment::pathForResource(const std::string& name,
                                                               const std::string& type) const {
  std::string path = resources_ + "/" + name + (type.empty() ? "" : "." + type);
  if (access(path.c_str(), F_OK) != 0) return std::nullopt;
  return path;
}

std::string ProcessEnvironment::homeDirectory() { return sys::homeFolder(); }

std::string ProcessEnvironment::ownDefaultsFile() {
  std::string home = homeDirectory();
  if (home.empty()) return {};
  return home + "/Library/Preferences/org.ardel.WrenfoldHelper.plist";
}

std::vector<std::string> ProcessEnvironment::userLibraryDirectories() const {
  std::string home = homeDirectory();
  if (home.empty()) return {};
  return {home + "/Library"};
}

std::vector<std::string> ProcessEnvironment::userApplicationScriptsDirectories() const {
  std::string home = homeDirectory();
  if (home.empty()) return {};
  return {home + "/Library/Application Scripts/" + bundleIdentifier()};
}

std::vector<long> ProcessEnvironment::operatingSystemVersion() const {
  std::vector<long> version{0, 0, 0};
  utsname name;
  if (uname(&name) != 0) return version;
  const char* p = name.release;
  for (std::size_t i = 0; i < 3; ++i) {
    char* end;
    long n = std::strtol(p, &end, 10);
    if (end == p) break;
    version[i] = n;
    if (*end != '.') break;
    p = end + 1;
  }
  return version;
}

std::string ProcessEnvironment::systemVersionPlistPath() const {
  return "/System/Library/CoreServices/SystemVersion.plist";
}

std::string ProcessEnvironment::xdgConfigHome() const {
  if (const char* config = std::getenv("XDG_CONFIG_HOME"); config && config[0] == '/')
    return config;
  return homeDirectory() + "/.config";
}

}  // namespace wf::platform
