#include <array>
#include <cstdlib>

#include "app/WFHelperAppDelegate.h"
#include "sync/SyncListFiles.h"

namespace wf {

std::span<const SyncList> syncLists() {
  static const std::array<SyncList, 4> table{{
      {"WrenfoldKeywords.plist", "WrenfoldKeywordListWasSaved",
       "WrenfoldHelperDidUpdateKeywordsFile", "keywordsDidChange",
       &WFHelperAppDelegate::keywordsDidChange},
      {"WrenfoldProjects.plist", "WrenfoldProjectListWasSaved",
       "WrenfoldHelperDidUpdateProjectFile", "projectsDidChange",
       &WFHelperAppDelegate::projectsDidChange},
      {"WrenfoldInboxRules.plist", "WrenfoldInboxRulesWereSaved",
       "WrenfoldHelperDidUpdateInboxRulesFile", "rulesDidChange",
       &WFHelperAppDelegate::rulesDidChange},
      {"WrenfoldSmartMailboxes.plist", "WrenfoldSmartMailboxesWereSaved",
       "WrenfoldHelperDidUpdateSmartMailboxesFile", "smartMailboxesDidChange",
       &WFHelperAppDelegate::smartMailboxesDidChange},
  }};
  return table;
}

const SyncList& syncListHandledBy(
    void (WFHelperAppDelegate::*handler)(const platform::Notification*)) {
  for (const SyncList& list : syncLists())
    if (list.handler == handler) return list;
  // Every handler is in the table; a missing row is a programming error.
  std::abort();
}

const std::vector<std::string>& syncListFileNames() {
  static const std::vector<std::string> names = [] {
    std::vector<std::string> v;
    for (const SyncList& list : syncLists()) v.emplace_back(list.fileName);
    return v;
  }();
  return names;
}

}  // namespace wf
