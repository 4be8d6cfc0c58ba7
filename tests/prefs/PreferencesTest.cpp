// The preferences cache: where the file is found, how long it is kept, the
// command-line overrides and the reaction to a change notice.
#include <gtest/gtest.h>
#include <sys/stat.h>

#include "app/WFHelperAppDelegate.h"
#include "platform/plist/PropertyList.h"
#include "support/Fakes.h"

namespace wf {
namespace {

using test::FakePlatform;

class PreferencesTest : public ::testing::Test {
 protected:
  void SetUp() override {
    for (const char* f :
         {"/Preferences", "/Containers", "/Containers/com.apple.mail",
          "/Containers/com.apple.mail/Data", "/Containers/com.apple.mail/Data/Library",
          "/Containers/com.apple.mail/Data/Library/Preferences"})
      mkdir((p.library() + f).c_str(), 0755);
  }
  std::string ordinaryFile() const { return p.library() + "/Preferences/org.ardel.Wrenfold.plist"; }
  std::string containerFile() const {
    return p.library() +
           "/Containers/com.apple.mail/Data/Library/Preferences/org.ardel.Wrenfold.plist";
  }
  static void write(const std::string& path, const Dictionary& d) {
    ASSERT_TRUE(plist::writeToFile(Value(d), path, true));
  }

