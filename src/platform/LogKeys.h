// The helper's log keys: the preferences that switch on its keyed log
// lines, and the journal field those lines carry.
#pragma once

#include <string>
#include <vector>

namespace wf::platform {

inline const std::vector<std::string>& logKeys() {
  static const std::vector<std::string> keys{
      "logSettingsSync", "logExternalProjects", "logOmniFocusProjects",
      "logFinderTags",   "logOpenMeta",         "logPreferencesNotification",
      "loginItems"};
  return keys;
}

}  // namespace wf::platform
