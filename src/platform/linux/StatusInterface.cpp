#include "platform/linux/StatusInterface.h"

#include "platform/glib/Owners.h"
#include "platform/linux/ApplicationName.h"

namespace wf::platform {
namespace {

constexpr const char* kIntrospection =
    "<node>"
    "  <interface name='org.ardel.WrenfoldHelper.Status'>"
    "    <method name='GetStatus'>"
    "      <arg name='status' type='a{sv}' direction='out'/>"
    "    </method>"
    "  </interface>"
    "</node>";

std::function<Value()>* gReport = nullptr;

void onMethodCall(GDBusConnection*, const gchar*, const gchar*, const gchar*, const gchar* method,
                  GVariant*, GDBusMethodInvocation* invocation, gpointer) {
  if (g_strcmp0(method, "GetStatus") != 0 || !gReport) {
    g_dbus_method_invocation_return_error(invocation, G_DBUS_ERROR, G_DBUS_ERROR_UNKNOWN_METHOD,
                                          "no method %s", method);
    return;
  }
  Value report = (*gReport)();
  GVariant* dict = variantOf(report.isDictionary() ? report : Value(Dictionary{}));
  g_dbus_method_invocation_return_value(invocation, g_variant_new_tuple(&dict, 1));
}

}  // namespace

GVariant* variantOf(const Value& value) {
  switch (value.type()) {
    case Value::Type::Boolean:
      return g_variant_new_boolean(value.asBool());
    case Value::Type::Integer:
      return g_variant_new_int64(value.asInteger());
    case Value::Type::Unsigned:
      return g_variant_new_uint64(value.asUnsigned());
    case Value::Type::Real:
      return g_variant_new_double(value.asReal());
    case Value::Type::String:
      return g_variant_new_string(value.asString().c_str());
    case Value::Type::Array: {
      GVariantBuilder b;
      g_variant_builder_init(&b, G_VARIANT_TYPE("av"));
      for (const Value& e : value.asArray()) g_variant_builder_add(&b, "v", variantOf(e));
      return g_variant_builder_end(&b);
    }
    case Value::Type::Dictionary: {
      GVariantBuilder b;
      g_variant_builder_init(&b, G_VARIANT_TYPE("a{sv}"));
      for (const auto& [k, e] : value.asDictionary())
        g_variant_builder_add(&b, "{sv}", k.c_str(), variantOf(e));
      return g_variant_builder_end(&b);
    }
    default:
      return g_variant_new_string("");
  }
}

Value valueOf(GVariant* v) {
  if (g_variant_is_of_type(v, G_VARIANT_TYPE_VARIANT)) {
    auto inner = sys::adoptG(g_variant_get_variant(v));
    return valueOf(inner.get());
  }
  if (g_variant_is_of_type(v, G_VARIANT_TYPE_BOOLEAN)) return Value(g_variant_get_boolean(v) != 0);
  if (g_variant_is_of_type(v, G_VARIANT_TYPE_INT64))
    return Value(static_cast<long long>(g_variant_get_int64(v)));
  if (g_variant_is_of_type(v, G_VARIANT_TYPE_UINT64))
    return Value(static_cast<unsigned long long>(g_variant_get_uint64(v)));
  if (g_variant_is_of_type(v, G_VARIANT_TYPE_INT32)) return Value(g_variant_get_int32(v));
  if (g_variant_is_of_type(v, G_VARIANT_TYPE_UINT32))
    return Value(static_cast<long long>(g_variant_get_uint32(v)));
  if (g_variant_is_of_type(v, G_VARIANT_TYPE_DOUBLE)) return Value(g_variant_get_double(v));
  if (g_variant_is_of_type(v, G_VARIANT_TYPE_STRING))
    return Value(std::string(g_variant_get_string(v, nullptr)));
  if (g_variant_is_of_type(v, G_VARIANT_TYPE("a{sv}"))) {
    Dictionary d;
    GVariantIter iter;
    g_variant_iter_init(&iter, v);
    const gchar* key;
    GVariant* e;
    while (g_variant_iter_next(&iter, "{&sv}", &key, &e)) {
      d.emplace(key, valueOf(e));
      g_variant_unref(e);
    }
    return Value(std::move(d));
  }
  if (g_variant_is_container(v)) {
    Array a;
    GVariantIter iter;
    g_variant_iter_init(&iter, v);
    while (GVariant* e = g_variant_iter_next_value(&iter)) {
      a.push_back(valueOf(e));
      g_variant_unref(e);
    }
    return Value(std::move(a));
  }
  return Value();
}

void exportStatusInterface(GDBusConnection* bus, std::function<Value()> report) {
  if (gReport) return;
  auto node = sys::adoptG(g_dbus_node_info_new_for_xml(kIntrospection, nullptr));
  if (!node) return;
  gReport = new std::function<Value()>(std::move(report));
  static const GDBusInterfaceVTable vtable = {onMethodCall, nullptr, nullptr, {}};
  g_dbus_connection_register_object(bus, kHelperObjectPath, node->interfaces[0], &vtable, nullptr,
                                    nullptr, nullptr);
}

StatusAnswer askHelperStatus(GDBusConnection* bus, int timeoutMs) {
  StatusAnswer answer;
  sys::GErrorOut error;
  auto reply = sys::adoptG(g_dbus_connection_call_sync(
      bus, kHelperInterface, kHelperObjectPath, kStatusInterface, "GetStatus", nullptr,
      G_VARIANT_TYPE("(a{sv})"), G_DBUS_CALL_FLAGS_NO_AUTO_START, timeoutMs, nullptr, error.out()));
  if (!reply) {
    const GError* e = error.get();
    bool noOwner = e && (g_error_matches(e, G_DBUS_ERROR, G_DBUS_ERROR_SERVICE_UNKNOWN) ||
                         g_error_matches(e, G_DBUS_ERROR, G_DBUS_ERROR_NAME_HAS_NO_OWNER));
    answer.outcome = noOwner ? StatusAnswer::Outcome::NoHelper : StatusAnswer::Outcome::Failed;
    answer.error = e ? e->message : "unknown error";
    return answer;
  }
  auto dict = sys::adoptG(g_variant_get_child_value(reply.get(), 0));
  answer.outcome = StatusAnswer::Outcome::Answered;
  answer.report = valueOf(dict.get());
  return answer;
}

}  // namespace wf::platform
