// The launch sequence, the watch on Mail, the interval run and the ways the
// helper ends, against the fake platform.
#include <gtest/gtest.h>
#include <sys/stat.h>

#include "app/WFHelperAppDelegate.h"
#include "platform/plist/PropertyList.h"
#include "support/Fakes.h"

namespace wf {
namespace {

using platform::Terminated;
using test::FakePlatform;

constexpr const char* kBanner =
    "WrenfoldHelper 1.0.0 Launched \nWrenfoldHelper supports Wrenfold interfacing with other "
    "applications and automatic updating";
constexpr const char* kNotInstalled =
    "Wrenfold is not installed -- Quitting Wrenfold Helper App and removing from login items";

class LaunchTest : public ::testing::Test {
 protected:
  void SetUp() override {
    makeFolder(p.library() + "/Mail");
    makeFolder(p.library() + "/Mail/Bundles");
    makeFolder(p.library() + "/Mail/Bundles/Wrenfold.mailbundle");
    makeFolder(p.library() + "/Preferences");
  }
  static void makeFolder(const std::string& path) { mkdir(path.c_str(), 0755); }
  void writePreferences(const Dictionary& prefs) {
    ASSERT_TRUE(plist::writeToFile(Value(prefs),
                                   p.library() + "/Preferences/org.ardel.Wrenfold.plist", true));
  }
  WFHelperAppDelegate& delegate() {
    if (!delegate_) delegate_ = std::make_unique<WFHelperAppDelegate>(p.services());
    return *delegate_;
  }
  void launch() { delegate().applicationDidFinishLaunching(); }
  std::vector<std::string> linesContaining(const std::string& text) const {
    std::vector<std::string> out;
    for (const auto& l : p.log.lines)
      if (l.find(text) != std::string::npos) out.push_back(l);
    return out;
  }

