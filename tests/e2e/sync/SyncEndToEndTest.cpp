// Settings sync as a whole: the real helper, a private session bus, a
// temporary home, and other programs' writes into the sync folder.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdlib>
#include <fstream>
#include <sstream>

#include "support/Harness.h"

namespace wf::e2e {
namespace {

constexpr double kWait = 20;
const std::string kKeywords = "WrenfoldKeywords.plist";
const std::string kUpdated = "WrenfoldHelperDidUpdateKeywordsFile";

// A whole property list holding `text`: only whole lists travel.
std::string list(const std::string& text) {
  return "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<plist version=\"1.0\">\n<string>" + text +
         "</string>\n</plist>\n";
}

std::string readAll(const std::string& path) {
  std::ifstream f(path, std::ios::binary);
  std::stringstream ss;
  ss << f.rdbuf();
  return ss.str();
}

// Another program's write: the bytes in place, or a temporary renamed over.
void writeInPlace(const std::string& path, const std::string& bytes) {
  std::ofstream f(path, std::ios::binary | std::ios::trunc);
  f << bytes;
}
void writeThenRename(const std::string& path, const std::string& bytes) {
  std::string temporary = path + ".syncing-tmp";
  writeInPlace(temporary, bytes);
  ASSERT_EQ(rename(temporary.c_str(), path.c_str()), 0);
}

bool makeFolders(const std::string& path) {
  return std::system(("mkdir -p '" + path + "'").c_str()) == 0;
}

// What a file is, to show that nobody touched it.
struct Snapshot {
  std::string bytes;
  ino_t inode = 0;
  timespec modified{};
  bool operator==(const Snapshot& o) const {
    return bytes == o.bytes && inode == o.inode && modified.tv_sec == o.modified.tv_sec &&
           modified.tv_nsec == o.modified.tv_nsec;
  }
};
Snapshot snapshot(const std::string& path) {
  Snapshot s;
  struct stat st {};
  if (stat(path.c_str(), &st) == 0) {
    s.inode = st.st_ino;
    s.modified = st.st_mtim;
  }
  s.bytes = readAll(path);
  return s;
}

class SyncEndToEnd : public ::testing::Test {
 protected:
  void SetUp() override {
    local = s.library() + "/Mail/Ardel";
    sync = s.home() + "/Shared Sync";
    ASSERT_TRUE(makeFolders(local));
    ASSERT_TRUE(makeFolders(sync));
    s.writePreferences(preferences(sync));
  }
  Dictionary preferences(const std::string& folder) {
    return {{"settingsSyncMethod", Value(2)},
            {"syncFolderPath", Value(folder)},
            {"logSettingsSync", Value(true)}};
  }
  void launch() {
    s.startHelper();
    ASSERT_TRUE(s.waitForLaunch()) << s.stderrText();
    ASSERT_TRUE(
        s.waitForLine("(logSettingsSync)-[WFHelperAppDelegate startSyncFolderWatcher]: ", kWait));
  }
  std::string localFile(const std::string& name = kKeywords) const { return local + "/" + name; }
  std::string syncFile(const std::string& name = kKeywords) const { return sync + "/" + name; }
  int callbacks() const { return s.countInStderr("Sync Folder Item did Change calledBack"); }

