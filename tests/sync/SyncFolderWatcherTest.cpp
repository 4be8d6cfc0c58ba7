#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>

#include "platform/foundation/FileManager.h"
#include "platform/linux/InotifyFileEventStream.h"
#include "support/EventBatches.h"
#include "support/MainLoopPump.h"
#include "sync/SyncFixture.h"
#include "sync/SyncFolderWatcher.h"

namespace wf::test {
namespace {

class SyncFolderWatcherTest : public SyncTest {
 protected:
  FakeFileEventStreamFactory& streams() { return platform.fileEvents; }
};

TEST_F(SyncFolderWatcherTest, StartWatchesTheSyncFolderWithOneSecondLatencyLeavingOutOwnChanges) {
  EXPECT_TRUE(delegate->startSyncFolderWatcher());
  ASSERT_EQ(streams().streams.size(), 1u);
  const auto& s = *streams().streams[0];
  EXPECT_TRUE(s.started);
  EXPECT_EQ(s.params.paths, (std::vector<std::string>{sync}));
  EXPECT_EQ(s.params.latency, 1.0);
  EXPECT_TRUE(s.params.ignoreSelf);
  EXPECT_TRUE(s.params.fileEvents);
  EXPECT_FALSE(s.params.mergeRepeatedPaths);  // every reported path is handled
  EXPECT_EQ(delegate->currentSyncFolderPath(), sync);
  EXPECT_TRUE(exists(sync));  // a missing folder is made
  EXPECT_EQ(keyed("startSyncFolderWatcher", "starting up Sync Folder Watcher for Path: " + sync),
            1u);
  EXPECT_EQ(keyed("startSyncFolderWatcher", "Successfully set up SyncFolder Listener"), 1u);
}

TEST_F(SyncFolderWatcherTest, StartingTwiceForTheSameFolderOnlyLogs) {
  ASSERT_TRUE(delegate->startSyncFolderWatcher());
  platform.log.lines.clear();
  EXPECT_TRUE(delegate->startSyncFolderWatcher());
  EXPECT_EQ(streams().created, 1);
  EXPECT_EQ(streams().destroyed, 0);
  EXPECT_EQ(keyed("startSyncFolderWatcher", "Already watching folder  " + sync), 1u);
  EXPECT_EQ(platform.log.lines.size(), 1u);
}

TEST_F(SyncFolderWatcherTest, AChangedFolderStopsTheOldStreamAndStartsANewOne) {
  ASSERT_TRUE(delegate->startSyncFolderWatcher());
  std::string other = platform.dir / "Elsewhere";
  setPreference("syncFolderPath", other);
  platform.log.lines.clear();
  EXPECT_TRUE(delegate->startSyncFolderWatcher());
  EXPECT_EQ(streams().created, 2);
  EXPECT_EQ(streams().destroyed, 1);
  ASSERT_EQ(streams().streams.size(), 1u);
  EXPECT_EQ(streams().streams[0]->params.paths, (std::vector<std::string>{other}));
  EXPECT_EQ(delegate->currentSyncFolderPath(), other);
  // The stop comes first, then the start.
  ASSERT_GE(platform.log.lines.size(), 2u);
  EXPECT_EQ(keyed("stopSyncFolderWatcher", "stopSyncFolderWatcher "), 1u);
  EXPECT_NE(platform.log.lines[0].find("stopSyncFolderWatcher "), std::string::npos);
  EXPECT_EQ(keyed("startSyncFolderWatcher", "starting up Sync Folder Watcher for Path: " + other),
            1u);
}

TEST_F(SyncFolderWatcherTest, StartingWithSyncingOffLeavesARunningStreamRunning) {
  ASSERT_TRUE(delegate->startSyncFolderWatcher());
  setPreference("settingsSyncMethod", "0");
  EXPECT_FALSE(delegate->startSyncFolderWatcher());
  EXPECT_EQ(streams().destroyed, 0);
  EXPECT_NE(delegate->_syncFolderStreamRef, nullptr);
  EXPECT_EQ(delegate->currentSyncFolderPath(), sync);
}

TEST_F(SyncFolderWatcherTest, StartingWithAFileAtTheSyncPathFails) {
  writeFile(platform.dir / "plain", "x");
  setPreference("syncFolderPath", platform.dir / "plain");
  EXPECT_FALSE(delegate->startSyncFolderWatcher());
  EXPECT_EQ(streams().created, 0);
  EXPECT_EQ(keyedLines(), 0u);
}

TEST_F(SyncFolderWatcherTest, StopWithoutAStreamLogsNothingAndClearsThePath) {
  delegate->setCurrentSyncFolderPath(std::string("/somewhere"));
  delegate->stopSyncFolderWatcher();
  EXPECT_EQ(delegate->currentSyncFolderPath(), std::nullopt);
  EXPECT_TRUE(platform.log.lines.empty());
}

TEST_F(SyncFolderWatcherTest, StopEndsTheStream) {
  ASSERT_TRUE(delegate->startSyncFolderWatcher());
  FakeFileEventStream* s = streams().streams[0];
  EXPECT_FALSE(s->stopped);
  platform.log.lines.clear();
  delegate->stopSyncFolderWatcher();
  EXPECT_EQ(streams().destroyed, 1);
  EXPECT_EQ(delegate->_syncFolderStreamRef, nullptr);
  EXPECT_EQ(delegate->currentSyncFolderPath(), std::nullopt);
  EXPECT_EQ(keyed("stopSyncFolderWatcher", "stopSyncFolderWatcher "), 1u);
}

TEST_F(SyncFolderWatcherTest, AStreamThatCannotBeMadeFailsWithoutAMessage) {
  streams().failCreate = true;
  EXPECT_FALSE(delegate->startSyncFolderWatcher());
  EXPECT_EQ(delegate->_syncFolderStreamRef, nullptr);
  EXPECT_EQ(delegate->currentSyncFolderPath(), std::nullopt);
  EXPECT_EQ(keyed("startSyncFolderWatcher", "failed to start the SyncFolder Listener\n"), 0u);
}

TEST_F(SyncFolderWatcherTest, AStreamThatCannotStartIsDiscarded) {
  streams().failStart = true;
  EXPECT_FALSE(delegate->startSyncFolderWatcher());
  EXPECT_EQ(streams().created, 1);
  EXPECT_EQ(streams().destroyed, 1);
  EXPECT_EQ(delegate->_syncFolderStreamRef, nullptr);
  EXPECT_EQ(delegate->currentSyncFolderPath(), std::nullopt);
  EXPECT_EQ(keyed("startSyncFolderWatcher", "failed to start the SyncFolder Listener\n"), 1u);
  EXPECT_EQ(keyed("startSyncFolderWatcher", "Successfully set up SyncFolder Listener"), 0u);
}

TEST_F(SyncFolderWatcherTest, TheCallbackHandsThePathsToTheDelegate) {
  ASSERT_TRUE(delegate->startSyncFolderWatcher());
  writeFile(localFile("WrenfoldKeywords.plist"), list("local"));
  writeFile(syncFile("WrenfoldKeywords.plist"), list("remote"));
  streams().streams[0]->fire({syncFile("WrenfoldKeywords.plist"), syncFile("other")});
  EXPECT_EQ(keyedFree("fseventsSyncFolder_callback", "Sync Folder Item did Change calledBack"), 1u);
  EXPECT_EQ(platform.notifications.posted,
            (std::vector<std::string>{"WrenfoldHelperDidUpdateKeywordsFile"}));
  EXPECT_EQ(always("syncFilesDidChange (null)"), 1u);
}

TEST_F(SyncFolderWatcherTest, PreferencesDecideWhetherTheWatcherRuns) {
  delegate->preferencesDidChange(nullptr);
  EXPECT_NE(delegate->_syncFolderStreamRef, nullptr);
  setPreference("settingsSyncMethod", "1");
  delegate->preferencesDidChange(nullptr);
  EXPECT_EQ(delegate->_syncFolderStreamRef, nullptr);
  EXPECT_EQ(delegate->currentSyncFolderPath(), std::nullopt);
}

// With the real inotify stream, as the helper runs it.
class RealSyncFolderWatcherTest : public SyncTest {
 protected:
  void SetUp() override {
    SyncTest::SetUp();
    services = platform.services();
    services.fileEvents = factory;
    delegate.reset();
    delegate = std::make_unique<WFHelperAppDelegate>(services);
  }
  std::size_t callbacks() const {
    return keyedFree("fseventsSyncFolder_callback", "Sync Folder Item did Change calledBack");
  }
  void foreignWriteSync(const std::string& name, const std::string& bytes) {
    foreignWrite(syncFile(name), bytes);
  }

