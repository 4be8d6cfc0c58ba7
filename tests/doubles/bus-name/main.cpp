// wf-bus-name-double: stands in for running applications by owning their
// well-known names on the session bus (an application X runs while the name
// X has an owner), e.g. Mail's "com.apple.mail".
//
//   wf-bus-name-double com.apple.mail [more names...]
//
// Owns the names given, prints "owned NAME" for each, then reads commands
// from standard input, one a line, and answers each when done:
//   release NAME  -> "released NAME"
//   own NAME      -> "owned NAME"
//   quit (or end of input) -> releases everything and exits 0
// Failures answer "error NAME: reason". Uses $DBUS_SESSION_BUS_ADDRESS.
#include <gio/gio.h>
#include <glib-unix.h>

#include <cstdio>
#include <cstring>
#include <string>

namespace {

GDBusConnection* gBus = nullptr;
GMainLoop* gLoop = nullptr;
std::string gPending;

void answer(const std::string& line) {
  std::printf("%s\n", line.c_str());
  std::fflush(stdout);
}

void call(const char* method, const std::string& name, const char* done) {
  GVariant* args = std::strcmp(method, "RequestName") == 0
                       ? g_variant_new("(su)", name.c_str(), 4u)  // do not queue
                       : g_variant_new("(s)", name.c_str());
  GError* error = nullptr;
  GVariant* reply = g_dbus_connection_call_sync(
      gBus, "org.freedesktop.DBus", "/org/freedesktop/DBus", "org.freedesktop.DBus", method, args,
      G_VARIANT_TYPE("(u)"), G_DBUS_CALL_FLAGS_NONE, -1, nullptr, &error);
  if (!reply) {
    answer("error " + name + ": " + error->message);
    g_error_free(error);
    return;
  }
  guint32 result;
  g_variant_get(reply, "(u)", &result);
  g_variant_unref(reply);
  bool ok = std::strcmp(method, "RequestName") == 0 ? (result == 1 || result == 4) : result == 1;
  answer(ok ? std::string(done) + " " + name
            : "error " + name + ": the bus answered " + std::to_string(result));
}

void command(const std::string& line) {
  if (line == "quit") {
    g_main_loop_quit(gLoop);
  } else if (line.rfind("release ", 0) == 0) {
    call("ReleaseName", line.substr(8), "released");
  } else if (line.rfind("own ", 0) == 0) {
    call("RequestName", line.substr(4), "owned");
  } else if (!line.empty()) {
    answer("error " + line + ": unknown command");
  }
}

gboolean onInput(gint fd, GIOCondition, gpointer) {
  char buf[1024];
  ssize_t n = read(fd, buf, sizeof buf);
  if (n <= 0) {
    g_main_loop_quit(gLoop);
    return G_SOURCE_REMOVE;
  }
  gPending.append(buf, static_cast<std::size_t>(n));
  std::size_t nl;
  while ((nl = gPending.find('\n')) != std::string::npos) {
    std::string line = gPending.substr(0, nl);
    gPending.erase(0, nl + 1);
    command(line);
  }
  return G_SOURCE_CONTINUE;
}

}  // namespace

int main(int argc, char** argv) {
  GError* error = nullptr;
  gBus = g_bus_get_sync(G_BUS_TYPE_SESSION, nullptr, &error);
  if (!gBus) {
    std::fprintf(stderr, "wf-bus-name-double: %s\n", error->message);
    return 1;
  }
  g_dbus_connection_set_exit_on_close(gBus, FALSE);
  gLoop = g_main_loop_new(nullptr, FALSE);
  for (int i = 1; i < argc; ++i) call("RequestName", argv[i], "owned");
  g_unix_fd_add(0, GIOCondition(G_IO_IN | G_IO_HUP), onInput, nullptr);
  g_main_loop_run(gLoop);
  g_dbus_connection_flush_sync(gBus, nullptr, nullptr);
  return 0;
}
