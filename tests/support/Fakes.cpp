#include "support/Fakes.h"

#include <dirent.h>
#include <glib.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <fstream>
#include <sstream>
#include <stdexcept>

namespace wf::test {

platform::TimerId FakeLoop::performAfterDelay(double seconds, std::function<void()> fn) {
  platform::TimerId id = next_++;
  timers_.push_back({clock_.now_ + seconds, id, std::move(fn)});
  return id;
}

void FakeLoop::cancel(platform::TimerId id) {
  timers_.erase(
      std::remove_if(timers_.begin(), timers_.end(), [&](const Timer& t) { return t.id == id; }),
      timers_.end());
}

void FakeLoop::terminate() {
  terminated = true;
  throw platform::Terminated();
}

void FakeLoop::advance(double seconds) {
  double end = clock_.now_ + seconds;
  while (true) {
    auto it = std::min_element(timers_.begin(), timers_.end(), [](const Timer& a, const Timer& b) {
      return a.due < b.due || (a.due == b.due && a.id < b.id);
    });
    if (it == timers_.end() || it->due > end) break;
    Timer t = std::move(*it);
    timers_.erase(it);
    clock_.now_ = std::max(clock_.now_, t.due);
    t.fn();
  }
  clock_.now_ = end;
}

std::vector<double> FakeLoop::pendingDelays() const {
  std::vector<double> d;
  for (const auto& t : timers_) d.push_back(t.due - clock_.now_);
  std::sort(d.begin(), d.end());
  return d;
}

std::size_t FakeLog::count(const std::string& message) const {
  return static_cast<std::size_t>(std::count(lines.begin(), lines.end(), message));
}

std::vector<std::string> FakeLog::startingWith(const std::string& prefix) const {
  std::vector<std::string> out;
  for (const auto& l : lines)
    if (l.rfind(prefix, 0) == 0) out.push_back(l);
  return out;
}

void FakeNotificationCenter::deliver(const std::string& name) {
  auto copy = observers;  // a handler may add observers
  for (auto& [n, h] : copy)
    if (n == name) h(platform::Notification{name, {}});
}

std::optional<std::string> FakeWorkspace::desktopEntryPathForIdentifier(const std::string& id) {
  auto it = installed.find(id);
  if (it == installed.end()) return std::nullopt;
  return it->second;
}

void FakeWorkspace::launch(const std::string& id) {
  running.push_back(id);
  platform::Notification n{"NSWorkspaceDidLaunchApplicationNotification",
                           {{"NSApplicationBundleIdentifier", Value(id)}}};
  for (auto& h : launchObservers) h(n);
}

void FakeWorkspace::quit(const std::string& id) {
  auto it = std::find(running.begin(), running.end(), id);
  if (it != running.end()) running.erase(it);
  platform::Notification n{"NSWorkspaceDidTerminateApplicationNotification",
                           {{"NSApplicationBundleIdentifier", Value(id)}}};
  for (auto& h : terminateObservers) h(n);
}

Value FakeUserDefaults::objectForKey(const std::string& key) {
  if (auto it = arguments.find(key); it != arguments.end()) return it->second;
  if (auto it = own.find(key); it != own.end()) return it->second;
  return {};
}

FakeEnvironment::FakeEnvironment(std::string h) : home(std::move(h)) {
  bundlePath_ = home + "/bin/wrenfold-helper";
  libraries_ = {home + "/Library"};
  systemVersionPlist = home + "/SystemVersion.plist";
  resourceDir = WF_TEST_RESOURCES;
  info = {{"CFBundleVersion", Value("1.0.0")},
          {"CFBundleIdentifier", Value("org.ardel.WrenfoldHelper")}};
}

Value FakeEnvironment::infoValue(const std::string& key) const {
  auto it = info.find(key);
  return it == info.end() ? Value() : it->second;
}

std::optional<std::string> FakeEnvironment::pathForResource(const std::string& name,
                                                            const std::string& type) const {
  std::string p = resourceDir + "/" + name + (type.empty() ? "" : "." + type);
  if (access(p.c_str(), F_OK) != 0) return std::nullopt;
  return p;
}

std::unique_ptr<platform::FileEventStream> FakeFileEventStreamFactory::create(
    const platform::FileEventStreamParams& params, platform::FileEventCallback callback) {
  if (failCreate) return nullptr;
  auto s = std::make_unique<FakeFileEventStream>(*this, params, std::move(callback));
  streams.push_back(s.get());
  ++created;
  return s;
}

FakeFileEventStream::~FakeFileEventStream() {
  ++factory.destroyed;
  auto& v = factory.streams;
  v.erase(std::remove(v.begin(), v.end(), this), v.end());
}

bool FakeFileEventStream::start() {
  if (factory.failStart) return false;
  started = true;
  return true;
}

TempDir::TempDir(bool tmpfs) {
  std::string base = tmpfs ? "/dev/shm" : (g_get_tmp_dir());
  std::string tmpl = base + "/wftest-XXXXXX";
  std::vector<char> buf(tmpl.begin(), tmpl.end());
  buf.push_back('\0');
  if (!mkdtemp(buf.data())) throw std::runtime_error("mkdtemp failed in " + base);
  path_ = buf.data();
}

TempDir::~TempDir() {
  // Restore permissions that a test took away, then remove everything.
  std::string cmd = "chmod -R u+rwx '" + path_ + "' 2>/dev/null; rm -rf '" + path_ + "'";
  if (system(cmd.c_str()) != 0) {
  }
}

void writeFile(const std::string& path, const std::string& bytes) {
  std::ofstream f(path, std::ios::binary | std::ios::trunc);
  if (!f) throw std::runtime_error("cannot write " + path);
  f << bytes;
}

std::string readFile(const std::string& path) {
  std::ifstream f(path, std::ios::binary);
  std::stringstream ss;
  ss << f.rdbuf();
  return ss.str();
}

bool exists(const std::string& path) {
  struct stat st;
  return lstat(path.c_str(), &st) == 0;
}

std::vector<std::string> folderEntries(const std::string& folder) {
  std::vector<std::string> names;
  if (DIR* d = opendir(folder.c_str())) {
    while (dirent* e = readdir(d))
      if (std::string(e->d_name) != "." && std::string(e->d_name) != "..")
        names.push_back(e->d_name);
    closedir(d);
  }
  std::sort(names.begin(), names.end());
  return names;
}

FakePlatform::FakePlatform() : environment(dir.path()) { mkdir(library().c_str(), 0755); }

platform::Services FakePlatform::services() {
  return platform::Services{.clock = clock,
                            .loop = loop,
                            .log = log,
                            .notifications = notifications,
                            .workspace = workspace,
                            .defaults = defaults,
                            .environment = environment,
                            .fileEvents = fileEvents};
}

}  // namespace wf::test
