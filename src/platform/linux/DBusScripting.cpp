#include "platform/linux/DBusScripting.h"

#include <utility>

#include "platform/glib/Owners.h"

namespace wf::platform {
namespace {

using VariantRef = sys::GPtr<GVariant>;

struct ErrorRef {
  sys::GPtr<GError> e;
  // The other side's message without the "GDBus.Error:name: " head.
  std::string message() const {
    if (!e) return {};
    sys::GPtr<GError> copy(g_error_copy(e.get()));
    g_dbus_error_strip_remote_error(copy.get());
    return copy->message ? copy->message : "";
  }
  // The error's D-Bus name and message, as an exception's reason.
  std::string reason() const {
    if (!e) return {};
    sys::GPtr<char> name(g_dbus_error_get_remote_error(e.get()));
    return name ? std::string(name.get()) + ": " + message() : message();
  }
};

sys::GPtr<GDBusConnection> reference(GDBusConnection* bus) {
  return sys::GPtr<GDBusConnection>(G_DBUS_CONNECTION(g_object_ref(bus)));
}

// A synchronous call with the bus's default time-out that never starts the
// application. nullptr with `error` set on failure.
GVariant* call(GDBusConnection* bus, const std::string& destination, const std::string& path,
               const char* interface, const char* method, GVariant* parameters,
               const GVariantType* replyType, ErrorRef& error) {
  if (!g_dbus_is_name(destination.c_str()) || !g_variant_is_object_path(path.c_str())) {
    VariantRef unused(parameters ? g_variant_ref_sink(parameters) : nullptr);
    error.e.reset(g_error_new(G_DBUS_ERROR, G_DBUS_ERROR_INVALID_ARGS, "\"%s\" is not a bus name",
                              destination.c_str()));
    return nullptr;
  }
  GError* raw = nullptr;
  GVariant* reply = g_dbus_connection_call_sync(bus, destination.c_str(), path.c_str(), interface,
                                                method, parameters, replyType,
                                                G_DBUS_CALL_FLAGS_NO_AUTO_START, -1, nullptr, &raw);
  error.e.reset(raw);
  return reply;
}

// An Execute result: an array of variants is a list; a string has text.
ValueDescriptor descriptorFromVariant(GVariant* value) {
  if (g_variant_is_of_type(value, G_VARIANT_TYPE_STRING))
    return ValueDescriptor::text(g_variant_get_string(value, nullptr));
  if (g_variant_is_of_type(value, G_VARIANT_TYPE("av"))) {
    std::vector<ValueDescriptor> items;
    const gsize n = g_variant_n_children(value);
    items.reserve(n);
    for (gsize i = 0; i < n; ++i) {
      VariantRef boxed(g_variant_get_child_value(value, i));
      VariantRef item(g_variant_get_variant(boxed.get()));
      items.push_back(descriptorFromVariant(item.get()));
    }
    return ValueDescriptor::list(std::move(items));
  }
  return ValueDescriptor::none();
}

class DBusScript : public AppleScript {
 public:
  DBusScript(GDBusConnection* bus, std::string destination, std::optional<std::string> source)
      : bus_(reference(bus)), destination_(std::move(destination)), source_(std::move(source)) {}
  DBusScript(const DBusScript&) = delete;
  DBusScript& operator=(const DBusScript&) = delete;

  bool compile(std::string* errorDescription) override {
    if (!source_) return fail(errorDescription, "the script has no source");
    ErrorRef error;
    VariantRef reply(call(bus_.get(), destination_, "/", kOpenScriptingInterface, "Compile",
                          g_variant_new("(s)", source_->c_str()), G_VARIANT_TYPE_UNIT, error));
    if (!reply) return fail(errorDescription, error.message());
    return true;
  }

  std::unique_ptr<AppleEventDescriptor> execute(std::string* errorDescription) override {
    if (!source_) {
      fail(errorDescription, "the script has no source");
      return nullptr;
    }
    // The application compiles what it is asked to run.
    ErrorRef error;
    VariantRef reply(call(bus_.get(), destination_, "/", kOpenScriptingInterface, "Execute",
                          g_variant_new("(s)", source_->c_str()), G_VARIANT_TYPE("(v)"), error));
    if (!reply) {
      fail(errorDescription, error.message());
      return nullptr;
    }
    VariantRef result(g_variant_get_child_value(reply.get(), 0));
    VariantRef value(g_variant_get_variant(result.get()));
    return std::make_unique<ValueDescriptor>(descriptorFromVariant(value.get()));
  }

 private:
  static bool fail(std::string* errorDescription, std::string text) {
    if (errorDescription) *errorDescription = std::move(text);
    return false;
  }

