// Peers that fail the helper: the session bus going away, and scripting
// applications that hang, crash in the middle of a reply, or flood the bus
// with signals while the helper asks them for their projects.
#include <signal.h>

#include "StoreFixture.h"
#include "SystemFaults.h"

namespace wf::faults {
namespace {

using test::exists;
using test::readFile;

// The session bus dies under the running helper: it must end, neither crash
// nor spin.
TEST(BusFaults, TheHelperEndsWhenTheSessionBusGoesAway) {
  e2e::Session s;
  s.startHelper();
  ASSERT_TRUE(s.waitForLaunch()) << s.stderrText();
  std::optional<pid_t> bus = privateBusDaemon();
  ASSERT_TRUE(bus) << "the private bus's daemon was not found";
  ASSERT_EQ(kill(*bus, SIGKILL), 0);
  std::optional<int> status = s.waitForExit(10);
  ASSERT_TRUE(status) << "still running 10 s after its bus went away";
  EXPECT_LT(*status, 128) << "ended by a signal";
}

// Bug (Linux platform): when the bus goes away GLib's exit-on-close raises
// SIGTERM, which the helper takes for an ordinary termination: it ends with
// status 0 and not a word, so nothing tells the user (or systemd) that it
// lost its bus. Expected: a line naming the session bus and a failure
// status, as when there is no bus at launch.
TEST(BusFaults, TheHelperSaysWhyAndFailsWhenTheSessionBusGoesAway) {
  e2e::Session s;
  s.startHelper();
  ASSERT_TRUE(s.waitForLaunch()) << s.stderrText();
  std::optional<pid_t> bus = privateBusDaemon();
  ASSERT_TRUE(bus);
  ASSERT_EQ(kill(*bus, SIGKILL), 0);
  std::optional<int> status = s.waitForExit(10);
  ASSERT_TRUE(status);
  EXPECT_NE(*status, 0);
  EXPECT_NE(s.stderrText().find("session bus"), std::string::npos) << s.stderrText();
}

class ScriptingPeers : public StoreFixture {
 protected:
  void SetUp() override {
    StoreFixture::SetUp();
    s.writeHelperDefaults({});  // interval runs on
    s.writePreferences({{"showOmniFocusProjects", Value(true)}});
    makeFolders(s.home() + "/.local/share/applications");
    test::writeFile(s.home() + "/.local/share/applications/com.omnigroup.OmniFocus.desktop",
                    "[Desktop Entry]\nType=Application\nName=OmniFocus\nExec=true\n");
    makeFolders(ardel() + "/ExternalProjects");
    ASSERT_TRUE(plist::writeToFile(Value(Array{Value("Old project")}), list(), true));
    old = readFile(list());
  }
  std::string list() const { return ardel() + "/ExternalProjects/OmniFocusProjects.plist"; }
  std::unique_ptr<DoubleProcess> startOmniFocus(std::vector<std::string> misbehaviour) {
    std::vector<std::string> args{
        "--name", "com.omnigroup.OmniFocus", "--result", "Alpha", "--result", "Beta"};
    args.insert(args.end(), misbehaviour.begin(), misbehaviour.end());
    auto app = std::make_unique<DoubleProcess>(s.busAddress(), args);
    EXPECT_TRUE(app->waitReady(10)) << "the OmniFocus double did not start";
    return app;
  }
  void launchAndCheckTheListKept(double seconds = 20) {
    s.startHelper({"-WFlogOmniFocusProjects", "YES"});
    ASSERT_TRUE(s.waitForLaunch(seconds)) << s.stderrText();
    ASSERT_TRUE(s.roundTrip());
    EXPECT_TRUE(s.helperRunning());
    EXPECT_EQ(readFile(list()), old);
    EXPECT_TRUE(temporariesBelow(ardel()).empty());
  }
  std::string old;
};

TEST_F(ScriptingPeers, AnApplicationThatCrashesWhileCompilingChangesNothing) {
  auto app = startOmniFocus({"--misbehave", "crash"});
  launchAndCheckTheListKept();
}

TEST_F(ScriptingPeers, AnApplicationThatCrashesInTheMiddleOfItsAnswerChangesNothing) {
  auto app = startOmniFocus({"--misbehave", "crash", "--misbehave-after", "1"});
  launchAndCheckTheListKept();
}

TEST_F(ScriptingPeers, AnApplicationThatHangsHoldsTheHelperOnlyUntilTheBusTimesOut) {
  auto app = startOmniFocus({"--misbehave", "hang"});
  // The bus's default reply time-out is 25 seconds.
  launchAndCheckTheListKept(60);
}

TEST_F(ScriptingPeers, AnApplicationThatFloodsTheBusStillGetsItsProjectsRead) {
  auto app = startOmniFocus({"--misbehave", "flood"});
  s.startHelper({"-WFlogOmniFocusProjects", "YES"});
  ASSERT_TRUE(s.waitForLaunch(30)) << s.stderrText();
  EXPECT_TRUE(s.waitForFiles(
      [&] {
        return plist::arrayWithContentsOfFile(list()) ==
               Value(Array{Value("Alpha"), Value("Beta")});
      },
      20))
      << s.stderrText();
  ASSERT_TRUE(s.roundTrip());
  EXPECT_TRUE(s.helperRunning());
  EXPECT_TRUE(temporariesBelow(ardel()).empty());
}

}  // namespace
}  // namespace wf::faults
