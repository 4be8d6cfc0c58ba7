// Starts and stops wf-test-scripting-app for a test, on a given bus.
#pragma once

#include <gio/gio.h>
#include <sys/types.h>

#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "platform/plist/Value.h"

namespace wf::test {

std::string scriptingAppBinary();

class ScriptingAppProcess {
 public:
  // Starts the double with DBUS_SESSION_BUS_ADDRESS set to `busAddress` and
  // waits, at most ten seconds, until it owns its name.
  ScriptingAppProcess(const std::string& busAddress, const std::vector<std::string>& arguments);
  // Ends the double (SIGTERM, then SIGKILL after a bound) unless it ended.
  ~ScriptingAppProcess();
  ScriptingAppProcess(const ScriptingAppProcess&) = delete;
  ScriptingAppProcess& operator=(const ScriptingAppProcess&) = delete;

  bool ready() const { return ready_; }
  pid_t pid() const { return pid_; }
  // Ends it now (SIGTERM) and waits for it; its name is gone afterwards.
  void stop();
  // The exit status (or 128 + signal), nullopt when still running after the bound.
  std::optional<int> waitForExit(double seconds);

 private:
  pid_t pid_ = 0;
  int stdout_ = -1;
  bool ready_ = false;
  std::optional<int> status_;
};

// Writes a description file (see Description.h) as a property list.
void writeDescription(const std::string& path, const Value& description);

// The calls the double named `name` received so far: (method, argument).
std::vector<std::pair<std::string, std::string>> scriptingAppCalls(GDBusConnection* bus,
                                                                   const std::string& name);

}  // namespace wf::test
