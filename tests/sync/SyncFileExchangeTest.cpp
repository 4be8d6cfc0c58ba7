#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>

#include "platform/foundation/FileManager.h"
#include "platform/foundation/Format.h"
#include "sync/SyncFixture.h"

namespace wf::test {
namespace {

const std::string kKeywords = "WrenfoldKeywords.plist";

class SyncFileExchangeTest : public SyncTest {
 protected:
  void seed(const std::string& localBytes, const std::string& syncBytes) {
    ASSERT_TRUE(delegate->activeSyncFolderPathCreateIfNecessary(true));
    writeFile(localFile(kKeywords), localBytes);
    writeFile(syncFile(kKeywords), syncBytes);
  }
  std::size_t posts(const std::string& name) const {
    return static_cast<std::size_t>(std::count(platform.notifications.posted.begin(),
                                               platform.notifications.posted.end(), name));
  }
};

// ---- the active sync folder --------------------------------------------------

TEST_F(SyncFileExchangeTest, OnlyMethodTwoSelectsAFolder) {
  EXPECT_EQ(delegate->activeSyncFolderPathCreateIfNecessary(true), sync);
  for (const char* method : {"0", "1", "3"}) {
    setPreference("settingsSyncMethod", method);
    EXPECT_EQ(delegate->activeSyncFolderPathCreateIfNecessary(true), std::nullopt) << method;
  }
  removePreference("settingsSyncMethod");
  EXPECT_EQ(delegate->activeSyncFolderPathCreateIfNecessary(true), std::nullopt);
}

TEST_F(SyncFileExchangeTest, AMissingFolderIsMadeWithItsParentsOnlyWhenAsked) {
  EXPECT_EQ(delegate->activeSyncFolderPathCreateIfNecessary(false), std::nullopt);
  EXPECT_FALSE(exists(sync));
  EXPECT_EQ(delegate->activeSyncFolderPathCreateIfNecessary(true), sync);
  bool isDirectory = false;
  EXPECT_TRUE(FileManager::defaultManager().fileExistsAtPath(sync, &isDirectory) && isDirectory);
  EXPECT_TRUE(platform.log.lines.empty());
}

TEST_F(SyncFileExchangeTest, AFileAtTheSyncPathIsNoFolder) {
  writeFile(platform.dir / "plain", "x");
  setPreference("syncFolderPath", platform.dir / "plain");
  EXPECT_EQ(delegate->activeSyncFolderPathCreateIfNecessary(true), std::nullopt);
  EXPECT_EQ(always("File existing at SyncFolderPath is not directory! <Path: " +
                   (platform.dir / "plain")),
            1u);
  // Push, check and event handling do nothing.
  writeFile(localFile(kKeywords), "local");
  EXPECT_FALSE(delegate->pushSyncFile(kKeywords));
  EXPECT_FALSE(delegate->shouldPullSyncFile(kKeywords));
  delegate->syncFilesDidChange({platform.dir / "plain/WrenfoldKeywords.plist"});
  EXPECT_TRUE(platform.notifications.posted.empty());
  EXPECT_EQ(readFile(platform.dir / "plain"), "x");
}

TEST_F(SyncFileExchangeTest, AFolderThatCannotBeMadeIsLoggedWithItsError) {
  writeFile(platform.dir / "plain", "x");
  std::string below = platform.dir / "plain/Sync";
  setPreference("syncFolderPath", below);
  EXPECT_EQ(delegate->activeSyncFolderPathCreateIfNecessary(true), std::nullopt);
  auto lines = platform.log.startingWith("Problem creating Sync Folder!\n\tpath: " + below +
                                         "\n\terror: Error Domain=");
  EXPECT_EQ(lines.size(), 1u);
}

// ---- pushing -------------------------------------------------------------------

TEST_F(SyncFileExchangeTest, APushReplacesTheSyncCopyWithTheLocalFile) {
  seed(list("new list"), list("old list"));
  EXPECT_TRUE(delegate->pushSyncFile(kKeywords));
  EXPECT_EQ(readFile(syncFile(kKeywords)), list("new list"));
  EXPECT_EQ(readFile(localFile(kKeywords)), list("new list"));
  EXPECT_EQ(keyed("pushSyncFile", format("copy %@ to %@", FileURL{localFile(kKeywords)},
                                         FileURL{syncFile(kKeywords)})),
            1u);
  EXPECT_EQ(keyed("pushSyncFile", "copy success"), 1u);
}

TEST_F(SyncFileExchangeTest, IdenticalFilesAreNotCopied) {
  seed("same", "same");
  struct stat before {};
  ASSERT_EQ(stat(syncFile(kKeywords).c_str(), &before), 0);
  EXPECT_FALSE(delegate->pushSyncFile(kKeywords));
  struct stat after {};
  ASSERT_EQ(stat(syncFile(kKeywords).c_str(), &after), 0);
  EXPECT_EQ(before.st_ino, after.st_ino);
  EXPECT_EQ(keyed("pushSyncFile", "source and target files are identical! WrenfoldKeywords.plist"),
            1u);
  EXPECT_EQ(keyed("pushSyncFile", "copy success"), 0u);
}

TEST_F(SyncFileExchangeTest, ASyncCopyThatDoesNotExistYetIsNeverPushed) {
  ASSERT_TRUE(delegate->activeSyncFolderPathCreateIfNecessary(true));
  writeFile(localFile(kKeywords), "local list");
  EXPECT_FALSE(delegate->pushSyncFile(kKeywords));
  EXPECT_FALSE(exists(syncFile(kKeywords)));
  auto lines = platform.log.startingWith(
      "Problem removing old file: " + FileURL{syncFile(kKeywords)}.absoluteString() +
      " \n\tError: Error Domain=NSCocoaErrorDomain Code=4 ");
  EXPECT_EQ(lines.size(), 1u);
  EXPECT_EQ(keyed("pushSyncFile", "copy success"), 0u);
}

TEST_F(SyncFileExchangeTest, AMissingLocalFileCostsTheSyncCopy) {
  seed("unused", "shared list");
  ASSERT_EQ(unlink(localFile(kKeywords).c_str()), 0);
  EXPECT_FALSE(delegate->pushSyncFile(kKeywords));
  EXPECT_FALSE(exists(syncFile(kKeywords)));
  auto lines = platform.log.startingWith("error ");
  ASSERT_EQ(lines.size(), 1u);
  EXPECT_NE(lines[0].find("no such file"), std::string::npos) << lines[0];
}

TEST_F(SyncFileExchangeTest, TheFirstPushMakesTheFolderWithItsParents) {
  writeFile(localFile(kKeywords), "local");
  EXPECT_FALSE(exists(sync));
  EXPECT_FALSE(delegate->pushSyncFile(kKeywords));  // nothing to replace yet
  EXPECT_TRUE(exists(sync));
}

TEST_F(SyncFileExchangeTest, ASyncPathWithATrailingSlashStillPushes) {
  seed(list("new"), list("old"));
  setPreference("syncFolderPath", sync + "/");
  EXPECT_TRUE(delegate->pushSyncFile(kKeywords));
  EXPECT_EQ(readFile(syncFile(kKeywords)), list("new"));
}

TEST_F(SyncFileExchangeTest, EachHandlerPushesItsOwnList) {
  struct Row {
    void (WFHelperAppDelegate::*handler)(const platform::Notification*);
    std::string file;
  };
  std::vector<Row> rows{
      {&WFHelperAppDelegate::keywordsDidChange, "WrenfoldKeywords.plist"},
      {&WFHelperAppDelegate::projectsDidChange, "WrenfoldProjects.plist"},
      {&WFHelperAppDelegate::rulesDidChange, "WrenfoldInboxRules.plist"},
      {&WFHelperAppDelegate::smartMailboxesDidChange, "WrenfoldSmartMailboxes.plist"}};
  ASSERT_TRUE(delegate->activeSyncFolderPathCreateIfNecessary(true));
  for (const Row& row : rows) {
    writeFile(localFile(row.file), list("local " + row.file));
    writeFile(syncFile(row.file), list("old"));
  }
  for (const Row& row : rows) {
    platform::Notification n{"anything", {}};
    (delegate.get()->*row.handler)(&n);
    EXPECT_EQ(readFile(syncFile(row.file)), list("local " + row.file));
  }
  EXPECT_EQ(keyed("keywordsDidChange", "keywords did Change Notification"), 1u);
  EXPECT_EQ(keyed("smartMailboxesDidChange", "SMBs did Change 2"), 1u);
  EXPECT_EQ(keyed("smartMailboxesDidChange", "copy Changed SMB"), 1u);
  EXPECT_EQ(keyed("rulesDidChange", "Rules did Change 2"), 1u);
  EXPECT_EQ(keyed("rulesDidChange", "copy Changed Rules"), 1u);
  EXPECT_EQ(keyed("projectsDidChange", "Projects did Change 2"), 1u);
  EXPECT_EQ(keyed("projectsDidChange", "copy Changed Projects"), 1u);
  EXPECT_EQ(keyed("pushSyncFile", "copy success"), 4u);
}

TEST_F(SyncFileExchangeTest, WithSyncingOffASavedListIsNotPushedButTheCountsAreLogged) {
  ASSERT_TRUE(delegate->activeSyncFolderPathCreateIfNecessary(true));
  for (const char* file : {"WrenfoldKeywords.plist", "WrenfoldProjects.plist",
                           "WrenfoldInboxRules.plist", "WrenfoldSmartMailboxes.plist"}) {
    writeFile(localFile(file), "local");
    writeFile(syncFile(file), "old");
  }
  for (const char* method : std::initializer_list<const char*>{"0", "1", nullptr}) {
    if (method)
      setPreference("settingsSyncMethod", method);
    else
      removePreference("settingsSyncMethod");
    std::string value = method ? method : "0";
    platform.log.lines.clear();
    delegate->keywordsDidChange(nullptr);
    delegate->projectsDidChange(nullptr);
    delegate->rulesDidChange(nullptr);
    delegate->smartMailboxesDidChange(nullptr);
    EXPECT_EQ(keyed("smartMailboxesDidChange", "SMBs did Change " + value), 1u);
    EXPECT_EQ(keyed("rulesDidChange", "Rules did Change " + value), 1u);
    EXPECT_EQ(keyed("projectsDidChange", "Projects did Change " + value), 1u);
    EXPECT_EQ(keyedLines(), 3u) << "only the three count lines";
    EXPECT_EQ(platform.log.lines.size(), 3u);

    EXPECT_FALSE(delegate->shouldPullSyncFile(kKeywords));
    EXPECT_EQ(always("shouldPullSyncFile WrenfoldKeywords.plist"), 1u);
  }
  for (const char* file : {"WrenfoldKeywords.plist", "WrenfoldProjects.plist",
                           "WrenfoldInboxRules.plist", "WrenfoldSmartMailboxes.plist"})
    EXPECT_EQ(readFile(syncFile(file)), "old") << file;
}

TEST_F(SyncFileExchangeTest, KeyedLinesNeedTheirLogKey) {
  seed(list("new"), list("old"));
  setPreference("logSettingsSync", "NO");
  EXPECT_TRUE(delegate->pushSyncFile(kKeywords));
  EXPECT_EQ(keyedLines(), 0u);
}

// ---- deciding on a changed sync copy -------------------------------------------

TEST_F(SyncFileExchangeTest, ShouldPullComparesBytes) {
  seed("same", "same");
  EXPECT_FALSE(delegate->shouldPullSyncFile(kKeywords));
  EXPECT_EQ(
      keyed("shouldPullSyncFile", "source and target files are identical! WrenfoldKeywords.plist"),
      1u);
  writeFile(syncFile(kKeywords), "sama");  // same size, other bytes
  EXPECT_TRUE(delegate->shouldPullSyncFile(kKeywords));
  EXPECT_EQ(always("shouldPullSyncFile WrenfoldKeywords.plist"), 2u);
}

TEST_F(SyncFileExchangeTest, AMissingFileOnEitherSideCountsAsDifferent) {
  seed("x", "x");
  ASSERT_EQ(unlink(localFile(kKeywords).c_str()), 0);
  EXPECT_TRUE(delegate->shouldPullSyncFile(kKeywords));
  writeFile(localFile(kKeywords), "x");
  ASSERT_EQ(unlink(syncFile(kKeywords).c_str()), 0);
  EXPECT_TRUE(delegate->shouldPullSyncFile(kKeywords));
}

TEST_F(SyncFileExchangeTest, AnEventCheckNeverMakesTheFolder) {
  EXPECT_FALSE(delegate->shouldPullSyncFile(kKeywords));
  delegate->syncFilesDidChange({syncFile(kKeywords)});
  EXPECT_FALSE(exists(sync));
  EXPECT_TRUE(platform.notifications.posted.empty());
}

// ---- changed paths in the sync folder ------------------------------------------

TEST_F(SyncFileExchangeTest, AChangedCopyWithEqualBytesPostsNothing) {
  seed("same", "same");
  delegate->syncFilesDidChange({syncFile(kKeywords)});
  EXPECT_TRUE(platform.notifications.posted.empty());
  EXPECT_EQ(always("syncFilesDidChange WrenfoldHelperDidUpdateKeywordsFile"), 1u);
}

TEST_F(SyncFileExchangeTest, AChangedCopyWithOtherBytesPostsOncePerReportedPath) {
  seed(list("local"), list("from the other computer"));
  delegate->syncFilesDidChange({syncFile(kKeywords)});
  EXPECT_EQ(platform.notifications.posted,
            (std::vector<std::string>{"WrenfoldHelperDidUpdateKeywordsFile"}));
  delegate->syncFilesDidChange({syncFile(kKeywords), syncFile(kKeywords), syncFile(kKeywords)});
  EXPECT_EQ(posts("WrenfoldHelperDidUpdateKeywordsFile"), 4u);
  // The helper takes nothing over: the local file is the plug-in's to replace.
  EXPECT_EQ(readFile(localFile(kKeywords)), list("local"));
}

TEST_F(SyncFileExchangeTest, EachListFileHasItsNotification) {
  ASSERT_TRUE(delegate->activeSyncFolderPathCreateIfNecessary(true));
  std::vector<std::pair<std::string, std::string>> table{
      {"WrenfoldKeywords.plist", "WrenfoldHelperDidUpdateKeywordsFile"},
      {"WrenfoldProjects.plist", "WrenfoldHelperDidUpdateProjectFile"},
      {"WrenfoldInboxRules.plist", "WrenfoldHelperDidUpdateInboxRulesFile"},
      {"WrenfoldSmartMailboxes.plist", "WrenfoldHelperDidUpdateSmartMailboxesFile"}};
  std::vector<std::string> paths, expected;
  for (const auto& [file, notification] : table) {
    writeFile(syncFile(file), list("changed elsewhere"));
    paths.push_back(syncFile(file));
    expected.push_back(notification);
  }
  delegate->syncFilesDidChange(paths);
  EXPECT_EQ(platform.notifications.posted, expected);
  EXPECT_EQ(delegate->fileNameCommandMappings.count(), 4u);
}

TEST_F(SyncFileExchangeTest, AnotherFileInTheSyncFolderLogsNilAndPostsNothing) {
  seed("a", "b");
  writeFile(syncFile("notes.txt"), "x");
  delegate->syncFilesDidChange({syncFile("notes.txt")});
  EXPECT_EQ(always("syncFilesDidChange (null)"), 1u);
  EXPECT_EQ(keyed("syncFilesDidChange", "syncFilesDidChange (null)"), 1u);
  EXPECT_TRUE(platform.notifications.posted.empty());
  EXPECT_EQ(always("shouldPullSyncFile notes.txt"), 0u);
}

TEST_F(SyncFileExchangeTest, AChangeInASubfolderLogsOnlyItsStem) {
  seed("a", "b");
  ASSERT_EQ(mkdir((sync + "/sub").c_str(), 0755), 0);
  writeFile(sync + "/sub/" + kKeywords, "c");
  delegate->syncFilesDidChange({sync + "/sub/" + kKeywords});
  EXPECT_EQ(keyed("syncFilesDidChange", "syncFilesDidChange Stem " + sync + "/sub"), 1u);
  EXPECT_EQ(keyedLines(), 3u) << "the path list, the folder and the stem";
  EXPECT_EQ(keyed("syncFilesDidChange", "syncFilesDidChange " + sync), 1u);
  EXPECT_EQ(platform.log.lines.size(), 3u);
  EXPECT_TRUE(platform.notifications.posted.empty());
}

TEST_F(SyncFileExchangeTest, TheWholePathListIsLoggedFirst) {
  delegate->syncFilesDidChange({"/a b", "/c"});
  ASSERT_FALSE(platform.log.lines.empty());
  EXPECT_EQ(keyed("syncFilesDidChange", "syncFilesDidChange:(\n    \"/a b\",\n    /c\n) returning"),
            1u)
      << platform.log.lines[0];
}

TEST_F(SyncFileExchangeTest, WithATrailingSlashNoEventPathEverMatches) {
  seed("local", "other");
  setPreference("syncFolderPath", sync + "/");
  delegate->syncFilesDidChange({sync + "/" + kKeywords, sync + "//" + kKeywords});
  EXPECT_TRUE(platform.notifications.posted.empty());
  EXPECT_EQ(always("shouldPullSyncFile WrenfoldKeywords.plist"), 0u);
}

TEST_F(SyncFileExchangeTest, TheStemTestIsPlainStringEquality) {
  seed("local", "other");
  // The same folder reached through a link or spelled differently is not it.
  ASSERT_EQ(symlink(sync.c_str(), (platform.dir / "link").c_str()), 0);
  delegate->syncFilesDidChange({platform.dir / "link/WrenfoldKeywords.plist"});
  EXPECT_TRUE(platform.notifications.posted.empty());
}

}  // namespace
}  // namespace wf::test
