// File-event streams and the process's own changes.
//
// An event stream made with ignoreSelf must not deliver the changes that
// this process made itself. inotify does not say which process caused an
// event, so every operation of this process that changes files reports the
// path it changes here, before and after the change:
//
//   platform::OwnChange change(path);   // drains the queues: older events stay
//   ... rename / unlink / mkdir / write ...
//   // destructor: drains again and drops the events of `path`
//
// Everything runs on the main thread, so when the change has returned, all
// inotify events it caused are already queued in the kernel; the streams
// read them at once and drop those that name the path itself, anything
// below it (a removed folder), or a temporary of it in the same folder: an
// entry named "." + name + "." + anything (how FileManager and the atomic
// plist writer name the file they write before renaming it into place).
//
// What remains possible: another process that changes the same path during
// the few microseconds of our own change has its events dropped with ours.
#pragma once

#include <algorithm>
#include <string>
#include <string_view>
#include <vector>

namespace wf::platform {

// Implemented by event streams that leave out the process's own changes.
class OwnChangeListener {
 public:
  // Read everything queued so far and keep it as foreign events.
  virtual void drainForeignEvents() = 0;
  // Read everything queued so far and drop what names `path` (see above).
  virtual void drainOwnEvents(const std::string& path) = 0;

 protected:
  ~OwnChangeListener() = default;
};

class OwnChanges {
 public:
  static void addListener(OwnChangeListener* l) { listeners().push_back(l); }
  static void removeListener(OwnChangeListener* l) {
    auto& v = listeners();
    v.erase(std::remove(v.begin(), v.end(), l), v.end());
  }
  // Before changing `path`: events already queued are someone else's.
  static void willChange(const std::string& path) {
    (void)path;
    for (auto* l : snapshot()) l->drainForeignEvents();
  }
  // After changing `path`: what is queued for it now is ours.
  static void didChange(const std::string& path) {
    for (auto* l : snapshot()) l->drainOwnEvents(path);
  }

  // True when an event for `eventPath` was caused by a change of `ownPath`.
  static bool isOwnEventPath(std::string_view eventPath, std::string_view ownPath) {
    if (ownPath.empty()) return false;
    while (ownPath.size() > 1 && ownPath.back() == '/') ownPath.remove_suffix(1);
    if (eventPath == ownPath) return true;
    if (eventPath.size() > ownPath.size() && eventPath.substr(0, ownPath.size()) == ownPath &&
        eventPath[ownPath.size()] == '/')
      return true;
    auto slash = ownPath.rfind('/');
    std::string_view folder = slash == std::string_view::npos ? "" : ownPath.substr(0, slash + 1);
    std::string_view name = slash == std::string_view::npos ? ownPath : ownPath.substr(slash + 1);
    std::string temporaryPrefix;
    temporaryPrefix.reserve(folder.size() + name.size() + 2);
    temporaryPrefix.append(folder).append(".").append(name).append(".");
    return eventPath.size() > temporaryPrefix.size() &&
           eventPath.substr(0, temporaryPrefix.size()) == temporaryPrefix &&
           eventPath.find('/', temporaryPrefix.size()) == std::string_view::npos;
  }

 private:
  static std::vector<OwnChangeListener*>& listeners() {
    static std::vector<OwnChangeListener*> v;
    return v;
  }
  // A listener may go away while others drain; iterate over a copy.
  static std::vector<OwnChangeListener*> snapshot() { return listeners(); }
};

// Reports one change of `path` for as long as it lives.
class OwnChange {
 public:
  explicit OwnChange(std::string path) : path_(std::move(path)) { OwnChanges::willChange(path_); }
  ~OwnChange() { OwnChanges::didChange(path_); }
  OwnChange(const OwnChange&) = delete;
  OwnChange& operator=(const OwnChange&) = delete;

 private:
  std::string path_;
};

}  // namespace wf::platform
