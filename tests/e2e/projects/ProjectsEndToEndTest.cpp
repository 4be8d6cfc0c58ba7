// External projects and Finder tags with the real helper: task-manager
// doubles on a private session bus, the Finder's file in a temporary home.
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <cstdlib>
#include <fstream>

#include "ScriptingAppProcess.h"
#include "platform/plist/PropertyList.h"
#include "projects/ThingsScripts.h"
#include "support/Fakes.h"
#include "support/Harness.h"

namespace wf::e2e {
namespace {

using test::ScriptingAppProcess;

constexpr double kWait = 20;
constexpr const char* kMail = "com.apple.mail";
constexpr const char* kNotice = "WrenfoldFinderTagsWereModified";

Value strings(std::initializer_list<const char*> names) {
  Array a;
  for (const char* n : names) a.emplace_back(n);
  return Value(std::move(a));
}

class ProjectsEndToEnd : public ::testing::Test {
 protected:
  std::string projectsFile(const std::string& name) const {
    return s.library() + "/Mail/Ardel/ExternalProjects/" + name;
  }
  Value list(const std::string& name) const {
    return plist::arrayWithContentsOfFile(projectsFile(name));
  }
  bool waitForList(const std::string& name, const Value& expected) {
    return s.waitForFiles([&] { return list(name) == expected; }, kWait);
  }

  // An installed application: its desktop entry.
  void install(const std::string& id) {
    const std::string folder = s.home() + "/.local/share/applications";
    ASSERT_EQ(std::system(("mkdir -p '" + folder + "'").c_str()), 0);
    std::ofstream(folder + "/" + id + ".desktop")
        << "[Desktop Entry]\nType=Application\nName=" << id << "\n";
  }
  std::string descriptionFile(const std::string& id) const {
    return s.home() + "/" + id + ".plist";
  }
  // Installs and starts a double of the application `id`.
  std::unique_ptr<ScriptingAppProcess> startApp(const std::string& id, const Value& description) {
    install(id);
    test::writeDescription(descriptionFile(id), description);
    auto app = std::make_unique<ScriptingAppProcess>(
        s.busAddress(),
        std::vector<std::string>{"--name", id, "--description", descriptionFile(id)});
    EXPECT_TRUE(app->ready()) << id;
    return app;
  }

  // Keeps the helper alive when Mail quits, so that Mail's launches can
  // drive the interval runs.
  void launch(Dictionary preferences) {
    preferences["launchWrenfoldHelperAtLogin"] = Value(true);
    s.writePreferences(preferences);
    s.startHelper();
    ASSERT_TRUE(s.waitForLaunch()) << s.stderrText();
  }
  // Mail's launch triggers an interval run at once.
  void launchMail() {
    s.releaseName(kMail);
    ASSERT_TRUE(s.ownName(kMail));
  }

