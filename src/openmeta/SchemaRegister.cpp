// Schema registration: a short-lived file that tells other OpenMeta programs
// which attributes this one uses, with an example value of each.
#include <limits.h>
#include <stdlib.h>

#include <cstdlib>

#include "openmeta/AttributeValue.h"
#include "openmeta/OpenMeta.h"
#include "platform/base/HomeFolder.h"
#include "platform/foundation/FileManager.h"
#include "platform/foundation/Strings.h"
#include "platform/glib/Later.h"
#include "platform/plist/PropertyList.h"

namespace wf {

namespace {

constexpr const char* kRegisterFolder = "Library/Application Support/OpenMeta/schemaregister";
constexpr const char* kSchemaExtension = ".openmetaschema";
constexpr unsigned kRemovalDelayMs = 2000;

// The "bundle path" of a Linux program: the real path of its executable.
std::string executablePath() {
  char resolved[PATH_MAX];
  if (realpath("/proc/self/exe", resolved)) return resolved;
  return {};
}

}  // namespace

std::string OpenMeta::schemaRegisterFolder() {
  return ns::stringByAppendingPathComponent(sys::homeFolder(), kRegisterFolder);
}

void OpenMeta::registerOMAttributes(const Value& attributes, const std::string& appName) {
  const std::string fileName = appName + kSchemaExtension;
  const std::string folder = schemaRegisterFolder();
  (void)FileManager::defaultManager().createDirectoryAtPath(folder, true);
  const std::string path = ns::stringByAppendingPathComponent(folder, fileName);
  (void)plist::writeToFile(attributes, path, true);

  // The removal runs on the caller's loop, as a delayed perform would.
  sys::runAfterDelay(kRemovalDelayMs, [path] { OpenMeta::removeSchemaFile(path); });
}

namespace {

// True when `path` names an item inside a register folder: the folder's
// components appear whole, something follows them, and no ".." climbs out.
bool isInsideRegisterFolder(const std::string& path) {
  const std::string folder = kRegisterFolder;
  bool inside = false;
  for (std::size_t at = path.find(folder); at != std::string::npos;
       at = path.find(folder, at + 1)) {
    std::size_t end = at + folder.size();
    if ((at == 0 || path[at - 1] == '/') && end + 1 < path.size() && path[end] == '/') {
      inside = true;
      break;
    }
  }
  if (!inside) return false;
  std::size_t start = 0;
  while (start <= path.size()) {
    std::size_t slash = path.find('/', start);
    if (slash == std::string::npos) slash = path.size();
    if (path.compare(start, slash - start, "..") == 0 && slash - start == 2) return false;
    start = slash + 1;
  }
  return true;
}

}  // namespace

void OpenMeta::removeSchemaFile(const std::string& path) {
  // Never delete anything outside a register folder.
  if (!isInsideRegisterFolder(path)) return;
  (void)FileManager::defaultManager().removeItemAtPath(path);
}

void OpenMeta::registerUsualOMAttributes() {
  const Value now(openmeta::currentDate());
  Dictionary attributes;
  attributes.emplace(kUserTagsKey, Value(Array{Value("openMeta1"), Value("openMeta2")}));
  attributes.emplace(kUserTagTimeKey, now);
  attributes.emplace("kMDItemOMDocumentDate", now);
  attributes.emplace("kMDItemOMManaged", Value(true));
  attributes.emplace("kMDItemOMBookmarks", Value(Array{Value("bookmark1"), Value("bookmark2")}));
  registerOMAttributes(Value(std::move(attributes)), ns::lastPathComponent(executablePath()));
}

}  // namespace wf
