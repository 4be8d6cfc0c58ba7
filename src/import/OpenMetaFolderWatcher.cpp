#include "import/OpenMetaFolderWatcher.h"

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <iterator>
#include <map>
#include <memory>

#include "app/WFHelperAppDelegate.h"
#include "import/ImportRecord.h"
#include "openmeta/OpenMeta.h"
#include "paths/Paths.h"
#include "platform/LogKeys.h"
#include "platform/RemoteFolders.h"
#include "platform/Spotlight.h"
#include "platform/base/UpdateLock.h"
#include "platform/foundation/FileManager.h"
#include "platform/foundation/Strings.h"

namespace wf {

namespace {

Value pathValue(const std::optional<std::string>& path) { return path ? Value(*path) : Value(); }

// The attributes the plug-in's values are compared with.
constexpr std::string_view kImportedKeys[] = {"kMDItemKeywords", "kMDItemProjects",
                                              "kMDItemStarRating", "kMDItemComment",
                                              "wrenfoldItemDueDate"};
// Imports the messages from `first` on, at most kOpenMetaImportSlice of them
// and for at most kOpenMetaImportSliceTime in this turn of the main loop,
// the rest in the next turns: a burst of thousands of messages never holds
// the loop for long. A pending slice carries its delegate and the
// delegate's lifetime, so it never outlives the delegate.
void importSlices(WFHelperAppDelegate* delegate, const std::weak_ptr<void>& alive,
                  const std::shared_ptr<const std::vector<std::string>>& messages,
                  std::size_t first) {
  if (alive.expired()) return;
  if (first == 0 && messages->size() <= 1) {
    delegate->delayedImport(*messages);
    return;
  }
  auto deadline = std::chrono::steady_clock::now() + kOpenMetaImportSliceTime;
  std::size_t last = std::min(messages->size(), first + kOpenMetaImportSlice);
  std::size_t end = first;
  while (end < last) {
    delegate->delayedImport({(*messages)[end++]});
    if (std::chrono::steady_clock::now() >= deadline) break;
  }
  if (end >= messages->size() || alive.expired()) return;
  delegate->services().loop->performAfterDelay(
      0, [delegate, alive, messages, end] { importSlices(delegate, alive, messages, end); });
}

// A store on a network share is watched for this computer's changes only:
// polling a hundred thousand messages is not worth it, but it is said, once
// for each store.
void noteMailStoreFileSystem(WFHelperAppDelegate& delegate, const std::string& path) {
  auto& status = delegate.mailStoreStatus;
  bool known = status.path == path && !status.fileSystem.empty();
  status.path = path;
  status.watch = "inotify";
  status.reason.clear();
  platform::RemoteFolders* remote = delegate.services().remoteFolders;
  if (!remote) return;
  platform::FolderFileSystem fs = remote->fileSystemOf(path);
  status.fileSystem = fs.type;
  if (!fs.remote) return;
  status.reason = "messages changed by other computers are not seen on " + fs.type;
  if (!known)
    NSLog(
        "Mail store %@ is on %@, where inotify hears only this computer's changes: messages "
        "tagged on another computer are imported when this computer next changes them",
        path, fs.type);
}

// Messages another writer held at their import, with the retries so far.
std::map<std::string, int> gBusyRetries;

// A tool holds a message for milliseconds (it gives up after 10 s); the
// retries outlast that, then the message waits for its next change.
constexpr double kBusyRetryDelay = 1.0;
constexpr int kBusyRetries = 15;

void retryWhenFree(WFHelperAppDelegate& delegate, const std::string& path) {
  int& tries = gBusyRetries[path];
  if (tries >= kBusyRetries) {
    gBusyRetries.erase(path);
    NSLog("OpenMeta import: %@ held by another writer; left to its next change", path);
    return;
  }
  if (tries++ == 0) NSLog("OpenMeta import: %@ held by another writer; tried again shortly", path);
  // The retry carries its delegate, and is dropped when the delegate is gone.
  auto* d = &delegate;
  std::weak_ptr<void> alive = delegate.lifetime();
  delegate.services().loop->performAfterDelay(kBusyRetryDelay, [d, alive, path] {
    if (!alive.expired()) d->delayedImport({path});
  });
}

}  // namespace

std::string escapedPath(std::string_view path) {
  std::string out;
  static const char* const kHex = "0123456789abcdef";
  auto escapeByte = [&](unsigned char c) {
    out += "\\x";
    out += kHex[c >> 4];
    out += kHex[c & 15];
  };
  while (!path.empty()) {
    std::size_t bad = ns::firstInvalidUTF8(path);
    std::string_view good = path.substr(0, bad);
    for (char c : good) {
      auto u = static_cast<unsigned char>(c);
      if (u < 0x20 || u == 0x7f)
        escapeByte(u);
      else if (c == '\\')
        out += "\\\\";
      else
        out += c;
    }
    if (bad == std::string_view::npos) break;
    escapeByte(static_cast<unsigned char>(path[bad]));
    path.remove_prefix(bad + 1);
  }
  return out;
}

int WFHelperAppDelegate::startOpenMetaFolderWatcher() {
  std::optional<std::string> path = WFmailV2Path();
  WFLogKeyed(kLogOpenMeta, "starting set up OpenMeta Listener for Path: %@", pathValue(path));

  // Callers start only when no watcher is present; a stream still held is
  // released here rather than left running unowned.
  _openMetaStreamRef.reset();
  _openMetaStreamUnusable = false;

  // Without a Library folder there is no store to watch: no stream is made.
  if (path) {
    platform::FileEventStreamParams params;
    params.paths = {*path};
    params.latency =
        openMetaStreamLatency(services().defaults->objectForKey(kOpenMetaStreamLatencyKey));
    params.ignoreSelf = false;  // the import's own writes come back, harmlessly
    params.fileEvents = true;
    // A message changed many times within one latency is imported once:
    // the import reads the message as it is then, whatever the count.
    params.mergeRepeatedPaths = true;
    // The stream dies with the delegate (it holds it): its callback may
    // carry the delegate itself.
    _openMetaStreamRef = services().fileEvents->create(
        params,
        [this](const std::vector<std::string>& paths) { fseventsOpenMeta_callback(this, paths); });
  }

  if (_openMetaStreamRef) {
    if (_openMetaStreamRef->start()) {
      WFLogKeyed(kLogOpenMeta, "Successfully set up OpenMeta Listener");
      noteWatcherOutcome(mailStoreStatus, "mail store", path, true, 0);
      noteMailStoreFileSystem(*this, *path);
      return 1;
    }
    noteWatcherOutcome(mailStoreStatus, "mail store", path, false, errno);
    WFLogKeyed(kLogOpenMeta, "failed to start the OpenMeta Listener\n");
    // The stream is gone, but the watcher goes on counting as present, so
    // that no further start is tried while the helper runs.
    _openMetaStreamRef.reset();
    _openMetaStreamUnusable = true;
  } else {
    noteWatcherOutcome(mailStoreStatus, "mail store", path, false, 0);
  }
  return 0;
}

double openMetaStreamLatency(const Value& configured) {
  if (!configured.isInteger() && !configured.isReal() && !configured.isString())
    return kOpenMetaStreamLatency;
  double seconds = configured.doubleValue();
  // NaN fails both comparisons and keeps the default too.
  if (seconds >= kOpenMetaStreamLatencyMin && seconds <= kOpenMetaStreamLatencyMax) return seconds;
  return kOpenMetaStreamLatency;
}

void WFHelperAppDelegate::stopOpenMetaFolderWatcher() {
  if (!hasOpenMetaStream()) return;
  WFLogKeyed(kLogOpenMeta, "Stopping the OpenMeta Listener");
  // A stream that never started was released at once; nothing is left to
  // stop, and the watcher stays counted as present.
  if (_openMetaStreamUnusable) return;
  _openMetaStreamRef->stop();
  _openMetaStreamRef.reset();  // invalidate and release
}

void fseventsOpenMeta_callback(WFHelperAppDelegate* delegate,
                               const std::vector<std::string>& eventPaths) {
  std::vector<std::string> messages;
  for (const auto& path : eventPaths)
    if (ns::hasSuffix(path, ".emlx")) messages.push_back(path);
  if (messages.empty()) return;

  auto batch = std::make_shared<const std::vector<std::string>>(std::move(messages));
  std::weak_ptr<void> alive = delegate->lifetime();
  delegate->services().loop->performAfterDelay(
      kOpenMetaImportDelay, [delegate, alive, batch] { importSlices(delegate, alive, batch, 0); });
}

void WFHelperAppDelegate::delayedImport(const std::vector<std::string>& paths) {
  for (const auto& path : paths) {
    if (ns::pathExtension(path) != "emlx") continue;
    // Held for the read and the writes: a tool changing the same message's
    // attributes takes turns with the import. The main loop never waits for
    // it; a held message is tried again shortly. A lock on the message
    // itself has found it at its name (and is read through); without one
    // the message is looked for.
    auto lock = sys::lockForUpdate(path, sys::Links::NoFollow, std::chrono::milliseconds(0));
    const int message = lock ? lock->regularFile() : -1;
    const std::uint64_t size = lock ? lock->regularFileSize() : 0;
    if (message < 0 && !FileManager::defaultManager().fileExistsAtPath(path)) continue;
    // A name that is no text cannot be handed to the plug-in in a stub;
    // left alone, the message keeps its tags for a later rename.
    if (!ns::isValidUTF8(path)) {
      NSLog("emlx file name is not UTF-8, not imported: %@", escapedPath(path));
      continue;
    }
    if (defaultForKey(kLogOpenMeta).boolValue()) NSLog("emlx file changed: %@", path);
    if (!lock) {
      retryWhenFree(*this, path);
      continue;
    }
    gBusyRetries.erase(path);

    std::optional<platform::SpotlightItem> item =
        message >= 0 ? platform::SpotlightItem::forPresentFile(path)
                     : platform::SpotlightItem::createWithPath(path);
    if (!item) continue;
    std::vector<std::string> names = item->copyAttributeNames();
    if (names.empty()) {
      importWrenfoldMetadataAtPath(path, Value(), message, size);
      continue;
    }
    Value attributes = item->copyAttributes(names);
    // A distant-future stamp marks a message whose metadata is being
    // written; a message without any stamp is left alone as well.
    Value stamp = attributes.get(kTimeStampKey);
    if (!stamp.isDate()) continue;
    if (stamp.asDate() == Date::distantFuture()) {
      std::optional<Value> resumed = resumeInterruptedImport(path, attributes);
      if (resumed) importWrenfoldMetadataAtPath(path, *resumed, message, size);
      continue;
    }
    importWrenfoldMetadataAtPath(path, attributes, message, size);
  }
}

std::optional<Value> WFHelperAppDelegate::resumeInterruptedImport(const std::string& path,
                                                                  const Value& attributes) {
  // Only an import whose writer is gone (killed, or its final write
  // failed) is taken up again; a write in progress, or a stamp another
  // program set, is left alone.
  std::optional<ImportRecord> record = readImportRecord(path);
  if (!record || !record->isOpen() || importOwnerIsRunning(record->owner)) return std::nullopt;
  WFLogKeyed(kLogOpenMeta, "OpenMeta Importing... resuming an interrupted import of %@", path);
  // The stamp goes back to what it was before, and the import starts over
  // from there. The values it writes are left out of what it compares
  // with, so that all of them are written again: a value written before
  // the crash may compare equal while the copies it goes with (the
  // keywords' three tag lists) were never written.
  Value before =
      record->previousStamp.isDate() ? record->previousStamp : Value(Date::distantPast());
  if (failed(OpenMeta::setXAttrMetaData(before, kTimeStampKey, path))) return std::nullopt;
  removeImportRecord(path);
  Dictionary restored;
  for (const auto& [key, value] : attributes.asDictionary())
    if (std::find(std::begin(kImportedKeys), std::end(kImportedKeys), key) ==
        std::end(kImportedKeys))
      restored.insert_or_assign(key, value);
  restored.insert_or_assign(kTimeStampKey, before);
  return Value(std::move(restored));
}

}  // namespace wf
