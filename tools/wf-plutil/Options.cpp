#include "Options.h"

#include "Values.h"

namespace wf::plutil {

const char kUsage[] =
    "usage: wf-plutil <command> [options] file...\n"
    "\n"
    "Commands (-lint when none is given):\n"
    "  -lint                  check that each file is a valid property list\n"
    "  -p                     print each property list in a readable form\n"
    "  -convert FORMAT        rewrite each file as FORMAT: xml1, binary1 or json\n"
    "  -insert KEYPATH TYPE VALUE\n"
    "                         insert a value where KEYPATH names none yet\n"
    "  -replace KEYPATH TYPE VALUE\n"
    "                         set the value at KEYPATH, inserting it when missing\n"
    "  -remove KEYPATH        remove the value at KEYPATH\n"
    "  -extract KEYPATH FORMAT\n"
    "                         write the value at KEYPATH as xml1, binary1, json or\n"
    "                         raw (raw goes to standard output unless -o is given)\n"
    "  -type KEYPATH          print the type of the value at KEYPATH\n"
    "  -help, --help          show this text\n"
    "  --version              print the version\n"
    "\n"
    "TYPE VALUE is one of: -bool YES|NO, -integer NUMBER, -float NUMBER,\n"
    "-string TEXT, -date DATE, -data BASE64, -xml PROPERTY-LIST, -json JSON,\n"
    "-array (empty), -dictionary (empty). DATE is \"2024-01-02T03:04:05Z\", with\n"
    "an offset, or \"2024-01-02 03:04:05 +0000\".\n"
    "\n"
    "Options:\n"
    "  -append                with -insert: add the value at the end of the array\n"
    "                         that KEYPATH names\n"
    "  -s                     silent: print nothing on success\n"
    "  -r                     with json output: indent for people to read\n"
    "  -o PATH                write to PATH instead of in place; - is standard output\n"
    "  -e EXTENSION           write beside each file, its extension replaced\n"
    "  --                     the arguments that follow are files\n"
    "\n"
    "KEYPATH is keys separated by \".\"; an array element is named by its index\n"
    "(items.0.name); \"\\.\" is a dot inside a key. Files are changed atomically\n"
    "and keep their permissions, owner, extended attributes and links.\n"
    "The exit status is 0 when every file succeeded and 1 otherwise; each\n"
    "failure is reported as \"FILE: reason\".\n";

namespace {

bool needs(const std::vector<std::string>& args, std::size_t i, std::size_t count,
           const std::string& what, std::string& error) {
  if (i + count < args.size()) return true;
  error = what;
  return false;
}

}  // namespace

bool parseOptions(const std::vector<std::string>& args, Options& out, std::string& error) {
  std::size_t i = 0;
  if (args.empty()) {
    error = "no command given";
    return false;
  }
  const std::string& c = args[0];
  if (c == "-help" || c == "--help" || c == "-h") {
    out.command = Command::Help;
    return true;
  }
  if (c == "--version") {
    out.command = Command::Version;
    return true;
  }
  if (c == "-lint") {
    out.command = Command::Lint;
    i = 1;
  } else if (c == "-p") {
    out.command = Command::Print;
    i = 1;
  } else if (c == "-convert") {
    out.command = Command::Convert;
    if (!needs(args, 0, 1, "-convert needs a format", error)) return false;
    out.format = args[1];
    if (out.format != "xml1" && out.format != "binary1" && out.format != "json") {
      error = "unknown format \"" + out.format + "\" (use xml1, binary1 or json)";
      return false;
    }
    i = 2;
  } else if (c == "-insert" || c == "-replace") {
    out.command = c == "-insert" ? Command::Insert : Command::Replace;
    if (!needs(args, 0, 2, c + " needs a key path and a typed value", error)) return false;
    out.keyPath = args[1];
    const std::string& flag = args[2];
    bool takesText = false;
    if (!isTypeFlag(flag, &takesText)) {
      error = "unknown value type " + flag;
      return false;
    }
    if (takesText && !needs(args, 2, 1, flag + " needs a value", error)) return false;
    if (!parseTypedValue(flag, takesText ? args[3] : "", out.value, error)) return false;
    i = takesText ? 4 : 3;
  } else if (c == "-remove" || c == "-type") {
    out.command = c == "-remove" ? Command::Remove : Command::Type;
    if (!needs(args, 0, 1, c + " needs a key path", error)) return false;
    out.keyPath = args[1];
    i = 2;
  } else if (c == "-extract") {
    out.command = Command::Extract;
    if (!needs(args, 0, 2, "-extract needs a key path and a format", error)) return false;
    out.keyPath = args[1];
    out.format = args[2];
    if (out.format != "xml1" && out.format != "binary1" && out.format != "json" &&
        out.format != "raw") {
      error = "unknown format \"" + out.format + "\" (use xml1, binary1, json or raw)";
      return false;
    }
    i = 3;
  } else if (c == "-s" || c == "-r" || c == "-o" || c == "-e" || c == "--") {
    out.command = Command::Lint;  // options before the files: the default command
  } else if (c.size() > 1 && c[0] == '-') {
    error = "unknown command " + c;
    return false;
  }
  for (; i < args.size(); ++i) {
    const std::string& a = args[i];
    if (a == "--") {
      out.files.insert(out.files.end(), args.begin() + static_cast<std::ptrdiff_t>(i) + 1,
                       args.end());
      break;
    }
    if (a == "-s") {
      out.silent = true;
    } else if (a == "-r") {
      out.readable = true;
    } else if (a == "-append" && out.command == Command::Insert) {
      out.append = true;
    } else if (a == "-o" || a == "-e") {
      if (!needs(args, i, 1, a + " needs " + (a == "-o" ? "a path" : "an extension"), error))
        return false;
      (a == "-o" ? out.output : out.extension) = args[++i];
    } else if (a.size() > 1 && a[0] == '-') {
      error = "unknown option " + a;
      return false;
    } else {
      out.files.push_back(a);
    }
  }
  if (out.files.empty()) {
    error = "no files given";
    return false;
  }
  if (!out.output.empty() && !out.extension.empty()) {
    error = "-o and -e cannot be combined";
    return false;
  }
  if (!out.output.empty() && out.files.size() != 1) {
    error = "-o needs exactly one input file";
    return false;
  }
  return true;
}

}  // namespace wf::plutil
