// The lists that travel through the sync folder, one row each: the file,
// the plug-in's signal that it was saved, the notice that a changed sync
// copy is waiting, and the delegate's handler of the signal. The observers,
// the push, the map of changed files to notices and the method names in the
// log are all made from this table, so adding a list is adding a row (and
// its handler).
#pragma once

#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace wf {

class WFHelperAppDelegate;
namespace platform {
struct Notification;
}

struct SyncList {
  std::string_view fileName;            // "WrenfoldKeywords.plist"
  std::string_view savedSignal;         // "WrenfoldKeywordListWasSaved"
  std::string_view updateNotification;  // "WrenfoldHelperDidUpdateKeywordsFile"
  std::string_view handlerName;         // "keywordsDidChange", as the log names it
  void (WFHelperAppDelegate::*handler)(const platform::Notification*);
};

// In the order the observers are registered.
std::span<const SyncList> syncLists();

// The row whose handler is `handler`; the handlers take their file from it.
const SyncList& syncListHandledBy(
    void (WFHelperAppDelegate::*handler)(const platform::Notification*));

// The file names of the rows, in the table's order.
const std::vector<std::string>& syncListFileNames();

}  // namespace wf
