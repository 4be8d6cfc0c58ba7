#include "support/Copies.h"

#include <fcntl.h>
#include <glib-unix.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <fstream>
#include <sstream>
#include <stdexcept>

extern char** environ;

namespace wf::e2e {

struct CopyState {
  std::optional<int> status;
  std::string output;
};

const std::string& Copy::output() const { return state->output; }

namespace {

std::vector<std::string> copyEnvironment(const Session& s,
                                         const std::map<std::string, std::string>& extra) {
  std::map<std::string, std::string> env;
  for (char** e = environ; *e; ++e) {
    std::string entry = *e;
    std::size_t eq = entry.find('=');
    if (eq != std::string::npos) env[entry.substr(0, eq)] = entry.substr(eq + 1);
  }
  env["HOME"] = s.home();
  env["XDG_CONFIG_HOME"] = s.home() + "/.config";
  env["XDG_DATA_HOME"] = s.home() + "/.local/share";
  env["XDG_DATA_DIRS"] = s.home() + "/share";
  env["DBUS_SESSION_BUS_ADDRESS"] = s.busAddress();
  for (const auto& [k, v] : extra) env[k] = v;
  std::vector<std::string> out;
  for (const auto& [k, v] : env) out.push_back(k + "=" + v);
  return out;
}

gboolean readOutput(gint fd, GIOCondition condition, gpointer data) {
  auto* state = static_cast<CopyState*>(data);
  char buf[4096];
  while (true) {
    ssize_t n = read(fd, buf, sizeof buf);
    if (n > 0) {
      state->output.append(buf, static_cast<std::size_t>(n));
      continue;
    }
    if (n < 0 && errno == EINTR) continue;
    if (n == 0 || (condition & (G_IO_HUP | G_IO_ERR))) return G_SOURCE_REMOVE;
    return G_SOURCE_CONTINUE;
  }
}

}  // namespace

Copy startCopy(Session& s, const std::vector<std::string>& argv,
               const std::map<std::string, std::string>& environment) {
  auto state = std::make_shared<CopyState>();
  std::vector<std::string> args = argv;
  std::vector<std::string> env = copyEnvironment(s, environment);
  auto cargv = cStrings(args);
  auto cenv = cStrings(env);
  int fds[2];
  if (pipe2(fds, O_CLOEXEC) != 0) throw std::runtime_error("pipe failed");
  pid_t pid = fork();
  if (pid < 0) throw std::runtime_error("fork failed");
  if (pid == 0) {
    dup2(fds[1], STDOUT_FILENO);
    dup2(fds[1], STDERR_FILENO);
    if (chdir(s.home().c_str()) != 0) _exit(127);
    execve(cargv[0], cargv.data(), cenv.data());
    _exit(127);
  }
  close(fds[1]);
  fcntl(fds[0], F_SETFL, fcntl(fds[0], F_GETFL) | O_NONBLOCK);
  GSource* reader = g_unix_fd_source_new(fds[0], GIOCondition(G_IO_IN | G_IO_HUP | G_IO_ERR));
  struct Reader {
    std::shared_ptr<CopyState> state;
    int fd;
  };
  g_source_set_callback(reader,
                        G_SOURCE_FUNC(+[](gint fd, GIOCondition c, gpointer data) -> gboolean {
                          return readOutput(fd, c, static_cast<Reader*>(data)->state.get());
                        }),
                        new Reader{state, fds[0]}, [](gpointer data) {
                          auto* r = static_cast<Reader*>(data);
                          close(r->fd);
                          delete r;
                        });
  g_source_attach(reader, g_main_context_get_thread_default());
  g_source_unref(reader);
  GSource* child = g_child_watch_source_new(pid);
  g_source_set_callback(
      child, G_SOURCE_FUNC(+[](GPid p, gint status, gpointer data) {
        (*static_cast<std::shared_ptr<CopyState>*>(data))->status = exitStatusOf(status);
        g_spawn_close_pid(p);
      }),
      new std::shared_ptr<CopyState>(state),
      [](gpointer data) { delete static_cast<std::shared_ptr<CopyState>*>(data); });
  g_source_attach(child, g_main_context_get_thread_default());
  g_source_unref(child);
  return Copy{pid, state->status, state};
}

std::optional<int> waitForCopy(Session& s, Copy& copy, double seconds) {
  s.waitUntil([&] { return copy.status.has_value(); }, seconds);
  if (copy.status) s.waitUntil([] { return false; }, 0.05);  // what it wrote last
  return copy.status;
}

bool waitForLaunchOf(Session& s, Copy& copy, double seconds) {
  return waitForLaunchedOwner(
             s, [&] { return copy.status.has_value(); }, copy.pid, seconds) &&
         !copy.status;
}

bool waitForNoOwner(Session& s, double seconds) {
  auto wake = [](GDBusConnection*, const gchar*, const gchar*, const gchar*, const gchar*,
                 GVariant*, gpointer) {};
  guint owners = g_dbus_connection_signal_subscribe(
      s.bus(), "org.freedesktop.DBus", "org.freedesktop.DBus", "NameOwnerChanged",
      "/org/freedesktop/DBus", "org.ardel.WrenfoldHelper", G_DBUS_SIGNAL_FLAGS_NONE, wake, nullptr,
      nullptr);
  bool done = s.waitUntil([&] { return nameOwnerPid(s) == 0; }, seconds);
  g_dbus_connection_signal_unsubscribe(s.bus(), owners);
  return done;
}

void stopCopy(Session& s, Copy& copy, double seconds) {
  if (copy.status) return;
  kill(copy.pid, SIGTERM);
  if (!waitForCopy(s, copy, seconds)) {
    kill(copy.pid, SIGKILL);
    waitForCopy(s, copy, seconds);
  }
}

pid_t nameOwnerPid(const Session& s) { return helperNameOwner(s.bus()); }

int countOf(const std::string& text, const std::string& needle) {
  int n = 0;
  for (std::size_t at = text.find(needle); at != std::string::npos;
       at = text.find(needle, at + needle.size()))
    ++n;
  return n;
}

std::string autostartGeneratorPath() {
  for (const char* path : {"/usr/lib/systemd/user-generators/systemd-xdg-autostart-generator",
                           "/lib/systemd/user-generators/systemd-xdg-autostart-generator"})
    if (access(path, X_OK) == 0) return path;
  return "";
}

std::vector<std::string> generatedAutostartCommand(const Session& s) {
  std::string generator = autostartGeneratorPath();
  if (generator.empty()) return {};
  std::string out = s.home() + "/generated";
  std::string cmd = "rm -rf '" + out + "' && mkdir -p '" + out + "' && env XDG_CONFIG_HOME='" +
                    s.home() + "/.config' XDG_CONFIG_DIRS='" + s.home() + "/no-system-config' " +
                    generator + " '" + out + "' '" + out + "' '" + out + "' >/dev/null 2>&1";
  if (system(cmd.c_str()) != 0) return {};
  std::ifstream unit(out + "/app-org.ardel.WrenfoldHelper@autostart.service");
  std::string line;
  while (std::getline(unit, line)) {
    if (line.rfind("ExecStart=", 0) != 0) continue;
    std::string command = line.substr(10);
    // Prefixes that change how systemd runs the command, not what it runs.
    while (!command.empty() && std::string("-@:+!").find(command[0]) != std::string::npos)
      command.erase(0, 1);
    std::vector<std::string> words;
    std::istringstream split(command);
    for (std::string word; split >> word;) words.push_back(word);
    return words;
  }
  return {};
}

}  // namespace wf::e2e
