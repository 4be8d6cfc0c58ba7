// What travels through the sync folder: whole lists only, never a conflict
// copy, never a list caught while it was being written.
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <thread>

#include "platform/linux/LinuxRemoteFolders.h"
#include "platform/plist/PropertyList.h"
#include "sync/SyncFixture.h"
#include "sync/SyncFolderPoll.h"

namespace wf::test {
namespace {

const std::string kKeywords = "WrenfoldKeywords.plist";

class SyncWholeListsTest : public SyncTest {
 protected:
  void seed(const std::string& localBytes, const std::string& syncBytes) {
    ASSERT_TRUE(delegate->activeSyncFolderPathCreateIfNecessary(true));
    writeFile(localFile(kKeywords), localBytes);
    writeFile(syncFile(kKeywords), syncBytes);
  }
  std::size_t startingWith(const std::string& prefix) const {
    return platform.log.startingWith(prefix).size();
  }
};

// ---- sync copies that are not whole ----------------------------------------

TEST_F(SyncWholeListsTest, EmptyTruncatedOrForeignSyncCopiesAreNotAnnounced) {
  std::string whole = list("from the other computer");
  for (const std::string& bad :
       {std::string(), whole.substr(0, whole.size() / 2), std::string("PK\3\4 not a list")}) {
    seed(list("local"), bad);
    platform.log.lines.clear();
    delegate->syncFilesDidChange({syncFile(kKeywords)});
    EXPECT_TRUE(platform.notifications.posted.empty()) << bad.size();
    EXPECT_EQ(startingWith("Sync copy is not a whole property list, not announced: " +
                           syncFile(kKeywords) + ": "),
              1u)
        << bad.size();
    EXPECT_EQ(readFile(syncFile(kKeywords)), bad);
    EXPECT_EQ(readFile(localFile(kKeywords)), list("local"));
  }
  EXPECT_EQ(delegate->syncStatus.refused.size(), 3u);
  EXPECT_EQ(delegate->syncStatus.lists[kKeywords].lastAnnouncementOutcome.rfind("refused: ", 0),
            0u);
  // A later whole copy is announced as usual.
  writeFile(syncFile(kKeywords), whole);
  delegate->syncFilesDidChange({syncFile(kKeywords)});
  EXPECT_EQ(platform.notifications.posted,
            (std::vector<std::string>{"WrenfoldHelperDidUpdateKeywordsFile"}));
  EXPECT_EQ(delegate->syncStatus.lists[kKeywords].lastAnnouncementOutcome, "announced");
}

// ---- local lists that are not whole ------------------------------------------

TEST_F(SyncWholeListsTest, AnEmptyOrTruncatedLocalListIsNotPushed) {
  std::string whole = list("saved here");
  for (const std::string& bad : {std::string(), whole.substr(0, whole.size() - 12)}) {
    seed(bad, list("shared"));
    platform.log.lines.clear();
    EXPECT_FALSE(delegate->pushSyncFile(kKeywords));
    EXPECT_EQ(readFile(syncFile(kKeywords)), list("shared")) << bad.size();
    EXPECT_EQ(startingWith("Local list is not a whole property list, not pushed: " +
                           localFile(kKeywords) + ": "),
              1u)
        << bad.size();
    EXPECT_EQ(keyed("pushSyncFile", "copy success"), 0u);
  }
  writeFile(localFile(kKeywords), whole);
  EXPECT_TRUE(delegate->pushSyncFile(kKeywords));
  EXPECT_EQ(readFile(syncFile(kKeywords)), whole);
  EXPECT_EQ(delegate->syncStatus.lists[kKeywords].lastPushOutcome, "pushed");
}

// ---- conflict copies -----------------------------------------------------------

TEST_F(SyncWholeListsTest, ConflictCopiesAreReportedOnceAndNeverAnnouncedOrTouched) {
  seed(list("local"), list("shared"));
  std::vector<std::pair<std::string, std::string>> copies{
      {"WrenfoldKeywords.sync-conflict-20261124-101010-ABCDEFG.plist", "Syncthing"},
      {"WrenfoldKeywords (conflicted copy 2026-11-24 101010).plist", "Nextcloud/ownCloud"},
      {"WrenfoldKeywords (Laptop's conflicted copy 2026-11-24).plist", "Dropbox"},
      {"WrenfoldKeywords.Conflict.plist", "Resilio"}};
  std::vector<std::string> paths;
  for (const auto& [name, engine] : copies) {
    writeFile(syncFile(name), list("the other computer's " + engine));
    paths.push_back(syncFile(name));
  }
  delegate->syncFilesDidChange(paths);
  delegate->syncFilesDidChange(paths);
  EXPECT_TRUE(platform.notifications.posted.empty());
  for (const auto& [name, engine] : copies) {
    EXPECT_EQ(
        always("Conflict copy " + syncFile(name) + " of WrenfoldKeywords.plist (made by " + engine +
               "): left as it is, never announced or pushed; compare it with the list "
               "and merge by hand"),
        1u)
        << name;
    EXPECT_EQ(readFile(syncFile(name)), list("the other computer's " + engine));
  }
  ASSERT_EQ(delegate->syncStatus.conflicts.size(), 4u);
  EXPECT_EQ(delegate->syncStatus.conflicts[0].engine, "Syncthing");
  EXPECT_EQ(delegate->syncStatus.conflicts[0].list, kKeywords);
  // A push replaces the list, never a copy.
  EXPECT_TRUE(delegate->pushSyncFile(kKeywords));
  for (const auto& [name, engine] : copies)
    EXPECT_EQ(readFile(syncFile(name)), list("the other computer's " + engine));
}

TEST_F(SyncWholeListsTest, ConflictCopiesAlreadyThereAreReportedWhenTheWatcherStarts) {
  seed(list("local"), list("shared"));
  std::string copy = syncFile("WrenfoldProjects (conflicted copy 2026-11-24 101010).plist");
  writeFile(copy, list("theirs"));
  ASSERT_TRUE(delegate->startSyncFolderWatcher());
  EXPECT_EQ(startingWith("Conflict copy " + copy +
                         " of WrenfoldProjects.plist (made by "
                         "Nextcloud/ownCloud)"),
            1u);
  EXPECT_TRUE(platform.notifications.posted.empty());
}

// ---- a list rewritten in place while it is pushed ---------------------------------

// Another program rewrites a large list in place, again and again, while the
// plug-in's saves are pushed: every copy the sync folder ever shows is one
// version, whole.
TEST_F(SyncWholeListsTest, AListRewrittenInPlaceIsNeverPushedTorn) {
  auto version = [](char c) {
    Array items;
    for (int i = 0; i < 40000; ++i) items.emplace_back(std::string(100, c));
    std::string out;
    EXPECT_TRUE(plist::toXML(Value(std::move(items)), out));
    return out;
  };
  const std::string a = version('a');
  const std::string b = version('b');
  ASSERT_EQ(a.size(), b.size());
  ASSERT_GT(a.size(), 4u << 20);
  seed(a, list("shared"));

  std::atomic<bool> stop{false};
  std::thread writer([&] {
    bool useB = true;
    while (!stop) {
      int fd = open(localFile(kKeywords).c_str(), O_WRONLY);
      if (fd < 0) break;
      const std::string& bytes = useB ? b : a;
      // In chunks, as a program writing a large file does; a version once
      // begun is written to its end.
      for (std::size_t at = 0; at < bytes.size(); at += 65536) {
        std::size_t n = std::min<std::size_t>(65536, bytes.size() - at);
        if (pwrite(fd, bytes.data() + at, n, static_cast<off_t>(at)) < 0) break;
      }
      close(fd);
      useB = !useB;
    }
  });
  int pushed = 0;
  int snapshots = 0;
  for (int i = 0; i < 6; ++i) {
    if (delegate->pushSyncFile(kKeywords)) ++pushed;
    std::string copy = readFile(syncFile(kKeywords));
    ++snapshots;
    EXPECT_TRUE(copy == a || copy == b || copy == list("shared"))
        << "snapshot " << i << " is torn (" << copy.size() << " bytes)";
  }
  stop = true;
  writer.join();
  // Once the writer stops, the list stands still and travels.
  std::string last = readFile(localFile(kKeywords));
  ASSERT_TRUE(last == a || last == b);
  delegate->pushSyncFile(kKeywords);
  EXPECT_EQ(readFile(syncFile(kKeywords)), last);
  EXPECT_GT(snapshots, 0);
  (void)pushed;
}

// ---- the file system ---------------------------------------------------------------

TEST_F(SyncWholeListsTest, ALocalSyncFolderIsWatchedByInotifyAloneAndNeverPolled) {
  platform::LinuxRemoteFolders folders;
  platform::Services services = platform.services();
  services.remoteFolders = &folders;
  delegate.reset();
  delegate = std::make_unique<WFHelperAppDelegate>(services);
  ASSERT_TRUE(delegate->startSyncFolderWatcher());
  EXPECT_EQ(delegate->syncStatus.path, sync);
  EXPECT_EQ(delegate->syncStatus.watch, "inotify");
  EXPECT_FALSE(delegate->syncStatus.fileSystem.empty());
  EXPECT_FALSE(platform::isRemoteFileSystemType(delegate->syncStatus.fileSystem));
  EXPECT_EQ(delegate->syncFolderPoll, nullptr);
  EXPECT_EQ(startingWith("Sync folder "), 0u);
  delegate->stopSyncFolderWatcher();
  EXPECT_EQ(delegate->syncStatus.watch, "off");
}

}  // namespace
}  // namespace wf::test
