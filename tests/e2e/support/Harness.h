// End-to-end harness: runs the real wrenfold-helper against a temporary home
// on a private session bus and talks to it with real signals and files.
// Link `wf_e2e_support` (it brings gtest_main and builds the helper first)
// and include "support/Harness.h".
//
//   wf::e2e::Session s;                       // home + private bus
//   s.writePreferences({{"logOpenMeta", wf::Value(true)}});
//   s.startHelper({"-WFlogExternalProjects", "YES"});
//   ASSERT_TRUE(s.waitForLaunch());           // launched, observers registered
//   s.emit("WrenfoldKeywordListWasSaved");
//   ASSERT_TRUE(s.waitForLine("(logSettingsSync)", 10));
//   s.emit("WrenfoldWillUninstall");
//   EXPECT_EQ(s.waitForExit(10), 0);
//
// The home (HOME) holds Library/Mail/Bundles/Wrenfold.mailbundle and an
// empty plug-in preferences file; XDG_CONFIG_HOME is home/.config,
// XDG_DATA_HOME home/.local/share, XDG_DATA_DIRS home/share. The bus is a
// `dbus-daemon --session` of the session's own, killed at the end, as is a
// helper still running. Every wait pumps the session's GLib main context
// (pushed as the thread's default while the session lives) up to a bound;
// none sleeps.
#pragma once

#include <gio/gio.h>
#include <sys/types.h>

#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "platform/plist/Value.h"

namespace wf::e2e {

// The helper binary under test.
std::string helperBinary();
// tests/doubles/bus-name: a program that owns given names (see its main.cpp).
std::string busNameDoubleBinary();

// The mail store's stream latency the tests' helpers use (the installed
// helper waits 5 s): an import then comes about 1.5 s after a change.
inline constexpr double kTestStreamLatency = 1.0;

struct HelperOptions {
  std::vector<std::string> arguments;
  std::map<std::string, std::string> environment;  // set or replace
  std::vector<std::string> unset;                  // remove from the environment
};

class Session {
 public:
  // withBus false: no bus is started and DBUS_SESSION_BUS_ADDRESS is unset.
  explicit Session(bool withBus = true);
  ~Session();
  Session(const Session&) = delete;
  Session& operator=(const Session&) = delete;

  // ---- The home folder
  const std::string& home() const { return home_; }
  std::string library() const { return home_ + "/Library"; }
  // Library/Preferences/org.ardel.Wrenfold.plist (XML, atomically).
  void writePreferences(const Dictionary& prefs);
  std::string preferencesFile() const;
  // The helper's own domain: Library/Preferences/org.ardel.WrenfoldHelper.plist.
  // Written at the start with kTestStreamLatency as "openMetaStreamLatency";
  // each write keeps that key unless `defaults` sets it.
  void writeHelperDefaults(const Dictionary& defaults);
  std::string helperDefaultsFile() const;
  void removePlugIn();

  // ---- The bus
  const std::string& busAddress() const { return busAddress_; }
  GDBusConnection* bus() const { return bus_; }
  // Broadcasts the distributed notification `name` and flushes.
  void emit(const std::string& name);
  // Counts the notifications `name` seen on the bus from now on.
  void watch(const std::string& name);
  int count(const std::string& name) const;
  // Waits until at least `n` notifications `name` were seen (watch first).
  bool waitForSignal(const std::string& name, int n, double seconds);
  // Owns / releases a well-known name (an application, e.g. "com.apple.mail"),
  // each on a connection of its own. True when the bus agreed.
  bool ownName(const std::string& name);
  bool releaseName(const std::string& name);

  // ---- The helper
  // Starts the helper; again once an earlier one has ended.
  void startHelper(const HelperOptions& options);
  void startHelper(std::vector<std::string> arguments = {}) {
    startHelper(HelperOptions{std::move(arguments), {}, {}});
  }
  pid_t helperPid() const { return pid_; }
  bool helperRunning() const { return pid_ > 0 && !exitStatus_; }
  // Everything the helper wrote to standard error / output so far.
  const std::string& stderrText() const { return stderr_; }
  const std::string& stdoutText() const { return stdout_; }
  // Occurrences of `text` (which may span lines) in standard error.
  int countInStderr(const std::string& text) const;
  // Waits until standard error holds `text` at least `n` times.
  bool waitForLine(const std::string& text, double seconds, int n = 1);
  // The exit status (or 128 + signal), nullopt when still running after the bound.
  std::optional<int> waitForExit(double seconds);
  void signalHelper(int signal);
  // Launch is over once the plug-in's notifications are observed, which the
  // helper shows by owning "org.ardel.WrenfoldHelper" on the bus with its
  // property org.ardel.WrenfoldHelper.Launched true. Then one round trip
  // (which applies the preferences once more) proves it answers.
  bool waitForLaunch(double seconds = 20);
  // Proves that the helper has handled everything sent before: posts
  // "WrenfoldPreferencesDidChange" and waits for its answer line. That line
  // comes before the change's last step (the sync folder is made if missing
  // and watched), which may still be under way when this returns.
  bool roundTrip(double seconds = 10);

  // Pumps the main context until pred() holds or the bound passes.
  bool waitUntil(const std::function<bool()>& pred, double seconds);
  // The same for state that no event announces (files, attributes, time):
  // looked at whenever something arrives and at least every 100 ms.
  bool waitForFiles(const std::function<bool()>& pred, double seconds);

 private:
  void startBus();
  void readFrom(int fd, std::string& into);

  GMainContext* context_ = nullptr;
  std::string home_;
  std::string busAddress_;
  pid_t busPid_ = 0;
  GDBusConnection* bus_ = nullptr;
  std::map<std::string, int> counts_;
  std::vector<guint> subscriptions_;
  std::map<std::string, GDBusConnection*> owners_;

  pid_t pid_ = 0;
  std::optional<int> exitStatus_;
  std::string stderr_, stdout_;
  std::vector<GSource*> sources_;
};

// ---- What the Session and the copies both need

// argv/envp for exec: pointers into `strings`, ended by nullptr.
std::vector<char*> cStrings(std::vector<std::string>& strings);
// A wait status as a shell gives it: the exit status, or 128 + the signal.
int exitStatusOf(int waitStatus);
// The process owning "org.ardel.WrenfoldHelper" on `bus`, 0 for none.
pid_t helperNameOwner(GDBusConnection* bus);
// Until process `pid` owns "org.ardel.WrenfoldHelper" and says it has
// launched; `ended` says when waiting is pointless.
bool waitForLaunchedOwner(Session& s, const std::function<bool()>& ended, pid_t pid,
                          double seconds);

}  // namespace wf::e2e
