// OmniFocus's projects, asked with the shipped script.
#include <gtest/gtest.h>

#include "ProjectsFixture.h"

namespace wf::test {
namespace {

constexpr const char* kOF2 = "com.omnigroup.OmniFocus2";
constexpr const char* kOF2Store = "com.omnigroup.OmniFocus2.MacAppStore";
constexpr const char* kOFStore = "com.omnigroup.OmniFocus.MacAppStore";
constexpr const char* kOF = "com.omnigroup.OmniFocus";

constexpr const char* kOF2Message =
    "Cannot access OmniFocus 2 projects.\n"
    "\t\tWrenfold can only fetch projects from OmniFocus 2 Pro.\n"
    "\t\tOmniFocus 2 regular edition is not AppleScriptable.\n"
    "\t\tThis message will only be shown once.";

class OmniFocusProjectsTest : public ProjectsTest {
 protected:
  OmniFocusProjectsTest() { setPreference("logOmniFocusProjects", "YES"); }
  std::vector<std::string> lines() const {
    return keyed("logOmniFocusProjects", "_fetchOmniFocusProjects");
  }
  ProjectImportState& state() { return projectImportState(delegate); }
  std::string resourceText() const {
    return readFile(std::string(WF_TEST_RESOURCES) + "/OFProjectsScript.txt");
  }
};

TEST_F(OmniFocusProjectsTest, ProjectNamesAreWrittenInTheirOrder) {
  run(kOF, {"Garden", "Taxes", "Apartment"});
  delegate._fetchOmniFocusProjects();
  EXPECT_EQ(readList("OmniFocusProjects.plist"), strings({"Garden", "Taxes", "Apartment"}));
  EXPECT_TRUE(state().sOmniFocusState);
  auto l = lines();
  const std::string path = listPath("OmniFocusProjects.plist");
  EXPECT_EQ(l, (std::vector<std::string>{
                   "runningApps (\n    com.omnigroup.OmniFocus\n)",
                   "com.omnigroup.OmniFocus is Running",
                   "Building OF Script",
                   "Linked to application: com.omnigroup.OmniFocus",
                   "OF is running -- sending Script",
                   "found projects: (\n    Garden,\n    Taxes,\n    Apartment\n)",
                   "Reading current OF projects from " + path,
                   "Current Projects (null)",
                   "writing to File: " + path,
                   "retrieved OF Projects: (\n    Garden,\n    Taxes,\n    Apartment\n)",
               }));
}

TEST_F(OmniFocusProjectsTest, TheScriptIsTheResourceTextAsItStands) {
  run(kOF, {"A"});
  delegate._fetchOmniFocusProjects();
  ASSERT_EQ(scripting.sources.size(), 1u);
  EXPECT_EQ(scripting.sources[0].first, kOF);
  ASSERT_TRUE(scripting.sources[0].second);
  EXPECT_EQ(*scripting.sources[0].second, resourceText());
  EXPECT_EQ(console("scriptSource: " + resourceText()), 1u);
  EXPECT_NE(resourceText().find("tell application \"OmniFocus\""), std::string::npos);
}

TEST_F(OmniFocusProjectsTest, OmniFocus2WinsOverAnOlderOneByListOrder) {
  run(kOF, {"Old"});
  run(kOFStore, {"Store"});
  run(kOF2, {"Two"});
  delegate._fetchOmniFocusProjects();
  EXPECT_TRUE(contains(lines(), "com.omnigroup.OmniFocus2 is Running"));
  EXPECT_EQ(scripting.linksMade, std::vector<std::string>{kOF2});
  EXPECT_EQ(readList("OmniFocusProjects.plist"), strings({"Two"}));
}

TEST_F(OmniFocusProjectsTest, TheAppStoreEditionsComeInBetween) {
  run(kOF, {"Old"});
  run(kOF2Store, {"Store2"});
  run(kOFStore, {"Store"});
  delegate._fetchOmniFocusProjects();
  EXPECT_EQ(readList("OmniFocusProjects.plist"), strings({"Store2"}));
  quit(kOF2Store);
  delegate._fetchOmniFocusProjects();
  EXPECT_EQ(readList("OmniFocusProjects.plist"), strings({"Store"}));
}

TEST_F(OmniFocusProjectsTest, OmniFocus2StandardEditionIsReportedOncePerLaunch) {
  run(kOF2, {"A"});
  scripting.answers[kOF2].compiles = false;
  for (int i = 0; i < 4; ++i) delegate._fetchOmniFocusProjects();
  EXPECT_EQ(console(kOF2Message), 1u);
  EXPECT_EQ(scripting.compiles, 1);
  EXPECT_EQ(scripting.executions, 0);
  EXPECT_EQ(count(lines(), "OmniFocus is not running"), 4u);
  EXPECT_FALSE(exists(listPath("OmniFocusProjects.plist")));
  EXPECT_TRUE(state()._sCantCompileForOF2);
  EXPECT_FALSE(state().omniFocus.link) << "the link goes with the failed script";

  quit(kOF2);
  delegate._fetchOmniFocusProjects();
  EXPECT_FALSE(state()._sCantCompileForOF2);
  run(kOF2, {"A"});
  delegate._fetchOmniFocusProjects();
  delegate._fetchOmniFocusProjects();
  EXPECT_EQ(console(kOF2Message), 2u);
  EXPECT_EQ(scripting.compiles, 2);
}

TEST_F(OmniFocusProjectsTest, ACompileFailureAgainstAnOlderOmniFocusRepeatsEveryRun) {
  run(kOF, {"A"});
  scripting.answers[kOF].compiles = false;
  for (int i = 0; i < 3; ++i) delegate._fetchOmniFocusProjects();
  EXPECT_EQ(console("Can't compile applescript to access OmniFocus projects"), 3u);
  EXPECT_EQ(scripting.compiles, 3);
  EXPECT_EQ(count(lines(), "Building OF Script"), 3u);
  EXPECT_EQ(count(lines(), "OmniFocus is not running"), 3u);
  EXPECT_FALSE(state()._sCantCompileForOF2);
  EXPECT_FALSE(exists(listPath("OmniFocusProjects.plist")));
}

TEST_F(OmniFocusProjectsTest, TheSameNamesAsLastTimeAreOnlyReadAndLogged) {
  run(kOF, {"A", "B"});
  delegate._fetchOmniFocusProjects();
  const ino_t first = inode("OmniFocusProjects.plist");
  platform.log.lines.clear();
  delegate._fetchOmniFocusProjects();
  EXPECT_EQ(inode("OmniFocusProjects.plist"), first);
  auto l = lines();
  EXPECT_FALSE(contains(l, "writing to File: " + listPath("OmniFocusProjects.plist")));
  EXPECT_FALSE(contains(l, "Building OF Script")) << "the script is reused";
  EXPECT_TRUE(contains(l, "Current Projects (\n    A,\n    B\n)"));
  EXPECT_EQ(scripting.compiles, 1);
  EXPECT_EQ(scripting.executions, 2);
}

TEST_F(OmniFocusProjectsTest, EmptyAndTextlessItemsAreNotStored) {
  run(kOF, {"A", "", std::nullopt, "B"});
  delegate._fetchOmniFocusProjects();
  EXPECT_EQ(readList("OmniFocusProjects.plist"), strings({"A", "B"}));
}

TEST_F(OmniFocusProjectsTest, AResultThatIsNoListHasNoItems) {
  run(kOF, {"A"});
  scripting.answers[kOF].notAList = true;
  delegate._fetchOmniFocusProjects();
  EXPECT_EQ(readList("OmniFocusProjects.plist"), Value(Array{}));
}

TEST_F(OmniFocusProjectsTest, AfterOmniFocusQuitsTheScriptIsBuiltAnew) {
  run(kOF, {"A"});
  delegate._fetchOmniFocusProjects();
  auto firstLink = state().omniFocus.link;
  quit(kOF);
  platform.log.lines.clear();
  delegate._fetchOmniFocusProjects();
  EXPECT_EQ(lines().back(), "OmniFocus is not running");
  EXPECT_FALSE(state().omniFocus._static_script);
  EXPECT_FALSE(state().omniFocus.runningIdentifier);
  EXPECT_EQ(state().omniFocus.link, firstLink) << "the link survives the quit";

  run(kOF, {"A", "C"});
  delegate._fetchOmniFocusProjects();
  EXPECT_EQ(scripting.scriptsMade, 2);
  EXPECT_EQ(scripting.compiles, 2);
  EXPECT_EQ(console("scriptSource: " + resourceText()), 1u) << "loaded and logged anew";
  EXPECT_NE(state().omniFocus.link, firstLink);
  EXPECT_EQ(readList("OmniFocusProjects.plist"), strings({"A", "C"}));
}

TEST_F(OmniFocusProjectsTest, NoneRunningLeavesTheFileAlone) {
  scripting.install(kOF);
  writeList("OmniFocusProjects.plist", strings({"Kept"}));
  delegate._fetchOmniFocusProjects();
  EXPECT_EQ(lines().back(), "OmniFocus is not running");
  EXPECT_EQ(readList("OmniFocusProjects.plist"), strings({"Kept"}));
  EXPECT_EQ(scripting.scriptsMade, 0);
}

TEST_F(OmniFocusProjectsTest, AnUnlistedIdentifierDoesNotCount) {
  run("com.omnigroup.OmniFocus3", {"A"});
  delegate._fetchOmniFocusProjects();
  EXPECT_EQ(lines().back(), "OmniFocus is not running");
  EXPECT_EQ(scripting.scriptsMade, 0);
}

TEST_F(OmniFocusProjectsTest, WithoutALinkNothingIsBuiltAndTheNextRunTriesAgain) {
  platform.workspace.running.push_back(kOF);  // running, but not installed
  delegate._fetchOmniFocusProjects();
  delegate._fetchOmniFocusProjects();
  EXPECT_EQ(count(lines(), "could not initiate a link to any OmniFocus app"), 2u);
  EXPECT_EQ(count(lines(), "OmniFocus is not running"), 2u);
  EXPECT_EQ(scripting.scriptsMade, 0);
  scripting.install(kOF);
  scripting.answers[kOF].items = {"A"};
  delegate._fetchOmniFocusProjects();
  EXPECT_EQ(readList("OmniFocusProjects.plist"), strings({"A"}));
}

TEST_F(OmniFocusProjectsTest, AnExecutionErrorWritesNothingAndBlocksUntilRestart) {
  run(kOF, {"A"});
  delegate._fetchOmniFocusProjects();
  scripting.answers[kOF].executionError = "OmniFocus got an error: Connection is invalid.";
  delegate._fetchOmniFocusProjects();
  EXPECT_EQ(
      console(
          "Error requesting OmniFocus projects: OmniFocus got an error: Connection is invalid."),
      1u);
  EXPECT_EQ(readList("OmniFocusProjects.plist"), strings({"A"}));
  scripting.answers[kOF].executionError.reset();
  scripting.answers[kOF].items = {"B"};
  platform.log.lines.clear();
  delegate._fetchOmniFocusProjects();
  delegate._fetchOmniFocusProjects();
  EXPECT_EQ(scripting.executions, 2) << "blocked: no further script is sent";
  EXPECT_EQ(count(lines(), "OmniFocus is not running"), 2u);
  EXPECT_EQ(readList("OmniFocusProjects.plist"), strings({"A"}));

  quit(kOF);
  delegate._fetchOmniFocusProjects();
  run(kOF, {"B"});
  delegate._fetchOmniFocusProjects();
  EXPECT_EQ(readList("OmniFocusProjects.plist"), strings({"B"}));
}

TEST_F(OmniFocusProjectsTest, AnExceptionWhileReadingKeepsTheNamesBeforeIt) {
  run(kOF, {"A", "B", "C"});
  scripting.answers[kOF].throwAtItem = 3;
  delegate._fetchOmniFocusProjects();
  EXPECT_EQ(console("Couldn't get OF projects"), 1u);
  EXPECT_EQ(readList("OmniFocusProjects.plist"), strings({"A", "B"}));
  EXPECT_FALSE(state()._sCantCompileForOF2);
}

TEST_F(OmniFocusProjectsTest, AnExceptionOnTheFirstItemWritesAnEmptyList) {
  run(kOF, {"A"});
  writeList("OmniFocusProjects.plist", strings({"Old"}));
  scripting.answers[kOF].throwAtItem = 1;
  delegate._fetchOmniFocusProjects();
  EXPECT_EQ(readList("OmniFocusProjects.plist"), Value(Array{}));
}

TEST_F(OmniFocusProjectsTest, AMissingResourceBehavesLikeACompileFailure) {
  TempDir empty;
  platform.environment.resourceDir = empty.path();
  run(kOF2, {"A"});
  delegate._fetchOmniFocusProjects();
  delegate._fetchOmniFocusProjects();
  EXPECT_EQ(console("scriptSource: (null)"), 1u);
  EXPECT_EQ(console(kOF2Message), 1u);
  EXPECT_EQ(scripting.executions, 0);
}

TEST_F(OmniFocusProjectsTest, AResourceThatIsNoUTF8BehavesLikeAMissingOne) {
  TempDir dir;
  writeFile(dir / "OFProjectsScript.txt", std::string("tell \xff\xfe"));
  platform.environment.resourceDir = dir.path();
  run(kOF, {"A"});
  delegate._fetchOmniFocusProjects();
  EXPECT_EQ(console("scriptSource: (null)"), 1u);
  EXPECT_EQ(console("Can't compile applescript to access OmniFocus projects"), 1u);
}

TEST_F(OmniFocusProjectsTest, ConsoleLinesAreWrittenWhateverTheLogKeysSay) {
  setPreference("logOmniFocusProjects", "NO");
  run(kOF2, {"A"});
  scripting.answers[kOF2].compiles = false;
  delegate._fetchOmniFocusProjects();
  EXPECT_TRUE(lines().empty());
  EXPECT_EQ(console(kOF2Message), 1u);
}

}  // namespace
}  // namespace wf::test
