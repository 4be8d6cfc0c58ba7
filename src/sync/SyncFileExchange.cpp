// Settings sync through a shared folder: pushing saved list files into the
// sync folder and announcing changed sync copies to the plug-in. The helper
// never copies from the sync folder into the local folder itself; the
// plug-in takes up the file when told.
#include <string>

#include "app/WFHelperAppDelegate.h"
#include "paths/Paths.h"
#include "platform/FileEvents.h"
#include "platform/LogKeys.h"
#include "platform/base/Files.h"
#include "platform/foundation/FileManager.h"
#include "platform/foundation/Strings.h"
#include "prefs/PreferenceKeys.h"
#include "sync/SyncFolderPoll.h"
#include "sync/SyncListFiles.h"
#include "sync/SyncReports.h"
#include "sync/WholeLists.h"

namespace wf {

namespace {

constexpr int kSyncThroughFolder = 2;

// The list file's path in the plug-in's support folder; empty (a file that
// never exists) when there is no user Library folder.
std::string localPathOf(const std::string& fileName) {
  auto folder = ardelSyncSettingsPathCreateIfNeeded();
  if (!folder) return {};
  return ns::stringByAppendingPathComponent(*folder, fileName);
}

}  // namespace

std::optional<std::string> WFHelperAppDelegate::activeSyncFolderPathCreateIfNecessary(bool create) {
  if (defaultForKey(kSettingsSyncMethod).integerValue() != kSyncThroughFolder) return std::nullopt;
  Value stored = defaultForKey(kSyncFolderPath);
  // Used as stored: no normalisation of slashes, case or links.
  std::string path = stored.isString() ? stored.asString() : std::string();

  auto& files = FileManager::defaultManager();
  bool isDirectory = false;
  if (files.fileExistsAtPath(path, &isDirectory)) {
    if (isDirectory) return path;
    NSLog("File existing at SyncFolderPath is not directory! <Path: %@", stored);
    return std::nullopt;
  }
  if (!create) return std::nullopt;

  OptError error;
  files.createDirectoryAtPath(path, true, &error);
  // The error object decides, not the returned flag.
  if (error) {
    NSLog("Problem creating Sync Folder!\n\tpath: %@\n\terror: %@", stored, *error);
    return std::nullopt;
  }
  return path;
}

bool WFHelperAppDelegate::pushSyncFile(const std::string& fileName) {
  auto folder = activeSyncFolderPathCreateIfNecessary(true);
  if (!folder) return false;

  FileURL destination{ns::stringByAppendingPathComponent(*folder, fileName)};
  FileURL source{localPathOf(fileName)};
  WFLogKeyed(kLogSettingsSync, "copy %@ to %@", source, destination);

  auto& files = FileManager::defaultManager();
  if (files.contentsEqualAtPath(destination.path, source.path)) {
    WFLogKeyed(kLogSettingsSync, "source and target files are identical! %@", fileName);
    recordPush(*this, fileName, "identical");
    return false;
  }

  // A sync copy that is not there yet makes this fail too: the helper never
  // seeds the sync folder, it only replaces what is already shared. A folder
  // at the name is refused too: the push never deletes a folder.
  OptError removeError;
  files.checkReplaceableItemAtPath(destination.path, &removeError);
  if (removeError) {
    NSLog("Problem removing old file: %@ \n\tError: %@", destination, *removeError);
    return false;
  }

  // Only a whole list that stood still while it was read travels: a list
  // caught mid-save, emptied or cut short would reach every computer.
  StillRead local = readWhileStill(source.path);
  if (local.opened && !local.still) {
    std::string reason =
        local.error.empty() ? std::string("it kept changing while it was read") : local.error;
    refuseSyncFile(*this, "Local list not pushed, the sync copy stays as it was:", source.path,
                   reason);
    recordPush(*this, fileName, "refused: " + reason);
    return false;
  }
  if (local.opened) {
    if (std::string reason = notAWholeList(local.bytes); !reason.empty()) {
      refuseSyncFile(*this, "Local list is not a whole property list, not pushed:", source.path,
                     reason);
      recordPush(*this, fileName, "refused: " + reason);
      return false;
    }
  }

  // The new copy is written beside the old one and renamed over it, so a
  // full disk or a crash leaves the old shared copy whole. A list that could
  // not be opened goes the copy's way, which says why (or removes the sync
  // copy of a list the plug-in removed, below).
  OptError copyError;
  bool copied = local.opened
                    ? files.replaceItemAtPathWithContents(destination.path, source.path,
                                                          local.bytes, local.mode, &copyError)
                    : files.replaceItemAtPath(destination.path, source.path, &copyError);
  if (copied) {
    WFLogKeyed(kLogSettingsSync, "copy success");
    noteOwnSyncPush(*this, fileName, destination.path);
    recordPush(*this, fileName, "pushed");
    return true;
  }
  recordPush(*this, fileName,
             "failed: " + (copyError ? copyError->localizedDescription() : std::string()));
  // A list the plug-in removed is removed from the sync folder as well.
  if (copyError && copyError->domain == Error::CocoaDomain &&
      copyError->code == FileManager::kFileReadNoSuchFileError) {
    platform::OwnChange own(destination.path);
    (void)sys::removePath(destination.path, sys::Removal::FileOrLink);
  }
  NSLog("error %@", copyError ? copyError->localizedDescription() : std::string());
  return false;
}

bool WFHelperAppDelegate::shouldPullSyncFile(const std::string& fileName) {
  NSLog("shouldPullSyncFile %@", fileName);
  auto folder = activeSyncFolderPathCreateIfNecessary(false);
  if (!folder) return false;

  std::string syncCopy = ns::stringByAppendingPathComponent(*folder, fileName);
  std::string local = localPathOf(fileName);
  // A missing file on either side counts as different.
  if (FileManager::defaultManager().contentsEqualAtPath(local, syncCopy)) {
    WFLogKeyed(kLogSettingsSync, "source and target files are identical! %@", fileName);
    return false;
  }
  return true;
}

void WFHelperAppDelegate::syncFilesDidChange(const std::vector<std::string>& paths) {
  Array reported(paths.begin(), paths.end());
  WFLogKeyed(kLogSettingsSync, "syncFilesDidChange:%@ returning", Value(std::move(reported)));

  if (fileNameCommandMappings.isNil()) {
    Dictionary mappings;
    for (const SyncList& list : syncLists())
      mappings.emplace(std::string(list.fileName), Value(std::string(list.updateNotification)));
    fileNameCommandMappings = Value(std::move(mappings));
  }

  auto folder = activeSyncFolderPathCreateIfNecessary(false);
  if (!folder) return;
  WFLogKeyed(kLogSettingsSync, "syncFilesDidChange %@", *folder);

  // Every reported path is handled, duplicates included.
  for (const std::string& path : paths) {
    std::string stem = ns::stringByDeletingLastPathComponent(path);
    WFLogKeyed(kLogSettingsSync, "syncFilesDidChange Stem %@", stem);
    // Plain string equality: changes in sub-folders are not ours.
    if (stem != *folder) continue;

    std::string name = ns::lastPathComponent(path);
    Value notification = fileNameCommandMappings.get(name);
    WFLogKeyed(kLogSettingsSync, "syncFilesDidChange %@", notification);
    NSLog("syncFilesDidChange %@", notification);
    if (!notification.isString()) {
      // A conflict copy is the user's to merge: reported, never announced.
      noteIfConflictCopy(*this, path);
      continue;
    }

    if (!shouldPullSyncFile(name)) {
      recordAnnouncement(*this, name, "identical");
      continue;
    }
    // Only a whole list is announced: the plug-in would load an empty or
    // cut-short copy over its own.
    auto copy = sys::readRegularFile(path, kMaxListBytes);
    std::string reason = copy ? notAWholeList(*copy) : copy.error().describe();
    if (!reason.empty()) {
      refuseSyncFile(*this, "Sync copy is not a whole property list, not announced:", path, reason);
      recordAnnouncement(*this, name, "refused: " + reason);
      continue;
    }
    services().notifications->post(notification.asString());
    recordAnnouncement(*this, name, "announced");
  }
}

void WFHelperAppDelegate::keywordsDidChange(const platform::Notification*) {
  if (defaultForKey(kSettingsSyncMethod).integerValue() != kSyncThroughFolder) return;
  WFLogKeyed(kLogSettingsSync, "keywords did Change Notification");
  pushSyncFile(std::string(syncListHandledBy(&WFHelperAppDelegate::keywordsDidChange).fileName));
}

void WFHelperAppDelegate::smartMailboxesDidChange(const platform::Notification*) {
  WFLogKeyed(kLogSettingsSync, "SMBs did Change %ld",
             static_cast<long>(defaultForKey(kSettingsSyncMethod).integerValue()));
  if (defaultForKey(kSettingsSyncMethod).integerValue() != kSyncThroughFolder) return;
  WFLogKeyed(kLogSettingsSync, "copy Changed SMB");
  pushSyncFile(
      std::string(syncListHandledBy(&WFHelperAppDelegate::smartMailboxesDidChange).fileName));
}

void WFHelperAppDelegate::rulesDidChange(const platform::Notification*) {
  WFLogKeyed(kLogSettingsSync, "Rules did Change %ld",
             static_cast<long>(defaultForKey(kSettingsSyncMethod).integerValue()));
  if (defaultForKey(kSettingsSyncMethod).integerValue() != kSyncThroughFolder) return;
  WFLogKeyed(kLogSettingsSync, "copy Changed Rules");
  pushSyncFile(std::string(syncListHandledBy(&WFHelperAppDelegate::rulesDidChange).fileName));
}

void WFHelperAppDelegate::projectsDidChange(const platform::Notification*) {
  WFLogKeyed(kLogSettingsSync, "Projects did Change %ld",
             static_cast<long>(defaultForKey(kSettingsSyncMethod).integerValue()));
  if (defaultForKey(kSettingsSyncMethod).integerValue() != kSyncThroughFolder) return;
  WFLogKeyed(kLogSettingsSync, "copy Changed Projects");
  pushSyncFile(std::string(syncListHandledBy(&WFHelperAppDelegate::projectsDidChange).fileName));
}

}  // namespace wf
