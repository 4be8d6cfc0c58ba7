// The Hit List's list names, read through its scripting objects.
#include <gtest/gtest.h>

#include "ProjectsFixture.h"

namespace wf::test {
namespace {

constexpr const char* kHitList = "com.potionfactory.thehitlist";

class HitListProjectsTest : public ProjectsTest {
 protected:
  HitListProjectsTest() { setPreference("logExternalProjects", "YES"); }

  // Installs and runs The Hit List with these top-level items.
  void serve(FakeSBObject::Elements items) {
    scripting.install(kHitList);
    auto group = std::make_shared<FakeSBObject>("TheHitListGroup");
    group->properties["lists"] = std::move(items);
    scripting.applications[kHitList]->root->properties["foldersGroup"] =
        std::shared_ptr<platform::SBObject>(group);
    launch();
  }
  void launch() {
    auto& r = platform.workspace.running;
    if (std::find(r.begin(), r.end(), kHitList) == r.end()) r.push_back(kHitList);
  }
  std::vector<std::string> lines() const {
    return keyed("logExternalProjects", "_fetchHitListProjects");
  }
};

TEST_F(HitListProjectsTest, ListsAndTheListsOfFoldersMakeOneFlatList) {
  serve({hitListList("Inbox"),
         hitListFolder("Work", {hitListList("Clients"), hitListList("Admin")}),
         hitListList("Home")});
  delegate._fetchHitListProjects();
  EXPECT_EQ(readList("HitListProjects.plist"), strings({"Inbox", "Clients", "Admin", "Home"}));
  EXPECT_TRUE(projectImportState(delegate).sHitListState);
  EXPECT_TRUE(lines().empty()) << "a run that reads the application logs nothing";
}

TEST_F(HitListProjectsTest, AFolderInsideAFolderIsStoredByItsNameOnly) {
  auto inner = hitListFolder("Inner", {hitListList("Deep")});
  serve({hitListFolder("Outer", {hitListList("A"), inner})});
  delegate._fetchHitListProjects();
  EXPECT_EQ(readList("HitListProjects.plist"), strings({"A", "Inner"}));
  EXPECT_EQ(inner->reads, 1) << "only its name was read";
}

TEST_F(HitListProjectsTest, ANameAtTheTopAndInAFolderIsStoredTwice) {
  serve({hitListList("Errands"), hitListFolder("Home", {hitListList("Errands")})});
  delegate._fetchHitListProjects();
  EXPECT_EQ(readList("HitListProjects.plist"), strings({"Errands", "Errands"}));
}

TEST_F(HitListProjectsTest, OtherClassesAndEmptyNamesArePassedOver) {
  auto smart = std::make_shared<FakeSBObject>("TheHitListSmartFolder");
  smart->properties["name"] = std::string("Today");
  auto nameless = std::make_shared<FakeSBObject>("TheHitListList");
  serve(
      {smart, hitListList(""), nameless, hitListFolder("F", {hitListList(""), hitListList("X")})});
  delegate._fetchHitListProjects();
  EXPECT_EQ(readList("HitListProjects.plist"), strings({"X"}));
}

TEST_F(HitListProjectsTest, NotInstalledOrNotRunningLeavesTheFileAlone) {
  platform.workspace.running.push_back(kHitList);  // running, not installed
  delegate._fetchHitListProjects();
  EXPECT_TRUE(scripting.linksMade.empty());
  platform.workspace.running.clear();
  scripting.install(kHitList);  // installed, not running
  delegate._fetchHitListProjects();
  EXPECT_EQ(lines(), (std::vector<std::string>{"com.potionfactory.thehitlist is not running",
                                               "com.potionfactory.thehitlist is not running"}));
  EXPECT_FALSE(projectImportState(delegate)._static_hitListApplicationInstance)
      << "an object for an application that does not run is not kept";
  EXPECT_FALSE(exists(listPath("HitListProjects.plist")));
}

TEST_F(HitListProjectsTest, TheApplicationObjectIsKeptAcrossAQuit) {
  serve({hitListList("A")});
  delegate._fetchHitListProjects();
  auto object = projectImportState(delegate)._static_hitListApplicationInstance;
  ASSERT_TRUE(object);
  platform.workspace.running.clear();
  delegate._fetchHitListProjects();
  EXPECT_EQ(lines(), std::vector<std::string>{"com.potionfactory.thehitlist is not running"});
  EXPECT_EQ(scripting.linksMade.size(), 1u) << "no new object while it does not run";
  scripting.applications[kHitList]->root->properties["foldersGroup"] = [] {
    auto group = std::make_shared<FakeSBObject>("TheHitListGroup");
    group->properties["lists"] = FakeSBObject::Elements{hitListList("A"), hitListList("B")};
    return std::shared_ptr<platform::SBObject>(group);
  }();
  launch();
  delegate._fetchHitListProjects();
  EXPECT_EQ(scripting.linksMade.size(), 1u);
  EXPECT_EQ(projectImportState(delegate)._static_hitListApplicationInstance, object);
  EXPECT_EQ(readList("HitListProjects.plist"), strings({"A", "B"}));
}

TEST_F(HitListProjectsTest, AnUnchangedRunWritesNothingAndLogsNothing) {
  serve({hitListList("A")});
  delegate._fetchHitListProjects();
  const ino_t first = inode("HitListProjects.plist");
  platform.log.lines.clear();
  delegate._fetchHitListProjects();
  EXPECT_EQ(inode("HitListProjects.plist"), first);
  EXPECT_TRUE(platform.log.lines.empty());
}

TEST_F(HitListProjectsTest, AFailedReadKeepsWhatWasGatheredSilently) {
  auto broken = hitListList("Broken");
  broken->failing = {"name"};
  serve({hitListList("A"), broken, hitListList("C")});
  writeList("HitListProjects.plist", strings({"Old"}));
  delegate._fetchHitListProjects();
  EXPECT_EQ(readList("HitListProjects.plist"), strings({"A"}));
  EXPECT_TRUE(platform.log.lines.empty());
}

TEST_F(HitListProjectsTest, AFailureOnTheFirstReadLeavesAnEmptyList) {
  serve({hitListList("A")});
  scripting.applications[kHitList]->root->failing = {"foldersGroup"};
  writeList("HitListProjects.plist", strings({"Old"}));
  delegate._fetchHitListProjects();
  EXPECT_EQ(readList("HitListProjects.plist"), Value(Array{}));
}

}  // namespace
}  // namespace wf::test
