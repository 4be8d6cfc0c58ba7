// The helper never stops doing its job without a word: a hang-up signal
// re-reads the settings instead of ending it, and a log nobody reads never
// stops it from pushing a save or from ending when asked.
#include <fcntl.h>
#include <glib.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstdlib>
#include <fstream>
#include <sstream>

#include "support/Fakes.h"
#include "support/Harness.h"
#include "support/ListFiles.h"

namespace wf::e2e {
namespace {

constexpr double kWait = 20;

using test::readFile;

using test::writeFile;

TEST(NeverSilent, HangUpReadsTheSettingsAgainAndTheHelperCarriesOn) {
  Session s;
  s.startHelper();
  ASSERT_TRUE(s.waitForLaunch()) << s.stderrText();
  ASSERT_EQ(s.countInStderr("External OpenMeta Scanning DISABLED"), 0);
  // Changed behind the helper's back; the hang-up is what makes it look.
  s.writeHelperDefaults({{"disableOpenMetaScanning", Value(1)}});
  s.signalHelper(SIGHUP);
  ASSERT_TRUE(
      s.waitForLine("SIGHUP: reading the preferences and the helper's own defaults again", kWait))
      << s.stderrText();
  ASSERT_TRUE(s.waitForLine("External OpenMeta Scanning DISABLED", kWait)) << s.stderrText();
  EXPECT_TRUE(s.helperRunning());
  // A second one as well: the signal stays handled.
  s.signalHelper(SIGHUP);
  ASSERT_TRUE(s.waitForLine("SIGHUP: reading the preferences", kWait, 2)) << s.stderrText();
  ASSERT_TRUE(s.roundTrip()) << s.stderrText();
  EXPECT_TRUE(s.helperRunning());
}

// Standard error a pipe whose reader never reads: the helper fills it and
// must go on working all the same.
TEST(NeverSilent, AStandardErrorNobodyReadsNeverStopsTheHelper) {
  Session s;
  std::string local = s.library() + "/Mail/Ardel";
  std::string sync = s.home() + "/Sync";
  ASSERT_EQ(std::system(("mkdir -p '" + local + "' '" + sync + "'").c_str()), 0);
  writeFile(sync + "/WrenfoldKeywords.plist", "shared before");  // a push replaces, never seeds
  s.writePreferences({{"settingsSyncMethod", Value(2)}, {"syncFolderPath", Value(sync)}});

  int fds[2];
  ASSERT_EQ(pipe2(fds, O_CLOEXEC), 0);
  gchar** env = g_get_environ();
  for (auto [k, v] :
       {std::pair{"HOME", s.home()}, std::pair{"XDG_CONFIG_HOME", s.home() + "/.config"},
        std::pair{"XDG_DATA_HOME", s.home() + "/.local/share"},
        std::pair{"XDG_DATA_DIRS", s.home() + "/share"},
        std::pair{"DBUS_SESSION_BUS_ADDRESS", s.busAddress()}})
    env = g_environ_setenv(env, k, v.c_str(), TRUE);
  env = g_environ_unsetenv(env, "JOURNAL_STREAM");
  std::string binary = helperBinary();
  gchar* argv[] = {binary.data(), nullptr};
  GPid pid = 0;
  GError* error = nullptr;
  ASSERT_TRUE(g_spawn_async_with_fds(s.home().c_str(), argv, env, G_SPAWN_DO_NOT_REAP_CHILD,
                                     nullptr, nullptr, &pid, -1, -1, fds[1], &error))
      << (error ? error->message : "");
  g_strfreev(env);
  close(fds[1]);
  int readEnd = fds[0];  // held open and never read
  std::optional<int> status;
  GSource* child = g_child_watch_source_new(pid);
  g_source_set_callback(child, G_SOURCE_FUNC(+[](GPid, gint st, gpointer data) {
                          *static_cast<std::optional<int>*>(data) = st;
                        }),
                        &status, nullptr);
  g_source_attach(child, g_main_context_get_thread_default());
  auto ended = [&] { return status.has_value(); };
  ASSERT_TRUE(waitForLaunchedOwner(s, ended, pid, kWait));

  // Each notice writes its always-written lines: far more than a pipe holds.
  for (int i = 0; i < 1500; ++i) s.emit("WrenfoldPreferencesDidChange");
  writeFile(local + "/WrenfoldKeywords.plist", wf::test::list("saved after the flood"));
  s.emit("WrenfoldKeywordListWasSaved");
  EXPECT_TRUE(s.waitForFiles(
      [&] {
        return readFile(sync + "/WrenfoldKeywords.plist") ==
               wf::test::list("saved after the flood");
      },
      kWait))
      << "the save was not pushed";

  auto start = std::chrono::steady_clock::now();
  kill(pid, SIGTERM);
  bool gone = s.waitUntil(ended, 1.0);
  double took = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
  if (!gone) {
    kill(pid, SIGKILL);
    s.waitUntil(ended, kWait);
  }
  EXPECT_TRUE(gone) << "SIGTERM did not end it within a second";
  EXPECT_LT(took, 1.0);
  close(readEnd);
  g_source_destroy(child);
  g_source_unref(child);
}

}  // namespace
}  // namespace wf::e2e
