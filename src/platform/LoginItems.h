// The session's login items: the programs a desktop session starts when the
// user logs in. The helper keeps its own entry in line with the plug-in's
// "launchWrenfoldHelperAtLogin" setting through this interface.
#pragma once

#include <optional>
#include <string>
#include <vector>

namespace wf::platform {

// One entry as a snapshot of the list saw it.
struct LoginItem {
  // Names the entry within its list (for autostart entries, the file name).
  std::string token;
  std::optional<std::string> displayName;
  // The absolute path of the program the entry starts; nullopt when the
  // entry does not resolve (its program is missing, it cannot be read).
  std::optional<std::string> resolvedPath;
  // The bundle identifier of what the entry starts; nullopt for none.
  std::optional<std::string> bundleIdentifier;
};

class LoginItems {
 public:
  virtual ~LoginItems() = default;
  // Every entry of the list, in the list's order.
  virtual std::vector<LoginItem> snapshot() = 0;
  // Removes the entry; false when it could not be removed.
  virtual bool remove(const LoginItem& item) = 0;
  // Adds an entry at the end of the list that starts the program at `path`;
  // false when nothing was added.
  virtual bool insertLast(const std::string& displayName, const std::string& path,
                          const std::string& bundleIdentifier) = 0;
};

}  // namespace wf::platform
