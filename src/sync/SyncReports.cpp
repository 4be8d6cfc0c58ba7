#include "sync/SyncReports.h"

#include <dirent.h>

#include "app/WFHelperAppDelegate.h"
#include "platform/foundation/Strings.h"
#include "sync/ConflictCopies.h"
#include "sync/SyncListFiles.h"

namespace wf {
namespace {
// The status keeps the most recent few refusals.
constexpr std::size_t kRefusalsKept = 16;
}  // namespace

bool noteIfConflictCopy(WFHelperAppDelegate& delegate, const std::string& path) {
  std::string name = ns::lastPathComponent(path);
  auto copy = conflictCopyOf(name, syncListFileNames());
  if (!copy) return false;
  auto& conflicts = delegate.syncStatus.conflicts;
  for (const auto& known : conflicts)
    if (known.path == path) return true;
  conflicts.push_back(SyncConflictCopy{path, std::string(copy->list), std::string(copy->engine),
                                       delegate.services().clock->now()});
  NSLog(
      "Conflict copy %@ of %@ (made by %@): left as it is, never announced or pushed; "
      "compare it with the list and merge by hand",
      path, std::string(copy->list), std::string(copy->engine));
  return true;
}

void refuseSyncFile(WFHelperAppDelegate& delegate, const std::string& line, const std::string& path,
                    const std::string& reason) {
  NSLog("%@ %@: %@", line, path, reason);
  auto& refused = delegate.syncStatus.refused;
  refused.push_back(RefusedSyncFile{path, reason, delegate.services().clock->now()});
  while (refused.size() > kRefusalsKept) refused.pop_front();
}

void recordPush(WFHelperAppDelegate& delegate, const std::string& list,
                const std::string& outcome) {
  auto& status = delegate.syncStatus.lists[list];
  status.lastPushTime = delegate.services().clock->now();
  status.lastPushOutcome = outcome;
}

void recordAnnouncement(WFHelperAppDelegate& delegate, const std::string& list,
                        const std::string& outcome) {
  auto& status = delegate.syncStatus.lists[list];
  status.lastAnnouncementTime = delegate.services().clock->now();
  status.lastAnnouncementOutcome = outcome;
}

void noteConflictCopiesIn(WFHelperAppDelegate& delegate, const std::string& folder) {
  DIR* dir = opendir(folder.c_str());
  if (!dir) return;
  std::vector<std::string> names;
  while (dirent* e = readdir(dir)) names.emplace_back(e->d_name);
  closedir(dir);
  for (const std::string& name : names)
    noteIfConflictCopy(delegate, ns::stringByAppendingPathComponent(folder, name));
}

}  // namespace wf
