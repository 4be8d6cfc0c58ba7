// A fuzzed preferences file given to preferencesDidChange:, followed by the
// notices and sync-folder events that the settings then steer, all against
// the fake platform in a temporary home. Besides the sanitizers' findings,
// a run fails when the helper writes the preferences or the local list
// files, leaves a temporary file, puts anything but a whole list file into
// the sync folder, or ends up with watchers that disagree with the settings.
#include <fuzzer/FuzzedDataProvider.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <map>
#include <string>

#include "PreferencesInput.h"
#include "app/WFHelperAppDelegate.h"
#include "platform/foundation/FileManager.h"
#include "support/Fakes.h"

namespace fs = std::filesystem;
using namespace wf;

namespace {

const char* const kListNames[] = {"WrenfoldKeywords.plist", "WrenfoldProjects.plist",
                                  "WrenfoldInboxRules.plist", "WrenfoldSmartMailboxes.plist"};

[[noreturn]] void fail(const std::string& why) {
  std::fprintf(stderr, "invariant broken: %s\n", why.c_str());
  std::abort();
}

void put(const std::string& path, const std::string& bytes) {
  FILE* f = std::fopen(path.c_str(), "wb");
  if (!f) fail("cannot seed " + path);
  std::fwrite(bytes.data(), 1, bytes.size(), f);
  std::fclose(f);
}

// A fresh home: the plug-in's folder with its four lists, a sync folder
// holding older copies of two of them, a plain file and a dangling link.
void seedHome(const std::string& home, bool container) {
  std::error_code ec;
  for (const auto& entry : fs::directory_iterator(home, ec)) fs::remove_all(entry.path(), ec);
  std::string library = home + "/Library";
  fs::create_directories(library + "/Preferences");
  if (container)
    fs::create_directories(library + "/Containers/com.apple.mail/Data/Library/Preferences");
  fs::create_directories(library + "/Mail/Ardel");
  fs::create_directories(home + "/sync");
  for (const char* name : kListNames)
    put(library + "/Mail/Ardel/" + name, std::string("local ") + name);
  put(home + "/sync/WrenfoldKeywords.plist", "older keywords");
  put(home + "/sync/WrenfoldProjects.plist", "local WrenfoldProjects.plist");
  put(home + "/plain-file", "plain");
  if (symlink((home + "/nowhere").c_str(), (home + "/dangling-link").c_str()) != 0) fail("symlink");
}

// Every regular file below the home by path, with its bytes.
std::map<std::string, std::string> snapshot(const std::string& home) {
  std::map<std::string, std::string> files;
  std::error_code ec;
  for (auto it = fs::recursive_directory_iterator(
           home, fs::directory_options::skip_permission_denied, ec);
       it != fs::recursive_directory_iterator(); it.increment(ec)) {
    if (ec) break;
    if (it->is_symlink() || !it->is_regular_file()) continue;
    files[it->path().string()] = test::readFile(it->path().string());
  }
  return files;
}

void checkWatchers(WFHelperAppDelegate& d, bool openMetaDisabled) {
  bool stream = d._syncFolderStreamRef != nullptr;
  std::optional<std::string> current = d.currentSyncFolderPath();
  if (stream != current.has_value()) fail("sync stream and currentSyncFolderPath disagree");
  if (current) {
    bool isDirectory = false;
    if (!FileManager::defaultManager().fileExistsAtPath(*current, &isDirectory) || !isDirectory)
      fail("watching something that is no folder: " + *current);
    if (d.activeSyncFolderPathCreateIfNecessary(false) != current)
      fail("watching another folder than the settings name");
  } else if (d.activeSyncFolderPathCreateIfNecessary(false)) {
    fail("a sync folder is set but not watched");
  }
  if (d.hasOpenMetaStream() == openMetaDisabled) fail("OpenMeta watcher disagrees with its switch");
}

void checkFiles(const std::string& home, const std::map<std::string, std::string>& before,
                const std::string& prefsFile) {
  std::map<std::string, std::string> after = snapshot(home);
  std::string ardel = home + "/Library/Mail/Ardel/";
  for (const auto& [path, bytes] : before) {
    bool ownFile = path == prefsFile || path.rfind(ardel, 0) == 0 || path == home + "/plain-file";
    if (!ownFile) continue;
    auto it = after.find(path);
    if (it == after.end() || it->second != bytes) fail("the helper changed " + path);
  }
  for (const auto& [path, bytes] : after) {
    std::string name = fs::path(path).filename().string();
    if (name.find(".tmp-") != std::string::npos || name.find(".wfcopy-") != std::string::npos)
      fail("temporary file left behind: " + path);
    // A list file anywhere is whole: the seeded bytes or the local list's.
    for (const char* list : kListNames) {
      if (name != list) continue;
      if (bytes != std::string("local ") + list &&
          !(before.count(path) && before.at(path) == bytes))
        fail("partial or foreign list file: " + path);
    }
  }
}

}  // namespace

// The temporary home goes to tmpfs when there is one: the atomic writers'
// fsync calls cost nothing there, which keeps the runs fast.
extern "C" int LLVMFuzzerInitialize(int*, char***) {
  struct stat st;
  if (stat("/dev/shm", &st) == 0 && S_ISDIR(st.st_mode)) setenv("TMPDIR", "/dev/shm", 1);
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  static test::FakePlatform p;  // one home per process, removed at exit
  FuzzedDataProvider in(data, size);
  fuzz::PreferencesInput input = fuzz::makePreferencesInput(in, p.environment.home);

  seedHome(p.environment.home, input.inContainer);
  std::string prefsFile =
      p.library() +
      (input.inContainer ? "/Containers/com.apple.mail/Data/Library/Preferences" : "/Preferences") +
      "/org.ardel.Wrenfold.plist";
  put(prefsFile, input.fileBytes);

  p.log.lines.clear();
  p.notifications.posted.clear();
  p.notifications.observers.clear();
  p.defaults.own = input.own;
  p.defaults.arguments = input.arguments;
  bool openMetaDisabled = p.defaults.boolForKey("disableOpenMetaScanning");
  std::map<std::string, std::string> before = snapshot(p.environment.home);

  {
    WFHelperAppDelegate d(p.services());
    try {
      d.preferencesDidChange(nullptr);
      checkWatchers(d, openMetaDisabled);
      using Action = fuzz::PreferencesInput::Action;
      std::size_t event = 0;
      for (Action action : input.actions) {
        switch (action) {
          case Action::KeywordsSaved:
            d.keywordsDidChange(nullptr);
            break;
          case Action::ProjectsSaved:
            d.projectsDidChange(nullptr);
            break;
          case Action::RulesSaved:
            d.rulesDidChange(nullptr);
            break;
          case Action::SmartMailboxesSaved:
            d.smartMailboxesDidChange(nullptr);
            break;
          case Action::SyncEvent:
            d.syncFilesDidChange({input.eventPaths.at(event++)});
            break;
          case Action::PreferencesChanged:
            d.preferencesDidChange(nullptr);
            checkWatchers(d, openMetaDisabled);
            break;
          case Action::CacheExpires:
            p.clock.now_ += 121.0;
            break;
        }
      }
    } catch (const platform::Terminated&) {
      fail("the helper ended itself on a preferences change");
    }
  }
  checkFiles(p.environment.home, before, prefsFile);
  // Every notice posted is one the plug-in knows.
  for (const std::string& name : p.notifications.posted)
    if (name.rfind("WrenfoldHelperDidUpdate", 0) != 0) fail("unexpected notice " + name);
  return 0;
}
