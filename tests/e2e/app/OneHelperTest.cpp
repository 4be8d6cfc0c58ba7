// One helper per session: whichever way copies are started (by hand, from
// the autostart entry through systemd's generator), the first owner of
// "org.ardel.WrenfoldHelper" acts and every later copy quits with status 0
// before it changes anything.
#include <gtest/gtest.h>
#include <signal.h>
#include <unistd.h>

#include <fstream>
#include <sstream>

#include "support/Copies.h"
#include "support/Fakes.h"
#include "support/Harness.h"

namespace wf::e2e {
namespace {

constexpr double kWait = 20;

using test::exists;

std::string autostartEntry(const Session& s) {
  return s.home() + "/.config/autostart/org.ardel.WrenfoldHelper.desktop";
}

std::string mimeAppsList(const Session& s) { return s.home() + "/.config/mimeapps.list"; }

// Mail installed (so the URL schemes are written) and the login choice on
// (so the autostart entry is): both are what a copy must leave alone.
void prepareHome(Session& s) {
  std::ofstream(s.home() + "/share/applications/com.apple.mail.desktop")
      << "[Desktop Entry]\nType=Application\nName=Mail\nExec=true\n";
  s.writePreferences({{"launchWrenfoldHelperAtLogin", Value(true)}});
}

std::string alreadyRunning(pid_t pid) {
  return "WrenfoldHelper is already running in this session (pid " + std::to_string(pid) +
         ") -- this copy changes nothing and quits";
}

// The entry that a helper writes for the login choice, taken from a helper
// of a home of its own.
std::string entryWrittenByTheHelper() {
  Session t;
  t.writePreferences({{"launchWrenfoldHelperAtLogin", Value(true)}});
  t.startHelper();
  if (!t.waitForLaunch()) return "";
  std::ifstream in(autostartEntry(t));
  std::stringstream text;
  text << in.rdbuf();
  return text.str();
}

TEST(OneHelper, ALaterCopyChangesNothingAndNamesTheRunningOne) {
  Session s;
  prepareHome(s);
  s.startHelper({"-WFloginItems", "YES"});
  ASSERT_TRUE(s.waitForLaunch()) << s.stderrText();
  ASSERT_TRUE(exists(autostartEntry(s)));
  ASSERT_TRUE(exists(mimeAppsList(s)));
  ASSERT_EQ(unlink(autostartEntry(s).c_str()), 0);
  ASSERT_EQ(unlink(mimeAppsList(s).c_str()), 0);

  Copy copy = startCopy(s, {helperBinary()});
  ASSERT_EQ(waitForCopy(s, copy, kWait), 0) << copy.output();
  EXPECT_EQ(countOf(copy.output(), alreadyRunning(s.helperPid())), 1) << copy.output();
  EXPECT_EQ(countOf(copy.output(), " Launched "), 0) << copy.output();
  EXPECT_EQ(countOf(copy.output(), "\n"), 1) << copy.output();  // one line, nothing else
  EXPECT_FALSE(exists(autostartEntry(s))) << s.stderrText();
  EXPECT_FALSE(exists(mimeAppsList(s)));
  EXPECT_TRUE(s.helperRunning());
  EXPECT_EQ(nameOwnerPid(s), s.helperPid());
  ASSERT_TRUE(s.roundTrip()) << s.stderrText();
}

TEST(OneHelper, AutostartUnitAfterAHelperStartedByHand) {
  Session s;
  prepareHome(s);
  s.startHelper();
  ASSERT_TRUE(s.waitForLaunch()) << s.stderrText();
  std::vector<std::string> command = generatedAutostartCommand(s);
  ASSERT_FALSE(command.empty()) << "the generator made no unit of the helper's entry";
  ASSERT_EQ(command[0], helperBinary());
  ASSERT_EQ(unlink(mimeAppsList(s).c_str()), 0);

  Copy copy = startCopy(s, command);
  ASSERT_EQ(waitForCopy(s, copy, kWait), 0) << copy.output();
  EXPECT_EQ(countOf(copy.output(), alreadyRunning(s.helperPid())), 1) << copy.output();
  EXPECT_FALSE(exists(mimeAppsList(s)));
  EXPECT_EQ(nameOwnerPid(s), s.helperPid());
  EXPECT_TRUE(s.helperRunning());
}

TEST(OneHelper, HelperStartedByHandAfterTheAutostartUnit) {
  std::string entry = entryWrittenByTheHelper();
  ASSERT_FALSE(entry.empty());
  Session s;
  prepareHome(s);
  ASSERT_EQ(mkdir((s.home() + "/.config/autostart").c_str(), 0700), 0);
  std::ofstream(autostartEntry(s)) << entry;
  std::vector<std::string> command = generatedAutostartCommand(s);
  ASSERT_FALSE(command.empty()) << "the generator made no unit of the helper's entry";

  Copy first = startCopy(s, command);
  ASSERT_TRUE(waitForLaunchOf(s, first, kWait)) << first.output();
  ASSERT_EQ(unlink(mimeAppsList(s).c_str()), 0);
  s.startHelper();
  ASSERT_EQ(s.waitForExit(kWait), 0) << s.stderrText();
  EXPECT_EQ(s.countInStderr(alreadyRunning(first.pid)), 1) << s.stderrText();
  EXPECT_EQ(s.countInStderr(" Launched "), 0) << s.stderrText();
  EXPECT_FALSE(exists(mimeAppsList(s)));
  EXPECT_EQ(nameOwnerPid(s), first.pid);
  stopCopy(s, first, kWait);
}

TEST(OneHelper, TwoCopiesStartedAtOnceLeaveExactlyOneActing) {
  Session s;
  prepareHome(s);
  s.startHelper();
  Copy copy = startCopy(s, {helperBinary()});
  // Whichever got the name first is the helper; the other quits at once.
  ASSERT_TRUE(s.waitUntil([&] { return copy.status.has_value() || !s.helperRunning(); }, kWait));
  if (copy.status) {
    EXPECT_EQ(*copy.status, 0);
    EXPECT_EQ(countOf(copy.output(), alreadyRunning(s.helperPid())), 1) << copy.output();
    ASSERT_TRUE(s.waitForLaunch()) << s.stderrText();
  } else {
    ASSERT_EQ(s.waitForExit(kWait), 0);
    EXPECT_EQ(s.countInStderr(alreadyRunning(copy.pid)), 1) << s.stderrText();
    ASSERT_TRUE(waitForLaunchOf(s, copy, kWait)) << copy.output();
    stopCopy(s, copy, kWait);
  }
}

// A bus whose activation folder holds the installed D-Bus activation file,
// made from its template for the helper under test. The session bus reads
// its service folders from XDG_DATA_HOME when it starts.
class ActivatableHelper {
 public:
  ActivatableHelper() {
    char tmpl[] = "/tmp/wf-activation-XXXXXX";
    if (!mkdtemp(tmpl)) return;
    folder_ = tmpl;
    std::string services = folder_ + "/dbus-1/services";
    if (system(("mkdir -p '" + services + "'").c_str()) != 0) return;
    std::ifstream in(std::string(WF_TEST_RESOURCES) +
                     "/dbus-service/org.ardel.WrenfoldHelper.service.in");
    std::stringstream text;
    text << in.rdbuf();
    std::string file = text.str();
    std::string bindir = helperBinary().substr(0, helperBinary().rfind('/'));
    for (std::size_t at; (at = file.find("@WF_UNIT_BINDIR@")) != std::string::npos;)
      file.replace(at, 16, bindir);
    std::ofstream(services + "/org.ardel.WrenfoldHelper.service") << file;
    const char* old = getenv("XDG_DATA_HOME");
    if (old) saved_ = old;
    hadOld_ = old != nullptr;
    setenv("XDG_DATA_HOME", folder_.c_str(), 1);
  }
  ~ActivatableHelper() {
    if (hadOld_)
      setenv("XDG_DATA_HOME", saved_.c_str(), 1);
    else
      unsetenv("XDG_DATA_HOME");
    if (!folder_.empty() && system(("rm -rf '" + folder_ + "'").c_str()) != 0) {
    }
  }

