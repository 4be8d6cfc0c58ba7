#include <map>

#include "app/WFHelperAppDelegate.h"

namespace wf {
namespace {

// The delegate's methods that take arguments, by their C++ names: the
// selectors under which the log shows them.
const std::map<std::string_view, std::string_view>& selectorsWithArguments() {
  static const std::map<std::string_view, std::string_view> table{
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
      {"keywordsDidChange", "keywordsDidChange:"},
      {"smartMailboxesDidChange", "smartMailboxesDidChange:"},
      {"rulesDidChange", "rulesDidChange:"},
      {"projectsDidChange", "projectsDidChange:"},
      {"delayedImport", "delayedImport:"},
      {"importWrenfoldMetadataAtPath", "importWrenfoldMetadataAtPath:andExistingAttributes:"},
      {"logSpotlightDataForPath", "logSpotlightDataForPath:"},
      {"setCurrentSyncFolderPath", "setCurrentSyncFolderPath:"},
      {"setCachedDefaults", "setCachedDefaults:"},
      {"setLastDefaultCacheTime", "setLastDefaultCacheTime:"},
  };
  return table;
}

}  // namespace

std::string delegateMethodName(std::string_view cxxName) {
  const auto& table = selectorsWithArguments();
  auto it = table.find(cxxName);
  std::string_view selector = it == table.end() ? cxxName : it->second;
  return "-[WFHelperAppDelegate " + std::string(selector) + "]";
}

}  // namespace wf