  platform::Services services = platform.services();
  platform::InotifyFileEventStreamFactory factory{platform.log};
};

TEST_F(RealSyncFolderWatcherTest, TheHelpersOwnPushProducesNoCallback) {
  ASSERT_TRUE(delegate->startSyncFolderWatcher());
  writeFile(localFile("WrenfoldKeywords.plist"), list("saved by the plug-in"));
  writeFile(syncFile("WrenfoldKeywords.plist"), list("older"));
  // Let the stream take up the seeding writes first.
  ASSERT_TRUE(runUntil([&] { return callbacks() == 1; }, 5));
  platform.notifications.posted.clear();
  platform.log.lines.clear();

  delegate->keywordsDidChange(nullptr);
  ASSERT_EQ(readFile(syncFile("WrenfoldKeywords.plist")), list("saved by the plug-in"));
  // Another program's write afterwards is the first thing delivered.
  foreignWriteSync("notes.txt", "x");
  ASSERT_TRUE(runUntil([&] { return callbacks() == 1; }, 5));
  std::string notes = syncFile("notes.txt");
  EXPECT_EQ(keyed("syncFilesDidChange",
                  "syncFilesDidChange:(\n    " + notes + ",\n    " + notes + "\n) returning"),
            1u);
  EXPECT_TRUE(platform.notifications.posted.empty());
}

TEST_F(RealSyncFolderWatcherTest, ABurstOfSavesArrivesAsOneCallback) {
  ASSERT_TRUE(delegate->startSyncFolderWatcher());
  writeFile(localFile("WrenfoldKeywords.plist"), list("local"));
  foreignWriteSync("WrenfoldKeywords.plist", list("remote 1"));
  foreignWriteSync("WrenfoldKeywords.plist", list("remote 2"));
  foreignWriteSync("WrenfoldProjects.plist", list("remote"));
  ASSERT_TRUE(runUntil([&] { return callbacks() == 1; }, 5));
  // Keywords created and written (the kernel merges the second write's
  // event into the first while both wait unread), projects created and
  // written: one post per reported path.
  EXPECT_EQ(platform.notifications.posted,
            (std::vector<std::string>{
                "WrenfoldHelperDidUpdateKeywordsFile", "WrenfoldHelperDidUpdateKeywordsFile",
                "WrenfoldHelperDidUpdateProjectFile", "WrenfoldHelperDidUpdateProjectFile"}));
  EXPECT_EQ(readFile(localFile("WrenfoldKeywords.plist")), list("local"));
}

TEST_F(RealSyncFolderWatcherTest,
       AFolderReplacedBeforeTheStreamCaughtUpIsWatchedAnewOnTheNextStart) {
  ASSERT_TRUE(delegate->startSyncFolderWatcher());
  std::string other = platform.dir / "Other";
  ASSERT_EQ(mkdir(other.c_str(), 0755), 0);
  ASSERT_EQ(rename(sync.c_str(), (platform.dir / "SyncReal").c_str()), 0);
  ASSERT_EQ(symlink(other.c_str(), sync.c_str()), 0);
  platform.log.lines.clear();
  // The main loop has not run: the stream still watches the old folder,
  // so this is no case of "Already watching".
  EXPECT_TRUE(delegate->startSyncFolderWatcher());
  EXPECT_EQ(keyed("startSyncFolderWatcher", "Already watching folder  " + sync), 0u);
  EXPECT_EQ(keyed("stopSyncFolderWatcher", "stopSyncFolderWatcher "), 1u);
  EXPECT_EQ(keyed("startSyncFolderWatcher", "Successfully set up SyncFolder Listener"), 1u);
  foreignWrite(other + "/WrenfoldKeywords.plist", "from the other computer");
  ASSERT_TRUE(runUntil([&] { return callbacks() == 1; }, 5));
  std::string reported = sync + "/WrenfoldKeywords.plist";
  EXPECT_EQ(keyed("syncFilesDidChange",
                  "syncFilesDidChange:(\n    " + reported + ",\n    " + reported + "\n) returning"),
            1u);
  // Now it is the true case.
  platform.log.lines.clear();
  EXPECT_TRUE(delegate->startSyncFolderWatcher());
  EXPECT_EQ(keyed("startSyncFolderWatcher", "Already watching folder  " + sync), 1u);
}

}  // namespace
}  // namespace wf::test