  Session s;
};

TEST_F(ProjectsEndToEnd, Things3ProjectsAreWrittenAndFollowed) {
  auto things3 = startApp(
      "com.culturedcode.ThingsMac",
      Value(Dictionary{{"execute", Value(Dictionary{{"result", strings({"Garden", "Taxes"})}})}}));
  launch({{"showThingsProjects", Value(true)}, {"logExternalProjects", Value(true)}});
  ASSERT_TRUE(waitForList("ThingsProjects.plist", strings({"Garden", "Taxes"}))) << s.stderrText();

  bool sentUnchanged = false;
  for (const auto& [method, argument] :
       test::scriptingAppCalls(s.bus(), "com.culturedcode.ThingsMac"))
    if (method == "Execute" && argument == kThings3ProjectsScript) sentUnchanged = true;
  EXPECT_TRUE(sentUnchanged);
  EXPECT_GE(s.countInStderr("Things is not running"), 1) << "the Things import finds no Things";

  // "Taxes" filed under Someday: the next run drops it.
  test::writeDescription(
      descriptionFile("com.culturedcode.ThingsMac"),
      Value(Dictionary{{"execute", Value(Dictionary{{"result", strings({"Garden"})}})}}));
  launchMail();
  EXPECT_TRUE(waitForList("ThingsProjects.plist", strings({"Garden"}))) << s.stderrText();
}

TEST_F(ProjectsEndToEnd, AChangedFinderTagIsAnnouncedExactlyOnce) {
  auto writeFinder = [&](Array tags) {
    ASSERT_EQ(std::system(("mkdir -p '" + s.library() + "/SyncedPreferences'").c_str()), 0);
    Value root(Dictionary{
        {"values",
         Value(Dictionary{
             {"FinderTagDict",
              Value(Dictionary{{"value", Value(Dictionary{{"FinderTags", Value(tags)}})}})}})}});
    std::string binary;
    ASSERT_TRUE(plist::toBinary(root, binary));
    ASSERT_TRUE(plist::writeFileAtomically(
        s.library() + "/SyncedPreferences/com.apple.finder.plist", binary));
  };
  auto tag = [](const char* n, int l) {
    return Value(Dictionary{{"n", Value(n)}, {"l", Value(l)}});
  };
  auto entry = [](const char* n, int l) {
    return Value(Dictionary{{"title", Value(n)}, {"colorNum", Value(l)}, {"source", Value(2)}});
  };

  writeFinder({tag("Red", 6)});
  s.watch(kNotice);
  launch({{"logFinderTags", Value(true)}});
  ASSERT_TRUE(s.waitForSignal(kNotice, 1, kWait)) << s.stderrText();
  EXPECT_EQ(list("FinderTags.plist"), Value(Array{entry("Red", 6)}));

  writeFinder({tag("Red", 6), tag("Work", 4)});
  launchMail();
  ASSERT_TRUE(s.waitForSignal(kNotice, 2, kWait)) << s.stderrText();
  EXPECT_EQ(list("FinderTags.plist"), Value(Array{entry("Red", 6), entry("Work", 4)}));

  // Two more runs without a change: nothing more is announced.
  launchMail();
  launchMail();
  ASSERT_TRUE(s.waitForLine("fetch finder tags", kWait, 4)) << s.stderrText();
  ASSERT_TRUE(s.roundTrip());
  EXPECT_EQ(s.count(kNotice), 2);
}

TEST_F(ProjectsEndToEnd, TheHitListFoldersGiveOneFlatList) {
  auto object = [](const char* cls, const char* name, Array lists) {
    Dictionary d{{"Class", Value(cls)}, {"name", Value(name)}};
    if (!lists.empty()) d["lists"] = Value(std::move(lists));
    return Value(std::move(d));
  };
  Dictionary objects{
      {"/", Value(Dictionary{{"Class", Value("TheHitListApplication")},
                             {"foldersGroup", Value(Dictionary{{"o", Value("/group")}})}})},
      {"/group",
       Value(Dictionary{{"Class", Value("TheHitListGroup")},
                        {"lists", Value(Array{Value("/inbox"), Value("/work"), Value("/home")})}})},
      {"/inbox", object("TheHitListList", "Inbox", {})},
      {"/work", object("TheHitListFolder", "Work", {Value("/clients"), Value("/archive")})},
      {"/clients", object("TheHitListList", "Clients", {})},
      {"/archive", object("TheHitListFolder", "Archive", {Value("/old")})},
      {"/old", object("TheHitListList", "Old", {})},
      {"/home", object("TheHitListList", "Home", {})},
  };
  auto hitList =
      startApp("com.potionfactory.thehitlist", Value(Dictionary{{"objects", Value(objects)}}));
  launch({{"showHitListProjects", Value(true)}});
  EXPECT_TRUE(
      waitForList("HitListProjects.plist", strings({"Inbox", "Clients", "Archive", "Home"})))
      << s.stderrText();
}

TEST_F(ProjectsEndToEnd, OmniFocus2StandardEditionIsReportedOncePerLaunchOfOmniFocus) {
  const std::string message =
      "Cannot access OmniFocus 2 projects.\n"
      "\t\tWrenfold can only fetch projects from OmniFocus 2 Pro.\n"
      "\t\tOmniFocus 2 regular edition is not AppleScriptable.\n"
      "\t\tThis message will only be shown once.";
  const Value notScriptable(Dictionary{{"compile", Value("OmniFocus 2 is not scriptable")}});
  auto omniFocus = startApp("com.omnigroup.OmniFocus2", notScriptable);
  launch({{"showOmniFocusProjects", Value(true)}, {"logOmniFocusProjects", Value(true)}});
  ASSERT_TRUE(s.waitForLine(message, kWait)) << s.stderrText();

  launchMail();
  launchMail();
  ASSERT_TRUE(s.waitForLine("OmniFocus is not running", kWait, 3)) << s.stderrText();
  EXPECT_EQ(s.countInStderr(message), 1);
  EXPECT_FALSE(test::exists(projectsFile("OmniFocusProjects.plist")));

  // OmniFocus quits and comes back: the message is written once more.
  omniFocus->stop();
  launchMail();
  ASSERT_TRUE(s.waitForLine("OmniFocus is not running", kWait, 4)) << s.stderrText();
  omniFocus = startApp("com.omnigroup.OmniFocus2", notScriptable);
  launchMail();
  ASSERT_TRUE(s.waitForLine(message, kWait, 2)) << s.stderrText();
  launchMail();
  ASSERT_TRUE(s.waitForLine("OmniFocus is not running", kWait, 6)) << s.stderrText();
  EXPECT_EQ(s.countInStderr(message), 2);
}

TEST_F(ProjectsEndToEnd, AnOmniFocusThatAnswersGetsItsProjectsStored) {
  auto omniFocus =
      startApp("com.omnigroup.OmniFocus",
               Value(Dictionary{
                   {"execute", Value(Dictionary{{"result", strings({"Errands", "", "Taxes"})}})}}));
  launch({{"showOmniFocusProjects", Value(true)}});
  EXPECT_TRUE(waitForList("OmniFocusProjects.plist", strings({"Errands", "Taxes"})))
      << s.stderrText();
  auto calls = test::scriptingAppCalls(s.bus(), "com.omnigroup.OmniFocus");
  ASSERT_GE(calls.size(), 2u);
  EXPECT_EQ(calls[0].first, "Compile");
  EXPECT_NE(calls[0].second.find("tell application \"OmniFocus\""), std::string::npos);
}

TEST_F(ProjectsEndToEnd, AThingsThatCrashesLeavesTheHelperRunning) {
  install("com.culturedcode.things");
  auto things = std::make_unique<ScriptingAppProcess>(
      s.busAddress(),
      std::vector<std::string>{"--name", "com.culturedcode.things", "--misbehave", "crash"});
  ASSERT_TRUE(things->ready());
  launch({{"showThingsProjects", Value(true)}});
  ASSERT_TRUE(s.waitForLine("Error requesting Things: ", kWait)) << s.stderrText();
  EXPECT_TRUE(waitForList("ThingsProjects.plist", Value(Array{})));
  EXPECT_TRUE(s.roundTrip());
  EXPECT_TRUE(s.helperRunning());
}

}  // namespace
}  // namespace wf::e2e
