// The sync-folder watcher's event callback, a free function as the event
// service expects; it reaches the delegate through the application object.
#pragma once

#include <string>
#include <vector>

namespace wf {

void fseventsSyncFolder_callback(const std::vector<std::string>& eventPaths);

}  // namespace wf