  sys::GPtr<GDBusConnection> bus_;
  std::string destination_;
  std::optional<std::string> source_;
};

// One scripting object: a path in the application's name.
template <typename Base>
class DBusObject : public Base {
 public:
  DBusObject(GDBusConnection* bus, std::string destination, std::string path)
      : bus_(reference(bus)), destination_(std::move(destination)), path_(std::move(path)) {}
  DBusObject(const DBusObject&) = delete;
  DBusObject& operator=(const DBusObject&) = delete;

  std::string className() override {
    auto cls = stringProperty("Class");
    return cls ? *cls : std::string();
  }

  std::optional<std::string> stringProperty(const std::string& name) override {
    VariantRef value(property(name));
    if (!g_variant_is_of_type(value.get(), G_VARIANT_TYPE_STRING)) return std::nullopt;
    return std::string(g_variant_get_string(value.get(), nullptr));
  }

  std::shared_ptr<SBObject> objectProperty(const std::string& name) override {
    VariantRef value(property(name));
    if (!g_variant_is_of_type(value.get(), G_VARIANT_TYPE_OBJECT_PATH)) return nullptr;
    return object(g_variant_get_string(value.get(), nullptr));
  }

  std::vector<std::shared_ptr<SBObject>> elementsProperty(const std::string& name) override {
    VariantRef value(property(name));
    std::vector<std::shared_ptr<SBObject>> elements;
    if (!g_variant_is_of_type(value.get(), G_VARIANT_TYPE_OBJECT_PATH_ARRAY)) return elements;
    const gsize n = g_variant_n_children(value.get());
    elements.reserve(n);
    for (gsize i = 0; i < n; ++i) {
      VariantRef path(g_variant_get_child_value(value.get(), i));
      elements.push_back(object(g_variant_get_string(path.get(), nullptr)));
    }
    return elements;
  }

 protected:
  sys::GPtr<GDBusConnection> bus_;
  std::string destination_;

 private:
  std::shared_ptr<SBObject> object(const char* path) {
    return std::make_shared<DBusObject<SBObject>>(bus_.get(), destination_, path);
  }

  // The property's value (owned by the caller); a D-Bus error raises.
  GVariant* property(const std::string& name) {
    ErrorRef error;
    VariantRef reply(call(bus_.get(), destination_, path_, "org.freedesktop.DBus.Properties", "Get",
                          g_variant_new("(ss)", kScriptingBridgeInterface, name.c_str()),
                          G_VARIANT_TYPE("(v)"), error));
    if (!reply) throw NSException(error.reason());
    GVariant* boxed = nullptr;
    g_variant_get(reply.get(), "(v)", &boxed);
    return boxed;
  }

  std::string path_;
};

class DBusApplication : public DBusObject<SBApplication> {
 public:
  DBusApplication(GDBusConnection* bus, std::string destination)
      : DBusObject<SBApplication>(bus, std::move(destination), "/") {}

  // The application runs while its name has an owner.
  bool isRunning() override {
    if (!g_dbus_is_name(destination_.c_str())) return false;
    GError* raw = nullptr;
    VariantRef reply(g_dbus_connection_call_sync(
        bus_.get(), "org.freedesktop.DBus", "/org/freedesktop/DBus", "org.freedesktop.DBus",
        "NameHasOwner", g_variant_new("(s)", destination_.c_str()), G_VARIANT_TYPE("(b)"),
        G_DBUS_CALL_FLAGS_NONE, -1, nullptr, &raw));
    sys::GPtr<GError> error(raw);
    if (!reply) return false;
    gboolean owned = FALSE;
    g_variant_get(reply.get(), "(b)", &owned);
    return owned;
  }
};

}  // namespace

DBusScripting::DBusScripting(GDBusConnection* bus, Workspace& workspace)
    : bus_(G_DBUS_CONNECTION(g_object_ref(bus))), workspace_(workspace) {}

DBusScripting::~DBusScripting() = default;

std::unique_ptr<AppleScript> DBusScripting::scriptWithSource(const std::string& bundleIdentifier,
                                                             std::optional<std::string> source) {
  return std::make_unique<DBusScript>(bus_.get(), bundleIdentifier, std::move(source));
}

std::shared_ptr<SBApplication> DBusScripting::applicationWithBundleIdentifier(
    const std::string& bundleIdentifier) {
  if (!workspace_.desktopEntryPathForIdentifier(bundleIdentifier)) return nullptr;
  return std::make_shared<DBusApplication>(bus_.get(), bundleIdentifier);
}

}  // namespace wf::platform
