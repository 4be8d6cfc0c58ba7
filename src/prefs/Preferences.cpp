// The plug-in's preferences, read straight from its file (what Mail's
// process last wrote) and kept for 120 seconds; command-line "WF" arguments
// override single keys.
#include "app/LoginItems.h"
#include "app/WFHelperAppDelegate.h"
#include "platform/LogKeys.h"
#include "platform/foundation/FileManager.h"
#include "platform/plist/PropertyList.h"
#include "prefs/PreferenceKeys.h"

namespace wf {
namespace {

constexpr double kCacheLifetime = 120.0;

// The five settings the change line shows, in this order.
constexpr const char* kSnapshotKeys[] = {kLaunchAtLogin, kRecognizeOpenMetaTags,
                                         kDisableDropBoxScanning, kSettingsSyncMethod,
                                         kSyncFolderPath};

}  // namespace

void WFHelperAppDelegate::invalidateDefaultCache() {
  setCachedDefaults(Value());
  setLastDefaultCacheTime(0.0);
}

Value WFHelperAppDelegate::defaults() {
  if (services_.clock->now() - lastDefaultCacheTime() > kCacheLifetime) invalidateDefaultCache();
  Value cached = cachedDefaults();
  if (!cached.isNil()) return cached;

  std::vector<std::string> libraries = services_.environment->userLibraryDirectories();
  if (libraries.empty()) return cachedDefaults();
  // Mail's sandbox container first; the ordinary preferences folder is taken
  // untested when the container holds no file.
  std::string path = libraries.back() +
                     "/Containers/com.apple.mail/Data/Library/Preferences/org.ardel.Wrenfold.plist";
  if (!FileManager::defaultManager().fileExistsAtPath(path))
    path = libraries.back() + "/Preferences/org.ardel.Wrenfold.plist";
  // A file that is no property-list dictionary reads as nil, which is not
  // cached: the next call reads again.
  setCachedDefaults(plist::dictionaryWithContentsOfFile(path));
  setLastDefaultCacheTime(services_.clock->now());
  return cachedDefaults();
}

Value WFHelperAppDelegate::defaultForKey(const std::string& key) {
  const Dictionary& arguments = services_.defaults->argumentDomain();
  if (auto it = arguments.find("WF" + key); it != arguments.end() && !it->second.isNil())
    return it->second;
  return defaults().get(key);
}

void WFHelperAppDelegate::preferencesDidChange(const platform::Notification*) {
  invalidateDefaultCache();
  Value prefs = defaults();

  Dictionary snapshot;
  for (const char* key : kSnapshotKeys) {
    Value value = prefs.get(key);
    snapshot.emplace(key, value.isNil() ? Value::null() : value);
  }
  WFLogKeyed(kLogPreferencesNotification, "PreferencesDidChangeNotification: %@",
             Value(std::move(snapshot)));

  // Straight from the file: a command-line override does not make the
  // helper a login item.
  if (prefs.get(kLaunchAtLogin).boolValue())
    addWrenfoldHelperToLoginItems();
  else
    removeWrenfoldHelperFromLoginItems();

  if (services_.defaults->boolForKey(kDisableOpenMetaScanning)) {
    NSLog(
        "External OpenMeta Scanning DISABLED\nUse Terminal command to enable: defaults write "
        "org.ardel.WrenfoldHelper disableOpenMetaScanning 0");
    if (hasOpenMetaStream()) stopOpenMetaFolderWatcher();
    noteWatcherOff(mailStoreStatus, "switched off: disableOpenMetaScanning is 1");
  } else {
    NSLog(
        "External OpenMeta Scanning Enabled\nUse Terminal command to disable: defaults write "
        "org.ardel.WrenfoldHelper disableOpenMetaScanning 1");
    if (!hasOpenMetaStream()) startOpenMetaFolderWatcher();
  }

  if (activeSyncFolderPathCreateIfNecessary(true))
    startSyncFolderWatcher();
  else {
    stopSyncFolderWatcher();
    noteWatcherOff(syncStatus, kSyncOff);
  }
  notePreferencesApplied();
}

}  // namespace wf
