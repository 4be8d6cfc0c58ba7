// The helper as a whole: launch, the watch on Mail, the ways it ends, and
// bad input, with the real binary on a private session bus.
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/stat.h>
#include <unistd.h>

#include "platform/plist/PropertyList.h"
#include "support/Harness.h"

namespace wf::e2e {
namespace {

constexpr double kWait = 20;
constexpr const char* kBannerEnd =
    " Launched \nWrenfoldHelper supports Wrenfold interfacing with other applications and "
    "automatic updating\n";
constexpr const char* kNotInstalled =
    "Wrenfold is not installed -- Quitting Wrenfold Helper App and removing from login items";
constexpr const char* kScanning = "External Project Scanning Enabled";

// The version the build carries, from the project's information file.
std::string bundleVersion() {
  Value info = plist::dictionaryWithContentsOfFile(std::string(WF_TEST_RESOURCES) + "/Info.plist");
  Value version = info.get("CFBundleVersion");
  return version.isString() ? version.asString() : "";
}

std::string autostartEntry(const Session& s) {
  return s.home() + "/.config/autostart/org.ardel.WrenfoldHelper.desktop";
}

bool exists(const std::string& path) {
  struct stat st;
  return stat(path.c_str(), &st) == 0;
}

void writeAutostartEntry(const Session& s) {
  ASSERT_EQ(mkdir((s.home() + "/.config/autostart").c_str(), 0755), 0);
  FILE* f = fopen(autostartEntry(s).c_str(), "w");
  ASSERT_TRUE(f);
  fprintf(f,
          "[Desktop Entry]\nType=Application\nName=Wrenfold Helper\nExec=%s\n"
          "X-Bundle-Identifier=org.ardel.WrenfoldHelper\n",
          helperBinary().c_str());
  fclose(f);
}

TEST(Spine, MissingPlugInWritesOneMessageRemovesTheLoginItemAndEnds) {
  Session s;
  writeAutostartEntry(s);
  s.removePlugIn();
  s.startHelper();
  EXPECT_EQ(s.waitForExit(kWait), 0);
  EXPECT_EQ(s.countInStderr(kNotInstalled), 1) << s.stderrText();
  EXPECT_EQ(s.countInStderr("Launched"), 0);
  EXPECT_FALSE(exists(autostartEntry(s)));
}

TEST(Spine, LoginChoiceInThePreferencesWritesTheAutostartEntry) {
  Session s;
  s.writePreferences({{"launchWrenfoldHelperAtLogin", Value(true)}});
  s.startHelper();
  ASSERT_TRUE(s.waitForLaunch()) << s.stderrText();
  EXPECT_TRUE(exists(autostartEntry(s)));
}

TEST(Spine, UrlSchemesAreHandedToMail) {
  Session s;
  FILE* f = fopen((s.home() + "/share/applications/com.apple.mail.desktop").c_str(), "w");
  ASSERT_TRUE(f);
  fputs("[Desktop Entry]\nType=Application\nName=Mail\nExec=true\n", f);
  fclose(f);
  s.startHelper();
  ASSERT_TRUE(s.waitForLaunch()) << s.stderrText();
  FILE* list = fopen((s.home() + "/.config/mimeapps.list").c_str(), "r");
  ASSERT_TRUE(list);
  std::string text;
  char buf[512];
  while (fgets(buf, sizeof buf, list)) text += buf;
  fclose(list);
  EXPECT_NE(text.find("x-scheme-handler/wfkw=com.apple.mail.desktop"), std::string::npos) << text;
}

TEST(Spine, LaunchWithAWFArgumentListsItAndLogsItsKey) {
  Session s;
  s.writePreferences({{"logExternalProjects", Value(false)}});
  s.startHelper({"-WFlogExternalProjects", "YES", "-logOpenMeta", "YES"});
  ASSERT_TRUE(s.waitForLaunch()) << s.stderrText();
  EXPECT_EQ(s.countInStderr("WrenfoldHelper " + bundleVersion() + kBannerEnd), 1) << s.stderrText();
  EXPECT_EQ(
      s.countInStderr("WrenfoldHelper Launch Arguments:\n{\n    WFlogExternalProjects = YES;\n}\n"),
      1)
      << s.stderrText();
  EXPECT_EQ(s.countInStderr("(logExternalProjects)-[WFHelperAppDelegate "
                            "applicationDidFinishLaunching:]: "),
            1);
  EXPECT_EQ(s.countInStderr(kScanning), 1);
  EXPECT_EQ(s.countInStderr("(logOpenMeta)"), 0);  // not a "WF" argument
  EXPECT_TRUE(s.helperRunning());
}

TEST(Spine, LaunchWithoutArgumentsIsQuietAboutThem) {
  Session s;
  s.startHelper();
  ASSERT_TRUE(s.waitForLaunch()) << s.stderrText();
  EXPECT_EQ(s.countInStderr(kBannerEnd), 1);
  EXPECT_EQ(s.countInStderr("Launch Arguments"), 0);
  EXPECT_EQ(s.countInStderr(kScanning), 0);
  EXPECT_GE(s.countInStderr(
                "External OpenMeta Scanning Enabled\nUse Terminal command to disable: defaults "
                "write org.ardel.WrenfoldHelper disableOpenMetaScanning 1\n"),
            1);
}

TEST(Spine, StderrRecordsHaveTheNSLogHead) {
  Session s;
  s.startHelper();
  ASSERT_TRUE(s.waitForLaunch());
  std::string head = s.stderrText().substr(0, s.stderrText().find(" Launched"));
  // "YYYY-MM-DD HH:MM:SS.mmm wrenfold-helper[PID:TID] WrenfoldHelper 1.0.0"
  ASSERT_GE(head.size(), 24u);
  EXPECT_EQ(head[4], '-');
  EXPECT_EQ(head[10], ' ');
  EXPECT_EQ(head[19], '.');
  std::string pid = std::to_string(s.helperPid());
  EXPECT_EQ(head.substr(23, 17 + pid.size() + 1), " wrenfold-helper[" + pid + ":");
}

TEST(Spine, DisabledProjectScanningOutlivesMail) {
  Session s;
  s.writeHelperDefaults({{"disableExternalProjectScanning", Value(true)}});
  ASSERT_TRUE(s.ownName("com.apple.mail"));
  s.startHelper({"-WFlogExternalProjects", "YES"});
  ASSERT_TRUE(s.waitForLaunch()) << s.stderrText();
  EXPECT_EQ(s.countInStderr(kScanning), 0);
  ASSERT_TRUE(s.releaseName("com.apple.mail"));
  ASSERT_TRUE(s.roundTrip());
  EXPECT_TRUE(s.helperRunning());
}

TEST(Spine, MailQuittingEndsAHelperNotMeantForLogin) {
  Session s;
  ASSERT_TRUE(s.ownName("com.apple.mail"));
  s.startHelper();
  ASSERT_TRUE(s.waitForLaunch()) << s.stderrText();
  ASSERT_TRUE(s.releaseName("com.apple.mail"));
  EXPECT_EQ(s.waitForExit(kWait), 0);
}

TEST(Spine, MailQuittingKeepsALoginHelper) {
  Session s;
  s.writePreferences({{"launchWrenfoldHelperAtLogin", Value(true)}});
  ASSERT_TRUE(s.ownName("com.apple.mail"));
  s.startHelper();
  ASSERT_TRUE(s.waitForLaunch()) << s.stderrText();
  ASSERT_TRUE(s.releaseName("com.apple.mail"));
  ASSERT_TRUE(s.roundTrip());
  EXPECT_TRUE(s.helperRunning());
}

TEST(Spine, OtherApplicationsQuittingChangeNothing) {
  Session s;
  ASSERT_TRUE(s.ownName("org.example.Editor"));
  s.startHelper();
  ASSERT_TRUE(s.waitForLaunch());
  ASSERT_TRUE(s.releaseName("org.example.Editor"));
  ASSERT_TRUE(s.roundTrip());
  EXPECT_TRUE(s.helperRunning());
}

TEST(Spine, UninstallRemovesTheLoginItemAndEndsTheHelper) {
  Session s;
  s.writePreferences({{"launchWrenfoldHelperAtLogin", Value(true)}});
  s.startHelper();
  ASSERT_TRUE(s.waitForLaunch());
  ASSERT_TRUE(exists(autostartEntry(s)));
  s.emit("WrenfoldWillUninstall");
  EXPECT_EQ(s.waitForExit(kWait), 0);
  EXPECT_EQ(s.countInStderr("Wrenfold is uninstalling!\n"), 1);
  EXPECT_FALSE(exists(autostartEntry(s)));
}

TEST(Spine, PreferencesChangeIsPickedUpAtOnce) {
  Session s;
  s.writePreferences({{"logPreferencesNotification", Value(false)}});
  s.startHelper();
  ASSERT_TRUE(s.waitForLaunch());
  ASSERT_EQ(s.countInStderr("PreferencesDidChangeNotification"), 0);
  s.writePreferences(
      {{"logPreferencesNotification", Value(true)}, {"settingsSyncMethod", Value(3)}});
  s.emit("WrenfoldPreferencesDidChange");
  ASSERT_TRUE(
      s.waitForLine("(logPreferencesNotification)-[WFHelperAppDelegate "
                    "preferencesDidChange:]: ",
                    kWait))
      << s.stderrText();
  EXPECT_GE(s.countInStderr("    settingsSyncMethod = 3;\n"), 1);
}

TEST(Spine, NoSessionBusMeansStatusOne) {
  Session s(false);
  s.startHelper();
  EXPECT_EQ(s.waitForExit(kWait), 1);
  EXPECT_EQ(s.countInStderr("cannot connect to the session bus: "), 1) << s.stderrText();
}

TEST(Spine, UnreachableSessionBusMeansStatusOne) {
  Session s(false);
  s.startHelper(HelperOptions{
      {}, {{"DBUS_SESSION_BUS_ADDRESS", "unix:path=" + s.home() + "/no-such-socket"}}, {}});
  EXPECT_EQ(s.waitForExit(kWait), 1);
  EXPECT_EQ(s.countInStderr("cannot connect to the session bus: "), 1) << s.stderrText();
}

TEST(Spine, SigtermEndsWithStatusZero) {
  Session s;
  s.startHelper();
  ASSERT_TRUE(s.waitForLaunch());
  s.signalHelper(SIGTERM);
  EXPECT_EQ(s.waitForExit(kWait), 0);
}

// Whether a name has an owner on the session's bus.
bool nameHasOwner(const Session& s, const char* name) {
  GVariant* reply = g_dbus_connection_call_sync(
      s.bus(), "org.freedesktop.DBus", "/org/freedesktop/DBus", "org.freedesktop.DBus",
      "NameHasOwner", g_variant_new("(s)", name), G_VARIANT_TYPE("(b)"), G_DBUS_CALL_FLAGS_NONE, -1,
      nullptr, nullptr);
  if (!reply) return false;
  gboolean owned = FALSE;
  g_variant_get(reply, "(b)", &owned);
  g_variant_unref(reply);
  return owned;
}

TEST(Spine, TheRunningHelperOwnsItsIdentifierOnTheBusUntilItEnds) {
  Session s;
  EXPECT_FALSE(nameHasOwner(s, "org.ardel.WrenfoldHelper"));
  s.startHelper();
  ASSERT_TRUE(s.waitForLaunch()) << s.stderrText();
  EXPECT_TRUE(nameHasOwner(s, "org.ardel.WrenfoldHelper"));
  // Launch is over once the helper says so: the one notice sent after that
  // was answered (the launch itself wrote the first line).
  EXPECT_EQ(s.countInStderr("External OpenMeta Scanning"), 2) << s.stderrText();
  s.emit("WrenfoldWillUninstall");
  ASSERT_EQ(s.waitForExit(kWait), 0);
  EXPECT_FALSE(nameHasOwner(s, "org.ardel.WrenfoldHelper"));
}

TEST(Spine, SigintEndsWithStatusZero) {
  Session s;
  s.startHelper();
  ASSERT_TRUE(s.waitForLaunch());
  s.signalHelper(SIGINT);
  EXPECT_EQ(s.waitForExit(kWait), 0);
}

TEST(Spine, HelpAndVersionNeedNoBus) {
  Session s(false);
  s.startHelper({"--version"});
  EXPECT_EQ(s.waitForExit(kWait), 0);
  ASSERT_FALSE(bundleVersion().empty());
  EXPECT_EQ(s.stdoutText(), "wrenfold-helper " + bundleVersion() + "\n");
  Session t(false);
  t.startHelper({"--help"});
  EXPECT_EQ(t.waitForExit(kWait), 0);
  EXPECT_NE(t.stdoutText().find("Usage: wrenfold-helper"), std::string::npos);
}

// ---- Bad input: the helper logs what it meets and keeps running.

void expectRunsDespite(Session& s) {
  s.startHelper();
  ASSERT_TRUE(s.waitForLaunch()) << s.stderrText();
  ASSERT_TRUE(s.roundTrip());
  EXPECT_TRUE(s.helperRunning());
}

TEST(SpineBadInput, PreferencesThatAreNoPropertyList) {
  Session s;
  FILE* f = fopen(s.preferencesFile().c_str(), "w");
  ASSERT_TRUE(f);
  fputs("<?xml version=\"1.0\"?><plist><dict><key>a</key>\x01\xff garbage", f);
  fclose(f);
  expectRunsDespite(s);
}

TEST(SpineBadInput, PreferencesThatAreNoDictionary) {
  Session s;
  FILE* f = fopen(s.preferencesFile().c_str(), "w");
  ASSERT_TRUE(f);
  fputs(
      "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<plist version=\"1.0\">\n<array>\n"
      "\t<string>launchWrenfoldHelperAtLogin</string>\n</array>\n</plist>\n",
      f);
  fclose(f);
  expectRunsDespite(s);
}

TEST(SpineBadInput, PreferencesOfTheWrongTypes) {
  Session s;
  s.writePreferences({{"launchWrenfoldHelperAtLogin", Value(Array{Value(1)})},
                      {"settingsSyncMethod", Value("two")},
                      {"syncFolderPath", Value(Dictionary{{"a", Value(1)}})},
                      {"logPreferencesNotification", Value("YES")},
                      {"logExternalProjects", Value(Data{1, 2, 3})}});
  expectRunsDespite(s);
  EXPECT_GE(s.countInStderr("PreferencesDidChangeNotification: {"), 1);
}

TEST(SpineBadInput, HelperDefaultsThatAreNoPropertyList) {
  Session s;
  FILE* f = fopen(s.helperDefaultsFile().c_str(), "w");
  ASSERT_TRUE(f);
  fputs("bplist00 truncated", f);
  fclose(f);
  expectRunsDespite(s);
}

TEST(SpineBadInput, LibraryThatCannotBeEntered) {
  // A Library that is a loop of symbolic links cannot be read by anyone.
  Session s;
  std::string cmd = "rm -rf '" + s.library() + "' && ln -s Library '" + s.library() + "'";
  ASSERT_EQ(system(cmd.c_str()), 0);
  s.startHelper();
  EXPECT_EQ(s.waitForExit(kWait), 0);
  EXPECT_EQ(s.countInStderr(kNotInstalled), 1) << s.stderrText();
}

TEST(SpineBadInput, UnreadablePreferencesFolder) {
  if (geteuid() == 0) GTEST_SKIP() << "root reads folders whatever their mode";
  Session s;
  ASSERT_EQ(chmod((s.library() + "/Preferences").c_str(), 0), 0);
  expectRunsDespite(s);
}

TEST(SpineBadInput, MailOwnedAndReleasedManyTimesASecond) {
  Session s;
  s.writePreferences({{"launchWrenfoldHelperAtLogin", Value(true)}});
  s.startHelper();
  ASSERT_TRUE(s.waitForLaunch());
  for (int i = 0; i < 200; ++i) {
    ASSERT_TRUE(s.ownName("com.apple.mail"));
    ASSERT_TRUE(s.releaseName("com.apple.mail"));
  }
  ASSERT_TRUE(s.roundTrip(kWait));
  EXPECT_TRUE(s.helperRunning());
}

}  // namespace
}  // namespace wf::e2e
