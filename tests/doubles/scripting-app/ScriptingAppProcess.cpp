#include "ScriptingAppProcess.h"

#include <poll.h>
#include <signal.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <stdexcept>

#include "platform/plist/PropertyList.h"

namespace wf::test {

std::string scriptingAppBinary() { return WF_SCRIPTING_APP_BINARY; }

ScriptingAppProcess::ScriptingAppProcess(const std::string& busAddress,
                                         const std::vector<std::string>& arguments) {
  int out[2];
  if (pipe(out) != 0) throw std::runtime_error("pipe failed");
  pid_ = fork();
  if (pid_ < 0) throw std::runtime_error("fork failed");
  if (pid_ == 0) {
    dup2(out[1], STDOUT_FILENO);
    close(out[0]);
    close(out[1]);
    setenv("DBUS_SESSION_BUS_ADDRESS", busAddress.c_str(), 1);
    std::vector<std::string> args{scriptingAppBinary()};
    args.insert(args.end(), arguments.begin(), arguments.end());
    std::vector<char*> argv;
    for (auto& a : args) argv.push_back(a.data());
    argv.push_back(nullptr);
    execv(argv[0], argv.data());
    _exit(127);
  }
  close(out[1]);
  stdout_ = out[0];
  // "ready" once the name is owned; bounded.
  std::string seen;
  const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(10);
  while (seen.find("ready\n") == std::string::npos) {
    auto left = std::chrono::duration_cast<std::chrono::milliseconds>(
        end - std::chrono::steady_clock::now());
    if (left.count() <= 0) break;
    pollfd p{stdout_, POLLIN, 0};
    if (poll(&p, 1, static_cast<int>(left.count())) <= 0) break;
    char buf[256];
    ssize_t n = read(stdout_, buf, sizeof buf);
    if (n <= 0) break;
    seen.append(buf, static_cast<std::size_t>(n));
  }
  ready_ = seen.find("ready\n") != std::string::npos;
}

std::optional<int> ScriptingAppProcess::waitForExit(double seconds) {
  if (status_ || pid_ <= 0) return status_;
  // The child's end is awaited on a process descriptor, bounded.
  int pidfd = static_cast<int>(syscall(SYS_pidfd_open, pid_, 0));
  if (pidfd >= 0) {
    pollfd p{pidfd, POLLIN, 0};
    poll(&p, 1, static_cast<int>(seconds * 1000));
    close(pidfd);
  }
  int st = 0;
  if (waitpid(pid_, &st, WNOHANG) != pid_) return std::nullopt;
  status_ = WIFEXITED(st) ? WEXITSTATUS(st) : 128 + WTERMSIG(st);
  return status_;
}

void ScriptingAppProcess::stop() {
  if (pid_ <= 0 || status_) return;
  kill(pid_, SIGTERM);
  if (!waitForExit(10)) {
    kill(pid_, SIGKILL);
    waitForExit(10);
  }
}

ScriptingAppProcess::~ScriptingAppProcess() {
  stop();
  if (stdout_ >= 0) close(stdout_);
}

void writeDescription(const std::string& path, const Value& description) {
  if (!plist::writeToFile(description, path, true))
    throw std::runtime_error("cannot write " + path);
}

std::vector<std::pair<std::string, std::string>> scriptingAppCalls(GDBusConnection* bus,
                                                                   const std::string& name) {
  std::vector<std::pair<std::string, std::string>> calls;
  GError* error = nullptr;
  GVariant* reply = g_dbus_connection_call_sync(bus, name.c_str(), "/", "org.ardel.TestDouble",
                                                "Calls", nullptr, G_VARIANT_TYPE("(a(ss))"),
                                                G_DBUS_CALL_FLAGS_NONE, 10000, nullptr, &error);
  if (!reply) {
    g_error_free(error);
    return calls;
  }
  GVariantIter* iter = nullptr;
  g_variant_get(reply, "(a(ss))", &iter);
  const char *method = nullptr, *argument = nullptr;
  while (g_variant_iter_loop(iter, "(&s&s)", &method, &argument))
    calls.emplace_back(method, argument);
  g_variant_iter_free(iter);
  g_variant_unref(reply);
  return calls;
}

}  // namespace wf::test
