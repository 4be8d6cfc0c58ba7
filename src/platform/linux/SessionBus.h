// The D-Bus session bus: distributed notifications are broadcast signals of
// the interface org.ardel.Wrenfold; running applications are owners of
// well-known names.
#pragma once

#include <gio/gio.h>

#include <string>
#include <vector>

#include "platform/Platform.h"
#include "platform/base/Result.h"

namespace wf::platform {

// Connects to $DBUS_SESSION_BUS_ADDRESS; the error says why not. The
// connection is the process's shared one (g_bus_get_sync).
sys::Result<GDBusConnection*> connectSessionBus();
// The connection made by connectSessionBus(), or nullptr.
GDBusConnection* sessionBus();

inline constexpr const char* kNotificationPath = "/org/ardel/Wrenfold";
inline constexpr const char* kNotificationInterface = "org.ardel.Wrenfold";

class BusNotificationCenter : public NotificationCenter {
 public:
  explicit BusNotificationCenter(GDBusConnection* bus) : bus_(bus) {}
  ~BusNotificationCenter() override;
  // Sent and flushed before returning; failures go to the log.
  void post(const std::string& name) override;
  void addObserver(const std::string& name, NotificationHandler handler) override;

 private:
  GDBusConnection* bus_;
  std::vector<guint> subscriptions_;
};

class BusWorkspace : public Workspace {
 public:
  explicit BusWorkspace(GDBusConnection* bus);
  ~BusWorkspace() override;
  // ListNames without unique names and without the bus itself.
  std::vector<std::string> runningApplicationIdentifiers() override;
  void addLaunchObserver(NotificationHandler handler) override;
  void addTerminateObserver(NotificationHandler handler) override;
  // X.desktop under applications/ of $XDG_DATA_HOME, then of $XDG_DATA_DIRS.
  std::optional<std::string> desktopEntryPathForIdentifier(const std::string& id) override;

  // NameOwnerChanged for a well-known name: the notices it stands for.
  void nameOwnerChanged(const std::string& name, const std::string& oldOwner,
                        const std::string& newOwner);

 private:
  void followNameOwners();
  GDBusConnection* bus_;
  guint subscription_ = 0;
  std::vector<NotificationHandler> launchObservers_, terminateObservers_;
};

// The folders searched for desktop entries, in order (XDG base-directory
// rules with their defaults).
std::vector<std::string> xdgDataDirectories();

}  // namespace wf::platform
