#include "platform/linux/ApplicationName.h"

#include <string>

#include "platform/glib/Owners.h"

namespace wf::platform {
namespace {

constexpr const char* kIntrospection =
    "<node>"
    "  <interface name='org.ardel.WrenfoldHelper'>"
    "    <property name='Launched' type='b' access='read'>"
    "      <annotation name='org.freedesktop.DBus.Property.EmitsChangedSignal' value='true'/>"
    "    </property>"
    "  </interface>"
    "</node>";

bool gLaunched = false;
bool gExported = false;

GVariant* getProperty(GDBusConnection*, const gchar*, const gchar*, const gchar*, const gchar* name,
                      GError** error, gpointer) {
  if (g_strcmp0(name, "Launched") == 0) return g_variant_new_boolean(gLaunched);
  g_set_error(error, G_DBUS_ERROR, G_DBUS_ERROR_UNKNOWN_PROPERTY, "no property %s", name);
  return nullptr;
}

std::string messageOf(const GError* error) { return error ? error->message : "unknown error"; }

void exportLaunchState(GDBusConnection* bus) {
  if (gExported) return;
  auto node = sys::adoptG(g_dbus_node_info_new_for_xml(kIntrospection, nullptr));
  if (!node) return;
  static const GDBusInterfaceVTable vtable = {nullptr, getProperty, nullptr, {}};
  guint id = g_dbus_connection_register_object(bus, kHelperObjectPath, node->interfaces[0], &vtable,
                                               nullptr, nullptr, nullptr);
  gExported = id != 0;
}

pid_t ownerPid(GDBusConnection* bus, const std::string& name) {
  auto reply = sys::adoptG(g_dbus_connection_call_sync(
      bus, "org.freedesktop.DBus", "/org/freedesktop/DBus", "org.freedesktop.DBus",
      "GetConnectionUnixProcessID", g_variant_new("(s)", name.c_str()), G_VARIANT_TYPE("(u)"),
      G_DBUS_CALL_FLAGS_NONE, -1, nullptr, nullptr));
  if (!reply) return 0;
  guint32 pid = 0;
  g_variant_get(reply.get(), "(u)", &pid);
  return static_cast<pid_t>(pid);
}

// RequestName's flag and answers, as the message bus defines them.
constexpr guint32 kPrimaryOwner = 1;
constexpr guint32 kExists = 3;
constexpr guint32 kAlreadyOwner = 4;
constexpr guint32 kDoNotQueue = 4;

}  // namespace

NameClaim claimApplicationName(GDBusConnection* bus, const std::string& identifier) {
  exportLaunchState(bus);
  NameClaim claim;
  // The owner may end between "exists" and the question who it is; then
  // the name is free again and worth one more request.
  for (int attempt = 0; attempt < 3; ++attempt) {
    sys::GErrorOut error;
    auto reply = sys::adoptG(g_dbus_connection_call_sync(
        bus, "org.freedesktop.DBus", "/org/freedesktop/DBus", "org.freedesktop.DBus", "RequestName",
        g_variant_new("(su)", identifier.c_str(), kDoNotQueue), G_VARIANT_TYPE("(u)"),
        G_DBUS_CALL_FLAGS_NONE, -1, nullptr, error.out()));
    if (!reply) {
      claim.outcome = NameClaim::Outcome::Failed;
      claim.error = messageOf(error.get());
      return claim;
    }
    guint32 result = 0;
    g_variant_get(reply.get(), "(u)", &result);
    if (result == kPrimaryOwner || result == kAlreadyOwner) {
      claim.outcome = NameClaim::Outcome::Owned;
      return claim;
    }
    if (result != kExists) {
      claim.outcome = NameClaim::Outcome::Failed;
      claim.error = "the bus answered " + std::to_string(result);
      return claim;
    }
    claim.outcome = NameClaim::Outcome::HeldByAnother;
    claim.ownerPid = ownerPid(bus, identifier);
    if (claim.ownerPid != 0) return claim;
  }
  return claim;
}

void announceLaunched(GDBusConnection* bus) {
  gLaunched = true;
  GVariantBuilder changed;
  g_variant_builder_init(&changed, G_VARIANT_TYPE("a{sv}"));
  g_variant_builder_add(&changed, "{sv}", "Launched", g_variant_new_boolean(TRUE));
  const gchar* const invalidated[] = {nullptr};
  g_dbus_connection_emit_signal(
      bus, nullptr, kHelperObjectPath, "org.freedesktop.DBus.Properties", "PropertiesChanged",
      g_variant_new("(sa{sv}^as)", kHelperInterface, &changed, invalidated), nullptr);
  g_dbus_connection_flush_sync(bus, nullptr, nullptr);
}

std::string alreadyRunningMessage(pid_t ownerPid) {
  std::string who = ownerPid > 0 ? "pid " + std::to_string(ownerPid) : "pid unknown";
  return "WrenfoldHelper is already running in this session (" + who +
         ") -- this copy changes nothing and quits";
}

}  // namespace wf::platform
