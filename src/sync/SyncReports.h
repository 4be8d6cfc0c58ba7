// What the settings sync reports about the sync folder: conflict copies,
// refused files, and each list's last push and announcement, in the log and
// in the delegate's syncStatus.
#pragma once

#include <string>

namespace wf {

class WFHelperAppDelegate;

// When `path` names a conflict copy of a list: logged the first time it is
// seen and kept in the status; true for a conflict copy, seen before or not.
bool noteIfConflictCopy(WFHelperAppDelegate& delegate, const std::string& path);

// A file that did not travel, with the reason, logged in one line.
void refuseSyncFile(WFHelperAppDelegate& delegate, const std::string& line, const std::string& path,
                    const std::string& reason);

void recordPush(WFHelperAppDelegate& delegate, const std::string& list, const std::string& outcome);
void recordAnnouncement(WFHelperAppDelegate& delegate, const std::string& list,
                        const std::string& outcome);

// Looks for conflict copies already in `folder` when its watcher starts.
void noteConflictCopiesIn(WFHelperAppDelegate& delegate, const std::string& folder);

}  // namespace wf
