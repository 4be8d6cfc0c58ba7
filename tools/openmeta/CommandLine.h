// Argument parsing for the subcommands, as getopt_long does it: options may
// stand anywhere among the operands; short options cluster ("-pa") and take
// their value attached ("-tWork") or as the next argument; long options take
// "--tag=Work" or "--tag Work" and may be abbreviated while unambiguous;
// "--" ends the options.
#pragma once

#include <map>
#include <string>
#include <vector>

namespace openmeta_tool {

struct OptionInfo {
  std::string longName;   // "--tag"
  std::string shortName;  // "-t", or empty
  bool takesValue = false;
  std::string valueName;  // for help: "TAG"
  std::string help;
};

struct ParsedArguments {
  std::map<std::string, std::vector<std::string>> values;  // long name -> values
  std::map<std::string, int> flags;                        // long name -> times given
  std::vector<std::string> operands;

  bool has(const std::string& longName) const { return flags.count(longName) > 0; }
  const std::vector<std::string>& all(const std::string& longName) const;
};

// False with `error` set for an unknown option or a missing value.
bool parseArguments(const std::vector<std::string>& args, const std::vector<OptionInfo>& known,
                    ParsedArguments& out, std::string& error);

}  // namespace openmeta_tool
