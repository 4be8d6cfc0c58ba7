// The service manager's readiness protocol: one datagram per state change
// ("READY=1", "STATUS=…", "STOPPING=1") to the socket $NOTIFY_SOCKET names.
// Without $NOTIFY_SOCKET nothing is sent.
#pragma once

#include <string>

namespace wf::platform {

// True when the datagram was sent; never blocks.
bool systemdNotify(const std::string& state);

}  // namespace wf::platform