  FakePlatform p;
  WFHelperAppDelegate d{p.services()};
};

TEST_F(PreferencesTest, ContainerFileWinsOverOrdinaryFile) {
  write(containerFile(), {{"syncFolderPath", Value("container")}});
  write(ordinaryFile(), {{"syncFolderPath", Value("ordinary")}});
  EXPECT_EQ(d.defaultForKey("syncFolderPath"), Value("container"));
}

TEST_F(PreferencesTest, OrdinaryFileIsReadWhenTheContainerHasNone) {
  write(ordinaryFile(), {{"syncFolderPath", Value("ordinary")}});
  EXPECT_EQ(d.defaultForKey("syncFolderPath"), Value("ordinary"));
}

TEST_F(PreferencesTest, NoFileGivesNil) {
  EXPECT_TRUE(d.defaults().isNil());
  EXPECT_TRUE(d.defaultForKey("launchWrenfoldHelperAtLogin").isNil());
}

TEST_F(PreferencesTest, NoLibraryGivesNil) {
  p.environment.libraries_.clear();
  EXPECT_TRUE(d.defaults().isNil());
  EXPECT_EQ(d.lastDefaultCacheTime(), 0.0);
}

TEST_F(PreferencesTest, CachedDictionaryIsKept120SecondsAndNoLonger) {
  write(ordinaryFile(), {{"settingsSyncMethod", Value(1)}});
  EXPECT_EQ(d.defaultForKey("settingsSyncMethod"), Value(1));
  write(ordinaryFile(), {{"settingsSyncMethod", Value(2)}});
  p.clock.now_ += 120.0;  // not strictly more than 120 seconds
  EXPECT_EQ(d.defaultForKey("settingsSyncMethod"), Value(1));
  p.clock.now_ += 0.001;
  EXPECT_EQ(d.defaultForKey("settingsSyncMethod"), Value(2));
  EXPECT_EQ(d.lastDefaultCacheTime(), p.clock.now_);
}

TEST_F(PreferencesTest, ChangeNoticeMakesAChangeVisibleAtOnce) {
  write(ordinaryFile(), {{"settingsSyncMethod", Value(1)}});
  EXPECT_EQ(d.defaultForKey("settingsSyncMethod"), Value(1));
  write(ordinaryFile(), {{"settingsSyncMethod", Value(2)}});
  d.preferencesDidChange(nullptr);
  EXPECT_EQ(d.defaultForKey("settingsSyncMethod"), Value(2));
}

TEST_F(PreferencesTest, MissingFileIsNotCachedSoItIsReadAgain) {
  EXPECT_TRUE(d.defaults().isNil());
  write(ordinaryFile(), {{"showThingsProjects", Value(true)}});
  EXPECT_EQ(d.defaultForKey("showThingsProjects"), Value(true));
}

TEST_F(PreferencesTest, InvalidateEmptiesTheCache) {
  write(ordinaryFile(), {{"a", Value(1)}});
  d.defaults();
  EXPECT_FALSE(d.cachedDefaults().isNil());
  d.invalidateDefaultCache();
  EXPECT_TRUE(d.cachedDefaults().isNil());
  EXPECT_EQ(d.lastDefaultCacheTime(), 0.0);
}

TEST_F(PreferencesTest, CommandLineOverrideWinsAsTheStringTyped) {
  write(ordinaryFile(), {{"showOmniFocusProjects", Value(true)}});
  p.defaults.arguments = {{"WFshowOmniFocusProjects", Value("NO")}};
  EXPECT_EQ(d.defaultForKey("showOmniFocusProjects"), Value("NO"));
  EXPECT_FALSE(d.defaultForKey("showOmniFocusProjects").boolValue());
}

TEST_F(PreferencesTest, ArgumentWithoutPrefixIsNoOverride) {
  write(ordinaryFile(), {{"showOmniFocusProjects", Value(true)}});
  p.defaults.arguments = {{"showOmniFocusProjects", Value("NO")}};
  EXPECT_EQ(d.defaultForKey("showOmniFocusProjects"), Value(true));
}

TEST_F(PreferencesTest, FileThatIsNoPropertyListReadsAsNothing) {
  test::writeFile(ordinaryFile(), "this is not a property list \x01\x02");
  EXPECT_TRUE(d.defaults().isNil());
  EXPECT_NO_THROW(d.preferencesDidChange(nullptr));
}

TEST_F(PreferencesTest, PropertyListThatIsNoDictionaryReadsAsNothing) {
  ASSERT_TRUE(plist::writeToFile(Value(Array{Value("a")}), ordinaryFile(), true));
  EXPECT_TRUE(d.defaults().isNil());
  EXPECT_TRUE(d.defaultForKey("a").isNil());
}

TEST_F(PreferencesTest, EmptyFileReadsAsNothing) {
  test::writeFile(ordinaryFile(), "");
  EXPECT_TRUE(d.defaults().isNil());
}

TEST_F(PreferencesTest, ValuesOfTheWrongTypeAreReadAsFoundationReadsThem) {
  write(ordinaryFile(), {{"launchWrenfoldHelperAtLogin", Value(Array{})},
                         {"settingsSyncMethod", Value("2")},
                         {"syncFolderPath", Value(42)},
                         {"logOpenMeta", Value(Dictionary{})}});
  EXPECT_FALSE(d.defaultForKey("launchWrenfoldHelperAtLogin").boolValue());
  EXPECT_EQ(d.defaultForKey("settingsSyncMethod").integerValue(), 2);
  EXPECT_NO_THROW(d.preferencesDidChange(nullptr));
  EXPECT_NO_THROW(d.logForKey("logOpenMeta", __FILE__, "f", 1, "x"));
  EXPECT_TRUE(p.log.startingWith("(logOpenMeta)").empty());
}

TEST_F(PreferencesTest, UnreadableFileReadsAsNothing) {
  write(ordinaryFile(), {{"a", Value(1)}});
  chmod(ordinaryFile().c_str(), 0);
  if (geteuid() == 0) GTEST_SKIP() << "root reads files whatever their mode";
  EXPECT_TRUE(d.defaults().isNil());
}

TEST_F(PreferencesTest, SnapshotLineShowsFiveKeysWithNullForAbsentOnes) {
  write(ordinaryFile(), {{"logPreferencesNotification", Value(true)},
                         {"settingsSyncMethod", Value(2)},
                         {"syncFolderPath", Value("/tmp/Sync Folder")},
                         {"showThingsProjects", Value(true)}});
  d.preferencesDidChange(nullptr);
  auto lines = p.log.startingWith(
      "(logPreferencesNotification)-[WFHelperAppDelegate preferencesDidChange:]: ");
  ASSERT_EQ(lines.size(), 1u);
  EXPECT_TRUE(
      lines[0].ends_with(": PreferencesDidChangeNotification: {\n"
                         "    disableDropBoxScanning = \"<null>\";\n"
                         "    launchWrenfoldHelperAtLogin = \"<null>\";\n"
                         "    recognizeOpenMetaTags = \"<null>\";\n"
                         "    settingsSyncMethod = 2;\n"
                         "    syncFolderPath = \"/tmp/Sync Folder\";\n"
                         "}"))
      << lines[0];
}

TEST_F(PreferencesTest, SnapshotWithoutAnyFileIsAllNull) {
  p.defaults.arguments = {{"WFlogPreferencesNotification", Value("YES")}};
  d.preferencesDidChange(nullptr);
  auto lines = p.log.startingWith("(logPreferencesNotification)");
  ASSERT_EQ(lines.size(), 1u);
  EXPECT_TRUE(
      lines[0].ends_with(": PreferencesDidChangeNotification: {\n"
                         "    disableDropBoxScanning = \"<null>\";\n"
                         "    launchWrenfoldHelperAtLogin = \"<null>\";\n"
                         "    recognizeOpenMetaTags = \"<null>\";\n"
                         "    settingsSyncMethod = \"<null>\";\n"
                         "    syncFolderPath = \"<null>\";\n"
                         "}"))
      << lines[0];
}

TEST_F(PreferencesTest, OpenMetaEnabledLineAndWatcherStarted) {
  d.preferencesDidChange(nullptr);
  EXPECT_TRUE(p.log.contains(
      "External OpenMeta Scanning Enabled\nUse Terminal command to disable: defaults write "
      "org.ardel.WrenfoldHelper disableOpenMetaScanning 1"));
  EXPECT_TRUE(d.hasOpenMetaStream());
}

TEST_F(PreferencesTest, OpenMetaDisabledLineAndWatcherStopped) {
  d.preferencesDidChange(nullptr);
  ASSERT_TRUE(d.hasOpenMetaStream());
  p.defaults.own = {{"disableOpenMetaScanning", Value(true)}};
  d.preferencesDidChange(nullptr);
  EXPECT_TRUE(p.log.contains(
      "External OpenMeta Scanning DISABLED\nUse Terminal command to enable: defaults write "
      "org.ardel.WrenfoldHelper disableOpenMetaScanning 0"));
  EXPECT_FALSE(d.hasOpenMetaStream());
}

TEST_F(PreferencesTest, OneOpenMetaLineOnEveryChange) {
  for (int i = 0; i < 3; ++i) d.preferencesDidChange(nullptr);
  std::size_t n = 0;
  for (const auto& l : p.log.lines)
    if (l.rfind("External OpenMeta Scanning", 0) == 0) ++n;
  EXPECT_EQ(n, 3u);
  EXPECT_EQ(p.fileEvents.created, 1);  // a running watcher is not started again
}

TEST_F(PreferencesTest, SyncFolderSelectedStartsTheSyncWatcher) {
  std::string sync = p.environment.home + "/Sync";
  mkdir(sync.c_str(), 0755);
  write(ordinaryFile(), {{"settingsSyncMethod", Value(2)}, {"syncFolderPath", Value(sync)}});
  d.preferencesDidChange(nullptr);
  EXPECT_TRUE(d._syncFolderStreamRef != nullptr);
  write(ordinaryFile(), {{"settingsSyncMethod", Value(0)}, {"syncFolderPath", Value(sync)}});
  d.preferencesDidChange(nullptr);
  EXPECT_TRUE(d._syncFolderStreamRef == nullptr);
}

}  // namespace
}  // namespace wf
