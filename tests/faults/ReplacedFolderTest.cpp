// The watched folders moved away, swapped with another folder or replaced
// by a symbolic link while the helper runs: it goes on watching whatever
// the configured path names now, so another computer's edits still arrive.
#include <fcntl.h>
#include <stdio.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <filesystem>

#include "StoreFixture.h"

namespace fs = std::filesystem;

namespace wf::faults {
namespace {

using test::readFile;
using test::writeFile;

class ReplacedFolder : public StoreFixture {
 protected:
  // A folder that holds the same list as the local one, so that its
  // appearance alone asks nobody to pull.
  std::string otherSyncFolder(const std::string& name) {
    std::string other = s.home() + "/" + name;
    makeFolders(other);
    writeFile(other + "/WrenfoldKeywords.plist", list("local keywords"));
    return other;
  }
  void launchWatchingSync() {
    launch();
    ASSERT_TRUE(s.waitForLine("Successfully set up SyncFolder Listener", 10)) << s.stderrText();
    s.watch("WrenfoldHelperDidUpdateKeywordsFile");
  }
  // Another computer edits the list in `folder`: the plug-in is told.
  void expectEditSeenIn(const std::string& folder) {
    ASSERT_TRUE(s.roundTrip()) << s.stderrText();
    writeFile(folder + "/WrenfoldKeywords.plist", list("keywords from the other computer"));
    EXPECT_TRUE(s.waitForSignal("WrenfoldHelperDidUpdateKeywordsFile", 1, 20))
        << s.stderrText().substr(0, 20000);
    EXPECT_EQ(readFile(ardel() + "/WrenfoldKeywords.plist"), list("local keywords"));
    EXPECT_TRUE(temporariesBelow(s.home()).empty());
    EXPECT_TRUE(s.helperRunning()) << s.stderrText();
  }
};

TEST_F(ReplacedFolder, SyncFolderMovedAwayAndReplacedByALinkIsWatchedThroughTheLink) {
  std::string other = otherSyncFolder("other");
  launchWatchingSync();
  if (HasFatalFailure()) return;
  fs::rename(sync(), s.home() + "/sync-real");
  fs::create_directory_symlink(other, sync());
  expectEditSeenIn(other);
  // What was moved away is not the sync folder any more.
  EXPECT_EQ(readFile(s.home() + "/sync-real/WrenfoldKeywords.plist"), list("shared keywords"));
}

TEST_F(ReplacedFolder, SyncFolderSwappedWithAnotherFolderIsWatchedInItsNewContents) {
  std::string other = otherSyncFolder("incoming");
  launchWatchingSync();
  if (HasFatalFailure()) return;
  // One rename that exchanges the two folders: no moment without a folder.
  ASSERT_EQ(renameat2(AT_FDCWD, other.c_str(), AT_FDCWD, sync().c_str(), RENAME_EXCHANGE), 0)
      << "renameat2: " << strerror(errno);
  EXPECT_EQ(readFile(other + "/WrenfoldKeywords.plist"), list("shared keywords"));
  expectEditSeenIn(sync());
}

TEST_F(ReplacedFolder, SyncFolderLinkPointedElsewhereIsWatchedAtItsNewTarget) {
  fs::rename(sync(), s.home() + "/sync-a");
  fs::create_directory_symlink(s.home() + "/sync-a", sync());
  std::string b = otherSyncFolder("sync-b");
  launchWatchingSync();
  if (HasFatalFailure()) return;
  // As `ln -sfn` does it: a new link renamed over the old one.
  fs::create_directory_symlink(b, s.home() + "/sync.new");
  fs::rename(s.home() + "/sync.new", sync());
  expectEditSeenIn(b);
}

TEST_F(ReplacedFolder, MailStoreReplacedByALinkIsWatchedThroughTheLink) {
  std::string other = s.home() + "/OtherStore";
  makeFolders(other + "/Inbox.mbox/Messages");
  launch();
  ASSERT_TRUE(s.waitForLine("Successfully set up OpenMeta Listener", 10)) << s.stderrText();
  fs::rename(store(), s.library() + "/Mail/V2-old");
  fs::create_directory_symlink(other, store());
  ASSERT_TRUE(s.roundTrip()) << s.stderrText();
  std::string path = message(mailbox(), "42.emlx");  // through the link
  tag(path);
  EXPECT_TRUE(waitForStub(path, 30)) << s.stderrText().substr(0, 20000);
  EXPECT_TRUE(s.helperRunning()) << s.stderrText();
}

}  // namespace
}  // namespace wf::faults
