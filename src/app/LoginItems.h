// Keeping the helper's login item in line with the plug-in's
// "launchWrenfoldHelperAtLogin" setting.
#pragma once

namespace wf {

// Makes sure the session starts this copy of the helper at login: keeps an
// entry for the helper's path, removes entries of other copies (same bundle
// identifier, other path) and adds an entry when none is left. True only
// when this call added an entry.
bool addWrenfoldHelperToLoginItems();

// Removes every entry of the helper, by path or by bundle identifier. True
// when at least one entry was removed.
bool removeWrenfoldHelperFromLoginItems();

}  // namespace wf
