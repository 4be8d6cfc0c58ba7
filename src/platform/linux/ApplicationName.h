// One helper per session: the helper's identifier as a well-known name on
// the session bus. The first process to own it is the helper; any later
// copy learns who holds it and quits before it changes anything.
// Whether the owner has finished launching is its read-only property
// org.ardel.WrenfoldHelper.Launched on /org/ardel/WrenfoldHelper.
#pragma once

#include <gio/gio.h>
#include <sys/types.h>

#include <string>

namespace wf::platform {

inline constexpr const char* kHelperObjectPath = "/org/ardel/WrenfoldHelper";
inline constexpr const char* kHelperInterface = "org.ardel.WrenfoldHelper";

struct NameClaim {
  enum class Outcome { Owned, HeldByAnother, Failed };
  Outcome outcome = Outcome::Failed;
  pid_t ownerPid = 0;  // HeldByAnother: the running copy (0 when the bus would not say)
  std::string error;   // Failed: why
};

// Asks the bus for `identifier` without queueing (a copy that waits in the
// queue would take over later and act beside nobody's knowledge). The
// object with the Launched property is exported first, so whoever sees the
// name owned can read it.
NameClaim claimApplicationName(GDBusConnection* bus, const std::string& identifier);

// Launched becomes true: PropertiesChanged is sent and flushed.
void announceLaunched(GDBusConnection* bus);

// The line a copy writes when another one is the helper.
std::string alreadyRunningMessage(pid_t ownerPid);

}  // namespace wf::platform
