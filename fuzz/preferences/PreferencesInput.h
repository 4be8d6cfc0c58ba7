// Turns fuzz bytes into what the plug-in and the user can put before the
// helper: the preferences file (as a property list of either format, or as
// raw bytes), the helper's own switches and the command-line overrides.
#pragma once

#include <fuzzer/FuzzedDataProvider.h>

#include <string>
#include <vector>

#include "platform/plist/Value.h"

namespace wf::fuzz {

struct PreferencesInput {
  bool inContainer = false;  // Mail's sandbox container or the ordinary folder
  std::string fileBytes;     // what the preferences file holds
  Dictionary own;            // the helper's own defaults domain
  Dictionary arguments;      // -WFkey value pairs
  // What happens after the change notice, in order.
  enum class Action {
    KeywordsSaved,
    ProjectsSaved,
    RulesSaved,
    SmartMailboxesSaved,
    SyncEvent,
    PreferencesChanged,
    CacheExpires
  };
  std::vector<Action> actions;
  std::vector<std::string> eventPaths;  // the paths of the SyncEvent actions
};

// `home` is the temporary home: every path the input names stays inside it.
PreferencesInput makePreferencesInput(FuzzedDataProvider& in, const std::string& home);

}  // namespace wf::fuzz
