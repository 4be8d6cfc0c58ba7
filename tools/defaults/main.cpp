// wf-defaults: defaults for Linux. Reads and writes values in the user's
// defaults domains, so that the advice the helper logs ("defaults write
// org.ardel.WrenfoldHelper disableOpenMetaScanning 1") works here too.
#include <cstdio>
#include <string>
#include <vector>

#include "ToolFiles.h"
#include "Verbs.h"

int main(int argc, char** argv) {
  namespace d = wf::defaults;
  // Installed as wf-defaults and, through the alternatives, as defaults.
  const std::string program = wf::tools::programName(argc > 0 ? argv[0] : nullptr, "wf-defaults");
  d::Args args(argv + 1, argv + argc);
  if (args.empty()) {
    std::fputs(d::usage(program).c_str(), stderr);
    return 1;
  }
  const std::string verb = args[0];
  if (verb == "help" || verb == "--help" || verb == "-h") {
    std::fputs(d::usage(program).c_str(), stdout);
    return 0;
  }
  if (verb == "--version") {
    std::printf("%s (WrenfoldHelper) %s\n", program.c_str(), WF_VERSION);
    return 0;
  }
  args.erase(args.begin());
  if (verb == "read") return d::read(program, args);
  if (verb == "read-type") return d::readType(program, args);
  if (verb == "write") return d::write(program, args);
  if (verb == "delete") return d::remove(program, args);
  if (verb == "rename") return d::rename(program, args);
  if (verb == "domains") return d::domains(program, args);
  if (verb == "find") return d::find(program, args);
  if (verb == "export") return d::exportDomain(program, args);
  if (verb == "import") return d::importDomain(program, args);
  std::fprintf(stderr, "%s: unknown command '%s'\n%s", program.c_str(), verb.c_str(),
               d::usage(program).c_str());
  return 1;
}
