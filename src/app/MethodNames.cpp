#include <map>

#include "app/WFHelperAppDelegate.h"
#include "sync/SyncListFiles.h"

namespace wf {
namespace {

// The delegate's methods that take arguments, by their C++ names: the
// selectors under which the log shows them.
const std::map<std::string_view, std::string>& selectorsWithArguments() {
  static const std::map<std::string_view, std::string> table = [] {
    std::map<std::string_view, std::string> t{
        {"applicationDidFinishLaunching", "applicationDidFinishLaunching:"},
        {"mailDidLaunch", "mailDidLaunch:"},
        {"mailDidTerminate", "mailDidTerminate:"},
        {"wrenfoldWillUninstall", "wrenfoldWillUninstall:"},
        {"preferencesDidChange", "preferencesDidChange:"},
        {"defaultForKey", "defaultForKey:"},
        {"logForKey", "logForKey:file:function:lineNumber:format:"},
        {"activeSyncFolderPathCreateIfNecessary", "activeSyncFolderPathCreateIfNecessary:"},
        {"syncFilesDidChange", "syncFilesDidChange:"},
        {"shouldPullSyncFile", "shouldPullSyncFile:"},
        {"pushSyncFile", "pushSyncFile:"},
        {"delayedImport", "delayedImport:"},
        {"importWrenfoldMetadataAtPath", "importWrenfoldMetadataAtPath:andExistingAttributes:"},
        {"logSpotlightDataForPath", "logSpotlightDataForPath:"},
        {"setCurrentSyncFolderPath", "setCurrentSyncFolderPath:"},
        {"setCachedDefaults", "setCachedDefaults:"},
        {"setLastDefaultCacheTime", "setLastDefaultCacheTime:"},
    };
    // The synced lists' handlers, from their table.
    for (const SyncList& list : syncLists())
      t.emplace(list.handlerName, std::string(list.handlerName) + ":");
    return t;
  }();
  return table;
}

}  // namespace

std::string delegateMethodName(std::string_view cxxName) {
  const auto& table = selectorsWithArguments();
  auto it = table.find(cxxName);
  std::string_view selector = it == table.end() ? cxxName : std::string_view(it->second);
  return "-[WFHelperAppDelegate " + std::string(selector) + "]";
}

}  // namespace wf