  FakePlatform p;
  std::unique_ptr<WFHelperAppDelegate> delegate_;
};

TEST_F(LaunchTest, BannerCarriesTheBundleVersionAndTheBlankBeforeTheLineBreak) {
  p.environment.info["CFBundleVersion"] = Value("7.3.1");
  launch();
  EXPECT_TRUE(p.log.contains(
      "WrenfoldHelper 7.3.1 Launched \nWrenfoldHelper supports Wrenfold interfacing with other "
      "applications and automatic updating"));
}

TEST_F(LaunchTest, WFArgumentsAreListedAndSwitchTheirLogKeyOn) {
  writePreferences({{"logExternalProjects", Value(false)}});
  p.defaults.arguments = {{"WFlogExternalProjects", Value("YES")},
                          {"logPreferencesNotification", Value("YES")},
                          {"wfLower", Value("1")}};
  launch();
  EXPECT_TRUE(
      p.log.contains("WrenfoldHelper Launch Arguments:\n{\n    WFlogExternalProjects = YES;\n}"));
  auto enabled = p.log.startingWith(
      "(logExternalProjects)-[WFHelperAppDelegate applicationDidFinishLaunching:]: ");
  ASSERT_EQ(enabled.size(), 1u);
  EXPECT_TRUE(enabled[0].ends_with(": External Project Scanning Enabled"));
  // Without the prefix an argument is no override.
  EXPECT_TRUE(p.log.startingWith("(logPreferencesNotification)").empty());
}

TEST_F(LaunchTest, NoLaunchArgumentsLineWithoutWFArguments) {
  p.defaults.arguments = {{"logExternalProjects", Value("YES")}};
  launch();
  EXPECT_TRUE(linesContaining("Launch Arguments").empty());
  EXPECT_TRUE(p.log.startingWith("(logExternalProjects)").empty());
}

TEST_F(LaunchTest, MissingPlugInWritesOneMessageAndEnds) {
  rmdir((p.library() + "/Mail/Bundles/Wrenfold.mailbundle").c_str());
  EXPECT_THROW(launch(), Terminated);
  EXPECT_TRUE(p.loop.terminated);
  // The message, then where the plug-in was looked for.
  ASSERT_EQ(p.log.lines.size(), 2u);
  EXPECT_EQ(p.log.lines[0], kNotInstalled);
  EXPECT_EQ(p.log.lines[1], "The Wrenfold plug-in was looked for at " + p.library() +
                                "/Mail/Bundles/Wrenfold.mailbundle and nothing is there; install "
                                "the plug-in there for this user, then start the helper again.");
  EXPECT_EQ(p.loop.pendingCount(), 0u);
  EXPECT_TRUE(p.notifications.observers.empty());
}

TEST_F(LaunchTest, PlugInIsLookedForInTheUserLibraryOnly) {
  p.environment.libraries_.clear();  // no home: no user Library
  EXPECT_THROW(launch(), Terminated);
  EXPECT_EQ(
      p.log.lines,
      (std::vector<std::string>{
          kNotInstalled,
          "The Wrenfold plug-in was looked for at ~/Library/Mail/Bundles/Wrenfold.mailbundle, "
          "but this process has no home folder (neither HOME nor the password database gives "
          "one)."}));
}

TEST_F(LaunchTest, APlainFileCountsAsThePlugIn) {
  rmdir((p.library() + "/Mail/Bundles/Wrenfold.mailbundle").c_str());
  test::writeFile(p.library() + "/Mail/Bundles/Wrenfold.mailbundle", "");
  EXPECT_NO_THROW(launch());
  EXPECT_TRUE(p.log.contains(kBanner));
}

TEST_F(LaunchTest, StepsRunInOrder) {
  p.defaults.arguments = {{"WFlogExternalProjects", Value("1")},
                          {"WFlogPreferencesNotification", Value("1")}};
  launch();
  auto index = [&](const std::string& prefix) {
    for (std::size_t i = 0; i < p.log.lines.size(); ++i)
      if (p.log.lines[i].rfind(prefix, 0) == 0) return static_cast<long>(i);
    return -1L;
  };
  long banner = index("WrenfoldHelper 1.0.0 Launched");
  long arguments = index("WrenfoldHelper Launch Arguments:");
  long snapshot = index("(logPreferencesNotification)");
  long openMeta = index("External OpenMeta Scanning");
  long scanning = index("(logExternalProjects)");
  ASSERT_GE(banner, 0);
  EXPECT_LT(banner, arguments);
  EXPECT_LT(arguments, snapshot);
  EXPECT_LT(snapshot, openMeta);
  EXPECT_LT(openMeta, scanning);
}

TEST_F(LaunchTest, ObserversAreRegisteredInOrder) {
  launch();
  std::vector<std::string> names;
  for (const auto& [name, handler] : p.notifications.observers) names.push_back(name);
  EXPECT_EQ(names,
            (std::vector<std::string>{"WrenfoldPreferencesDidChange", "WrenfoldKeywordListWasSaved",
                                      "WrenfoldProjectListWasSaved", "WrenfoldInboxRulesWereSaved",
                                      "WrenfoldSmartMailboxesWereSaved", "WrenfoldWillUninstall"}));
  EXPECT_EQ(p.workspace.launchObservers.size(), 1u);
  EXPECT_EQ(p.workspace.terminateObservers.size(), 1u);
}

TEST_F(LaunchTest, IntervalIs300WithoutMailAnd30WithIt) {
  launch();
  EXPECT_EQ(delegate().runInterval_, 300u);
  EXPECT_EQ(p.loop.pendingDelays(), std::vector<double>{300.0});
  EXPECT_NE(delegate().pendingIntervalRun_, 0u);

  FakePlatform q;
  q.workspace.running = {"org.example.Other", "com.apple.mail"};
  mkdir((q.library() + "/Mail").c_str(), 0755);
  mkdir((q.library() + "/Mail/Bundles").c_str(), 0755);
  mkdir((q.library() + "/Mail/Bundles/Wrenfold.mailbundle").c_str(), 0755);
  delegate_.reset();
  WFHelperAppDelegate second(q.services());
  second.applicationDidFinishLaunching();
  EXPECT_EQ(second.runInterval_, 30u);
  EXPECT_EQ(q.loop.pendingDelays(), std::vector<double>{30.0});
}

TEST_F(LaunchTest, MailIsRecognisedByExactIdentifierOnly) {
  delegate();
  p.workspace.running = {"com.apple.Mail", "com.apple.mail.helper", "Mail"};
  EXPECT_FALSE(isMailRunning());
  p.workspace.running.push_back("com.apple.mail");
  EXPECT_TRUE(isMailRunning());
}

TEST_F(LaunchTest, TheChainOfRunsReschedulesItself) {
  launch();
  p.loop.advance(300);
  EXPECT_EQ(p.loop.pendingDelays(), std::vector<double>{300.0});
  p.loop.advance(300);
  EXPECT_EQ(p.loop.pendingCount(), 1u);
}

TEST_F(LaunchTest, DisabledProjectScanningSkipsRunsAndMailWatch) {
  p.defaults.own = {{"disableExternalProjectScanning", Value(true)}};
  p.defaults.arguments = {{"WFlogExternalProjects", Value("YES")}};
  launch();
  EXPECT_TRUE(p.log.startingWith("(logExternalProjects)").empty());
  EXPECT_EQ(p.loop.pendingCount(), 0u);
  EXPECT_TRUE(p.workspace.launchObservers.empty());
  EXPECT_TRUE(p.workspace.terminateObservers.empty());
  p.workspace.launch("com.apple.mail");
  EXPECT_NO_THROW(p.workspace.quit("com.apple.mail"));
  EXPECT_FALSE(p.loop.terminated);
  // The plug-in's notifications are still observed.
  EXPECT_EQ(p.notifications.observers.size(), 6u);
}

TEST_F(LaunchTest, NoticesOfOtherApplicationsChangeNothing) {
  launch();
  p.loop.advance(100);
  auto before = p.loop.pendingDelays();
  auto pending = delegate().pendingIntervalRun_;
  p.workspace.launch("org.example.Editor");
  EXPECT_NO_THROW(p.workspace.quit("org.example.Editor"));
  EXPECT_EQ(p.loop.pendingDelays(), before);
  EXPECT_EQ(delegate().pendingIntervalRun_, pending);
  EXPECT_EQ(delegate().runInterval_, 300u);
  EXPECT_FALSE(p.loop.terminated);
}

TEST_F(LaunchTest, NoticeWithoutIdentifierChangesNothing) {
  launch();
  auto before = p.loop.pendingDelays();
  delegate().mailDidLaunch(
      platform::Notification{"NSWorkspaceDidLaunchApplicationNotification", {}});
  EXPECT_NO_THROW(delegate().mailDidTerminate(
      platform::Notification{"NSWorkspaceDidTerminateApplicationNotification", {}}));
  EXPECT_EQ(p.loop.pendingDelays(), before);
}

TEST_F(LaunchTest, MailLaunchRunsAtOnceAndRestartsTheRhythm) {
  launch();
  p.loop.advance(100);
  auto old = delegate().pendingIntervalRun_;
  p.workspace.launch("com.apple.mail");
  EXPECT_EQ(delegate().runInterval_, 30u);
  EXPECT_NE(delegate().pendingIntervalRun_, old);
  EXPECT_EQ(p.loop.pendingDelays(), std::vector<double>{30.0});
}

TEST_F(LaunchTest, MailLaunchingTwiceNeverLeavesTwoRunsPending) {
  launch();
  p.workspace.launch("com.apple.mail");
  EXPECT_EQ(p.loop.pendingCount(), 1u);
  p.loop.advance(0.1);
  p.workspace.launch("com.apple.mail");
  EXPECT_EQ(p.loop.pendingCount(), 1u);
  EXPECT_EQ(p.loop.pendingDelays(), std::vector<double>{30.0});
}

TEST_F(LaunchTest, MailQuittingKeepsThePendingRunThenSlowsDown) {
  writePreferences({{"launchWrenfoldHelperAtLogin", Value(true)}});
  p.workspace.running = {"com.apple.mail"};
  launch();
  ASSERT_EQ(delegate().runInterval_, 30u);
  p.loop.advance(10);
  p.workspace.quit("com.apple.mail");
  EXPECT_FALSE(p.loop.terminated);
  EXPECT_EQ(delegate().runInterval_, 300u);
  EXPECT_EQ(p.loop.pendingDelays(), std::vector<double>{20.0});
  p.loop.advance(20);
  EXPECT_EQ(p.loop.pendingDelays(), std::vector<double>{300.0});
}

TEST_F(LaunchTest, MailQuittingEndsAHelperNotMeantForLogin) {
  writePreferences({{"launchWrenfoldHelperAtLogin", Value(false)}});
  p.workspace.running = {"com.apple.mail"};
  launch();
  EXPECT_THROW(p.workspace.quit("com.apple.mail"), Terminated);
  EXPECT_TRUE(p.loop.terminated);
}

TEST_F(LaunchTest, MailQuittingWithoutPreferencesEndsTheHelper) {
  p.workspace.running = {"com.apple.mail"};
  launch();
  EXPECT_THROW(p.workspace.quit("com.apple.mail"), Terminated);
}

TEST_F(LaunchTest, CommandLineLoginChoiceKeepsTheHelperAfterMailQuits) {
  writePreferences({{"launchWrenfoldHelperAtLogin", Value(false)}});
  p.defaults.arguments = {{"WFlaunchWrenfoldHelperAtLogin", Value("YES")}};
  p.workspace.running = {"com.apple.mail"};
  launch();
  EXPECT_NO_THROW(p.workspace.quit("com.apple.mail"));
  EXPECT_FALSE(p.loop.terminated);
}

TEST_F(LaunchTest, UninstallLogsAndEnds) {
  launch();
  p.log.lines.clear();
  EXPECT_THROW(p.notifications.deliver("WrenfoldWillUninstall"), Terminated);
  EXPECT_EQ(p.log.lines.front(), "Wrenfold is uninstalling!");
  EXPECT_TRUE(p.loop.terminated);
}

TEST_F(LaunchTest, QuitSparkleHelperWithoutUpdaterDoesNothing) {
  launch();
  auto lines = p.log.lines;
  delegate().quitSparkleHelper();
  EXPECT_EQ(p.log.lines, lines);
  EXPECT_FALSE(p.loop.terminated);
}

// A loop whose scheduling raises once, as a failing exchange inside the
// first interval run would.
class RaisingLoop : public test::FakeLoop {
 public:
  using FakeLoop::FakeLoop;
  platform::TimerId performAfterDelay(double seconds, std::function<void()> fn) override {
    if (raise) {
      raise = false;
      throw NSException("*** the exchange failed");
    }
    return FakeLoop::performAfterDelay(seconds, std::move(fn));
  }
  bool raise = true;
};

TEST_F(LaunchTest, AnExceptionInTheFirstRunEndsThatRunNotTheLaunch) {
  RaisingLoop loop(p.clock);
  platform::Services services = p.services();
  services.loop = loop;
  WFHelperAppDelegate d(services);
  EXPECT_NO_THROW(d.applicationDidFinishLaunching());
  EXPECT_TRUE(p.log.contains("An uncaught exception was raised\n*** the exchange failed"));
  // The chain ended with that run; the launch went on to the observers.
  EXPECT_EQ(loop.pendingCount(), 0u);
  EXPECT_EQ(p.notifications.observers.size(), 6u);
}

}  // namespace
}  // namespace wf
