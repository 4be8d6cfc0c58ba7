#include "platform/linux/LogPriority.h"

#include <string_view>

#include "platform/LogKeys.h"

namespace wf::platform {
namespace {

bool startsWith(const std::string& text, std::string_view prefix) {
  return text.compare(0, prefix.size(), prefix) == 0;
}

struct Rule {
  std::string_view prefix;
  LogPriority priority;
};

constexpr Rule kRules[] = {
    // The helper cannot go on (or an operation was cut short).
    {"cannot connect to the session bus", LogPriority::Error},
    {"lost the session bus", LogPriority::Error},
    {"cannot own ", LogPriority::Error},
    {"An uncaught exception was raised", LogPriority::Error},
    // Failures: logged, swallowed, tried again by the next event.
    {"Couldn't set handler for Wrenfold", LogPriority::Warning},
    {"URL scheme handlers: ", LogPriority::Warning},
    {"Wrenfold is not installed", LogPriority::Warning},
    {"The Wrenfold plug-in was looked for at ", LogPriority::Warning},
    {"Problem creating Sync Folder!", LogPriority::Warning},
    {"Problem removing old file: ", LogPriority::Warning},
    {"File existing at SyncFolderPath is not directory!", LogPriority::Warning},
    {"error ", LogPriority::Warning},
    {"Error requesting ", LogPriority::Warning},
    {"Can't compile applescript", LogPriority::Warning},
    {"Cannot access OmniFocus 2 projects.", LogPriority::Warning},
    {"Couldn't get ", LogPriority::Warning},
    {"cannot post ", LogPriority::Warning},
    {"cannot list the running applications", LogPriority::Warning},
    {"Cannot watch every folder below ", LogPriority::Warning},
    {"Cannot watch the ", LogPriority::Warning},
    {"File events were lost in ", LogPriority::Warning},
    // Diagnostic lines written without a key.
    {"scriptSource: ", LogPriority::Info},
    {"shouldPullSyncFile ", LogPriority::Info},
    {"syncFilesDidChange ", LogPriority::Info},
    {"emlx file changed: ", LogPriority::Info},
    {"Path: ", LogPriority::Info},
};

}  // namespace

LogRecordKind classifyRecord(const std::string& message) {
  LogRecordKind kind;
  if (startsWith(message, "(")) {
    std::size_t close = message.find(')');
    if (close != std::string::npos) {
      std::string key = message.substr(1, close - 1);
      for (const std::string& known : logKeys())
        if (key == known) {
          kind.priority = LogPriority::Info;
          kind.key = key;
          return kind;
        }
    }
  }
  for (const Rule& rule : kRules)
    if (startsWith(message, rule.prefix)) {
      kind.priority = rule.priority;
      return kind;
    }
  return kind;
}

}  // namespace wf::platform
