// Defaults domains: the property list ~/Library/Preferences/DOMAIN.plist,
// NSGlobalDomain (-g) as .GlobalPreferences.plist, or a domain given as a
// path naming the file itself (".plist" added when missing).
#pragma once

#include <string>
#include <vector>

#include "platform/base/Files.h"
#include "platform/plist/Value.h"

namespace wf::defaults {

std::string preferencesFolder();
std::string domainPath(const std::string& domain);
bool isGlobalDomain(const std::string& domain);

// The domain's dictionary; nil when the file does not exist. A file that
// exists but holds no dictionary is an error, never silently replaced.
// `identity` receives the file read.
bool loadDomain(const std::string& path, Value& out, std::string& error,
                std::optional<sys::FileIdentity>* identity = nullptr);
// Writes the dictionary as XML, in place: mode, owner, extended attributes
// and a link at the name are kept. With `readFrom`, a file that another
// program put at the name since it was read is left alone (an error).
bool saveDomain(const std::string& path, const Dictionary& d, std::string& error,
                const std::optional<sys::FileIdentity>& readFrom = std::nullopt);

// The domains in the preferences folder, sorted, NSGlobalDomain left out.
std::vector<std::string> domainNames();

}  // namespace wf::defaults
