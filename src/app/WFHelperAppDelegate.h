// The application delegate: all state and logic of the helper. Methods are
// defined in the folder of the subsystem they belong to (app/, prefs/,
// sync/, projects/, import/); this is the one declaration.
#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "app/HelperStatus.h"
#include "platform/Platform.h"
#include "platform/foundation/Format.h"
#include "platform/foundation/NSLog.h"
#include "platform/plist/Value.h"

namespace wf {

// "-[WFHelperAppDelegate name:]" for a delegate method named in C++ `name`.
std::string delegateMethodName(std::string_view cxxName);

struct ProjectImportState;   // projects/: process-lifetime state of the imports
struct SyncFolderPollState;  // sync/: the poll of a sync folder on a network share

class WFHelperAppDelegate {
 public:
  explicit WFHelperAppDelegate(platform::Services services);
  ~WFHelperAppDelegate();
  WFHelperAppDelegate(const WFHelperAppDelegate&) = delete;
  WFHelperAppDelegate& operator=(const WFHelperAppDelegate&) = delete;

  // The application object's delegate (NSApp.delegate), for free functions.
  static WFHelperAppDelegate* shared();
  platform::Services& services() { return services_; }
  // Expires when the delegate goes: what the main loop holds for later
  // (a delayed import) checks it before it calls back.
  std::weak_ptr<void> lifetime() const { return lifetime_; }

  // Application core
  void registerWrenfoldUrlSchema();
  void applicationDidFinishLaunching();
  void mailDidLaunch(const platform::Notification& notification);
  void mailDidTerminate(const platform::Notification& notification);
  void wrenfoldWillUninstall(const platform::Notification* notification);
  void runIntervalActions();
  void quitSparkleHelper();

  // Preferences
  void preferencesDidChange(const platform::Notification* notification);
  void invalidateDefaultCache();
  Value defaults();
  Value defaultForKey(const std::string& key);

  // Keyed diagnostic log: a switched-off key formats nothing, and through
  // WFLogKeyed its arguments are not even made (a dictionary copied for a
  // line nobody reads cost the import a tenth of its time).
  bool logKeyIsOn(const std::string& key) { return defaultForKey(key).boolValue(); }
  template <typename... Args>
  void logForKey(const std::string& key, const char* file, const char* function, long line,
                 std::string_view fmt, const Args&... args) {
    if (!defaultForKey(key).boolValue()) return;
    writeKeyedLine(key, file, function, line, format(fmt, args...));
  }

  // Settings sync
  std::optional<std::string> activeSyncFolderPathCreateIfNecessary(bool create);
  void syncFilesDidChange(const std::vector<std::string>& paths);
  bool shouldPullSyncFile(const std::string& fileName);
  bool pushSyncFile(const std::string& fileName);
  bool startSyncFolderWatcher();
  void stopSyncFolderWatcher();
  void keywordsDidChange(const platform::Notification* notification);
  void smartMailboxesDidChange(const platform::Notification* notification);
  void rulesDidChange(const platform::Notification* notification);
  void projectsDidChange(const platform::Notification* notification);

  // External projects and Finder tags
  void fetchExternalProjects();
  void _fetchFinderTags();
  void _fetchOmniFocusProjects();
  void _fetchHitListProjects();
  void _fetchThingsProjects();
  void _fetchThings3Projects();

  // OpenMeta import into Mail messages
  void delayedImport(const std::vector<std::string>& paths);
  void importWrenfoldMetadataAtPath(const std::string& path, const Value& existingAttributes);
  // The same, with the message already open for reading (its update lock's
  // descriptor) and its size as the lock found it, so that the trailer is
  // read without opening the file again or asking its size.
  void importWrenfoldMetadataAtPath(const std::string& path, const Value& existingAttributes,
                                    int openMessage, std::uint64_t messageSize);
  // A message left with the distant-future stamp by an import whose writer
  // is gone: its stamp restored, and the attributes to import it with.
  std::optional<Value> resumeInterruptedImport(const std::string& path, const Value& attributes);
  void logSpotlightDataForPath(const std::string& path);
  int startOpenMetaFolderWatcher();
  void stopOpenMetaFolderWatcher();

