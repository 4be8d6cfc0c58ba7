#include "ScriptingApp.h"

#include <glib-unix.h>
#include <unistd.h>

#include <cstdio>

namespace wf::test {
namespace {

constexpr const char* kTestInterface = "org.ardel.TestDouble";

struct Delivery {
  ScriptingApp* app;
  GDBusMessage* message;
};

// Runs on GDBus's worker thread: method calls are taken out of GDBus's own
// dispatch and handed to the main loop, so that every property name can be
// answered without an interface description.
GDBusMessage* filter(GDBusConnection*, GDBusMessage* message, gboolean incoming, gpointer data) {
  if (!incoming || g_dbus_message_get_message_type(message) != G_DBUS_MESSAGE_TYPE_METHOD_CALL)
    return message;
  auto* delivery = new Delivery{static_cast<ScriptingApp*>(data), message};  // takes the reference
  g_main_context_invoke(
      nullptr,
      [](gpointer p) -> gboolean {
        auto* d = static_cast<Delivery*>(p);
        d->app->handle(d->message);
        g_object_unref(d->message);
        delete d;
        return G_SOURCE_REMOVE;
      },
      delivery);
  return nullptr;
}

std::string text(const Value& v, const char* key, const std::string& fallback = {}) {
  const Value* x = v.find(key);
  return x && x->isString() ? x->asString() : fallback;
}

}  // namespace

void ScriptingApp::reply(GDBusMessage* call, GVariant* body) {
  GDBusMessage* r = g_dbus_message_new_method_reply(call);
  g_dbus_message_set_body(r, body);
  g_dbus_connection_send_message(bus_, r, G_DBUS_SEND_MESSAGE_FLAGS_NONE, nullptr, nullptr);
  g_object_unref(r);
}

void ScriptingApp::replyError(GDBusMessage* call, const char* name, const std::string& message) {
  GDBusMessage* r = g_dbus_message_new_method_error_literal(call, name, message.c_str());
  g_dbus_connection_send_message(bus_, r, G_DBUS_SEND_MESSAGE_FLAGS_NONE, nullptr, nullptr);
  g_object_unref(r);
}

bool ScriptingApp::misbehave(GDBusMessage* call, const Value& description) {
  const std::string how = text(description, "misbehave");
  const long after = description.get("misbehaveAfter").integerValue();
  if (how.empty() || answered_++ < after) return false;
  if (how == "hang") {
    unanswered_.push_back(G_DBUS_MESSAGE(g_object_ref(call)));
    return true;
  }
  if (how == "crash") {
    // Dies with the call taken but unanswered.
    std::fflush(stdout);
    _exit(70);
  }
  if (how == "flood") {
    long n = description.find("floodCount") ? description.get("floodCount").integerValue() : 5000;
    for (long i = 0; i < n; ++i)
      g_dbus_connection_emit_signal(bus_, nullptr, "/", kTestInterface, "Noise",
                                    g_variant_new("(x)", i), nullptr);
  }
  return false;
}

void ScriptingApp::compile(GDBusMessage* call, const Value& description) {
  const Value* c = description.find("compile");
  if (c && c->isString())
    return replyError(call, "org.ardel.OpenScripting.Error.CompileFailed", c->asString());
  if (c && !c->boolValue())
    return replyError(call, "org.ardel.OpenScripting.Error.CompileFailed",
                      "Expected end of line but found identifier.");
  reply(call, nullptr);
}

void ScriptingApp::execute(GDBusMessage* call, const Value& description) {
  const Value e = description.get("execute");
  if (const Value* err = e.find("error"))
    return replyError(call, "org.ardel.OpenScripting.Error.ExecutionFailed",
                      err->isString() ? err->asString() : "execution failed");
  const Value* result = e.find("result");
  GVariant* value = result ? resultVariant(*result) : g_variant_new("av", nullptr);
  reply(call, g_variant_new("(v)", value));
}

void ScriptingApp::getProperty(GDBusMessage* call, const Value& description) {
  const char* interface = nullptr;
  const char* property = nullptr;
  g_variant_get(g_dbus_message_get_body(call), "(&s&s)", &interface, &property);
  if (std::string(interface) != "org.ardel.ScriptingBridge")
    return replyError(call, "org.freedesktop.DBus.Error.UnknownInterface", interface);
  const Value object = description.get("objects").get(g_dbus_message_get_path(call));
  if (!object.isDictionary())
    return replyError(call, "org.freedesktop.DBus.Error.UnknownObject",
                      g_dbus_message_get_path(call));
  const Value* v = object.find(property);
  if (!v) return replyError(call, "org.freedesktop.DBus.Error.UnknownProperty", property);
  std::string error;
  GVariant* value = propertyVariant(*v, error);
  if (!value) return replyError(call, "org.ardel.ScriptingBridge.Error.Failed", error);
  reply(call, g_variant_new("(v)", value));
}

void ScriptingApp::calls(GDBusMessage* call) {
  GVariantBuilder b;
  g_variant_builder_init(&b, G_VARIANT_TYPE("a(ss)"));
  for (const auto& [method, argument] : calls_)
    g_variant_builder_add(&b, "(ss)", method.c_str(), argument.c_str());
  reply(call, g_variant_new("(a(ss))", &b));
}

void ScriptingApp::handle(GDBusMessage* call) {
  const std::string interface =
      g_dbus_message_get_interface(call) ? g_dbus_message_get_interface(call) : "";
  const std::string member = g_dbus_message_get_member(call) ? g_dbus_message_get_member(call) : "";
  const std::string path = g_dbus_message_get_path(call) ? g_dbus_message_get_path(call) : "";
  GVariant* body = g_dbus_message_get_body(call);
  const std::string signature = body ? g_variant_get_type_string(body) : "()";

  if (interface == kTestInterface && member == "Calls") return calls(call);
  if (interface == kTestInterface && member == "Quit") {
    reply(call, nullptr);
    g_dbus_connection_flush_sync(bus_, nullptr, nullptr);
    g_main_loop_quit(loop_);
    return;
  }
  if (interface == "org.freedesktop.DBus.Peer" && member == "Ping") return reply(call, nullptr);

  const bool scripting = interface == "org.ardel.OpenScripting" && path == "/" &&
                         (member == "Compile" || member == "Execute") && signature == "(s)";
  const bool property =
      interface == "org.freedesktop.DBus.Properties" && member == "Get" && signature == "(ss)";
  if (!scripting && !property)
    return replyError(call, "org.freedesktop.DBus.Error.UnknownMethod",
                      interface + "." + member + " " + signature);

  std::string argument;
  if (scripting) {
    const char* source = nullptr;
    g_variant_get(body, "(&s)", &source);
    argument = source;
  } else {
    const char *i = nullptr, *p = nullptr;
    g_variant_get(body, "(&s&s)", &i, &p);
    argument = path + " " + p;
  }
  calls_.emplace_back(member, argument);

  const Value description = loadDescription(options_);
  if (misbehave(call, description)) return;
  if (member == "Compile") return compile(call, description);
  if (member == "Execute") return execute(call, description);
  getProperty(call, description);
}

int ScriptingApp::run() {
  GError* error = nullptr;
  bus_ = g_bus_get_sync(G_BUS_TYPE_SESSION, nullptr, &error);
  if (!bus_) {
    std::fprintf(stderr, "wf-test-scripting-app: %s\n", error->message);
    g_error_free(error);
    return 1;
  }
  g_dbus_connection_set_exit_on_close(bus_, FALSE);
  loop_ = g_main_loop_new(nullptr, FALSE);
  g_dbus_connection_add_filter(bus_, filter, this, nullptr);

  auto acquired = [](GDBusConnection*, const gchar*, gpointer) {
    std::printf("ready\n");
    std::fflush(stdout);
  };
  auto lost = [](GDBusConnection*, const gchar* name, gpointer data) {
    auto* self = static_cast<ScriptingApp*>(data);
    std::fprintf(stderr, "wf-test-scripting-app: cannot own %s\n", name);
    self->status_ = 2;
    g_main_loop_quit(self->loop_);
  };
  guint owner =
      g_bus_own_name_on_connection(bus_, options_.name.c_str(), G_BUS_NAME_OWNER_FLAGS_DO_NOT_QUEUE,
                                   acquired, lost, this, nullptr);
  auto quit = [](gpointer loop) -> gboolean {
    g_main_loop_quit(static_cast<GMainLoop*>(loop));
    return G_SOURCE_REMOVE;
  };
  g_unix_signal_add(SIGTERM, quit, loop_);
  g_unix_signal_add(SIGINT, quit, loop_);
  g_main_loop_run(loop_);

  g_bus_unown_name(owner);
  for (GDBusMessage* m : unanswered_) g_object_unref(m);
  g_dbus_connection_flush_sync(bus_, nullptr, nullptr);
  g_object_unref(bus_);
  g_main_loop_unref(loop_);
  return status_;
}

}  // namespace wf::test
