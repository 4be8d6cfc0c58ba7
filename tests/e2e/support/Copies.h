// More copies of the helper beside the Session's own (which startHelper()
// runs): started with the Session's home and bus, standard output and error
// gathered in one text, waited for on the Session's main context.
#pragma once

#include <sys/types.h>

#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "support/Harness.h"

namespace wf::e2e {

struct CopyState;

struct Copy {
  pid_t pid = 0;
  std::optional<int>& status;  // exit status (or 128 + signal) once ended
  std::shared_ptr<CopyState> state;
  const std::string& output() const;
};

// Runs argv (argv[0] a path) with the environment startHelper() gives.
Copy startCopy(Session& s, const std::vector<std::string>& argv,
               const std::map<std::string, std::string>& environment = {});
std::optional<int> waitForCopy(Session& s, Copy& copy, double seconds);
// The copy owns "org.ardel.WrenfoldHelper" and says it has launched.
bool waitForLaunchOf(Session& s, Copy& copy, double seconds);
// Until nobody owns "org.ardel.WrenfoldHelper".
bool waitForNoOwner(Session& s, double seconds);
// SIGTERM and the wait for its end.
void stopCopy(Session& s, Copy& copy, double seconds);

// The process owning "org.ardel.WrenfoldHelper", 0 for none.
pid_t nameOwnerPid(const Session& s);
int countOf(const std::string& text, const std::string& needle);

// systemd's XDG autostart generator, or "" when it is not installed.
std::string autostartGeneratorPath();
// Runs the generator on the Session's autostart folder (and no system
// folder) and gives the command of the unit it made for the helper's entry
// (ExecStart without its prefixes, split into words); empty when it made none.
std::vector<std::string> generatedAutostartCommand(const Session& s);

}  // namespace wf::e2e
