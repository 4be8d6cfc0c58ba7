// openmeta: OpenMeta tags, ratings and values of files from the shell.
#include <glib.h>

#include <cstdio>
#include <string>
#include <vector>

#include "Commands.h"
#include "Output.h"
#include "openmeta/OpenMeta.h"

int main(int argc, char** argv) {
  std::vector<std::string> args(argv + 1, argv + argc);
  std::size_t at = 0;
  // Options of the program itself come before the command.
  while (at < args.size() && args[at].rfind('-', 0) == 0) {
    const std::string& option = args[at];
    if (option == "--help" || option == "-h") {
      std::fputs(openmeta_tool::programHelp().c_str(), stdout);
      return 0;
    }
    if (option == "--version") {
      std::printf("openmeta (WrenfoldHelper) %s\n", WF_VERSION);
      return 0;
    }
    if (option == "--") {
      ++at;
      break;
    }
    // "--appkit-version N" or "--appkit-version=N".
    if (option == "--appkit-version" || option.rfind("--appkit-version=", 0) == 0) {
      const bool attached = option.size() > std::string("--appkit-version").size();
      if (!attached && at + 1 >= args.size()) {
        openmeta_tool::printUsageError("", "--appkit-version needs a number");
        return 1;
      }
      const std::string text = attached ? option.substr(option.find('=') + 1) : args[at + 1];
      char* end = nullptr;
      const double version = g_ascii_strtod(text.c_str(), &end);
      if (!end || *end != '\0' || text.empty()) {
        openmeta_tool::printUsageError("", "--appkit-version needs a number");
        return 1;
      }
      wf::OpenMeta::setAppKitVersionNumberForTesting(version);
      at += attached ? 1 : 2;
      continue;
    }
    openmeta_tool::printUsageError("", "unknown option " + option);
    return 1;
  }
  if (at == args.size()) {
    std::fputs(openmeta_tool::programHelp().c_str(), stderr);
    return 1;
  }
  const std::string name = args[at];
  if (name == "help") {
    if (at + 1 < args.size()) {
      if (const auto* c = openmeta_tool::findCommand(args[at + 1])) {
        std::fputs(openmeta_tool::commandHelp(*c).c_str(), stdout);
        return 0;
      }
      openmeta_tool::printUsageError("", "unknown command " + args[at + 1]);
      return 1;
    }
    std::fputs(openmeta_tool::programHelp().c_str(), stdout);
    return 0;
  }
  const openmeta_tool::Command* command = openmeta_tool::findCommand(name);
  if (!command) {
    openmeta_tool::printUsageError("", "unknown command " + name);
    return 1;
  }
  return openmeta_tool::runCommand(
      *command, std::vector<std::string>(args.begin() + static_cast<long>(at) + 1, args.end()));
}
