// The Linux platform pieces that need no bus: the argument domain, the
// helper's own defaults file, the log record, the main loop's delayed calls
// and the environment.
#include <glib.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdlib>
#include <regex>

#include "platform/linux/Dispatch.h"
#include "platform/linux/GLibMainLoop.h"
#include "platform/linux/ProcessDefaults.h"
#include "platform/linux/ProcessEnvironment.h"
#include "platform/linux/SystemClock.h"
#include "platform/linux/SystemLog.h"
#include "platform/plist/PropertyList.h"
#include "support/Fakes.h"
#include "support/MainLoopPump.h"

namespace wf::platform {
namespace {

TEST(ArgumentDomain, PairsAsFoundationReadsThem) {
  Dictionary d = parseArgumentDomain(
      {"-WFlogOpenMeta", "YES", "stray", "-", "-a", "-b", "-WFlogOpenMeta", "NO", "-last"});
  EXPECT_EQ(d, (Dictionary{{"WFlogOpenMeta", Value("NO")}, {"a", Value("-b")}}));
}

TEST(ArgumentDomain, ValuesStayStrings) {
  Dictionary d = parseArgumentDomain({"-settingsSyncMethod", "2", "-flag", "(a,b)"});
  EXPECT_EQ(d.at("settingsSyncMethod"), Value("2"));
  EXPECT_EQ(d.at("flag"), Value("(a,b)"));
}

TEST(ArgumentDomain, EmptyCommandLineGivesNothing) { EXPECT_TRUE(parseArgumentDomain({}).empty()); }

class OwnDefaultsTest : public ::testing::Test {
 protected:
  std::string file() const { return dir / "org.ardel.WrenfoldHelper.plist"; }
  void write(const Dictionary& d) { ASSERT_TRUE(plist::writeToFile(Value(d), file(), true)); }
  test::TempDir dir;
};

TEST_F(OwnDefaultsTest, ArgumentsComeBeforeTheFile) {
  write({{"disableOpenMetaScanning", Value(true)}, {"other", Value(1)}});
  ProcessDefaults d({{"disableOpenMetaScanning", Value("NO")}}, file());
  EXPECT_FALSE(d.boolForKey("disableOpenMetaScanning"));
  EXPECT_EQ(d.objectForKey("other"), Value(1));
  EXPECT_TRUE(d.objectForKey("absent").isNil());
}

TEST_F(OwnDefaultsTest, FileIsReadAfreshWhenItChanged) {
  write({{"disableExternalProjectScanning", Value(false)}});
  ProcessDefaults d({}, file());
  EXPECT_FALSE(d.boolForKey("disableExternalProjectScanning"));
  write({{"disableExternalProjectScanning", Value(true)}});  // replaced atomically
  EXPECT_TRUE(d.boolForKey("disableExternalProjectScanning"));
  unlink(file().c_str());
  EXPECT_FALSE(d.boolForKey("disableExternalProjectScanning"));
}

TEST_F(OwnDefaultsTest, BrokenFilesHoldNoDefaults) {
  test::writeFile(file(), "not a property list");
  ProcessDefaults d({}, file());
  EXPECT_TRUE(d.objectForKey("disableOpenMetaScanning").isNil());
  ASSERT_TRUE(plist::writeToFile(Value(Array{Value(true)}), file(), true));
  EXPECT_TRUE(d.objectForKey("disableOpenMetaScanning").isNil());
}

TEST_F(OwnDefaultsTest, StringValuesReadAsNSStringReadsThem) {
  write(
      {{"disableOpenMetaScanning", Value("yes")}, {"disableExternalProjectScanning", Value("0")}});
  ProcessDefaults d({}, file());
  EXPECT_TRUE(d.boolForKey("disableOpenMetaScanning"));
  EXPECT_FALSE(d.boolForKey("disableExternalProjectScanning"));
}

TEST(SystemLogRecord, HeadOfTimePidAndThread) {
  std::string record = stderrRecord("two\nlines");
  std::regex head(
      R"(^\d{4}-\d{2}-\d{2} \d{2}:\d{2}:\d{2}\.\d{3} wrenfold-helper\[(\d+):(\d+)\] two\nlines\n$)");
  std::smatch m;
  ASSERT_TRUE(std::regex_match(record, m, head)) << record;
  EXPECT_EQ(m[1].str(), std::to_string(getpid()));
  EXPECT_EQ(m[2].str(), std::to_string(gettid()));
}

TEST(SystemClockTest, CountsFromTheReferenceDate) {
  SystemClock clock;
  double unixNow = static_cast<double>(time(nullptr));
  EXPECT_NEAR(clock.now(), unixNow - 978307200.0, 5.0);
}

TEST(GLibMainLoopTest, DelayedCallsRunInOrderOfTheirDelay) {
  GLibMainLoop loop;
  std::vector<int> order;
  loop.performAfterDelay(0.05, [&] { order.push_back(2); });
  loop.performAfterDelay(0.0, [&] { order.push_back(1); });
  ASSERT_TRUE(test::runUntil([&] { return order.size() == 2; }, 10));
  EXPECT_EQ(order, (std::vector<int>{1, 2}));
}

TEST(GLibMainLoopTest, CancelledCallNeverRuns) {
  GLibMainLoop loop;
  bool cancelledRan = false, laterRan = false;
  TimerId id = loop.performAfterDelay(0.01, [&] { cancelledRan = true; });
  EXPECT_NE(id, 0u);
  loop.cancel(id);
  loop.cancel(id);      // twice: ignored
  loop.cancel(999999);  // unknown: ignored
  loop.performAfterDelay(0.05, [&] { laterRan = true; });
  ASSERT_TRUE(test::runUntil([&] { return laterRan; }, 10));
  EXPECT_FALSE(cancelledRan);
}

TEST(GLibMainLoopTest, LongWholeSecondDelaysCanBeCancelled) {
  GLibMainLoop loop;
  TimerId id = loop.performAfterDelay(300, [] {});
  ASSERT_NE(g_main_context_find_source_by_id(nullptr, id), nullptr);
  loop.cancel(id);
  EXPECT_EQ(g_main_context_find_source_by_id(nullptr, id), nullptr);
}

TEST(GLibMainLoopTest, ExceptionInACallIsLoggedAndTheLoopGoesOn) {
  test::FakeLog log;
  setNSLogSink(&log);
  GLibMainLoop loop;
  bool after = false;
  loop.performAfterDelay(0.0, [] { throw NSException("*** boom"); });
  loop.performAfterDelay(0.02, [&] { after = true; });
  ASSERT_TRUE(test::runUntil([&] { return after; }, 10));
  EXPECT_EQ(log.lines, std::vector<std::string>{"An uncaught exception was raised\n*** boom"});
  setNSLogSink(nullptr);
}

TEST(GLibMainLoopTest, ACallMayScheduleTheNext) {
  GLibMainLoop loop;
  int runs = 0;
  std::function<void()> again = [&] {
    if (++runs < 3) loop.performAfterDelay(0.0, again);
  };
  loop.performAfterDelay(0.0, again);
  ASSERT_TRUE(test::runUntil([&] { return runs == 3; }, 10));
}

class EnvironmentTest : public ::testing::Test {
 protected:
  void SetUp() override {
    const char* home = getenv("HOME");
    savedHome = home ? home : "";
    const char* config = getenv("XDG_CONFIG_HOME");
    savedConfig = config ? std::optional<std::string>(config) : std::nullopt;
  }
  void TearDown() override {
    setenv("HOME", savedHome.c_str(), 1);
    if (savedConfig)
      setenv("XDG_CONFIG_HOME", savedConfig->c_str(), 1);
    else
      unsetenv("XDG_CONFIG_HOME");
  }
  std::string savedHome;
  std::optional<std::string> savedConfig;
};

TEST_F(EnvironmentTest, FoldersFollowHome) {
  setenv("HOME", "/home/ada", 1);
  unsetenv("XDG_CONFIG_HOME");
  ProcessEnvironment env;
  EXPECT_EQ(env.userLibraryDirectories(), std::vector<std::string>{"/home/ada/Library"});
  EXPECT_EQ(
      env.userApplicationScriptsDirectories(),
      std::vector<std::string>{"/home/ada/Library/Application Scripts/org.ardel.WrenfoldHelper"});
  EXPECT_EQ(env.xdgConfigHome(), "/home/ada/.config");
  EXPECT_EQ(ProcessEnvironment::ownDefaultsFile(),
            "/home/ada/Library/Preferences/org.ardel.WrenfoldHelper.plist");
  setenv("XDG_CONFIG_HOME", "/elsewhere/config", 1);
  EXPECT_EQ(env.xdgConfigHome(), "/elsewhere/config");
  setenv("XDG_CONFIG_HOME", "relative/config", 1);  // not absolute: ignored
  EXPECT_EQ(env.xdgConfigHome(), "/home/ada/.config");
}

TEST_F(EnvironmentTest, EmptyHomeFallsBackToThePasswordDatabase) {
  setenv("HOME", "", 1);
  ProcessEnvironment env;
  auto libraries = env.userLibraryDirectories();
  ASSERT_EQ(libraries.size(), 1u);
  EXPECT_TRUE(libraries[0].ends_with("/Library"));
  EXPECT_NE(libraries[0], "/Library");
}

TEST_F(EnvironmentTest, IdentityAndResourcesFromTheInfoFile) {
  ProcessEnvironment env;
  char exe[4096];
  ASSERT_TRUE(realpath("/proc/self/exe", exe));
  EXPECT_EQ(env.bundlePath(), exe);
  EXPECT_EQ(env.bundleIdentifier(), "org.ardel.WrenfoldHelper");
  EXPECT_TRUE(env.infoValue("CFBundleVersion").isString());
  EXPECT_TRUE(env.pathForResource("Info", "plist").has_value());
  EXPECT_FALSE(env.pathForResource("NoSuchResource", "txt").has_value());
  EXPECT_EQ(env.systemVersionPlistPath(), "/System/Library/CoreServices/SystemVersion.plist");
}

TEST_F(EnvironmentTest, SystemVersionIsTheKernelRelease) {
  ProcessEnvironment env;
  auto v = env.operatingSystemVersion();
  ASSERT_EQ(v.size(), 3u);
  EXPECT_GT(v[0], 0);
  std::string release = std::to_string(v[0]) + "." + std::to_string(v[1]);
  FILE* f = popen("uname -r", "r");
  ASSERT_TRUE(f);
  char buf[256] = {};
  ASSERT_TRUE(fgets(buf, sizeof buf, f));
  pclose(f);
  EXPECT_EQ(std::string(buf).rfind(release + ".", 0), 0u) << buf;
}

}  // namespace
}  // namespace wf::platform