  Session s;
  std::string local, sync;
};

TEST_F(SyncEndToEnd, ASavedListReplacesTheSyncCopy) {
  writeInPlace(localFile(), list("keywords saved here"));
  writeInPlace(syncFile(), list("older keywords"));
  launch();
  Snapshot before = snapshot(localFile());
  s.emit("WrenfoldKeywordListWasSaved");
  ASSERT_TRUE(s.waitForLine("copy success", kWait)) << s.stderrText();
  EXPECT_EQ(readAll(syncFile()), list("keywords saved here"));
  EXPECT_TRUE(snapshot(localFile()) == before);
}

TEST_F(SyncEndToEnd, AChangeWrittenInPlaceIsAnnouncedOnce) {
  writeInPlace(localFile(), list("mine"));
  writeInPlace(syncFile(), list("mine"));
  launch();
  s.watch(kUpdated);
  writeInPlace(syncFile(), list("changed on the other computer"));
  ASSERT_TRUE(s.waitForSignal(kUpdated, 1, 3.0)) << s.stderrText();
  ASSERT_TRUE(s.roundTrip());
  EXPECT_EQ(s.count(kUpdated), 1);
  EXPECT_EQ(readAll(localFile()), list("mine"));
}

TEST_F(SyncEndToEnd, AChangeWrittenThenRenamedIsAnnouncedOnce) {
  writeInPlace(localFile(), list("mine"));
  writeInPlace(syncFile(), list("mine"));
  launch();
  s.watch(kUpdated);
  writeThenRename(syncFile(), list("renamed into place by a sync client"));
  ASSERT_TRUE(s.waitForSignal(kUpdated, 1, 3.0)) << s.stderrText();
  ASSERT_TRUE(s.roundTrip());
  EXPECT_EQ(s.count(kUpdated), 1);
  EXPECT_EQ(readAll(localFile()), list("mine"));
}

TEST_F(SyncEndToEnd, TheHelpersOwnPushIsNoEvent) {
  writeInPlace(localFile(), list("new list"));
  writeInPlace(syncFile(), list("old list"));
  launch();
  s.watch(kUpdated);
  s.emit("WrenfoldKeywordListWasSaved");
  ASSERT_TRUE(s.waitForLine("copy success", kWait));
  // Another program's change afterwards is the first the watcher reports.
  writeInPlace(syncFile("notes.txt"), "x");
  ASSERT_TRUE(s.waitForLine("syncFilesDidChange (null)", kWait)) << s.stderrText();
  ASSERT_TRUE(s.roundTrip());
  EXPECT_EQ(callbacks(), 1) << s.stderrText();
  EXPECT_EQ(s.countInStderr("syncFilesDidChange WrenfoldHelperDidUpdateKeywordsFile"), 0)
      << s.stderrText();
  EXPECT_EQ(s.count(kUpdated), 0);
}

TEST_F(SyncEndToEnd, ANewSyncFolderMovesTheWatcher) {
  writeInPlace(localFile(), list("mine"));
  launch();
  std::string moved = s.home() + "/Elsewhere/Sync";
  s.writePreferences(preferences(moved));
  s.emit("WrenfoldPreferencesDidChange");
  ASSERT_TRUE(s.waitForLine("starting up Sync Folder Watcher for Path: " + moved, kWait))
      << s.stderrText();
  // That line comes before the watch exists; each start ends with the
  // success line once its watches are in place, so wait for as many of
  // those as there were starts.
  int starts = s.countInStderr("starting up Sync Folder Watcher for Path: ");
  ASSERT_TRUE(s.waitForLine("Successfully set up SyncFolder Listener", kWait, starts))
      << s.stderrText();
  EXPECT_EQ(s.countInStderr("stopSyncFolderWatcher \n"), 1);

  s.watch(kUpdated);
  writeInPlace(syncFile(), list("in the old folder"));        // no longer watched
  writeInPlace(moved + "/" + kKeywords, list("in the new"));  // watched
  // Created, then written: one post per path. On a loaded machine the two
  // events may fall into two callbacks, so wait for both posts.
  ASSERT_TRUE(s.waitForSignal(kUpdated, 2, 4.0)) << s.stderrText();
  ASSERT_TRUE(s.roundTrip());
  EXPECT_EQ(s.countInStderr("syncFilesDidChange Stem " + sync + "\n"), 0);
  EXPECT_EQ(s.count(kUpdated), 2);  // created, then written: one post per path
}

TEST_F(SyncEndToEnd, ASyncFolderDeletedWhileWatchedCostsNothing) {
  writeInPlace(localFile(), list("mine"));
  writeInPlace(syncFile(), list("theirs"));
  launch();
  Snapshot before = snapshot(localFile());
  ASSERT_EQ(std::system(("rm -rf '" + sync + "'").c_str()), 0);
  ASSERT_TRUE(s.waitForLine("Sync Folder Item did Change calledBack", kWait)) << s.stderrText();
  ASSERT_TRUE(s.roundTrip());
  EXPECT_TRUE(s.helperRunning());
  // The next save makes the folder again; with no copy there it pushes nothing.
  s.emit("WrenfoldKeywordListWasSaved");
  ASSERT_TRUE(s.waitForLine("Problem removing old file: file://", kWait)) << s.stderrText();
  struct stat st {};
  EXPECT_EQ(stat(sync.c_str(), &st), 0);
  EXPECT_FALSE(S_ISREG(st.st_mode));
  EXPECT_NE(stat(syncFile().c_str(), &st), 0);
  // The folder is back, and watched again.
  s.watch(kUpdated);
  writeInPlace(syncFile(), list("theirs, seeded again"));
  ASSERT_TRUE(s.waitForSignal(kUpdated, 1, 3.0)) << s.stderrText();
  EXPECT_TRUE(snapshot(localFile()) == before);
  EXPECT_TRUE(s.helperRunning());
}

TEST_F(SyncEndToEnd, ASyncPathThatIsAFileIsReportedAndLeftAlone) {
  std::string plain = s.home() + "/plain";
  writeInPlace(plain, "not a folder");
  s.writePreferences(preferences(plain));
  writeInPlace(localFile(), list("mine"));
  s.startHelper();
  ASSERT_TRUE(s.waitForLaunch()) << s.stderrText();
  std::string message = "File existing at SyncFolderPath is not directory! <Path: " + plain + "\n";
  EXPECT_GE(s.countInStderr(message), 1);
  int seen = s.countInStderr(message);
  s.emit("WrenfoldKeywordListWasSaved");
  ASSERT_TRUE(s.waitForLine(message, kWait, seen + 1)) << s.stderrText();
  ASSERT_TRUE(s.roundTrip());
  EXPECT_EQ(readAll(plain), "not a folder");
  EXPECT_EQ(readAll(localFile()), list("mine"));
  EXPECT_EQ(s.countInStderr("copy success"), 0);
  EXPECT_TRUE(s.helperRunning());
}

TEST_F(SyncEndToEnd, AnUnwritableSyncFolderKeepsItsCopy) {
  writeInPlace(localFile(), list("mine, newer"));
  writeInPlace(syncFile(), list("theirs"));
  // Root writes anywhere; an immutable folder refuses even root.
  bool immutable = false;
  if (geteuid() == 0) {
    immutable = std::system(("chattr +i '" + sync + "' 2>/dev/null").c_str()) == 0;
    if (!immutable) GTEST_SKIP() << "running as root where chattr +i is not available";
  } else {
    ASSERT_EQ(chmod(sync.c_str(), 0555), 0);
  }
  launch();
  Snapshot before = snapshot(localFile());
  s.emit("WrenfoldKeywordListWasSaved");
  bool logged = s.waitForLine("Problem removing old file: file://", kWait);
  std::string log = s.stderrText();
  std::string copy = readAll(syncFile());
  if (immutable) std::system(("chattr -i '" + sync + "'").c_str());
  chmod(sync.c_str(), 0755);
  ASSERT_TRUE(logged) << log;
  EXPECT_NE(log.find("\n\tError: Error Domain=NSCocoaErrorDomain Code=513 "), std::string::npos)
      << log;
  EXPECT_EQ(copy, list("theirs"));
  EXPECT_TRUE(snapshot(localFile()) == before);
  EXPECT_TRUE(s.helperRunning());
}

// Whatever happens in the sync folder, the local list files stay as they are:
// taking up a changed copy is the plug-in's business.
TEST_F(SyncEndToEnd, LocalListFilesAreNeverModified) {
  const char* lists[] = {"WrenfoldKeywords.plist", "WrenfoldProjects.plist",
                         "WrenfoldInboxRules.plist", "WrenfoldSmartMailboxes.plist"};
  for (const char* name : lists) writeInPlace(localFile(name), list(std::string("local ") + name));
  writeInPlace(syncFile("WrenfoldProjects.plist"), list("shared projects"));
  launch();
  std::vector<Snapshot> before;
  for (const char* name : lists) before.push_back(snapshot(localFile(name)));

  s.watch(kUpdated);
  for (const char* name : lists) writeInPlace(syncFile(name), list(std::string("remote ") + name));
  writeThenRename(syncFile(), list("remote again"));
  ASSERT_EQ(unlink(syncFile("WrenfoldInboxRules.plist").c_str()), 0);
  ASSERT_TRUE(makeFolders(sync + "/sub"));
  writeInPlace(sync + "/sub/" + kKeywords, "nested");
  writeInPlace(syncFile("WrenfoldSmartMailboxes.plist"), "");
  ASSERT_TRUE(s.waitForSignal(kUpdated, 1, kWait)) << s.stderrText();
  s.emit("WrenfoldProjectListWasSaved");  // replaces the sync copy
  s.emit("WrenfoldInboxRulesWereSaved");  // no sync copy: nothing pushed
  s.emit("WrenfoldKeywordListWasSaved");
  ASSERT_TRUE(s.waitForLine("copy success", kWait, 2)) << s.stderrText();
  ASSERT_EQ(std::system(("rm -rf '" + sync + "'").c_str()), 0);
  ASSERT_TRUE(s.waitUntil(
      [&] { return s.countInStderr("Sync Folder Item did Change calledBack") >= 2; }, kWait));
  ASSERT_TRUE(s.roundTrip());

  for (std::size_t i = 0; i < std::size(lists); ++i)
    EXPECT_TRUE(snapshot(localFile(lists[i])) == before[i]) << lists[i];
  EXPECT_TRUE(s.helperRunning());
}

}  // namespace
}  // namespace wf::e2e
