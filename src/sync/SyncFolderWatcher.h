// The sync-folder watcher's event callback: the stream hands it the
// delegate that owns the stream, with the changed paths.
#pragma once

#include <string>
#include <vector>

namespace wf {

class WFHelperAppDelegate;

void fseventsSyncFolder_callback(WFHelperAppDelegate* delegate,
                                 const std::vector<std::string>& eventPaths);

}  // namespace wf
