// Reading the command line before anything else happens: help, version and
// wrong words end the process here, so a mistyped option never launches
// the helper.
#pragma once

#include <string>
#include <vector>

namespace wf {

struct CommandLine {
  enum class Action { Launch, Help, Version, Misuse, Status };
  Action action = Action::Launch;
  bool verbose = false;            // --verbose: every log key on for this run
  bool json = false;               // --status --json: the whole status as JSON
  std::string offending;           // Misuse: the word that was not understood
  std::vector<std::string> pairs;  // the -key value pairs, in order, for the argument domain
};

// `arguments` without the program name. Words are read where a key is
// expected: -h, -help, --help ask for help, --version for the version,
// --verbose switches logging on; --status (with --json, and nothing else)
// asks the running helper; any other word beginning with "--", a word
// that is no "-key", and a key without its value are misuse. A value is
// taken as it stands, dashes and all.
CommandLine readCommandLine(const std::vector<std::string>& arguments);

// The argument pairs with "-WFkey YES" added for every log key the command
// line did not set itself (when verbose).
std::vector<std::string> argumentDomainWords(const CommandLine& line);

// The one line a misuse writes to standard error.
std::string misuseLine(const std::string& offending);

}  // namespace wf
