#include "CommandLine.h"

namespace openmeta_tool {

namespace {

const OptionInfo* findShort(const std::vector<OptionInfo>& known, char c) {
  for (const OptionInfo& o : known)
    if (o.shortName.size() == 2 && o.shortName[1] == c) return &o;
  return nullptr;
}

// An exact long name, or else a unique abbreviation of one, as getopt_long
// accepts them.
const OptionInfo* findLong(const std::vector<OptionInfo>& known, const std::string& name,
                           std::string& error) {
  const OptionInfo* prefixed = nullptr;
  int matches = 0;
  for (const OptionInfo& o : known) {
    if (o.longName == name) return &o;
    if (o.longName.rfind(name, 0) == 0) {
      prefixed = &o;
      ++matches;
    }
  }
  if (matches == 1) return prefixed;
  error = matches == 0 ? "unknown option " + name : "option " + name + " is ambiguous";
  return nullptr;
}

}  // namespace

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
    // "-" alone names standard input or a file called "-": an operand.
    if (optionsEnded || arg.size() < 2 || arg[0] != '-') {
      out.operands.push_back(arg);
      continue;
    }
    if (arg == "--") {
      optionsEnded = true;
      continue;
    }
    if (arg[1] == '-') {
      // "--tag=Work" as well as "--tag Work".
      std::string name = arg, inlineValue;
      bool hasInlineValue = false;
      if (auto eq = arg.find('='); eq != std::string::npos) {
        name = arg.substr(0, eq);
        inlineValue = arg.substr(eq + 1);
        hasInlineValue = true;
      }
      const OptionInfo* option = findLong(known, name, error);
      if (!option) return false;
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
        error = "option " + option->longName + " needs a value";
        return false;
      }
      continue;
    }
    // Short options, clustered ("-pa") and with the value attached ("-tWork")
    // or in the next argument ("-t Work").
    for (std::size_t at = 1; at < arg.size(); ++at) {
      const OptionInfo* option = findShort(known, arg[at]);
      if (!option) {
        error = std::string("unknown option -") + arg[at];
        return false;
      }
      out.flags[option->longName]++;
      if (!option->takesValue) continue;
      if (at + 1 < arg.size()) {
        out.values[option->longName].push_back(arg.substr(at + 1));
      } else if (i + 1 < args.size()) {
        out.values[option->longName].push_back(args[++i]);
      } else {
        error = "option " + option->shortName + " needs a value";
        return false;
      }
      break;
    }
  }
  return true;
}

}  // namespace openmeta_tool
