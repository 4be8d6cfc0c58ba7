// Things and Things 3: twin imports of the active projects.
#include <gtest/gtest.h>

#include "ProjectsFixture.h"
#include "projects/ThingsScripts.h"

namespace wf::test {
namespace {

constexpr const char* kThings = "com.culturedcode.things";
constexpr const char* kThingsBeta = "com.culturedcode.things_beta";
constexpr const char* kThings3 = "com.culturedcode.ThingsMac";

// The scripts as the applications must receive them: trailing blanks kept,
// no final line break.
const std::string kExpectedThingsScript =
    "tell application \"Things\" \n"
    "  set somedayProjects to every to do of list id \"FocusMaybe\" \n"
    "  set logbookProjects to every to do of list id \"FocusLogbook\" \n"
    "  set trashProjects to every to do of list id \"FocusTrash\" \n"
    "  set allProjects to every project\n"
    "  set activeProjects to {}\n"
    "  set projectCount to count of allProjects\n"
    "  set projectIdx to 1\n"
    "  repeat with projectIdx from 1 to projectCount\n"
    "      set aProject to item projectIdx of allProjects\n"
    "      if somedayProjects does not contain {aProject} and logbookProjects does not contain "
    "{aProject} and trashProjects does not contain {aProject} then\n"
    "          set end of activeProjects to name of item 1 of aProject\n"
    "      end if\n"
    "  end repeat\n"
    "  return activeProjects\n"
    "end tell ";

const std::string kExpectedThings3Script =
    "tell application \"Things3\" \n"
    "  set activeProjects to {}\n"
    "  set somedayProjects to every to do of list id \"TMSomedayListSource\" \n"
    "  set logbookProjects to every to do of list id \"TMLogbookListSource\" \n"
    "  set trashProjects to every to do of list id \"TMTrashListSource\" \n"
    "  set ignoredProjects to somedayProjects & logbookProjects & trashProjects\n"
    "  set allProjects to every project\n"
    "  set projectCount to count of allProjects\n"
    "  set projectIdx to 1\n"
    "  repeat with projectIdx from 1 to projectCount\n"
    "      set aProject to item projectIdx of allProjects\n"
    "      if ignoredProjects does not contain {aProject} then\n"
    "          set end of activeProjects to name of item 1 of aProject\n"
    "      end if\n"
    "  end repeat\n"
    "  return activeProjects\n"
    "end tell ";

std::vector<std::string> splitLines(const std::string& s) {
  std::vector<std::string> out;
  std::size_t start = 0;
  for (std::size_t i = 0; i <= s.size(); ++i)
    if (i == s.size() || s[i] == '\n') {
      out.push_back(s.substr(start, i - start));
      start = i + 1;
    }
  return out;
}

class ThingsProjectsTest : public ProjectsTest {
 protected:
  ThingsProjectsTest() { setPreference("logExternalProjects", "YES"); }
  std::vector<std::string> things() const {
    return keyed("logExternalProjects", "_fetchThingsProjects");
  }
  std::vector<std::string> things3() const {
    return keyed("logExternalProjects", "_fetchThings3Projects");
  }
};

TEST(ThingsScripts, ThingsScriptIsExactToTheByte) {
  EXPECT_EQ(std::string(kThingsProjectsScript), kExpectedThingsScript);
  auto lines = splitLines(kThingsProjectsScript);
  ASSERT_EQ(lines.size(), 16u);
  for (std::size_t i = 0; i < lines.size(); ++i) {
    const bool blankAtEnd = i < 4 || i == lines.size() - 1;
    EXPECT_EQ(!lines[i].empty() && lines[i].back() == ' ', blankAtEnd) << "line " << i + 1;
    EXPECT_EQ(lines[i].find('\t'), std::string::npos);
  }
  EXPECT_EQ(lines.back(), "end tell ");
}

TEST(ThingsScripts, Things3ScriptIsExactToTheByte) {
  EXPECT_EQ(std::string(kThings3ProjectsScript), kExpectedThings3Script);
  auto lines = splitLines(kThings3ProjectsScript);
  ASSERT_EQ(lines.size(), 17u);
  for (std::size_t i = 0; i < lines.size(); ++i) {
    const bool blankAtEnd = i == 0 || i == 2 || i == 3 || i == 4 || i == lines.size() - 1;
    EXPECT_EQ(!lines[i].empty() && lines[i].back() == ' ', blankAtEnd) << "line " << i + 1;
  }
}

TEST_F(ThingsProjectsTest, EachImportSendsItsOwnScriptUnchangedAndUncompiled) {
  run(kThings, {"A"});
  run(kThings3, {"B"});
  delegate._fetchThingsProjects();
  delegate._fetchThings3Projects();
  ASSERT_EQ(scripting.sources.size(), 2u);
  EXPECT_EQ(scripting.sources[0].first, kThings);
  EXPECT_EQ(scripting.sources[0].second, kExpectedThingsScript);
  EXPECT_EQ(scripting.sources[1].first, kThings3);
  EXPECT_EQ(scripting.sources[1].second, kExpectedThings3Script);
  EXPECT_EQ(scripting.compiles, 0);
}

TEST_F(ThingsProjectsTest, ARunLogsItsStepsAndWritesTheFile) {
  run(kThings, {"Garden", "Taxes"});
  delegate._fetchThingsProjects();
  const std::string path = listPath("ThingsProjects.plist");
  EXPECT_EQ(things(), (std::vector<std::string>{
                          "runningApps (\n    com.culturedcode.things\n)",
                          "com.culturedcode.things is Running",
                          "Building Things Script",
                          "Linked to application: com.culturedcode.things",
                          "Things is running -- sending Script",
                          "found projects: (\n    Garden,\n    Taxes\n)",
                          "Reading current OF projects from " + path,
                          "Current Projects (null)",
                          "writing to File: " + path,
                          "retrieved Things Projects: (\n    Garden,\n    Taxes\n)",
                      }));
  EXPECT_TRUE(projectImportState(delegate).sThingsState);
  EXPECT_EQ(readList("ThingsProjects.plist"), strings({"Garden", "Taxes"}));
}

TEST_F(ThingsProjectsTest, Things3NamesItsFileAsThingsProjects) {
  run(kThings3, {"A"});
  delegate._fetchThings3Projects();
  EXPECT_TRUE(contains(things3(),
                       "Reading current Things projects from " + listPath("ThingsProjects.plist")));
  EXPECT_TRUE(contains(things3(), "Building Things Script"));
  EXPECT_TRUE(contains(things3(), "retrieved Things Projects: (\n    A\n)"));
}

TEST_F(ThingsProjectsTest, ThingsWinsOverItsBetaByListOrder) {
  run(kThingsBeta, {"Beta"});
  run(kThings, {"Release"});
  delegate._fetchThingsProjects();
  EXPECT_TRUE(contains(things(), "com.culturedcode.things is Running"));
  EXPECT_FALSE(contains(things(), "com.culturedcode.things_beta is Running"));
  EXPECT_EQ(readList("ThingsProjects.plist"), strings({"Release"}));
}

TEST_F(ThingsProjectsTest, TheBetaAloneIsImported) {
  run(kThingsBeta, {"Beta"});
  delegate._fetchThingsProjects();
  EXPECT_EQ(readList("ThingsProjects.plist"), strings({"Beta"}));
}

TEST_F(ThingsProjectsTest, OnlyThings3RunningLeavesTheThingsImportIdle) {
  run(kThings3, {"Three"});
  writeList("ThingsProjects.plist", strings({"Before"}));
  const ino_t before = inode("ThingsProjects.plist");
  delegate._fetchThingsProjects();
  EXPECT_EQ(things().back(), "Things is not running");
  EXPECT_EQ(inode("ThingsProjects.plist"), before);
  delegate._fetchThings3Projects();
  EXPECT_EQ(readList("ThingsProjects.plist"), strings({"Three"}));
}

TEST_F(ThingsProjectsTest, AProjectThatLeavesTheActiveOnesLeavesTheFile) {
  run(kThings3, {"Garden", "Taxes", "Trip"});
  delegate._fetchThings3Projects();
  scripting.answers[kThings3].items = {"Garden", "Trip"};  // Taxes filed under Someday
  delegate._fetchThings3Projects();
  EXPECT_EQ(readList("ThingsProjects.plist"), strings({"Garden", "Trip"}));
  EXPECT_EQ(scripting.executions, 2) << "every run sends the script again";
  EXPECT_EQ(scripting.scriptsMade, 1) << "and reuses it";
}

TEST_F(ThingsProjectsTest, TwoProjectsOfOneNameAreStoredTwice) {
  run(kThings, {"Same", "Same"});
  delegate._fetchThingsProjects();
  EXPECT_EQ(readList("ThingsProjects.plist"), strings({"Same", "Same"}));
}

TEST_F(ThingsProjectsTest, AnErrorAnswerLeavesAnEmptyArrayAndIsReportedEveryRun) {
  run(kThings, {"A"});
  delegate._fetchThingsProjects();
  scripting.answers[kThings].executionError =
      "Things got an error: Can't get list id \"FocusMaybe\".";
  delegate._fetchThingsProjects();
  delegate._fetchThingsProjects();
  EXPECT_EQ(
      console("Error requesting Things: Things got an error: Can't get list id \"FocusMaybe\"."),
      2u);
  EXPECT_EQ(readList("ThingsProjects.plist"), Value(Array{}));
  EXPECT_EQ(scripting.executions, 3) << "an error does not block later runs";
}

TEST_F(ThingsProjectsTest, AnExceptionKeepsTheNamesBeforeIt) {
  run(kThings, {"A", "B"});
  scripting.answers[kThings].throwAtItem = 2;
  delegate._fetchThingsProjects();
  EXPECT_EQ(console("Couldn't get Things projects"), 1u);
  EXPECT_EQ(readList("ThingsProjects.plist"), strings({"A"}));
}

TEST_F(ThingsProjectsTest, EmptyItemsAreSkipped) {
  run(kThings, {"", "A", std::nullopt});
  delegate._fetchThingsProjects();
  EXPECT_EQ(readList("ThingsProjects.plist"), strings({"A"}));
}

TEST_F(ThingsProjectsTest, WithoutALinkTheNextRunTriesAgain) {
  platform.workspace.running.push_back(kThings);  // not installed: no link
  delegate._fetchThingsProjects();
  EXPECT_EQ(things()[things().size() - 2], "could not initiate a link to any Things app");
  EXPECT_EQ(things().back(), "Things is not running");
  scripting.install(kThings);
  scripting.answers[kThings].items = {"A"};
  delegate._fetchThingsProjects();
  EXPECT_EQ(count(things(), "Building Things Script"), 2u);
  EXPECT_EQ(readList("ThingsProjects.plist"), strings({"A"}));
}

TEST_F(ThingsProjectsTest, AChangeOfApplicationDiscardsTheScriptButNotTheLink) {
  run(kThingsBeta, {"Beta"});
  delegate._fetchThingsProjects();
  auto betaLink = projectImportState(delegate).things.link;
  quit(kThingsBeta);
  delegate._fetchThingsProjects();
  EXPECT_FALSE(projectImportState(delegate).things._static_script);
  EXPECT_EQ(projectImportState(delegate).things.link, betaLink);
  run(kThings, {"Release"});
  delegate._fetchThingsProjects();
  EXPECT_EQ(scripting.linksMade, (std::vector<std::string>{kThingsBeta, kThings}));
  EXPECT_EQ(scripting.sources.back().first, kThings);
  EXPECT_EQ(readList("ThingsProjects.plist"), strings({"Release"}));
}

TEST_F(ThingsProjectsTest, TheTwoImportsKeepStateOfTheirOwn) {
  run(kThings, {"A"});
  run(kThings3, {"B"});
  delegate._fetchThingsProjects();
  delegate._fetchThings3Projects();
  auto& s = projectImportState(delegate);
  EXPECT_EQ(s.things.runningIdentifier, kThings);
  EXPECT_EQ(s.things3.runningIdentifier, kThings3);
  EXPECT_NE(s.things.link, s.things3.link);
}

}  // namespace
}  // namespace wf::test
