#include "XAttrTestSupport.h"

#include <fcntl.h>
#include <glib.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>

namespace wf::test {

CommandResult runCommand(const std::vector<std::string>& argv,
                         const std::vector<std::string>& environment) {
  std::vector<char*> args;
  for (const std::string& a : argv) args.push_back(const_cast<char*>(a.c_str()));
  args.push_back(nullptr);
  gchar** env = g_get_environ();
  for (const std::string& entry : environment) {
    const auto eq = entry.find('=');
    env = g_environ_setenv(env, entry.substr(0, eq).c_str(), entry.substr(eq + 1).c_str(), TRUE);
  }
  gchar* out = nullptr;
  gchar* err = nullptr;
  gint status = 0;
  GError* error = nullptr;
  CommandResult result;
  const gboolean ok = g_spawn_sync(nullptr, args.data(), env, G_SPAWN_SEARCH_PATH, nullptr, nullptr,
                                   &out, &err, &status, &error);
  g_strfreev(env);
  if (!ok) {
    result.err = error ? error->message : "spawn failed";
    g_clear_error(&error);
    return result;
  }
  result.out = out ? out : "";
  result.err = err ? err : "";
  g_free(out);
  g_free(err);
  if (WIFEXITED(status)) result.exitStatus = WEXITSTATUS(status);
  return result;
}

bool permissionBitsAreIgnored() {
  // Ask the kernel rather than guess from the user id: try to open a file
  // that has no permission bits at all.
  char dir[] = "/tmp/wf-perm-XXXXXX";
  if (!mkdtemp(dir)) return geteuid() == 0;
  const std::string file = std::string(dir) + "/probe";
  const int fd = open(file.c_str(), O_CREAT | O_WRONLY, 0000);
  bool ignored = geteuid() == 0;
  if (fd >= 0) {
    close(fd);
    const int again = open(file.c_str(), O_WRONLY);
    ignored = again >= 0;
    if (again >= 0) close(again);
    unlink(file.c_str());
  }
  rmdir(dir);
  return ignored;
}

}  // namespace wf::test
