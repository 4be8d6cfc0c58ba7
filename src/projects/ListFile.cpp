#include "projects/ListFile.h"

#include "paths/Paths.h"
#include "platform/base/Files.h"
#include "platform/foundation/Strings.h"
#include "platform/plist/PropertyList.h"

namespace wf {

std::optional<std::string> externalProjectFilePath(const std::string& fileName) {
  auto folder = WFexternalProjectPathCreateIfNeeded();
  if (!folder) return std::nullopt;
  return ns::stringByAppendingPathComponent(*folder, fileName);
}

Value readListFile(const std::optional<std::string>& path) {
  if (!path) return {};
  return plist::arrayWithContentsOfFile(*path);
}

bool writeListFile(const std::optional<std::string>& path, const Value& list) {
  if (!path) return false;
  // Once per process: temporaries that a killed helper left beside its lists.
  static bool cleared = false;
  if (!cleared) {
    cleared = true;
    sys::removeOwnTemporaries(ns::stringByDeletingLastPathComponent(*path),
                              {"OmniFocusProjects.plist", "HitListProjects.plist",
                               "ThingsProjects.plist", "FinderTags.plist"});
  }
  bool written = plist::writeToFile(list, *path, /*atomically=*/true);
  ++(written ? listWriteTally().written : listWriteTally().failed);
  return written;
}

ListWriteTally& listWriteTally() {
  static ListWriteTally tally;
  return tally;
}

}  // namespace wf
