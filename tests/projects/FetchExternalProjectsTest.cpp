// The dispatcher and the list files every import shares.
#include <gtest/gtest.h>

#include "ProjectsFixture.h"
#include "platform/foundation/AppKitVersion.h"

namespace wf::test {
namespace {

constexpr const char* kThings = "com.culturedcode.things";
constexpr const char* kThings3 = "com.culturedcode.ThingsMac";

class FetchExternalProjectsTest : public ProjectsTest {
 protected:
  void writeFinderFile(const Value& tags) {
    mkdir((platform.library() + "/SyncedPreferences").c_str(), 0755);
    Value root(Dictionary{
        {"values", Value(Dictionary{
                       {"FinderTagDict",
                        Value(Dictionary{{"value", Value(Dictionary{{"FinderTags", tags}})}})}})}});
    ASSERT_TRUE(plist::writeToFile(
        root, platform.library() + "/SyncedPreferences/com.apple.finder.plist", true));
  }
  // Which imports ran, by their first log line.
  std::vector<std::string> importsThatRan() const {
    std::vector<std::string> order;
    for (const auto& line : platform.log.lines) {
      auto has = [&](const char* s) { return line.find(s) != std::string::npos; };
      std::string name;
      if (has("runningApps") && has("_fetchOmniFocusProjects")) name = "OmniFocus";
      if (has("is not running") && has("_fetchHitListProjects")) name = "HitList";
      if (has("runningApps") && has("_fetchThingsProjects")) name = "Things";
      if (has("runningApps") && has("_fetchThings3Projects")) name = "Things3";
      if (has("fetch finder tags")) name = "Finder";
      if (!name.empty()) order.push_back(name);
    }
    return order;
  }
};

TEST_F(FetchExternalProjectsTest, WithoutPreferencesOnlyTheFinderTagsAreImported) {
  logAll();
  run(kThings, {"A"});
  run("com.omnigroup.OmniFocus", {"B"});
  run("com.potionfactory.thehitlist", {});
  writeFinderFile(Value(Array{}));
  delegate.fetchExternalProjects();
  delegate.fetchExternalProjects();
  EXPECT_EQ(importsThatRan(), (std::vector<std::string>{"Finder", "Finder"}));
  EXPECT_EQ(scripting.scriptsMade, 0);
  EXPECT_TRUE(scripting.linksMade.empty());
  EXPECT_FALSE(exists(listPath("ThingsProjects.plist")));
  EXPECT_FALSE(exists(listPath("OmniFocusProjects.plist")));
  EXPECT_TRUE(readList("FinderTags.plist").isArray());
}

TEST_F(FetchExternalProjectsTest, ImportsRunInTheirFixedOrder) {
  logAll();
  setPreference("showOmniFocusProjects", "YES");
  setPreference("showHitListProjects", "YES");
  setPreference("showThingsProjects", "YES");
  delegate.fetchExternalProjects();
  EXPECT_EQ(importsThatRan(),
            (std::vector<std::string>{"OmniFocus", "HitList", "Things", "Things3", "Finder"}));
}

TEST_F(FetchExternalProjectsTest, PreferencesAreReadByTheirBoolValue) {
  logAll();
  setPreference("showOmniFocusProjects", "NO");
  setPreference("showHitListProjects", "0");
  setPreference("showThingsProjects", "yes");
  delegate.fetchExternalProjects();
  EXPECT_EQ(importsThatRan(), (std::vector<std::string>{"Things", "Things3", "Finder"}));
}

TEST_F(FetchExternalProjectsTest, PreferencesAreLookedUpAtEveryRun) {
  logAll();
  delegate.fetchExternalProjects();
  setPreference("showHitListProjects", "1");
  delegate.fetchExternalProjects();
  EXPECT_EQ(importsThatRan(), (std::vector<std::string>{"Finder", "HitList", "Finder"}));
}

TEST_F(FetchExternalProjectsTest, OlderSystemGenerationsHaveNoFinderTags) {
  logAll();
  writeFinderFile(Value(Array{}));
  struct Restore {
    ~Restore() { wf::setAppKitVersionNumberForTesting(wf::kCurrentAppKitVersionNumber); }
  } restore;
  wf::setAppKitVersionNumberForTesting(1187.9);  // floor is 1187: not above
  delegate.fetchExternalProjects();
  EXPECT_TRUE(importsThatRan().empty());
  EXPECT_FALSE(exists(listPath("FinderTags.plist")));
  wf::setAppKitVersionNumberForTesting(1188);
  delegate.fetchExternalProjects();
  EXPECT_EQ(importsThatRan(), std::vector<std::string>{"Finder"});
}

TEST_F(FetchExternalProjectsTest, OnlyThings3RunningIsImportedByTheThings3Import) {
  logAll();
  setPreference("showThingsProjects", "YES");
  run(kThings3, {"Garden", "Taxes"});
  delegate.fetchExternalProjects();
  auto things = keyed("logExternalProjects", "_fetchThingsProjects");
  EXPECT_TRUE(contains(things, "Things is not running"));
  EXPECT_EQ(things.back(), "Things is not running");
  auto things3 = keyed("logExternalProjects", "_fetchThings3Projects");
  EXPECT_EQ(count(things3, "writing to File: " + listPath("ThingsProjects.plist")), 1u);
  EXPECT_EQ(readList("ThingsProjects.plist"), strings({"Garden", "Taxes"}));
}

TEST_F(FetchExternalProjectsTest, ThingsAndThings3BothRunningRewriteTheFileTwicePerRun) {
  logAll();
  setPreference("showThingsProjects", "YES");
  run(kThings, {"Old"});
  run(kThings3, {"New"});
  const std::string writing = "writing to File: " + listPath("ThingsProjects.plist");
  for (int runNumber = 1; runNumber <= 3; ++runNumber) {
    platform.log.lines.clear();
    delegate.fetchExternalProjects();
    EXPECT_EQ(count(keyed("logExternalProjects", "_fetchThingsProjects"), writing), 1u)
        << runNumber;
    EXPECT_EQ(count(keyed("logExternalProjects", "_fetchThings3Projects"), writing), 1u)
        << runNumber;
    EXPECT_EQ(readList("ThingsProjects.plist"), strings({"New"}));
  }
}

TEST_F(FetchExternalProjectsTest, FirstRunWithoutNamesWritesAnEmptyArrayOnce) {
  logAll();
  setPreference("showThingsProjects", "YES");
  run(kThings, {});
  delegate.fetchExternalProjects();
  EXPECT_EQ(readList("ThingsProjects.plist"), Value(Array{}));
  const ino_t first = inode("ThingsProjects.plist");
  platform.log.lines.clear();
  delegate.fetchExternalProjects();
  delegate.fetchExternalProjects();
  EXPECT_EQ(inode("ThingsProjects.plist"), first);
  EXPECT_EQ(count(keyed("logExternalProjects", "_fetchThingsProjects"),
                  "writing to File: " + listPath("ThingsProjects.plist")),
            0u);
}

TEST_F(FetchExternalProjectsTest, TheSameNamesInAnotherOrderRewriteTheFile) {
  setPreference("showThingsProjects", "YES");
  run(kThings, {"A", "B"});
  delegate.fetchExternalProjects();
  const ino_t first = inode("ThingsProjects.plist");
  scripting.answers[kThings].items = {"B", "A"};
  delegate.fetchExternalProjects();
  EXPECT_NE(inode("ThingsProjects.plist"), first);
  EXPECT_EQ(readList("ThingsProjects.plist"), strings({"B", "A"}));
}

TEST_F(FetchExternalProjectsTest, AListFileThatIsNoArrayIsOverwritten) {
  setPreference("showThingsProjects", "YES");
  run(kThings, {"A"});
  delegate.fetchExternalProjects();  // makes the folder
  ASSERT_TRUE(plist::writeToFile(Value(Dictionary{{"A", Value(1)}}),
                                 listPath("ThingsProjects.plist"), true));
  delegate.fetchExternalProjects();
  EXPECT_EQ(readList("ThingsProjects.plist"), strings({"A"}));
}

TEST_F(FetchExternalProjectsTest, AListFileThatIsNoPropertyListIsOverwritten) {
  setPreference("showThingsProjects", "YES");
  run(kThings, {"A"});
  delegate.fetchExternalProjects();
  writeFile(listPath("ThingsProjects.plist"), "not a property list");
  delegate.fetchExternalProjects();
  EXPECT_EQ(readList("ThingsProjects.plist"), strings({"A"}));
}

TEST_F(FetchExternalProjectsTest, ListFilesAreXMLAsFoundationWritesThem) {
  setPreference("showThingsProjects", "YES");
  run(kThings, {"Garden & Home", "Taxes"});
  delegate.fetchExternalProjects();
  EXPECT_EQ(readFile(listPath("ThingsProjects.plist")),
            "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n"
            "<!DOCTYPE plist PUBLIC \"-//Apple//DTD PLIST 1.0//EN\" "
            "\"http://www.apple.com/DTDs/PropertyList-1.0.dtd\">\n"
            "<plist version=\"1.0\">\n"
            "<array>\n"
            "\t<string>Garden &amp; Home</string>\n"
            "\t<string>Taxes</string>\n"
            "</array>\n"
            "</plist>\n");
}

TEST_F(FetchExternalProjectsTest, AListFileReadInBinaryFormIsComparedByContent) {
  setPreference("showThingsProjects", "YES");
  run(kThings, {"A"});
  delegate.fetchExternalProjects();
  std::string binary;
  ASSERT_TRUE(plist::toBinary(strings({"A"}), binary));
  writeFile(listPath("ThingsProjects.plist"), binary);
  delegate.fetchExternalProjects();
  EXPECT_EQ(readFile(listPath("ThingsProjects.plist")), binary);  // equal: left alone
}

TEST_F(FetchExternalProjectsTest, AnExceptionOfAnImportLeavesTheDispatcher) {
  writeFinderFile(Value(Array{Value(Dictionary{{"l", Value(1)}})}));  // a tag without a name
  EXPECT_THROW(delegate.fetchExternalProjects(), NSException);
  EXPECT_FALSE(exists(listPath("FinderTags.plist")));
  EXPECT_TRUE(platform.notifications.posted.empty());
}

TEST_F(FetchExternalProjectsTest, ARemovedFolderMakesWritesFailQuietly) {
  setPreference("showThingsProjects", "YES");
  run(kThings, {"A"});
  delegate.fetchExternalProjects();
  ASSERT_EQ(system(("rm -rf '" + projectsFolder() + "'").c_str()), 0);
  EXPECT_NO_THROW(delegate.fetchExternalProjects());
  EXPECT_FALSE(exists(projectsFolder()));  // resolved once: not made again
}

}  // namespace
}  // namespace wf::test
