#include "Domains.h"

#include <dirent.h>

#include <algorithm>
#include <cstdlib>

#include "ToolFiles.h"
#include "platform/base/HomeFolder.h"
#include "platform/base/Owners.h"
#include "platform/foundation/FileManager.h"
#include "platform/foundation/Strings.h"
#include "platform/plist/PropertyList.h"

namespace wf::defaults {

namespace {

const char kGlobalFile[] = ".GlobalPreferences";

// "/" where no home folder is known, so that paths below stay absolute.
std::string homeFolder() {
  std::string home = sys::homeFolder();
  return home.empty() ? "/" : home;
}

}  // namespace

std::string preferencesFolder() { return homeFolder() + "/Library/Preferences"; }

bool isGlobalDomain(const std::string& domain) {
  return domain == "NSGlobalDomain" || domain == "-g" || domain == "-globalDomain";
}

std::string domainPath(const std::string& domain) {
  if (domain.find('/') != std::string::npos)
    return ns::hasSuffix(domain, ".plist") ? domain : domain + ".plist";
  if (isGlobalDomain(domain)) return preferencesFolder() + "/" + kGlobalFile + ".plist";
  return preferencesFolder() + "/" + domain + ".plist";
}

bool loadDomain(const std::string& path, Value& out, std::string& error,
                std::optional<sys::FileIdentity>* identity) {
  if (!tools::pathExists(path)) {
    out = Value();
    return true;
  }
  std::string reason;
  Value v;
  if (!tools::readDocument(path, v, reason, nullptr, identity)) {
    error = path + ": " + reason;
    return false;
  }
  if (!v.isDictionary()) {
    error = path + ": the property list's root is not a dictionary";
    return false;
  }
  out = v;
  return true;
}

bool saveDomain(const std::string& path, const Dictionary& d, std::string& error,
                const std::optional<sys::FileIdentity>& readFrom) {
  std::string folder = ns::stringByDeletingLastPathComponent(path);
  if (!folder.empty()) FileManager::defaultManager().createDirectoryAtPath(folder, true);
  std::string bytes, reason;
  if (!plist::toXML(Value(d), bytes, &reason) ||
      !tools::writeOutput(path, bytes, reason, readFrom)) {
    error = path + ": " + reason;
    return false;
  }
  return true;
}

std::vector<std::string> domainNames() {
  std::vector<std::string> names;
  sys::UniqueDir dir(::opendir(preferencesFolder().c_str()));
  if (!dir) return names;
  while (dirent* e = ::readdir(dir.get())) {
    std::string name = e->d_name;
    if (!ns::hasSuffix(name, ".plist") || name[0] == '.') continue;
    names.push_back(name.substr(0, name.size() - 6));
  }
  std::sort(names.begin(), names.end());
  return names;
}

}  // namespace wf::defaults
