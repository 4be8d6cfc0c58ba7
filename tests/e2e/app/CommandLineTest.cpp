// The command line: help, version, --verbose, and words the helper does not
// understand, which end it with status 2 before anything is launched.
#include <gtest/gtest.h>

#include "support/Fakes.h"
#include "support/Harness.h"

namespace wf::e2e {
namespace {

constexpr double kWait = 20;

using test::exists;

TEST(CommandLine, EveryWayToAskForHelpPrintsItWithoutABus) {
  for (const char* word : {"-h", "-help", "--help"}) {
    Session s(false);
    s.startHelper({word});
    EXPECT_EQ(s.waitForExit(kWait), 0) << word;
    EXPECT_NE(s.stdoutText().find("Usage: wrenfold-helper"), std::string::npos) << word;
    EXPECT_EQ(s.stderrText(), "") << word;
  }
}

TEST(CommandLine, WrongWordsEndWithStatusTwoAndLaunchNothing) {
  // Each line and the word it is refused for.
  const std::vector<std::pair<std::vector<std::string>, std::string>> lines{
      {{"-v"}, "-v"},
      {{"status"}, "status"},
      {{"--frobnicate"}, "--frobnicate"},
      {{"-"}, "-"},
      {{"--"}, "--"},
      {{"-WFlogOpenMeta"}, "-WFlogOpenMeta"},
      {{"--verbos"}, "--verbos"},
      {{"-WFlogOpenMeta", "YES", "status"}, "status"},
      {{"-WFlogOpenMeta", "YES", "--x", "1"}, "--x"}};
  for (const auto& [line, shown] : lines) {
    Session s;
    s.writePreferences({{"launchWrenfoldHelperAtLogin", Value(true)}});
    s.startHelper(line);
    ASSERT_EQ(s.waitForExit(kWait), 2) << shown << "\n" << s.stderrText();
    EXPECT_EQ(s.countInStderr("wrenfold-helper: unknown argument '" + shown + "'"), 1)
        << s.stderrText();
    EXPECT_EQ(s.countInStderr("usage: wrenfold-helper"), 1) << s.stderrText();
    EXPECT_EQ(s.countInStderr("\n"), 1) << s.stderrText();  // one short line
    EXPECT_EQ(s.stdoutText(), "");
    EXPECT_FALSE(exists(s.home() + "/.config/autostart/org.ardel.WrenfoldHelper.desktop"));
  }
}

TEST(CommandLine, VerboseSwitchesEveryLogKeyOn) {
  Session s;
  s.writePreferences({{"launchWrenfoldHelperAtLogin", Value(true)}});
  s.startHelper({"--verbose"});
  ASSERT_TRUE(s.waitForLaunch()) << s.stderrText();
  EXPECT_GE(s.countInStderr("(logExternalProjects)-[WFHelperAppDelegate "
                            "applicationDidFinishLaunching:]: "),
            1)
      << s.stderrText();
  EXPECT_GE(s.countInStderr("(loginItems)addWrenfoldHelperToLoginItems: "), 1) << s.stderrText();
  EXPECT_GE(s.countInStderr("(logPreferencesNotification)"), 1) << s.stderrText();
}

TEST(CommandLine, VerboseLeavesAKeyTheLineSetsItself) {
  Session s;
  s.startHelper({"-WFlogExternalProjects", "NO", "--verbose"});
  ASSERT_TRUE(s.waitForLaunch()) << s.stderrText();
  EXPECT_EQ(s.countInStderr("(logExternalProjects)"), 0) << s.stderrText();
  EXPECT_GE(s.countInStderr("(logPreferencesNotification)"), 1) << s.stderrText();
}

TEST(CommandLine, PairsKeepTheirMeaning) {
  Session s;
  s.startHelper({"-WFlogOpenMeta", "YES", "-disableExternalProjectScanning", "1"});
  ASSERT_TRUE(s.waitForLaunch()) << s.stderrText();
  EXPECT_EQ(s.countInStderr("WrenfoldHelper Launch Arguments:\n{\n    WFlogOpenMeta = YES;\n}\n"),
            1)
      << s.stderrText();
  EXPECT_EQ(s.countInStderr("External Project Scanning Enabled"), 0);
}

}  // namespace
}  // namespace wf::e2e
