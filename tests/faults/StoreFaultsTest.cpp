// The sync folder and the Mail store deleted, replaced by a file or made
// unreadable while the helper watches them, and message files that vanish
// or turn into something else between their event and their import.
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>

#include "StoreFixture.h"
#include "SystemFaults.h"

namespace fs = std::filesystem;

namespace wf::faults {
namespace {

using test::exists;
using test::readFile;
using test::writeFile;

class StoreFaults : public StoreFixture {
 protected:
  void expectNothingLost() {
    EXPECT_EQ(readFile(ardel() + "/WrenfoldKeywords.plist"), list("local keywords"));
    EXPECT_TRUE(temporariesBelow(s.home()).empty()) << temporariesBelow(s.home()).front();
    EXPECT_TRUE(s.helperRunning()) << s.stderrText();
  }
  // Children started from now on meet file permissions as any user does.
  void needPermissions() {
    std::string reason;
    if (geteuid() == 0 && !dropPermissionOverrideForChildren(&reason))
      GTEST_SKIP() << "root reads folders of mode 000 and " << reason;
  }
};

TEST_F(StoreFaults, SyncFolderDeletedWhileWatchedIsMadeAgainAndWatchedAgain) {
  launch();
  ASSERT_TRUE(s.waitForLine("Successfully set up SyncFolder Listener", 10));
  s.watch("WrenfoldHelperDidUpdateKeywordsFile");
  fs::remove_all(sync());
  // The next change notice applies the settings, which make the folder anew.
  ASSERT_TRUE(s.roundTrip()) << s.stderrText();
  ASSERT_TRUE(s.waitForFiles([&] { return exists(sync()); }, 10)) << s.stderrText();
  writeFile(sync() + "/WrenfoldKeywords.plist", list("keywords from the other computer"));
  EXPECT_TRUE(s.waitForSignal("WrenfoldHelperDidUpdateKeywordsFile", 1, 20)) << s.stderrText();
  expectNothingLost();
}

TEST_F(StoreFaults, SyncFolderReplacedByAFileIsLeftAloneAndReported) {
  launch();
  fs::remove_all(sync());
  writeFile(sync(), "a file of the user's");
  s.emit("WrenfoldKeywordListWasSaved");
  ASSERT_TRUE(s.roundTrip());
  EXPECT_TRUE(
      s.waitForLine("File existing at SyncFolderPath is not directory! <Path: " + sync(), 10))
      << s.stderrText();
  EXPECT_EQ(readFile(sync()), "a file of the user's");
  expectNothingLost();
}

TEST_F(StoreFaults, UnreadableSyncFolderIsReportedAndWatchedOnceReadableAgain) {
  needPermissions();
  if (IsSkipped()) return;
  ASSERT_EQ(chmod(sync().c_str(), 0), 0);
  launch();
  EXPECT_TRUE(s.waitForLine("failed to start the SyncFolder Listener", 10)) << s.stderrText();
  s.emit("WrenfoldKeywordListWasSaved");
  EXPECT_TRUE(s.waitForLine("Problem removing old file: ", 10)) << s.stderrText();
  ASSERT_EQ(chmod(sync().c_str(), 0755), 0);
  EXPECT_EQ(readFile(sync() + "/WrenfoldKeywords.plist"), list("shared keywords"));

  s.watch("WrenfoldHelperDidUpdateKeywordsFile");
  ASSERT_TRUE(s.roundTrip());
  ASSERT_TRUE(s.waitForLine("Successfully set up SyncFolder Listener", 10)) << s.stderrText();
  writeFile(sync() + "/WrenfoldKeywords.plist", list("keywords from the other computer"));
  EXPECT_TRUE(s.waitForSignal("WrenfoldHelperDidUpdateKeywordsFile", 1, 20)) << s.stderrText();
  expectNothingLost();
}

TEST_F(StoreFaults, MailStoreDeletedWhileWatchedIsWatchedAgainWhenItComesBack) {
  std::string first = message(mailbox(), "1.emlx");
  launch();
  tag(first);
  ASSERT_TRUE(waitForStub(first)) << s.stderrText();

  fs::remove_all(store());
  ASSERT_TRUE(s.roundTrip());
  makeFolders(mailbox());
  std::string second = message(mailbox(), "2.emlx");
  tag(second);
  EXPECT_TRUE(waitForStub(second)) << s.stderrText();
  expectNothingLost();
}

TEST_F(StoreFaults, MailStoreReplacedByAFileIsLeftAlone) {
  launch();
  fs::remove_all(store());
  writeFile(store(), "not a mail store");
  ASSERT_TRUE(s.roundTrip());
  EXPECT_EQ(readFile(store()), "not a mail store");
  fs::remove(store());
  makeFolders(mailbox());
  std::string later = message(mailbox(), "3.emlx");
  tag(later);
  EXPECT_TRUE(waitForStub(later)) << s.stderrText();
  expectNothingLost();
}

TEST_F(StoreFaults, UnreadableMailStoreAtLaunchIsReportedAndTheHelperRuns) {
  needPermissions();
  if (IsSkipped()) return;
  std::string path = message(mailbox(), "4.emlx");
  std::string bytes = readFile(path);
  ASSERT_EQ(chmod(store().c_str(), 0), 0);
  launch();
  EXPECT_TRUE(s.waitForLine("failed to start the OpenMeta Listener", 10)) << s.stderrText();
  ASSERT_EQ(chmod(store().c_str(), 0755), 0);
  ASSERT_TRUE(s.roundTrip());
  EXPECT_EQ(readFile(path), bytes);
  expectNothingLost();
}

TEST_F(StoreFaults, MessagesThatVanishOrChangeKindBeforeTheirImportAreSkipped) {
  launch();
  // Each is reported by its events and gone, or no longer a file, by the
  // time the import comes round (one stream latency later).
  std::string vanished = message(mailbox(), "5.emlx");
  tag(vanished);
  fs::remove(vanished);
  std::string moved = message(mailbox(), "6.emlx");
  tag(moved);
  fs::rename(moved, mailbox() + "/6.partial");
  std::string fifo = mailbox() + "/7.emlx";
  ASSERT_EQ(mkfifo(fifo.c_str(), 0600), 0);
  std::string folder = mailbox() + "/8.emlx";
  makeFolders(folder);
  std::string marker = message(mailbox(), "9.emlx");
  tag(marker);

  ASSERT_TRUE(waitForStub(marker)) << s.stderrText();
  ASSERT_TRUE(s.roundTrip()) << "the helper is stuck";
  EXPECT_FALSE(exists(stubOf(vanished)));
  EXPECT_FALSE(exists(stubOf(moved)));
  EXPECT_EQ(s.countInStderr("emlx file changed: " + vanished), 0);
  EXPECT_EQ(s.countInStderr("emlx file changed: " + moved), 0);
  EXPECT_EQ(s.countInStderr("uncaught exception"), 0) << s.stderrText();
  expectNothingLost();
}

}  // namespace
}  // namespace wf::faults
