// The subcommands of `openmeta`.
#pragma once

#include <string>
#include <vector>

#include "CommandLine.h"

namespace openmeta_tool {

struct Command {
  std::string name;
  std::string synopsis;     // after "openmeta NAME "
  std::string summary;      // one line for the command list
  std::string description;  // for NAME --help
  std::vector<OptionInfo> options;
  std::size_t minOperands = 0;
  int (*run)(const ParsedArguments& args);
};

const std::vector<Command>& commands();
const Command* findCommand(const std::string& name);

// The usage text of one command, and of the whole program.
std::string commandHelp(const Command& command);
std::string programHelp();

// Parses the command's arguments and runs it; returns the exit status.
int runCommand(const Command& command, const std::vector<std::string>& args);

}  // namespace openmeta_tool
