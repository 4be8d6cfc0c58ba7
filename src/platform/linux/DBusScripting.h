// Scripts and scripting-bridge objects over the session bus. An application
// that offers scripting owns its bundle identifier as a well-known name and
// serves, on its object path "/", org.ardel.OpenScripting (Compile and
// Execute of a script's source) and, on every scripting object,
// org.ardel.ScriptingBridge (its properties, read with
// org.freedesktop.DBus.Properties.Get). Every call is synchronous, with the
// bus's default reply time-out, and never starts the application.
#pragma once

#include <gio/gio.h>

#include "platform/Platform.h"
#include "platform/Scripting.h"
#include "platform/glib/Owners.h"

namespace wf::platform {

inline constexpr const char* kOpenScriptingInterface = "org.ardel.OpenScripting";
inline constexpr const char* kScriptingBridgeInterface = "org.ardel.ScriptingBridge";

class DBusScripting : public Scripting {
 public:
  // Keeps a reference to the connection; the workspace tells which
  // applications are installed.
  DBusScripting(GDBusConnection* bus, Workspace& workspace);
  ~DBusScripting() override;
  DBusScripting(const DBusScripting&) = delete;
  DBusScripting& operator=(const DBusScripting&) = delete;

  std::unique_ptr<AppleScript> scriptWithSource(const std::string& bundleIdentifier,
                                                std::optional<std::string> source) override;
  // A link exists exactly when the application's desktop entry does.
  std::shared_ptr<SBApplication> applicationWithBundleIdentifier(
      const std::string& bundleIdentifier) override;

 private:
  sys::GPtr<GDBusConnection> bus_;
  Workspace& workspace_;
};

}  // namespace wf::platform