 private:
  std::string folder_, saved_;
  bool hadOld_ = false;
};

// Asks the bus to start the helper, as the plug-in does, with the session's
// home in the environment of what the bus starts.
bool activate(Session& s) {
  GVariantBuilder env;
  g_variant_builder_init(&env, G_VARIANT_TYPE("a{ss}"));
  g_variant_builder_add(&env, "{ss}", "HOME", s.home().c_str());
  g_variant_builder_add(&env, "{ss}", "XDG_CONFIG_HOME", (s.home() + "/.config").c_str());
  g_variant_builder_add(&env, "{ss}", "XDG_DATA_HOME", (s.home() + "/.local/share").c_str());
  g_variant_builder_add(&env, "{ss}", "XDG_DATA_DIRS", (s.home() + "/share").c_str());
  g_variant_builder_add(&env, "{ss}", "DBUS_SESSION_BUS_ADDRESS", s.busAddress().c_str());
  GVariant* done = g_dbus_connection_call_sync(
      s.bus(), "org.freedesktop.DBus", "/org/freedesktop/DBus", "org.freedesktop.DBus",
      "UpdateActivationEnvironment", g_variant_new("(a{ss})", &env), nullptr,
      G_DBUS_CALL_FLAGS_NONE, -1, nullptr, nullptr);
  if (!done) return false;
  g_variant_unref(done);
  GVariant* reply = g_dbus_connection_call_sync(
      s.bus(), "org.freedesktop.DBus", "/org/freedesktop/DBus", "org.freedesktop.DBus",
      "StartServiceByName", g_variant_new("(su)", "org.ardel.WrenfoldHelper", 0u),
      G_VARIANT_TYPE("(u)"), G_DBUS_CALL_FLAGS_NONE, 20000, nullptr, nullptr);
  if (!reply) return false;
  g_variant_unref(reply);
  return true;
}

TEST(OneHelper, HelperStartedByHandAfterDBusActivation) {
  ActivatableHelper activation;
  Session s;
  prepareHome(s);
  ASSERT_TRUE(activate(s));
  pid_t activated = nameOwnerPid(s);
  ASSERT_GT(activated, 0);
  ASSERT_TRUE(waitForLaunchedOwner(
      s, [&] { return nameOwnerPid(s) != activated; }, activated, kWait));
  ASSERT_TRUE(exists(autostartEntry(s)));
  ASSERT_TRUE(exists(mimeAppsList(s)));
  ASSERT_EQ(unlink(mimeAppsList(s).c_str()), 0);

  s.startHelper();
  ASSERT_EQ(s.waitForExit(kWait), 0) << s.stderrText();
  EXPECT_EQ(s.countInStderr(alreadyRunning(activated)), 1) << s.stderrText();
  EXPECT_FALSE(exists(mimeAppsList(s)));
  EXPECT_EQ(nameOwnerPid(s), activated);
  // The activated helper is the bus's child; the uninstall notice ends it.
  s.emit("WrenfoldWillUninstall");
  EXPECT_TRUE(waitForNoOwner(s, kWait));
}

}  // namespace
}  // namespace wf::e2e
