// The platform layer: every operating-system facility the helper's logic
// uses, behind small interfaces. platform/linux/ holds the real ones (GLib
// main loop, session bus, inotify, syslog); tests use fakes.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

#include "platform/plist/Value.h"

namespace wf::platform {

// Wall clock as seconds since 2001-01-01 00:00:00 UTC.
class Clock {
 public:
  virtual ~Clock() = default;
  virtual double now() const = 0;
};

using TimerId = unsigned;  // 0 is never a valid id

// The main loop: one-shot delayed calls and the end of the process.
class MainLoop {
 public:
  virtual ~MainLoop() = default;
  // performSelector:withObject:afterDelay:
  virtual TimerId performAfterDelay(double seconds, std::function<void()> fn) = 0;
  // cancelPreviousPerformRequests...: removes a pending call; unknown ids are ignored.
  virtual void cancel(TimerId id) = 0;
  // terminate: flush the log and end the process with status 0. Never
  // returns: fakes throw Terminated so that nothing after the call runs.
  [[noreturn]] virtual void terminate() = 0;
};

struct Terminated : std::runtime_error {
  Terminated() : std::runtime_error("terminate:") {}
};

}  // namespace wf::platform

namespace wf {
// The platform's exception class: what a failed exchange with another
// application raises. The main loop catches it around every callback, logs
// it and goes on, as AppKit does in run-loop callbacks.
struct NSException : std::runtime_error {
  using std::runtime_error::runtime_error;
};
}  // namespace wf

namespace wf::platform {

// The log record of an exception that nothing caught.
inline std::string uncaughtExceptionMessage(const std::exception& e) {
  return std::string("An uncaught exception was raised\n") + e.what();
}

// NSLog and the system log: one record per message.
class Log {
 public:
  virtual ~Log() = default;
  virtual void write(const std::string& message) = 0;
};

struct Notification {
  std::string name;
  Dictionary userInfo;
};
using NotificationHandler = std::function<void(const Notification&)>;

// Distributed notifications over the session bus.
class NotificationCenter {
 public:
  virtual ~NotificationCenter() = default;
  // Broadcast at once (the connection is flushed before returning).
  virtual void post(const std::string& name) = 0;
  virtual void addObserver(const std::string& name, NotificationHandler handler) = 0;
};

// NSWorkspace: running applications are owners of well-known bus names.
class Workspace {
 public:
  virtual ~Workspace() = default;
  // Bundle identifiers of running applications, in the bus's order.
  virtual std::vector<std::string> runningApplicationIdentifiers() = 0;
  // NSWorkspaceDidLaunch/DidTerminateApplicationNotification; userInfo
  // carries "NSApplicationBundleIdentifier".
  virtual void addLaunchObserver(NotificationHandler handler) = 0;
  virtual void addTerminateObserver(NotificationHandler handler) = 0;
  // absolutePathForAppBundleWithIdentifier: the desktop entry's path.
  virtual std::optional<std::string> desktopEntryPathForIdentifier(const std::string& id) = 0;
};

// NSUserDefaults: the argument domain and the helper's own domain.
class UserDefaults {
 public:
  virtual ~UserDefaults() = default;
  // -key value pairs of the command line, values as strings.
  virtual const Dictionary& argumentDomain() const = 0;
  // Argument domain first, then the helper's own defaults file.
  virtual Value objectForKey(const std::string& key) = 0;
  bool boolForKey(const std::string& key) { return objectForKey(key).boolValue(); }
};

// The running program's identity and the user's folders.
class Environment {
 public:
  virtual ~Environment() = default;
  virtual std::string bundlePath() const = 0;                 // real path of the executable
  virtual std::string bundleIdentifier() const = 0;           // "org.ardel.WrenfoldHelper"
  virtual Value infoValue(const std::string& key) const = 0;  // from Info.plist
  // pathForResource:ofType: (nullopt when missing).
  virtual std::optional<std::string> pathForResource(const std::string& name,
                                                     const std::string& type) const = 0;
  // The user-domain Library folder list: empty when there is no home.
  virtual std::vector<std::string> userLibraryDirectories() const = 0;
  // NSApplicationScriptsDirectory in the user domain (may be empty).
  virtual std::vector<std::string> userApplicationScriptsDirectories() const = 0;
  // NSProcessInfo operatingSystemVersion: major, minor, patch.
  virtual std::vector<long> operatingSystemVersion() const = 0;
  // The file that stands for "/System/Library/CoreServices/SystemVersion.plist".
  virtual std::string systemVersionPlistPath() const = 0;
  // $XDG_CONFIG_HOME (default ~/.config).
  virtual std::string xdgConfigHome() const = 0;
};

// A file-system event stream (FSEvents semantics, see platform/FileEvents.h).
class FileEventStream {
 public:
  virtual ~FileEventStream() = default;  // invalidate + release
  virtual bool start() = 0;
  virtual void stop() = 0;
  // False when a watched path has come to name another folder, or none,
  // and the stream does not (yet) watch what it names now.
  virtual bool watchesCurrentFolders() const { return true; }
  // For the status: kernel watches held, and lost-event overflows recovered
  // from by a rescan.
  virtual std::uint64_t watchesHeld() const { return 0; }
  virtual std::uint64_t overflowsRecovered() const { return 0; }
};

struct FileEventStreamParams {
  std::vector<std::string> paths;  // watched as given, always the whole tree
  double latency = 1.0;            // seconds
  bool ignoreSelf = false;         // kFSEventStreamCreateFlagIgnoreSelf
  bool fileEvents = true;          // kFSEventStreamCreateFlagFileEvents
  // A path already waiting for the callback is not queued again.
  bool mergeRepeatedPaths = false;
};
using FileEventCallback = std::function<void(const std::vector<std::string>& paths)>;

class FileEventStreamFactory {
 public:
  virtual ~FileEventStreamFactory() = default;
  // nullptr when the stream cannot be created.
  virtual std::unique_ptr<FileEventStream> create(const FileEventStreamParams& params,
                                                  FileEventCallback callback) = 0;
  // Why the last create() gave nullptr, and what the user can do about it.
  virtual std::string lastFailure() const { return {}; }
};

// A service the delegate cannot work without: bound to an object when the
// services are put together, never null, used like a pointer.
template <class T>
class Required {
 public:
  Required(T& service) : service_(&service) {}  // NOLINT(google-explicit-constructor)
  T* operator->() const { return service_; }
  T& operator*() const { return *service_; }
  T* get() const { return service_; }

 private:
  T* service_;
};

// Everything the delegate reaches the system through. The first eight are
// required (a Services cannot be made without them); the applications the
// helper talks to through the next three, and the file systems (last),
// may be left out, as unit tests
// of other parts do, and the delegate then skips what needs them.
struct Services {
  Required<Clock> clock;
  Required<MainLoop> loop;
  Required<Log> log;
  Required<NotificationCenter> notifications;
  Required<Workspace> workspace;
  Required<UserDefaults> defaults;
  Required<Environment> environment;
  Required<FileEventStreamFactory> fileEvents;
  class Scripting* scripting = nullptr;          // platform/Scripting.h
  class LoginItems* loginItems = nullptr;        // platform/LoginItems.h
  class UrlHandlers* urlHandlers = nullptr;      // platform/UrlHandlers.h
  class RemoteFolders* remoteFolders = nullptr;  // platform/RemoteFolders.h
};

}  // namespace wf::platform
