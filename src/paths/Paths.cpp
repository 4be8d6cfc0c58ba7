#include "paths/Paths.h"

#include <unistd.h>

#include <climits>
#include <cstdlib>
#include <vector>

#include "platform/base/HomeFolder.h"
#include "platform/foundation/FileManager.h"
#include "platform/foundation/Format.h"
#include "platform/foundation/Strings.h"
#include "platform/plist/PropertyList.h"

namespace wf {
namespace {

using Path = std::optional<std::string>;

platform::Environment* gEnvironment = nullptr;

// Every cached function's static, so that tests can forget them together.
struct PathCaches {
  Path ardel, ardelSyncSettings, mailV2, mailV2MailData, database, wfArdel, syncBackup,
      wfArdelSyncSettings, externalProjects, openMeta;
};
PathCaches gCaches;

Path library() {
  if (!gEnvironment) return std::nullopt;
  std::vector<std::string> list = gEnvironment->userLibraryDirectories();
  if (list.empty()) return std::nullopt;
  return list.back();
}

Path join(const Path& base, std::string_view component) {
  if (!base) return std::nullopt;
  return ns::stringByAppendingPathComponent(*base, component);
}

// Anything at the path, even a plain file, counts; otherwise the folder is
// made with its parents, and the outcome is not checked.
void createIfMissing(const std::string& path) {
  FileManager& fm = FileManager::defaultManager();
  if (!fm.fileExistsAtPath(path)) fm.createDirectoryAtPath(path, true);
}

Path cachedFolder(Path& cache, std::initializer_list<std::string_view> components) {
  if (cache) return cache;
  Path path = library();
  if (!path) return std::nullopt;
  for (std::string_view c : components) path = join(path, c);
  cache = path;
  createIfMissing(*path);
  return path;
}

// The plug-in's support folder below the Library folder, and folders in it.
// The design names several functions for it, each with its own cache and its
// own first-use creation; they all come here.
constexpr std::string_view kSupportFolder = "Mail/Ardel";
Path supportFolder(Path& cache) { return cachedFolder(cache, {kSupportFolder}); }
Path supportSubfolder(Path& cache, std::string_view name) {
  return cachedFolder(cache, {kSupportFolder, name});
}

// Mail's store folder for a system version: the table ends at 10.13.
std::string mailStoreFolder(const std::string& version) {
  if (ns::hasPrefix(version, "10.13")) return "Mail/V5";
  if (ns::hasPrefix(version, "10.12")) return "Mail/V4";
  if (ns::hasPrefix(version, "10.11")) return "Mail/V3";
  return "Mail/V2";
}

// stringByExpandingTildeInPath: unchanged when there is no home.
std::string expandTilde(const std::string& path) {
  if (path.empty() || path[0] != '~') return path;
  std::string home = sys::homeFolder();
  if (home.empty()) return path;
  return home + path.substr(1);
}

std::string resolveSymlinks(const std::string& path) {
  char resolved[PATH_MAX];
  if (realpath(path.c_str(), resolved)) return resolved;
  return path;
}

}  // namespace

void setPathEnvironment(platform::Environment* environment) {
  gEnvironment = environment;
  resetPathCaches();
}

void resetPathCaches() { gCaches = PathCaches{}; }

Path ardelPathCreateIfNeeded() { return supportFolder(gCaches.ardel); }

Path ardelSyncSettingsPathCreateIfNeeded() { return supportFolder(gCaches.ardelSyncSettings); }

Path finderSideBarListsPath() {
  return join(library(), "SyncedPreferences/com.apple.finder.plist");
}

Path WFmailV2Path() {
  if (gCaches.mailV2) return gCaches.mailV2;
  std::string version;
  if (gEnvironment) {
    Value info = plist::dictionaryWithContentsOfFile(gEnvironment->systemVersionPlistPath());
    Value product = info.get("ProductVersion");
    if (product.isString()) version = product.asString();
  }
  gCaches.mailV2 = join(library(), mailStoreFolder(version));
  return gCaches.mailV2;
}

Path WFmailV2MailDataPath() {
  if (gCaches.mailV2MailData) return gCaches.mailV2MailData;
  std::vector<long> v = gEnvironment ? gEnvironment->operatingSystemVersion() : std::vector<long>{};
  v.resize(3, 0);
  std::string version = format("%ld.%ld", v[0], v[1]);
  Path base = library();
  if (!base) base = expandTilde("~/Library/");
  gCaches.mailV2MailData = join(base, mailStoreFolder(version) + "/MailData");
  return gCaches.mailV2MailData;
}

Path WFdatabasePathCreateIfNeeded() { return supportFolder(gCaches.database); }

Path WFardelPathCreateIfNeeded() { return supportFolder(gCaches.wfArdel); }

Path WFsmartMailboxViewingAttributesPath() {
  Path path = join(WFardelPathCreateIfNeeded(), "SmartMailboxViewingAttributes");
  if (path) createIfMissing(*path);
  return path;
}

Path WFHelperLauncherPath() {
  if (!gEnvironment) return std::nullopt;
  std::vector<std::string> scripts = gEnvironment->userApplicationScriptsDirectories();
  if (scripts.empty()) return std::nullopt;
  std::string path = resolveSymlinks(
      ns::stringByAppendingPathComponent(scripts.front(), "ArdelScripts/WrenfoldHelperLauncher"));
  if (!FileManager::defaultManager().fileExistsAtPath(path)) return std::nullopt;
  return path;
}

Path WFsyncBackupPathCreateIfNeeded() {
  return supportSubfolder(gCaches.syncBackup, "WFSettingsBackup");
}

Path WFardelSyncSettingsPathCreateIfNeeded() {
  return supportSubfolder(gCaches.wfArdelSyncSettings, "SettingsSync");
}

Path WFexternalProjectPathCreateIfNeeded() {
  return supportSubfolder(gCaches.externalProjects, "ExternalProjects");
}

Path WFopenMetaPathCreateIfNeeded() {
  return supportSubfolder(gCaches.openMeta, "OpenMetaUpdates");
}

}  // namespace wf
