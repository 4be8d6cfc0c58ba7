// The folder layout: what each function returns, what it caches and what it
// creates.
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include "paths/Paths.h"
#include "platform/plist/PropertyList.h"
#include "support/Fakes.h"

namespace wf {
namespace {

using test::FakePlatform;

bool isFolder(const std::string& path) {
  struct stat st;
  return stat(path.c_str(), &st) == 0 && S_ISDIR(st.st_mode);
}

class PathsTest : public ::testing::Test {
 protected:
  void SetUp() override { setPathEnvironment(&p.environment); }
  void TearDown() override { setPathEnvironment(nullptr); }
  void setProductVersion(const std::string& version) {
    ASSERT_TRUE(plist::writeToFile(Value(Dictionary{{"ProductVersion", Value(version)}}),
                                   p.environment.systemVersionPlist, true));
  }
  std::string lib() const { return p.library(); }
  FakePlatform p;
};

TEST_F(PathsTest, MakersFolderIsCreated) {
  EXPECT_EQ(ardelPathCreateIfNeeded(), lib() + "/Mail/Ardel");
  EXPECT_TRUE(isFolder(lib() + "/Mail/Ardel"));
}

TEST_F(PathsTest, EveryCreatingFunctionMakesItsFolder) {
  EXPECT_EQ(WFdatabasePathCreateIfNeeded(), lib() + "/Mail/Ardel");
  EXPECT_EQ(WFardelPathCreateIfNeeded(), lib() + "/Mail/Ardel");
  EXPECT_EQ(WFsyncBackupPathCreateIfNeeded(), lib() + "/Mail/Ardel/WFSettingsBackup");
  EXPECT_EQ(WFexternalProjectPathCreateIfNeeded(), lib() + "/Mail/Ardel/ExternalProjects");
  EXPECT_EQ(WFopenMetaPathCreateIfNeeded(), lib() + "/Mail/Ardel/OpenMetaUpdates");
  EXPECT_EQ(WFsmartMailboxViewingAttributesPath(),
            lib() + "/Mail/Ardel/SmartMailboxViewingAttributes");
  for (const char* f :
       {"WFSettingsBackup", "ExternalProjects", "OpenMetaUpdates", "SmartMailboxViewingAttributes"})
    EXPECT_TRUE(isFolder(lib() + "/Mail/Ardel/" + f)) << f;
}

TEST_F(PathsTest, SyncSettingsFoldersDifferTheFirstBeingTheParent) {
  auto maker = ardelSyncSettingsPathCreateIfNeeded();
  auto sub = WFardelSyncSettingsPathCreateIfNeeded();
  ASSERT_TRUE(maker && sub);
  EXPECT_NE(*maker, *sub);
  EXPECT_EQ(*maker, lib() + "/Mail/Ardel");
  EXPECT_EQ(*sub, *maker + "/SettingsSync");
  EXPECT_TRUE(isFolder(*sub));
}

TEST_F(PathsTest, PlainFileAtThePathIsReturnedAndNothingCreated) {
  ASSERT_EQ(mkdir((lib() + "/Mail").c_str(), 0755), 0);
  ASSERT_EQ(mkdir((lib() + "/Mail/Ardel").c_str(), 0755), 0);
  test::writeFile(lib() + "/Mail/Ardel/ExternalProjects", "not a folder");
  EXPECT_EQ(WFexternalProjectPathCreateIfNeeded(), lib() + "/Mail/Ardel/ExternalProjects");
  EXPECT_FALSE(isFolder(lib() + "/Mail/Ardel/ExternalProjects"));
  EXPECT_EQ(test::readFile(lib() + "/Mail/Ardel/ExternalProjects"), "not a folder");
}

TEST_F(PathsTest, CachedFolderDeletedLaterIsNotMadeAgain) {
  auto path = WFopenMetaPathCreateIfNeeded();
  ASSERT_TRUE(path && isFolder(*path));
  ASSERT_EQ(rmdir(path->c_str()), 0);
  EXPECT_EQ(WFopenMetaPathCreateIfNeeded(), path);
  EXPECT_FALSE(isFolder(*path));
}

TEST_F(PathsTest, SmartMailboxFolderIsMadeOnEveryCall) {
  auto path = WFsmartMailboxViewingAttributesPath();
  ASSERT_TRUE(path);
  ASSERT_EQ(rmdir(path->c_str()), 0);
  EXPECT_EQ(WFsmartMailboxViewingAttributesPath(), path);
  EXPECT_TRUE(isFolder(*path));
}

TEST_F(PathsTest, NoLibraryGivesNilAndALaterCallTriesAgain) {
  p.environment.libraries_.clear();
  EXPECT_FALSE(WFexternalProjectPathCreateIfNeeded());
  EXPECT_FALSE(ardelPathCreateIfNeeded());
  EXPECT_FALSE(finderSideBarListsPath());
  EXPECT_FALSE(WFmailV2Path());
  EXPECT_FALSE(WFsmartMailboxViewingAttributesPath());
  p.environment.libraries_ = {lib()};
  EXPECT_EQ(WFexternalProjectPathCreateIfNeeded(), lib() + "/Mail/Ardel/ExternalProjects");
}

TEST_F(PathsTest, UnwritableLibraryStillGivesThePath) {
  if (geteuid() == 0) GTEST_SKIP() << "root writes into folders whatever their mode";
  ASSERT_EQ(chmod(lib().c_str(), 0555), 0);
  EXPECT_EQ(WFopenMetaPathCreateIfNeeded(), lib() + "/Mail/Ardel/OpenMetaUpdates");
  EXPECT_FALSE(isFolder(lib() + "/Mail/Ardel/OpenMetaUpdates"));
  chmod(lib().c_str(), 0755);
}

TEST_F(PathsTest, FinderSideBarListsPathIsNotCachedOrCreated) {
  EXPECT_EQ(finderSideBarListsPath(), lib() + "/SyncedPreferences/com.apple.finder.plist");
  EXPECT_FALSE(test::exists(lib() + "/SyncedPreferences"));
  p.environment.libraries_ = {p.environment.home + "/Other"};
  EXPECT_EQ(finderSideBarListsPath(),
            p.environment.home + "/Other/SyncedPreferences/com.apple.finder.plist");
}

TEST_F(PathsTest, MailStoreFollowsTheProductVersion) {
  struct Case {
    const char* version;
    const char* folder;
  } cases[] = {{"10.13.6", "V5"}, {"10.13", "V5"}, {"10.12.6", "V4"}, {"10.11", "V3"},
               {"10.10.5", "V2"}, {"10.14", "V2"}, {"11.0", "V2"},    {"10.1", "V2"}};
  for (const auto& c : cases) {
    resetPathCaches();
    setProductVersion(c.version);
    EXPECT_EQ(WFmailV2Path(), lib() + "/Mail/" + c.folder) << c.version;
  }
  EXPECT_FALSE(test::exists(lib() + "/Mail"));  // not created
}

TEST_F(PathsTest, MailStoreWithoutVersionFileIsV2) {
  EXPECT_EQ(WFmailV2Path(), lib() + "/Mail/V2");
}

TEST_F(PathsTest, MailStoreWithBrokenVersionFileIsV2) {
  test::writeFile(p.environment.systemVersionPlist, "<plist><dict><key>ProductVersion</key>");
  EXPECT_EQ(WFmailV2Path(), lib() + "/Mail/V2");
  resetPathCaches();
  ASSERT_TRUE(plist::writeToFile(Value(Dictionary{{"ProductVersion", Value(10.13)}}),
                                 p.environment.systemVersionPlist, true));
  EXPECT_EQ(WFmailV2Path(), lib() + "/Mail/V2");
}

TEST_F(PathsTest, MailStoreIsCached) {
  setProductVersion("10.12.6");
  EXPECT_EQ(WFmailV2Path(), lib() + "/Mail/V4");
  setProductVersion("10.13");
  EXPECT_EQ(WFmailV2Path(), lib() + "/Mail/V4");
}

TEST_F(PathsTest, MailDataFollowsTheRunningSystem) {
  p.environment.osVersion = {10, 13, 6};
  EXPECT_EQ(WFmailV2MailDataPath(), lib() + "/Mail/V5/MailData");
  resetPathCaches();
  p.environment.osVersion = {10, 11, 0};
  EXPECT_EQ(WFmailV2MailDataPath(), lib() + "/Mail/V3/MailData");
  resetPathCaches();
  p.environment.osVersion = {10, 1, 3};  // "10.1", not a prefix of the known ones
  EXPECT_EQ(WFmailV2MailDataPath(), lib() + "/Mail/V2/MailData");
  resetPathCaches();
  p.environment.osVersion = {6, 1, 0};  // a Linux kernel
  EXPECT_EQ(WFmailV2MailDataPath(), lib() + "/Mail/V2/MailData");
  EXPECT_FALSE(test::exists(lib() + "/Mail"));
}

TEST_F(PathsTest, MailDataFallsBackToTheTildePath) {
  p.environment.libraries_.clear();
  p.environment.osVersion = {10, 12, 1};
  const char* home = getenv("HOME");
  ASSERT_TRUE(home && *home);
  EXPECT_EQ(WFmailV2MailDataPath(), std::string(home) + "/Library/Mail/V4/MailData");
}

TEST_F(PathsTest, LauncherIsNilWhileNoScriptIsInstalled) {
  p.environment.scripts_ = {lib() + "/Application Scripts/org.ardel.WrenfoldHelper"};
  EXPECT_FALSE(WFHelperLauncherPath());
  p.environment.scripts_.clear();
  EXPECT_FALSE(WFHelperLauncherPath());
}

TEST_F(PathsTest, LauncherSymlinkResolvesToItsTarget) {
  std::string scripts = lib() + "/Application Scripts/org.ardel.WrenfoldHelper";
  p.environment.scripts_ = {scripts};
  ASSERT_EQ(system(("mkdir -p '" + scripts + "/ArdelScripts'").c_str()), 0);
  std::string target = p.environment.home + "/launcher.sh";
  test::writeFile(target, "#!/bin/sh\n");
  ASSERT_EQ(symlink(target.c_str(), (scripts + "/ArdelScripts/WrenfoldHelperLauncher").c_str()), 0);
  char real[4096];
  ASSERT_TRUE(realpath(target.c_str(), real));
  EXPECT_EQ(WFHelperLauncherPath(), std::string(real));
  // Not cached: removing the script makes it nil again.
  unlink((scripts + "/ArdelScripts/WrenfoldHelperLauncher").c_str());
  EXPECT_FALSE(WFHelperLauncherPath());
}

TEST_F(PathsTest, LauncherPlainFileIsFound) {
  std::string scripts = lib() + "/Application Scripts/org.ardel.WrenfoldHelper";
  p.environment.scripts_ = {scripts};
  ASSERT_EQ(system(("mkdir -p '" + scripts + "/ArdelScripts'").c_str()), 0);
  test::writeFile(scripts + "/ArdelScripts/WrenfoldHelperLauncher", "#!/bin/sh\n");
  char real[4096];
  ASSERT_TRUE(realpath((scripts + "/ArdelScripts/WrenfoldHelperLauncher").c_str(), real));
  EXPECT_EQ(WFHelperLauncherPath(), std::string(real));
}

TEST_F(PathsTest, SettingTheEnvironmentForgetsCachedPaths) {
  EXPECT_EQ(WFopenMetaPathCreateIfNeeded(), lib() + "/Mail/Ardel/OpenMetaUpdates");
  FakePlatform other;
  setPathEnvironment(&other.environment);
  EXPECT_EQ(WFopenMetaPathCreateIfNeeded(), other.library() + "/Mail/Ardel/OpenMetaUpdates");
}

}  // namespace
}  // namespace wf
