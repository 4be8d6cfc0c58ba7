// The status seen from outside: `wrenfold-helper --status [--json]`, and the
// one-line state the service manager shows.
#pragma once

#include <functional>

#include "platform/Platform.h"

namespace wf {

// Asks the helper of this session and prints what it says. Exit status: 0
// answered, 3 no helper on the bus (it is never started for the question),
// 1 no bus or no answer.
int runStatusCommand(bool json);

// Under a service manager that listens ($NOTIFY_SOCKET): READY=1 now, then
// the summary line as STATUS= whenever it changed, looked at once a second.
void publishServiceStatus(platform::MainLoop& loop, std::function<Value()> report);

}  // namespace wf
