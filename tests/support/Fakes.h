// Fakes of the platform interfaces for unit tests: a clock and main loop
// that advance only when told, a log that keeps its lines, a notification
// centre and workspace that record and deliver in-process.
#pragma once

#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "platform/Platform.h"

namespace wf::test {

class FakeClock : public platform::Clock {
 public:
  double now() const override { return now_; }
  double now_ = 800000000.0;  // an arbitrary day in 2026
};

// Delayed calls run only from advance(); terminate() throws Terminated.
class FakeLoop : public platform::MainLoop {
 public:
  explicit FakeLoop(FakeClock& clock) : clock_(clock) {}
  platform::TimerId performAfterDelay(double seconds, std::function<void()> fn) override;
  void cancel(platform::TimerId id) override;
  [[noreturn]] void terminate() override;
  // Moves the clock forward, running every call that falls due, in order.
  void advance(double seconds);
  std::size_t pendingCount() const { return timers_.size(); }
  // Delays of the pending calls, from now.
  std::vector<double> pendingDelays() const;
  bool terminated = false;

 private:
  struct Timer {
    double due;
    platform::TimerId id;
    std::function<void()> fn;
  };
  FakeClock& clock_;
  std::vector<Timer> timers_;
  platform::TimerId next_ = 1;
};

class FakeLog : public platform::Log {
 public:
  void write(const std::string& message) override { lines.push_back(message); }
  std::size_t count(const std::string& message) const;
  bool contains(const std::string& message) const { return count(message) > 0; }
  // Lines that begin with the prefix.
  std::vector<std::string> startingWith(const std::string& prefix) const;
  std::vector<std::string> lines;
};

class FakeNotificationCenter : public platform::NotificationCenter {
 public:
  void post(const std::string& name) override { posted.push_back(name); }
  void addObserver(const std::string& name, platform::NotificationHandler handler) override {
    observers.emplace_back(name, std::move(handler));
  }
  // Delivers a notification to its observers, as the bus would.
  void deliver(const std::string& name);
  std::vector<std::string> posted;
  std::vector<std::pair<std::string, platform::NotificationHandler>> observers;
};

class FakeWorkspace : public platform::Workspace {
 public:
  std::vector<std::string> runningApplicationIdentifiers() override { return running; }
  void addLaunchObserver(platform::NotificationHandler h) override {
    launchObservers.push_back(std::move(h));
  }
  void addTerminateObserver(platform::NotificationHandler h) override {
    terminateObservers.push_back(std::move(h));
  }
  std::optional<std::string> desktopEntryPathForIdentifier(const std::string& id) override;
  // Simulates an application starting or quitting, with its notice.
  void launch(const std::string& id);
  void quit(const std::string& id);
  std::vector<std::string> running;
  std::map<std::string, std::string> installed;  // identifier -> desktop entry path
  std::vector<platform::NotificationHandler> launchObservers, terminateObservers;
};

class FakeUserDefaults : public platform::UserDefaults {
 public:
  const Dictionary& argumentDomain() const override { return arguments; }
  Value objectForKey(const std::string& key) override;
  Dictionary arguments;  // the command line
  Dictionary own;        // the helper's own defaults file
};

class FakeEnvironment : public platform::Environment {
 public:
  explicit FakeEnvironment(std::string home);
  std::string bundlePath() const override { return bundlePath_; }
  std::string bundleIdentifier() const override { return "org.ardel.WrenfoldHelper"; }
  Value infoValue(const std::string& key) const override;
  std::optional<std::string> pathForResource(const std::string& name,
                                             const std::string& type) const override;
  std::vector<std::string> userLibraryDirectories() const override { return libraries_; }
  std::vector<std::string> userApplicationScriptsDirectories() const override { return scripts_; }
  std::vector<long> operatingSystemVersion() const override { return osVersion; }
  std::string systemVersionPlistPath() const override { return systemVersionPlist; }
  std::string xdgConfigHome() const override { return home + "/.config"; }

  std::string home;
  std::string bundlePath_;
  std::vector<std::string> libraries_;  // {home + "/Library"}, or empty for no home
  std::vector<std::string>
      scripts_;  // {home + "/Library/Application Scripts/org.ardel.WrenfoldHelper"}
  std::vector<long> osVersion{0, 0, 0};
  std::string systemVersionPlist;  // absent file by default
  std::string resourceDir;         // the source tree's resources/
  Dictionary info;
};

// A stream whose events the test delivers by hand.
class FakeFileEventStream;
class FakeFileEventStreamFactory : public platform::FileEventStreamFactory {
 public:
  std::unique_ptr<platform::FileEventStream> create(const platform::FileEventStreamParams& params,
                                                    platform::FileEventCallback callback) override;
  bool failCreate = false;
  bool failStart = false;
  // Every stream made, alive or not (entries are cleared when a stream dies).
  std::vector<FakeFileEventStream*> streams;
  int created = 0, destroyed = 0;
};

class FakeFileEventStream : public platform::FileEventStream {
 public:
  FakeFileEventStream(FakeFileEventStreamFactory& f, platform::FileEventStreamParams p,
                      platform::FileEventCallback cb)
      : factory(f), params(std::move(p)), callback(std::move(cb)) {}
  ~FakeFileEventStream() override;
  bool start() override;
  void stop() override { stopped = true; }
  void fire(const std::vector<std::string>& paths) { callback(paths); }
  FakeFileEventStreamFactory& factory;
  platform::FileEventStreamParams params;
  platform::FileEventCallback callback;
  bool started = false, stopped = false;
};

// A temporary folder removed at the end of the test. Under /dev/shm when
// `tmpfs` is set (for attribute values of the full 4096 bytes).
class TempDir {
 public:
  explicit TempDir(bool tmpfs = false);
  ~TempDir();
  const std::string& path() const { return path_; }
  std::string operator/(const std::string& name) const { return path_ + "/" + name; }

 private:
  std::string path_;
};

void writeFile(const std::string& path, const std::string& bytes);
std::string readFile(const std::string& path);
bool exists(const std::string& path);
// The names in a folder without "." and "..", sorted; none when it cannot be read.
std::vector<std::string> folderEntries(const std::string& folder);

// All fakes wired together, with a temporary home whose Library exists.
struct FakePlatform {
  FakePlatform();
  TempDir dir;
  FakeClock clock;
  FakeLoop loop{clock};
  FakeLog log;
  FakeNotificationCenter notifications;
  FakeWorkspace workspace;
  FakeUserDefaults defaults;
  FakeEnvironment environment;
  FakeFileEventStreamFactory fileEvents;
  platform::Services services();
  std::string library() const { return environment.home + "/Library"; }
};

}  // namespace wf::test
