#include "CommandLine.h"

namespace openmeta_tool {

const std::vector<std::string>& ParsedArguments::all(const std::string& longName) const {
  static const std::vector<std::string> none;
  auto it = values.find(longName);
  return it == values.end() ? none : it->second;
}

bool parseArguments(const std::vector<std::string>& args, const std::vector<OptionInfo>& known,
                    ParsedArguments& out, std::string& error) {
  bool optionsEnded = false;
  for (std::size_t i = 0; i < args.size(); ++i) {
    const std::string& arg = args[i];
    if (optionsEnded || arg.size() < 2 || arg[0] != '-') {
      out.operands.push_back(arg);
      continue;
    }
    if (arg == "--") {
      optionsEnded = true;
      continue;
    }
    // "--tag=Work" as well as "--tag Work".
    std::string name = arg, inlineValue;
    bool hasInlineValue = false;
    if (arg.rfind("--", 0) == 0) {
      if (auto eq = arg.find('='); eq != std::string::npos) {
        name = arg.substr(0, eq);
        inlineValue = arg.substr(eq + 1);
        hasInlineValue = true;
      }
    }
    const OptionInfo* option = nullptr;
    for (const OptionInfo& s : known)
      if (name == s.longName || (!s.shortName.empty() && name == s.shortName)) option = &s;
    if (!option) {
      error = "unknown option " + name;
      return false;
    }
    out.flags[option->longName]++;
    if (!option->takesValue) {
      if (hasInlineValue) {
        error = "option " + option->longName + " takes no value";
        return false;
      }
      continue;
    }
    if (hasInlineValue) {
      out.values[option->longName].push_back(inlineValue);
    } else if (i + 1 < args.size()) {
      out.values[option->longName].push_back(args[++i]);
    } else {
      error = "option " + name + " needs a value";
      return false;
    }
  }
  return true;
}

}  // namespace openmeta_tool
