// The folder layout shared with the plug-in, under the user's Library
// folder, and the place of Mail's message store. Each function returns an
// absolute path, or nullopt (nil) when there is no user Library folder.
//
// "Cached" functions compute their path once per process (on the first call
// that succeeds) and return it unchanged afterwards; "CreateIfNeeded" ones
// also make the folder when nothing exists at the path (a plain file there
// counts as existing). Creation failures are silent: callers find out when
// they write. Main thread only, like every caller.
#pragma once

#include <optional>
#include <string>

#include "platform/Platform.h"

namespace wf {

// Library/Mail/Ardel (cached, created).
std::optional<std::string> ardelPathCreateIfNeeded();
// Library/Mail/Ardel too: the sync files live directly in the maker's
// folder, not in its SettingsSync sub-folder (cached, created).
std::optional<std::string> ardelSyncSettingsPathCreateIfNeeded();
// Library/SyncedPreferences/com.apple.finder.plist (every call, no test).
std::optional<std::string> finderSideBarListsPath();
// Mail's message store Library/Mail/V2..V5, from the ProductVersion of the
// system version file (cached, not created).
std::optional<std::string> WFmailV2Path();
// Library/Mail/Vn/MailData from the running system's version; falls back
// to "~/Library/" when there is no Library folder (cached, not created).
std::optional<std::string> WFmailV2MailDataPath();
// Library/Mail/Ardel (cached, created).
std::optional<std::string> WFdatabasePathCreateIfNeeded();
// Library/Mail/Ardel (cached, created).
std::optional<std::string> WFardelPathCreateIfNeeded();
// WFardelPathCreateIfNeeded()/SmartMailboxViewingAttributes (every call, created).
std::optional<std::string> WFsmartMailboxViewingAttributesPath();
// ArdelScripts/WrenfoldHelperLauncher in the application-scripts folder,
// symbolic links resolved, when something exists there (every call).
std::optional<std::string> WFHelperLauncherPath();
// Library/Mail/Ardel/WFSettingsBackup (cached, created).
std::optional<std::string> WFsyncBackupPathCreateIfNeeded();
// Library/Mail/Ardel/SettingsSync (cached, created).
std::optional<std::string> WFardelSyncSettingsPathCreateIfNeeded();
// Library/Mail/Ardel/ExternalProjects (cached, created).
std::optional<std::string> WFexternalProjectPathCreateIfNeeded();
// Library/Mail/Ardel/OpenMetaUpdates (cached, created).
std::optional<std::string> WFopenMetaPathCreateIfNeeded();

// Where the functions find the Library folder, the system version and the
// scripts folder. The delegate sets it from its services for as long as it
// lives (its destructor clears it); setting it also forgets every cached
// path, so each test starts afresh.
void setPathEnvironment(platform::Environment* environment);
// Forgets every cached path (the environment stays).
void resetPathCaches();

}  // namespace wf
