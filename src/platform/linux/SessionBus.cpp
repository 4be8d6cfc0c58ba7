#include "platform/linux/SessionBus.h"

#include <unistd.h>

#include <cstdlib>

#include "platform/base/HomeFolder.h"
#include "platform/glib/Owners.h"
#include "platform/linux/Dispatch.h"
#include "platform/linux/GLibMainLoop.h"
#include "platform/linux/MemoryRelease.h"

namespace wf::platform {
namespace {

GDBusConnection* gSessionBus = nullptr;

struct Subscriber {
  std::string name;
  NotificationHandler handler;
};

void onNotificationSignal(GDBusConnection*, const gchar*, const gchar*, const gchar*, const gchar*,
                          GVariant*, gpointer data) {
  auto* subscriber = static_cast<Subscriber*>(data);
  Notification notification{subscriber->name, {}};
  dispatchGuarded([&] { subscriber->handler(notification); });
  // A flood of notices leaves the memory of its queued messages behind.
  noteBurstWork();
}

void freeSubscriber(gpointer data) { delete static_cast<Subscriber*>(data); }

void onNameOwnerChanged(GDBusConnection*, const gchar*, const gchar*, const gchar*, const gchar*,
                        GVariant* parameters, gpointer data) {
  if (!g_variant_is_of_type(parameters, G_VARIANT_TYPE("(sss)"))) return;
  const gchar *name, *oldOwner, *newOwner;
  g_variant_get(parameters, "(&s&s&s)", &name, &oldOwner, &newOwner);
  static_cast<BusWorkspace*>(data)->nameOwnerChanged(name, oldOwner, newOwner);
}

std::string errorText(const GError* error) { return error ? error->message : "unknown error"; }

// Without its bus the helper can neither hear the plug-in nor answer it:
// say why and end with a failure status, so that a service manager that
// restarts on failure brings it back once the session's bus is there again.
void onConnectionClosed(GDBusConnection*, gboolean remotePeerVanished, GError* error, gpointer) {
  std::string reason =
      error ? error->message : (remotePeerVanished ? "the bus went away" : "connection closed");
  logPlatformMessage("lost the session bus: " + reason);
  endProcess(1);
}

}  // namespace

sys::Result<GDBusConnection*> connectSessionBus() {
  if (gSessionBus) return gSessionBus;
  const char* address = std::getenv("DBUS_SESSION_BUS_ADDRESS");
  if (!address || !*address) {
    // GLib would fall back to autolaunching a bus of its own; the helper
    // only ever talks to the session's bus.
    return sys::SysError{"wrenfold", 0, "DBUS_SESSION_BUS_ADDRESS is not set"};
  }
  sys::GErrorOut error;
  gSessionBus = g_bus_get_sync(G_BUS_TYPE_SESSION, nullptr, error.out());
  if (!gSessionBus) return sys::fromGError(error.get());
  // GLib's default would raise SIGTERM and end the helper as if asked to.
  g_dbus_connection_set_exit_on_close(gSessionBus, FALSE);
  g_signal_connect(gSessionBus, "closed", G_CALLBACK(onConnectionClosed), nullptr);
  return gSessionBus;
}

GDBusConnection* sessionBus() { return gSessionBus; }

BusNotificationCenter::~BusNotificationCenter() {
  for (guint id : subscriptions_) g_dbus_connection_signal_unsubscribe(bus_, id);
}

void BusNotificationCenter::post(const std::string& name) {
  sys::GErrorOut error;
  if (!g_dbus_connection_emit_signal(bus_, nullptr, kNotificationPath, kNotificationInterface,
                                     name.c_str(), nullptr, error.out())) {
    logPlatformMessage("cannot post " + name + ": " + errorText(error.get()));
    return;
  }
  if (!g_dbus_connection_flush_sync(bus_, nullptr, error.out()))
    logPlatformMessage("cannot post " + name + ": " + errorText(error.get()));
}

void BusNotificationCenter::addObserver(const std::string& name, NotificationHandler handler) {
  auto* subscriber = new Subscriber{name, std::move(handler)};
  subscriptions_.push_back(g_dbus_connection_signal_subscribe(
      bus_, nullptr, kNotificationInterface, name.c_str(), nullptr, nullptr,
      G_DBUS_SIGNAL_FLAGS_NONE, onNotificationSignal, subscriber, freeSubscriber));
}

BusWorkspace::BusWorkspace(GDBusConnection* bus) : bus_(bus) {}

BusWorkspace::~BusWorkspace() {
  if (subscription_) g_dbus_connection_signal_unsubscribe(bus_, subscription_);
}

std::vector<std::string> BusWorkspace::runningApplicationIdentifiers() {
  std::vector<std::string> names;
  sys::GErrorOut error;
  auto reply = sys::adoptG(g_dbus_connection_call_sync(
      bus_, "org.freedesktop.DBus", "/org/freedesktop/DBus", "org.freedesktop.DBus", "ListNames",
      nullptr, G_VARIANT_TYPE("(as)"), G_DBUS_CALL_FLAGS_NONE, -1, nullptr, error.out()));
  if (!reply) {
    logPlatformMessage("cannot list the running applications: " + errorText(error.get()));
    return names;
  }
  GVariantIter* rawIter = nullptr;
  g_variant_get(reply.get(), "(as)", &rawIter);
  auto iter = sys::adoptG(rawIter);
  const gchar* name;
  while (g_variant_iter_loop(iter.get(), "&s", &name)) {
    std::string n = name;
    if (n.empty() || n[0] == ':' || n == "org.freedesktop.DBus") continue;
    names.push_back(std::move(n));
  }
  return names;
}

void BusWorkspace::addLaunchObserver(NotificationHandler handler) {
  launchObservers_.push_back(std::move(handler));
  followNameOwners();
}

void BusWorkspace::addTerminateObserver(NotificationHandler handler) {
  terminateObservers_.push_back(std::move(handler));
  followNameOwners();
}

// One subscription serves both kinds of observer.
void BusWorkspace::followNameOwners() {
  if (!subscription_)
    subscription_ = g_dbus_connection_signal_subscribe(
        bus_, "org.freedesktop.DBus", "org.freedesktop.DBus", "NameOwnerChanged",
        "/org/freedesktop/DBus", nullptr, G_DBUS_SIGNAL_FLAGS_NONE, onNameOwnerChanged, this,
        nullptr);
}

void BusWorkspace::nameOwnerChanged(const std::string& name, const std::string& oldOwner,
                                    const std::string& newOwner) {
  // Unique connection names are not applications.
  if (name.empty() || name[0] == ':') return;
  const std::vector<NotificationHandler>* observers = nullptr;
  Notification notification;
  if (oldOwner.empty() && !newOwner.empty()) {
    observers = &launchObservers_;
    notification.name = "NSWorkspaceDidLaunchApplicationNotification";
  } else if (!oldOwner.empty() && newOwner.empty()) {
    observers = &terminateObservers_;
    notification.name = "NSWorkspaceDidTerminateApplicationNotification";
  } else {
    return;  // an owner handed the name to another: the application goes on
  }
  notification.userInfo = {{"NSApplicationBundleIdentifier", Value(name)}};
  std::vector<NotificationHandler> copy = *observers;  // a handler may add observers
  for (auto& handler : copy) dispatchGuarded([&] { handler(notification); });
}

std::vector<std::string> xdgDataDirectories() {
  std::vector<std::string> dirs;
  const char* dataHome = std::getenv("XDG_DATA_HOME");
  if (dataHome && dataHome[0] == '/') {
    dirs.emplace_back(dataHome);
  } else {
    dirs.push_back(sys::homeFolder() + "/.local/share");
  }
  const char* dataDirs = std::getenv("XDG_DATA_DIRS");
  std::string list = dataDirs && *dataDirs ? dataDirs : "/usr/local/share/:/usr/share/";
  std::size_t start = 0;
  while (start <= list.size()) {
    std::size_t end = list.find(':', start);
    if (end == std::string::npos) end = list.size();
    std::string dir = list.substr(start, end - start);
    if (!dir.empty() && dir[0] == '/') dirs.push_back(dir);
    start = end + 1;
  }
  return dirs;
}

std::optional<std::string> BusWorkspace::desktopEntryPathForIdentifier(const std::string& id) {
  if (id.empty() || id.find('/') != std::string::npos) return std::nullopt;
  for (const std::string& dir : xdgDataDirectories()) {
    std::string path = dir + (dir.back() == '/' ? "" : "/") + "applications/" + id + ".desktop";
    if (access(path.c_str(), F_OK) == 0) return path;
  }
  return std::nullopt;
}

}  // namespace wf::platform
