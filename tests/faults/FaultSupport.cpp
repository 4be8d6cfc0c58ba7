#include "FaultSupport.h"

#include <fcntl.h>
#include <glib.h>
#include <poll.h>
#include <signal.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <stdexcept>

#include "platform/plist/PropertyList.h"
#include "support/Fakes.h"

namespace fs = std::filesystem;

namespace wf::faults {

void writeMessage(const std::string& path, const std::string& bytes) {
  test::writeFile(path, bytes);
  setSpotlightAttribute(path, "kMDItemWrenfoldTimeStamp", Value(Date{100.0}));
}

std::map<std::string, std::string> filesBelow(const std::string& root) {
  std::map<std::string, std::string> files;
  std::error_code ec;
  for (auto it = fs::recursive_directory_iterator(
           root, fs::directory_options::skip_permission_denied, ec);
       !ec && it != fs::recursive_directory_iterator(); it.increment(ec)) {
    if (it->is_symlink() || !it->is_regular_file()) continue;
    files[it->path().string()] = test::readFile(it->path().string());
  }
  return files;
}

std::vector<std::string> temporariesBelow(const std::string& root) {
  std::vector<std::string> found;
  std::error_code ec;
  for (auto it = fs::recursive_directory_iterator(
           root, fs::directory_options::skip_permission_denied, ec);
       !ec && it != fs::recursive_directory_iterator(); it.increment(ec)) {
    std::string name = it->path().filename().string();
    if (name.size() > 1 && name[0] == '.' &&
        (name.find(".tmp-") != std::string::npos || name.find(".wfcopy-") != std::string::npos))
      found.push_back(it->path().string());
  }
  return found;
}

void makeFolders(const std::string& path) { fs::create_directories(path); }

ToolRun runTool(const std::vector<std::string>& argv, double seconds) {
  ToolRun run;
  std::vector<char*> args;
  for (const std::string& a : argv) args.push_back(const_cast<char*>(a.c_str()));
  args.push_back(nullptr);
  GPid pid = 0;
  int out = -1, err = -1;
  if (!g_spawn_async_with_pipes(nullptr, args.data(), nullptr, G_SPAWN_DO_NOT_REAP_CHILD, nullptr,
                                nullptr, &pid, nullptr, &out, &err, nullptr))
    return run;
  auto drain = [](int fd, std::string& into) {
    char buf[4096];
    ssize_t n;
    while ((n = read(fd, buf, sizeof buf)) > 0) into.append(buf, static_cast<std::size_t>(n));
  };
  fcntl(out, F_SETFL, O_NONBLOCK);
  fcntl(err, F_SETFL, O_NONBLOCK);
  gint64 deadline = g_get_monotonic_time() + static_cast<gint64>(seconds * G_USEC_PER_SEC);
  int status = 0;
  while (true) {
    pollfd fds[2] = {{out, POLLIN, 0}, {err, POLLIN, 0}};
    poll(fds, 2, 50);
    drain(out, run.out);
    drain(err, run.err);
    pid_t done = waitpid(pid, &status, WNOHANG);
    if (done == pid) break;
    if (g_get_monotonic_time() > deadline) {
      run.timedOut = true;
      kill(pid, SIGKILL);
      waitpid(pid, &status, 0);
      break;
    }
  }
  drain(out, run.out);
  drain(err, run.err);
  close(out);
  close(err);
  if (!run.timedOut && WIFEXITED(status)) run.status = WEXITSTATUS(status);
  return run;
}

}  // namespace wf::faults
