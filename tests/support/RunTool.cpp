#include "support/RunTool.h"

#include <glib.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>

namespace wf::test {

StartedTool startTool(const std::string& binary, const std::vector<std::string>& args,
                      const std::vector<std::string>& environment, const std::string& input,
                      int limitSeconds) {
  // Bounded: a tool that hangs fails the test with status 124; one that
  // ignores SIGTERM is killed 5 seconds later.
  std::vector<std::string> argv{"timeout", "--kill-after=5", std::to_string(limitSeconds), binary};
  argv.insert(argv.end(), args.begin(), args.end());
  std::vector<char*> cargv;
  for (std::string& a : argv) cargv.push_back(a.data());
  cargv.push_back(nullptr);
  gchar** env = g_get_environ();
  for (const std::string& entry : environment) {
    const auto eq = entry.find('=');
    env = g_environ_setenv(env, entry.substr(0, eq).c_str(), entry.substr(eq + 1).c_str(), TRUE);
  }
  StartedTool t;
  GPid pid;
  gint in = -1;
  GError* error = nullptr;
  if (!g_spawn_async_with_pipes(
          nullptr, cargv.data(), env,
          static_cast<GSpawnFlags>(G_SPAWN_DO_NOT_REAP_CHILD | G_SPAWN_SEARCH_PATH), nullptr,
          nullptr, &pid, &in, &t.out, &t.err, &error)) {
    t.failure = error ? error->message : "spawn failed";
    g_clear_error(&error);
    g_strfreev(env);
    return t;
  }
  g_strfreev(env);
  t.pid = pid;
  // Small inputs: written at once, then the pipe is closed.
  for (std::size_t done = 0; done < input.size();) {
    ssize_t n = ::write(in, input.data() + done, input.size() - done);
    if (n < 0 && errno == EINTR) continue;
    if (n <= 0) break;
    done += static_cast<std::size_t>(n);
  }
  ::close(in);
  return t;
}

ToolRun finishTool(StartedTool& t) {
  ToolRun r;
  if (t.pid < 0) {
    r.err = t.failure;
    return r;
  }
  auto drain = [](int fd, std::string& into) {
    char buf[4096];
    ssize_t n;
    while ((n = ::read(fd, buf, sizeof buf)) != 0) {
      if (n < 0) {
        if (errno == EINTR) continue;
        break;
      }
      into.append(buf, static_cast<std::size_t>(n));
    }
    ::close(fd);
  };
  // Standard error of these tools is a few lines; read standard output first.
  drain(t.out, r.out);
  drain(t.err, r.err);
  int status = 0;
  while (::waitpid(t.pid, &status, 0) < 0 && errno == EINTR) {
  }
  g_spawn_close_pid(t.pid);
  t.pid = -1;
  r.status = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
  return r;
}

ToolRun runTool(const std::string& binary, const std::vector<std::string>& args,
                const std::vector<std::string>& environment, const std::string& input,
                int limitSeconds) {
  StartedTool t = startTool(binary, args, environment, input, limitSeconds);
  return finishTool(t);
}

}  // namespace wf::test
