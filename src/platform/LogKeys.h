// The helper's log keys: the preferences that switch on its keyed log
// lines, and the journal field those lines carry. Each key is spelt once.
#pragma once

#include <string>
#include <vector>

namespace wf {

inline constexpr const char kLogSettingsSync[] = "logSettingsSync";
inline constexpr const char kLogExternalProjects[] = "logExternalProjects";
inline constexpr const char kLogOmniFocusProjects[] = "logOmniFocusProjects";
inline constexpr const char kLogFinderTags[] = "logFinderTags";
inline constexpr const char kLogOpenMeta[] = "logOpenMeta";
inline constexpr const char kLogPreferencesNotification[] = "logPreferencesNotification";
inline constexpr const char kLogLoginItems[] = "loginItems";

}  // namespace wf

namespace wf::platform {

inline const std::vector<std::string>& logKeys() {
  static const std::vector<std::string> keys{
      kLogSettingsSync, kLogExternalProjects,        kLogOmniFocusProjects, kLogFinderTags,
      kLogOpenMeta,     kLogPreferencesNotification, kLogLoginItems};
  return keys;
}

}  // namespace wf::platform
