// A thousand "WrenfoldPreferencesDidChange" notices within a second, while
// the preferences file keeps changing under them: every notice is handled,
// no watch leaks, and the last settings win.
#include <chrono>

#include "StoreFixture.h"
#include "SystemFaults.h"

namespace wf::faults {
namespace {

using test::readFile;

class SignalBurst : public StoreFixture {};

TEST_F(SignalBurst, AThousandPreferenceNoticesInASecondAreAllHandled) {
  launch();
  const char* line = "External OpenMeta Scanning Enabled";
  int before = s.countInStderr(line);
  int watches = inotifyWatchCount(s.helperPid());
  ASSERT_GT(watches, 0);
  auto start = std::chrono::steady_clock::now();
  for (int i = 0; i < 1000; ++i) s.emit("WrenfoldPreferencesDidChange");
  double sent = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
  EXPECT_TRUE(s.waitForLine(line, 60, before + 1000))
      << s.countInStderr(line) - before << " handled";
  EXPECT_LT(sent, 5.0) << "the notices did not go out as one burst";
  ASSERT_TRUE(s.roundTrip());
  EXPECT_EQ(inotifyWatchCount(s.helperPid()), watches);
  EXPECT_TRUE(s.helperRunning());
}

TEST_F(SignalBurst, NoticesWhileTheSyncFolderKeepsMovingLeaveTheLastFolderWatched) {
  std::string other = s.home() + "/sync-two";
  makeFolders(other);
  test::writeFile(other + "/WrenfoldKeywords.plist", list("shared keywords"));
  launch();
  int watches = inotifyWatchCount(s.helperPid());
  std::string before = inotifyWatches(s.helperPid());
  const char* handled = "External OpenMeta Scanning Enabled";
  int launchLines = s.countInStderr(handled);
  for (int i = 0; i < 1000; ++i) {
    s.writePreferences({{"settingsSyncMethod", Value(2)},
                        {"syncFolderPath", Value(i % 2 ? sync() : other)},
                        {"recognizeOpenMetaTags", Value(true)}});
    s.emit("WrenfoldPreferencesDidChange");
  }
  // Every notice handled; the last file named `sync()`.
  ASSERT_TRUE(s.waitForLine(handled, 300, launchLines + 1000))
      << s.countInStderr(handled) - launchLines << " of 1000 handled";
  ASSERT_TRUE(s.roundTrip());
  EXPECT_EQ(inotifyWatchCount(s.helperPid()), watches)
      << "before:\n"
      << before << "after:\n"
      << inotifyWatches(s.helperPid())
      << "failed starts: " << s.countInStderr("failed to start the SyncFolder Listener")
      << ", starts: " << s.countInStderr("Successfully set up SyncFolder Listener")
      << ", stops: " << s.countInStderr("stopSyncFolderWatcher");
  s.watch("WrenfoldHelperDidUpdateKeywordsFile");
  test::writeFile(other + "/WrenfoldKeywords.plist", list("not watched any more"));
  test::writeFile(sync() + "/WrenfoldKeywords.plist", list("keywords from the other computer"));
  EXPECT_TRUE(s.waitForSignal("WrenfoldHelperDidUpdateKeywordsFile", 1, 20)) << s.stderrText();
  ASSERT_TRUE(s.roundTrip());
  EXPECT_EQ(s.count("WrenfoldHelperDidUpdateKeywordsFile"), 1);
  EXPECT_EQ(readFile(ardel() + "/WrenfoldKeywords.plist"), list("local keywords"));
  EXPECT_TRUE(temporariesBelow(s.home()).empty());
  EXPECT_TRUE(s.helperRunning());
}

}  // namespace
}  // namespace wf::faults