  // Properties
  std::optional<std::string> currentSyncFolderPath() const { return currentSyncFolderPath_; }
  void setCurrentSyncFolderPath(std::optional<std::string> p) {
    currentSyncFolderPath_ = std::move(p);
  }
  Value cachedDefaults() const { return cachedDefaults_; }
  void setCachedDefaults(Value v) { cachedDefaults_ = std::move(v); }
  double lastDefaultCacheTime() const { return lastDefaultCacheTime_; }
  void setLastDefaultCacheTime(double t) { lastDefaultCacheTime_ = t; }

  // State (public for tests, as the fields of the original class are visible
  // to its categories).
  std::uint64_t runInterval_ = 0;
  platform::TimerId pendingIntervalRun_ = 0;  // the delayed runIntervalActions
  std::unique_ptr<platform::FileEventStream> _syncFolderStreamRef;
  std::unique_ptr<platform::FileEventStream> _openMetaStreamRef;
  // A stream that was made but could not start: the watcher counts as
  // present, and the stream is never used again.
  bool _openMetaStreamUnusable = false;
  bool hasOpenMetaStream() const { return _openMetaStreamRef || _openMetaStreamUnusable; }
  Value fileNameCommandMappings;  // built on first use
  std::shared_ptr<ProjectImportState> projectState;
  std::shared_ptr<SyncFolderPollState> syncFolderPoll;  // only while one runs
  // What the status interface reports: sync/ fills the first, import/ the second.
  SyncFolderStatus syncStatus;
  MailStoreStatus mailStoreStatus;
  IntervalRunStatus intervalStatus;           // app/IntervalRun.cpp, projects/
  std::vector<PreferenceStatus> preferences;  // as the last preferences change applied them
  // Records what the last application of the preferences acted on.
  void notePreferencesApplied();
  // Tries once more to start a watcher that is off (at every interval run).
  void retryStoppedWatchers();
  // How the start of a watcher went: the status, one failure line per new
  // reason, one line when it comes up after failing.
  void noteWatcherOutcome(FolderWatchStatus& status, const std::string& what,
                          const std::optional<std::string>& path, bool started, int error);
  static constexpr const char* kSyncOff = "settings sync is off";
  // A watcher stopped on purpose: "off" with why, and no failure line.
  static void noteWatcherOff(FolderWatchStatus& status, const std::string& why) {
    status.watch = "off";
    status.reason = why;
  }
  // Import outcomes for the status (import/MessageMetadataImport.cpp).
  void noteNothingToImport() { ++mailStoreStatus.nothingToDo; }
  void noteImportRefused(const std::string& reason);
  // An interval-run source about to run / just run.
  void beginSourceRun();
  void endSourceRun(const std::string& source, const std::string& failure = {});

 private:
  void writeKeyedLine(const std::string& key, const char* file, const char* function, long line,
                      const std::string& message);

  platform::Services services_;
  platform::Log* previousLogSink_ = nullptr;  // NSLog's sink before this delegate
  Value cachedDefaults_;
  double lastDefaultCacheTime_ = 0;
  std::optional<std::string> currentSyncFolderPath_;
  std::shared_ptr<void> lifetime_ = std::make_shared<char>();
};

// isMailRunning(): a running application has the identifier "com.apple.mail".
bool isMailRunning();

}  // namespace wf

// Keyed log line from a delegate method: the function renders as
// "-[WFHelperAppDelegate selector]".
#define WFLogKeyed(key, ...)                                                             \
  do {                                                                                   \
    if (this->logKeyIsOn(key)) {                                                         \
      static const std::string wfLogFunctionName_ = ::wf::delegateMethodName(__func__);  \
      this->logForKey(key, __FILE__, wfLogFunctionName_.c_str(), __LINE__, __VA_ARGS__); \
    }                                                                                    \
  } while (0)

// Keyed log line from a free function, through the shared delegate; the
// function renders by its plain name.
#define WFLogKeyedFree(key, ...)                                              \
  do {                                                                        \
    if (auto* wfDelegate_ = ::wf::WFHelperAppDelegate::shared())              \
      wfDelegate_->logForKey(key, __FILE__, __func__, __LINE__, __VA_ARGS__); \
  } while (0)
