// Login items as XDG autostart entries: the ".desktop" files in
// $XDG_CONFIG_HOME/autostart, in ascending order of file name. An entry
// resolves to the program of its Exec; its bundle identifier is its
// X-Bundle-Identifier.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "platform/LoginItems.h"
#include "platform/Platform.h"

namespace wf::platform {

class XdgAutostartLoginItems : public LoginItems {
 public:
  // The folder follows the environment's $XDG_CONFIG_HOME at every call.
  explicit XdgAutostartLoginItems(const Environment& environment) : environment_(environment) {}
  std::vector<LoginItem> snapshot() override;
  bool remove(const LoginItem& item) override;
  // Writes "<bundleIdentifier>.desktop" atomically; when another entry holds
  // that name, the first free "<bundleIdentifier>-N.desktop" (N from 2).
  bool insertLast(const std::string& displayName, const std::string& path,
                  const std::string& bundleIdentifier) override;

  std::string autostartFolder() const;

 private:
  const Environment& environment_;
};

namespace xdg {

// An autostart entry read from its file's bytes. Programs are looked up in
// `searchPath` (a PATH value). Bytes that are no desktop entry give an item
// that does not resolve.
LoginItem autostartItem(const std::string& fileName, std::string_view contents,
                        const std::string& searchPath);

// The bytes of the entry that starts `path` at login.
std::string autostartEntry(const std::string& displayName, const std::string& path,
                           const std::string& bundleIdentifier);

}  // namespace xdg
}  // namespace wf::platform
