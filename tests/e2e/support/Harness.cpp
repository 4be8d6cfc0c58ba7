#include "support/Harness.h"

#include <fcntl.h>
#include <glib-unix.h>
#include <poll.h>
#include <signal.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <stdexcept>

#include "platform/plist/PropertyList.h"
#include "support/MainLoopPump.h"

extern char** environ;

namespace wf::e2e {
namespace {

void mkdirs(const std::string& path) {
  std::string cmd = "mkdir -p '" + path + "'";
  if (system(cmd.c_str()) != 0) throw std::runtime_error("cannot make " + path);
}

std::vector<std::string> environmentWith(const std::map<std::string, std::string>& set,
                                         const std::vector<std::string>& unset) {
  std::map<std::string, std::string> env;
  for (char** e = environ; *e; ++e) {
    std::string entry = *e;
    std::size_t eq = entry.find('=');
    if (eq != std::string::npos) env[entry.substr(0, eq)] = entry.substr(eq + 1);
  }
  for (const auto& [k, v] : set) env[k] = v;
  for (const auto& k : unset) env.erase(k);
  std::vector<std::string> out;
  for (const auto& [k, v] : env) out.push_back(k + "=" + v);
  return out;
}

constexpr const char* kHelperName = "org.ardel.WrenfoldHelper";

// Whether the owner of the helper's name says it has finished launching.
bool hasLaunched(GDBusConnection* bus) {
  GVariant* reply = g_dbus_connection_call_sync(
      bus, kHelperName, "/org/ardel/WrenfoldHelper", "org.freedesktop.DBus.Properties", "Get",
      g_variant_new("(ss)", "org.ardel.WrenfoldHelper", "Launched"), G_VARIANT_TYPE("(v)"),
      G_DBUS_CALL_FLAGS_NO_AUTO_START, -1, nullptr, nullptr);
  if (!reply) return false;
  GVariant* value = nullptr;
  g_variant_get(reply, "(v)", &value);
  bool launched =
      g_variant_is_of_type(value, G_VARIANT_TYPE_BOOLEAN) && g_variant_get_boolean(value);
  g_variant_unref(value);
  g_variant_unref(reply);
  return launched;
}

}  // namespace

std::vector<char*> cStrings(std::vector<std::string>& strings) {
  std::vector<char*> out;
  for (auto& s : strings) out.push_back(s.data());
  out.push_back(nullptr);
  return out;
}

int exitStatusOf(int waitStatus) {
  if (WIFEXITED(waitStatus)) return WEXITSTATUS(waitStatus);
  if (WIFSIGNALED(waitStatus)) return 128 + WTERMSIG(waitStatus);
  return -1;
}

pid_t helperNameOwner(GDBusConnection* bus) {
  GVariant* reply = g_dbus_connection_call_sync(
      bus, "org.freedesktop.DBus", "/org/freedesktop/DBus", "org.freedesktop.DBus",
      "GetConnectionUnixProcessID", g_variant_new("(s)", kHelperName), G_VARIANT_TYPE("(u)"),
      G_DBUS_CALL_FLAGS_NONE, -1, nullptr, nullptr);
  if (!reply) return 0;
  guint32 pid = 0;
  g_variant_get(reply, "(u)", &pid);
  g_variant_unref(reply);
  return static_cast<pid_t>(pid);
}

bool waitForLaunchedOwner(Session& s, const std::function<bool()>& ended, pid_t pid,
                          double seconds) {
  // Signals that wake the wait; the first look is a call made after the
  // matches, so no change slips by.
  auto wake = [](GDBusConnection*, const gchar*, const gchar*, const gchar*, const gchar*,
                 GVariant*, gpointer) {};
  guint owners = g_dbus_connection_signal_subscribe(
      s.bus(), "org.freedesktop.DBus", "org.freedesktop.DBus", "NameOwnerChanged",
      "/org/freedesktop/DBus", kHelperName, G_DBUS_SIGNAL_FLAGS_NONE, wake, nullptr, nullptr);
  guint launched = g_dbus_connection_signal_subscribe(
      s.bus(), nullptr, "org.freedesktop.DBus.Properties", "PropertiesChanged",
      "/org/ardel/WrenfoldHelper", nullptr, G_DBUS_SIGNAL_FLAGS_NONE, wake, nullptr, nullptr);
  bool done = s.waitUntil(
      [&] { return ended() || (helperNameOwner(s.bus()) == pid && hasLaunched(s.bus())); },
      seconds);
  g_dbus_connection_signal_unsubscribe(s.bus(), owners);
  g_dbus_connection_signal_unsubscribe(s.bus(), launched);
  return done && !ended();
}

std::string helperBinary() { return WF_HELPER_BINARY; }
std::string busNameDoubleBinary() { return WF_BUS_NAME_DOUBLE; }

Session::Session(bool withBus) : context_(g_main_context_new()) {
  g_main_context_push_thread_default(context_);
  char tmpl[] = "/tmp/wf-e2e-XXXXXX";
  if (!mkdtemp(tmpl)) throw std::runtime_error("mkdtemp failed");
  home_ = tmpl;
  mkdirs(library() + "/Mail/Bundles/Wrenfold.mailbundle");
  mkdirs(library() + "/Preferences");
  mkdirs(home_ + "/.config");
  mkdirs(home_ + "/.local/share/applications");
  mkdirs(home_ + "/share/applications");
  writePreferences({});
  writeHelperDefaults({});
  if (withBus) startBus();
}

Session::~Session() {
  if (helperRunning()) {
    kill(pid_, SIGKILL);
    waitForExit(10);
  }
  for (GSource* s : sources_) {
    g_source_destroy(s);
    g_source_unref(s);
  }
  for (guint id : subscriptions_) g_dbus_connection_signal_unsubscribe(bus_, id);
  for (auto& [name, connection] : owners_) {
    g_dbus_connection_close_sync(connection, nullptr, nullptr);
    g_object_unref(connection);
  }
  if (bus_) {
    g_dbus_connection_close_sync(bus_, nullptr, nullptr);
    g_object_unref(bus_);
  }
  if (busPid_ > 0) {
    kill(busPid_, SIGTERM);
    waitpid(busPid_, nullptr, 0);
  }
  // Drain what closing left behind before the context goes.
  while (g_main_context_iteration(context_, FALSE)) {
  }
  g_main_context_pop_thread_default(context_);
  g_main_context_unref(context_);
  std::string cmd = "chmod -R u+rwx '" + home_ + "' 2>/dev/null; rm -rf '" + home_ + "'";
  if (system(cmd.c_str()) != 0) {
  }
}

void Session::writePreferences(const Dictionary& prefs) {
  if (!plist::writeToFile(Value(prefs), preferencesFile(), true))
    throw std::runtime_error("cannot write " + preferencesFile());
}

std::string Session::preferencesFile() const {
  return library() + "/Preferences/org.ardel.Wrenfold.plist";
}

void Session::writeHelperDefaults(const Dictionary& defaults) {
  Dictionary withLatency = defaults;
  if (!withLatency.contains("openMetaStreamLatency"))
    withLatency["openMetaStreamLatency"] = Value(kTestStreamLatency);
  if (!plist::writeToFile(Value(withLatency), helperDefaultsFile(), true))
    throw std::runtime_error("cannot write " + helperDefaultsFile());
}

std::string Session::helperDefaultsFile() const {
  return library() + "/Preferences/org.ardel.WrenfoldHelper.plist";
}

void Session::removePlugIn() {
  std::string cmd = "rm -rf '" + library() + "/Mail/Bundles/Wrenfold.mailbundle'";
  if (system(cmd.c_str()) != 0) throw std::runtime_error("cannot remove the plug-in");
}

void Session::startBus() {
  std::vector<std::string> argv{"dbus-daemon", "--session", "--nofork", "--print-address"};
  auto cargv = cStrings(argv);
  int out = -1;
  GError* error = nullptr;
  if (!g_spawn_async_with_pipes(nullptr, cargv.data(), nullptr,
                                GSpawnFlags(G_SPAWN_SEARCH_PATH | G_SPAWN_DO_NOT_REAP_CHILD),
                                nullptr, nullptr, &busPid_, nullptr, &out, nullptr, &error)) {
    std::string message = error->message;
    g_error_free(error);
    throw std::runtime_error("cannot start dbus-daemon: " + message);
  }
  // The address is the first line of its output.
  gint64 deadline = g_get_monotonic_time() + 10 * G_USEC_PER_SEC;
  std::string text;
  while (text.find('\n') == std::string::npos) {
    int left = static_cast<int>((deadline - g_get_monotonic_time()) / 1000);
    pollfd p{out, POLLIN, 0};
    if (left <= 0 || poll(&p, 1, left) <= 0) throw std::runtime_error("dbus-daemon is silent");
    char buf[512];
    ssize_t n = read(out, buf, sizeof buf);
    if (n <= 0) throw std::runtime_error("dbus-daemon ended");
    text.append(buf, static_cast<std::size_t>(n));
  }
  close(out);
  busAddress_ = text.substr(0, text.find('\n'));
  bus_ = g_dbus_connection_new_for_address_sync(
      busAddress_.c_str(),
      GDBusConnectionFlags(G_DBUS_CONNECTION_FLAGS_AUTHENTICATION_CLIENT |
                           G_DBUS_CONNECTION_FLAGS_MESSAGE_BUS_CONNECTION),
      nullptr, nullptr, &error);
  if (!bus_) {
    std::string message = error->message;
    g_error_free(error);
    throw std::runtime_error("cannot connect to the private bus: " + message);
  }
}

void Session::emit(const std::string& name) {
  g_dbus_connection_emit_signal(bus_, nullptr, "/org/ardel/Wrenfold", "org.ardel.Wrenfold",
                                name.c_str(), nullptr, nullptr);
  g_dbus_connection_flush_sync(bus_, nullptr, nullptr);
}

void Session::watch(const std::string& name) {
  counts_.emplace(name, 0);
  auto onSignal = [](GDBusConnection*, const gchar*, const gchar*, const gchar*,
                     const gchar* member, GVariant*, gpointer data) {
    ++(*static_cast<std::map<std::string, int>*>(data))[member];
  };
  subscriptions_.push_back(g_dbus_connection_signal_subscribe(
      bus_, nullptr, "org.ardel.Wrenfold", name.c_str(), nullptr, nullptr, G_DBUS_SIGNAL_FLAGS_NONE,
      onSignal, &counts_, nullptr));
  // The match is in place once a call made after it has come back.
  g_dbus_connection_call_sync(bus_, "org.freedesktop.DBus", "/org/freedesktop/DBus",
                              "org.freedesktop.DBus", "GetId", nullptr, nullptr,
                              G_DBUS_CALL_FLAGS_NONE, -1, nullptr, nullptr);
}

int Session::count(const std::string& name) const {
  auto it = counts_.find(name);
  return it == counts_.end() ? 0 : it->second;
}

bool Session::waitForSignal(const std::string& name, int n, double seconds) {
  return waitUntil([&] { return count(name) >= n; }, seconds);
}

bool Session::ownName(const std::string& name) {
  GDBusConnection*& connection = owners_[name];
  if (!connection) {
    connection = g_dbus_connection_new_for_address_sync(
        busAddress_.c_str(),
        GDBusConnectionFlags(G_DBUS_CONNECTION_FLAGS_AUTHENTICATION_CLIENT |
                             G_DBUS_CONNECTION_FLAGS_MESSAGE_BUS_CONNECTION),
        nullptr, nullptr, nullptr);
    if (!connection) {
      owners_.erase(name);
      return false;
    }
  }
  GVariant* reply = g_dbus_connection_call_sync(
      connection, "org.freedesktop.DBus", "/org/freedesktop/DBus", "org.freedesktop.DBus",
      "RequestName", g_variant_new("(su)", name.c_str(), 4u /* DO_NOT_QUEUE */),
      G_VARIANT_TYPE("(u)"), G_DBUS_CALL_FLAGS_NONE, -1, nullptr, nullptr);
  if (!reply) return false;
  guint32 result;
  g_variant_get(reply, "(u)", &result);
  g_variant_unref(reply);
  return result == 1 || result == 4;  // primary owner, or already owner
}

bool Session::releaseName(const std::string& name) {
  auto it = owners_.find(name);
  if (it == owners_.end()) return false;
  GVariant* reply = g_dbus_connection_call_sync(
      it->second, "org.freedesktop.DBus", "/org/freedesktop/DBus", "org.freedesktop.DBus",
      "ReleaseName", g_variant_new("(s)", name.c_str()), G_VARIANT_TYPE("(u)"),
      G_DBUS_CALL_FLAGS_NONE, -1, nullptr, nullptr);
  if (!reply) return false;
  guint32 result;
  g_variant_get(reply, "(u)", &result);
  g_variant_unref(reply);
  return result == 1;
}

void Session::readFrom(int fd, std::string& into) {
  char buf[4096];
  while (true) {
    ssize_t n = read(fd, buf, sizeof buf);
    if (n > 0) {
      into.append(buf, static_cast<std::size_t>(n));
      continue;
    }
    if (n < 0 && errno == EINTR) continue;
    break;
  }
}

void Session::startHelper(const HelperOptions& options) {
  // A helper that has ended may be started again (a relaunch after a crash);
  // what it writes is added to what the earlier one wrote.
  if (helperRunning()) throw std::runtime_error("the helper is running already");
  exitStatus_.reset();
  std::map<std::string, std::string> set{{"HOME", home_},
                                         {"XDG_CONFIG_HOME", home_ + "/.config"},
                                         {"XDG_DATA_HOME", home_ + "/.local/share"},
                                         {"XDG_DATA_DIRS", home_ + "/share"}};
  std::vector<std::string> unset = options.unset;
  if (busAddress_.empty())
    unset.push_back("DBUS_SESSION_BUS_ADDRESS");
  else
    set["DBUS_SESSION_BUS_ADDRESS"] = busAddress_;
  for (const auto& [k, v] : options.environment) set[k] = v;
  std::vector<std::string> env = environmentWith(set, unset);
  std::vector<std::string> argv{helperBinary()};
  argv.insert(argv.end(), options.arguments.begin(), options.arguments.end());
  auto cargv = cStrings(argv);
  auto cenv = cStrings(env);
  int out = -1, err = -1;
  GError* error = nullptr;
  if (!g_spawn_async_with_pipes(home_.c_str(), cargv.data(), cenv.data(), G_SPAWN_DO_NOT_REAP_CHILD,
                                nullptr, nullptr, &pid_, nullptr, &out, &err, &error)) {
    std::string message = error->message;
    g_error_free(error);
    throw std::runtime_error("cannot start the helper: " + message);
  }
  for (auto [fd, text] : {std::pair{out, &stdout_}, std::pair{err, &stderr_}}) {
    fcntl(fd, F_SETFL, fcntl(fd, F_GETFL) | O_NONBLOCK);
    struct Reader {
      Session* self;
      std::string* into;
      int fd;
    };
    GSource* source = g_unix_fd_source_new(fd, GIOCondition(G_IO_IN | G_IO_HUP | G_IO_ERR));
    g_source_set_callback(
        source, G_SOURCE_FUNC(+[](gint, GIOCondition condition, gpointer data) -> gboolean {
          auto* r = static_cast<Reader*>(data);
          r->self->readFrom(r->fd, *r->into);
          if (condition & (G_IO_HUP | G_IO_ERR)) {
            r->self->readFrom(r->fd, *r->into);
            return G_SOURCE_REMOVE;
          }
          return G_SOURCE_CONTINUE;
        }),
        new Reader{this, text, fd}, [](gpointer data) {
          auto* r = static_cast<Reader*>(data);
          close(r->fd);
          delete r;
        });
    g_source_attach(source, context_);
    sources_.push_back(source);
  }
  GSource* child = g_child_watch_source_new(pid_);
  g_source_set_callback(child, G_SOURCE_FUNC(+[](GPid pid, gint status, gpointer data) {
                          static_cast<Session*>(data)->exitStatus_ = exitStatusOf(status);
                          g_spawn_close_pid(pid);
                        }),
                        this, nullptr);
  g_source_attach(child, context_);
  sources_.push_back(child);
}

int Session::countInStderr(const std::string& text) const {
  int n = 0;
  for (std::size_t at = stderr_.find(text); at != std::string::npos;
       at = stderr_.find(text, at + text.size()))
    ++n;
  return n;
}

bool Session::waitForLine(const std::string& text, double seconds, int n) {
  return waitUntil([&] { return countInStderr(text) >= n; }, seconds);
}

std::optional<int> Session::waitForExit(double seconds) {
  if (pid_ <= 0) return std::nullopt;
  waitUntil([&] { return exitStatus_.has_value(); }, seconds);
  if (exitStatus_) {
    // Take in what it wrote last.
    waitUntil([] { return false; }, 0.05);
  }
  return exitStatus_;
}

void Session::signalHelper(int signal) {
  if (helperRunning()) kill(pid_, signal);
}

bool Session::roundTrip(double seconds) {
  const char* answer = "External OpenMeta Scanning";
  int before = countInStderr(answer);
  emit("WrenfoldPreferencesDidChange");
  return waitForLine(answer, seconds, before + 1);
}

bool Session::waitForLaunch(double seconds) {
  gint64 deadline = g_get_monotonic_time() + static_cast<gint64>(seconds * G_USEC_PER_SEC);
  bool done = waitForLaunchedOwner(
      *this, [&] { return !helperRunning(); }, pid_, seconds);
  if (!done) return false;
  // The launch wrote its lines before it said so; take them in before the
  // round trip counts its answer, so that a line of the launch is not
  // taken for the answer.
  while (g_main_context_iteration(context_, FALSE)) {
  }
  double left = static_cast<double>(deadline - g_get_monotonic_time()) / G_USEC_PER_SEC;
  return roundTrip(left > 0 ? left : 0);
}

bool Session::waitUntil(const std::function<bool()>& pred, double seconds) {
  return test::runUntil(pred, seconds, context_);
}

bool Session::waitForFiles(const std::function<bool()>& pred, double seconds) {
  GSource* tick = g_timeout_source_new(100);
  g_source_set_callback(
      tick, [](gpointer) -> gboolean { return G_SOURCE_CONTINUE; }, nullptr, nullptr);
  g_source_attach(tick, context_);
  bool ok = waitUntil(pred, seconds);
  g_source_destroy(tick);
  g_source_unref(tick);
  return ok;
}

}  // namespace wf::e2e
