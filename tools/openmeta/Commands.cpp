#include "Commands.h"

#include <glib.h>
#include <sys/stat.h>

#include <algorithm>
#include <cstdio>
#include <functional>

#include "MacFinderTags.h"
#include "Output.h"
#include "openmeta/OpenMeta.h"
#include "platform/base/Owners.h"
#include "platform/base/UpdateLock.h"
#include "platform/foundation/Strings.h"
#include "platform/glib/Owners.h"
#include "platform/plist/PropertyList.h"

namespace openmeta_tool {

using wf::OpenMeta;
using wf::OptError;
using wf::Value;

namespace {

const OptionInfo kHelp{"--help", "-h", false, "", "show this help and exit"};
const OptionInfo kPlist{"--plist", "-p", false, "", "print the result as an XML property list"};
const OptionInfo kJson{"--json", "-j", false, "", "print the result as JSON"};
const OptionInfo kTag{"--tag", "-t", true, "TAG", "a tag (give the option once per tag)"};

Value stringArray(const std::vector<std::string>& items) {
  wf::Array a;
  for (const std::string& s : items) a.emplace_back(s);
  return Value(std::move(a));
}

using Reader = std::function<Value(const std::string& path, OptError* error)>;
using Writer = std::function<OptError(const std::string& path)>;

OutputFormat formatOf(const ParsedArguments& a) {
  if (a.has("--json")) return OutputFormat::Json;
  if (a.has("--plist")) return OutputFormat::PropertyList;
  return OutputFormat::Lines;
}

// Reads every file; one file prints its value alone, several files prefix
// each line with the path and a tab (or make a dictionary keyed by path).
int readEach(const std::vector<std::string>& files, OutputFormat format, const Reader& read) {
  const bool plist = format != OutputFormat::Lines;
  int status = 0;
  wf::Dictionary::Entries byPath;  // sorted once at the end: many files stay fast
  for (const std::string& path : files) {
    OptError error;
    const Value v = read(path, &error);
    if (error) {
      printError(path, *error);
      status = 1;
      continue;
    }
    if (files.size() == 1) {
      if (plist ? !printStructured(v, format) : (printLines(v), false)) status = 1;
    } else if (plist) {
      if (!v.isNil()) byPath.emplace_back(path, v);
    } else {
      printLines(v, path + "\t");
    }
  }
  if (plist && files.size() > 1 &&
      !printStructured(Value(wf::Dictionary::fromEntries(std::move(byPath))), format))
    status = 1;
  return status;
}

// A lock that could not be had: a POSIX error with the lock's own words as
// its reason.
OptError lockError(const wf::sys::SysError& error) {
  wf::Error e = wf::Error::posix(error.errnoValue());
  e.userInfo.emplace("reason", Value(error.message));
  return e;
}

// Holds the file's attributes for one read-change-write: two writers of
// this project (the helper's import among them) take turns on one file.
OptError lockFile(const std::string& path, wf::sys::UpdateLock& lock) {
  auto r = wf::sys::lockForUpdate(path, wf::sys::Links::NoFollow);
  if (!r) return lockError(r.error());
  lock = std::move(r.value());
  return std::nullopt;
}

// Locks every file once, in one order for all writers (device and inode),
// so that two commands on the same files never hold one each and wait.
OptError lockFiles(const std::vector<std::string>& files, std::vector<wf::sys::UpdateLock>& locks) {
  std::vector<std::pair<std::pair<dev_t, ino_t>, std::string>> order;
  for (const std::string& path : files) {
    struct stat st {};
    if (::lstat(path.c_str(), &st) == 0) order.push_back({{st.st_dev, st.st_ino}, path});
  }
  std::sort(order.begin(), order.end());
  order.erase(std::unique(order.begin(), order.end(),
                          [](const auto& a, const auto& b) { return a.first == b.first; }),
              order.end());
  for (const auto& entry : order) {
    wf::sys::UpdateLock lock;
    if (OptError e = lockFile(entry.second, lock)) return e;
    locks.push_back(std::move(lock));
  }
  return std::nullopt;
}

int writeEach(const std::vector<std::string>& files, const Writer& write) {
  int status = 0;
  for (const std::string& path : files) {
    wf::sys::UpdateLock lock;
    OptError error = lockFile(path, lock);
    if (!error) error = write(path);
    if (error) {
      printError(path, *error);
      status = 1;
    }
  }
  return status;
}

std::vector<std::string> tail(const std::vector<std::string>& v, std::size_t from) {
  return std::vector<std::string>(v.begin() + static_cast<std::ptrdiff_t>(from), v.end());
}

// The comparison key of the store's tag rules: form D, lower case.
std::string tagKey(const std::string& tag) {
  return wf::ns::lowercaseString(wf::ns::decomposedStringWithCanonicalMapping(tag));
}

// The Mac Finder tags of `path` that its tags do not hold yet.
std::vector<MacFinderTag> untakenMacTags(const std::string& path, const Value& tags) {
  std::vector<MacFinderTag> out;
  OptError ignored;
  for (MacFinderTag& t : readMacFinderTags(path, &ignored)) {
    bool held = false;
    if (tags.isArray())
      for (const Value& have : tags.asArray())
        held = held || (have.isString() && tagKey(have.asString()) == tagKey(t.name));
    if (!held) out.push_back(std::move(t));
  }
  return out;
}

// Reading tags may write: the first meeting of the two lists merges them.
Value lockedTagRead(const std::string& path, OptError* error) {
  wf::sys::UpdateLock lock;
  if (OptError e = lockFile(path, lock)) {
    *error = std::move(e);
    return Value();
  }
  return OpenMeta::getUserTags(path, error);
}

int getTags(const ParsedArguments& a) {
  const OutputFormat format = formatOf(a);
  if (format != OutputFormat::Lines) return readEach(a.operands, format, lockedTagRead);
  // Lines: the tags, then the Mac Finder tags not taken in yet, marked.
  int status = 0;
  for (const std::string& path : a.operands) {
    OptError error;
    const Value tags = lockedTagRead(path, &error);
    if (error) {
      printError(path, *error);
      status = 1;
      continue;
    }
    const std::string prefix = a.operands.size() == 1 ? "" : path + "\t";
    printLines(tags, prefix);
    for (const MacFinderTag& t : untakenMacTags(path, tags)) {
      const std::string colour = colourName(t.colour);
      std::printf("%s%s (Finder tag%s)\n", prefix.c_str(), t.name.c_str(),
                  colour.empty() ? "" : (", " + colour).c_str());
    }
  }
  return status;
}

int importFinderTags(const ParsedArguments& a) {
  return writeEach(a.operands, [](const std::string& p) -> OptError {
    OptError error;
    const std::vector<MacFinderTag> mac = readMacFinderTags(p, &error);
    if (error) return error;
    if (mac.empty()) return std::nullopt;
    wf::Array names;
    for (const MacFinderTag& t : mac) names.emplace_back(t.name);
    // The store's own rules: normalised, no case-insensitive duplicates,
    // mirrored to the desktop tags; nothing is written when all are there.
    return OpenMeta::addUserTags(Value(std::move(names)), p);
  });
}

int finderTags(const ParsedArguments& a) {
  return readEach(a.operands, formatOf(a),
                  [](const std::string& p, OptError* e) { return OpenMeta::getAppleTags(p, e); });
}

int setTags(const ParsedArguments& a) {
  const Value tags = stringArray(a.all("--tag"));
  return writeEach(a.operands,
                   [&](const std::string& p) { return OpenMeta::setUserTags(tags, p); });
}

int addTags(const ParsedArguments& a) {
  const Value tags = stringArray(a.all("--tag"));
  return writeEach(a.operands,
                   [&](const std::string& p) { return OpenMeta::addUserTags(tags, p); });
}

int clearTags(const ParsedArguments& a) {
  if (a.has("--all") == a.has("--tag")) {
    printUsageError("clear-tags", "give either --all or the tags to remove with --tag");
    return 1;
  }
  if (a.has("--all"))
    return writeEach(a.operands, [](const std::string& p) {
      return OpenMeta::setUserTags(Value(wf::Array{}), p);
    });
  const Value tags = stringArray(a.all("--tag"));
  return writeEach(a.operands,
                   [&](const std::string& p) { return OpenMeta::clearUserTags(tags, p); });
}

int commonTags(const ParsedArguments& a) {
  std::vector<wf::sys::UpdateLock> locks;
  OptError error = lockFiles(a.operands, locks);
  const Value tags = error ? Value() : OpenMeta::getCommonUserTags(a.operands, &error);
  if (error) {
    printError("common tags", *error);
    return 1;
  }
  if (formatOf(a) != OutputFormat::Lines) return printStructured(tags, formatOf(a)) ? 0 : 1;
  printLines(tags);
  return 0;
}

int setCommonTags(const ParsedArguments& a) {
  std::vector<wf::sys::UpdateLock> locks;
  OptError error = lockFiles(a.operands, locks);
  if (!error)
    error = OpenMeta::setCommonUserTags(a.operands, stringArray(a.all("--original")),
                                        stringArray(a.all("--tag")));
  if (error) {
    printError("common tags", *error);
    return 1;
  }
  return 0;
}

int getRating(const ParsedArguments& a) {
  return readEach(a.operands, formatOf(a), [](const std::string& p, OptError* e) {
    return Value(OpenMeta::getRating(p, e));
  });
}

int setRating(const ParsedArguments& a) {
  const std::string& text = a.operands[0];
  char* end = nullptr;
  const double rating = g_ascii_strtod(text.c_str(), &end);
  if (text.empty() || !end || *end != '\0') {
    printUsageError("set-rating", "the rating '" + text + "' is no number");
    return 1;
  }
  return writeEach(tail(a.operands, 1),
                   [&](const std::string& p) { return OpenMeta::setRating(rating, p); });
}

int getValue(const ParsedArguments& a) {
  const std::string key = a.operands[0];
  return readEach(tail(a.operands, 1), formatOf(a), [&](const std::string& p, OptError* e) {
    return OpenMeta::getString(key, p, e);
  });
}

int setString(const ParsedArguments& a) {
  const std::string key = a.operands[0];
  const Value value(a.operands[1]);
  return writeEach(tail(a.operands, 2),
                   [&](const std::string& p) { return OpenMeta::setString(value, key, p); });
}

int removeValue(const ParsedArguments& a) {
  const std::string key = a.operands[0];
  return writeEach(tail(a.operands, 1),
                   [&](const std::string& p) { return OpenMeta::setString(Value(), key, p); });
}

int getArray(const ParsedArguments& a) {
  const std::string key = a.operands[0];
  return readEach(tail(a.operands, 1), formatOf(a), [&](const std::string& p, OptError* e) {
    return OpenMeta::getNSArrayMetaData(key, p, e);
  });
}

int setArray(const ParsedArguments& a) {
  const std::string key = a.operands[0];
  const Value items = stringArray(a.all("--value"));
  return writeEach(tail(a.operands, 1), [&](const std::string& p) {
    return OpenMeta::setNSArrayMetaData(items, key, p);
  });
}

int addToArray(const ParsedArguments& a) {
  const std::string key = a.operands[0];
  const Value items = stringArray(a.all("--value"));
  return writeEach(tail(a.operands, 1), [&](const std::string& p) {
    return OpenMeta::addToNSArrayMetaData(items, key, p);
  });
}

gboolean quitLoop(gpointer loop) {
  g_main_loop_quit(static_cast<GMainLoop*>(loop));
  return G_SOURCE_REMOVE;
}

int registerSchema(const ParsedArguments& a) {
  std::string appName;
  if (a.has("--app")) {
    if (a.operands.size() != 1) {
      printUsageError("register-schema", "--app needs the schema file, a property-list dictionary");
      return 1;
    }
    std::string error;
    const Value schema = wf::plist::readFile(a.operands[0], &error);
    if (!schema.isDictionary()) {
      printUsageError(
          "register-schema",
          a.operands[0] + ": " + (error.empty() ? "no property-list dictionary" : error));
      return 1;
    }
    appName = a.all("--app").back();
    OpenMeta::registerOMAttributes(schema, appName);
  } else {
    if (!a.operands.empty()) {
      printUsageError("register-schema", "a schema file needs --app NAME");
      return 1;
    }
    OpenMeta::registerUsualOMAttributes();
  }
  if (a.has("--no-wait")) return 0;
  // The register file is removed by a timeout on this thread's loop; keep
  // it running until just after that.
  auto loop = wf::sys::adoptG(g_main_loop_new(nullptr, FALSE));
  g_timeout_add(2100, quitLoop, loop.get());
  g_main_loop_run(loop.get());
  return 0;
}

const std::vector<Command> kCommands = {
    {"get-tags",
     "[-p|-j] FILE...",
     "print the tags of files",
     "Prints the tags of each FILE, one per line. The tags are the OpenMeta tags merged\n"
     "with the file manager's tags (the attribute user.xdg.tags). Tags a Mac's Finder\n"
     "left on the file (user.com.apple.metadata:_kMDItemUserTags) that are not among\n"
     "them follow, marked \"(Finder tag)\" with their colour; import-finder-tags\n"
     "takes them in. With several files each line starts with the file's path and a\n"
     "tab. --plist and --json print the tags alone.",
     {kHelp, kPlist, kJson},
     1,
     getTags},
    {"set-tags",
     "[-t TAG]... FILE...",
     "replace the tags of files",
     "Replaces the tags of each FILE by the given tags (none clears them). Tags that\n"
     "differ only in letter case are stored once; the tag time is set to now and the\n"
     "file manager's tags are set to the same list.",
     {kHelp, kTag},
     1,
     setTags},
    {"add-tags",
     "-t TAG [-t TAG]... FILE...",
     "add tags to files",
     "Adds the given tags after the tags each FILE already carries; tags already\n"
     "present (in any letter case) are not added again.",
     {kHelp, kTag},
     1,
     addTags},
    {"clear-tags",
     "(-t TAG [-t TAG]... | --all) FILE...",
     "remove tags from files",
     "Removes the given tags (in any letter case) from each FILE, or with --all every tag.",
     {kHelp, kTag, {"--all", "-a", false, "", "remove every tag"}},
     1,
     clearTags},
    {"common-tags",
     "[-p|-j] FILE...",
     "print the tags every file carries",
     "Prints the tags that all FILEs carry (compared without regard to letter case),\n"
     "in the first file's order and spelling. A file without tags makes the list empty.",
     {kHelp, kPlist, kJson},
     1,
     commonTags},
    {"set-common-tags",
     "[-o TAG]... [-t TAG]... FILE...",
     "replace common tags on files",
     "On each FILE, removes the original common tags given with --original and adds\n"
     "the tags given with --tag, keeping the file's other tags.",
     {kHelp, {"--original", "-o", true, "TAG", "an original common tag (once per tag)"}, kTag},
     1,
     setCommonTags},
    {"finder-tags",
     "[-p|-j] FILE...",
     "print the file manager's tags",
     "Prints the tags of each FILE as the file manager keeps them (user.xdg.tags).",
     {kHelp, kPlist, kJson},
     1,
     finderTags},
    {"import-finder-tags",
     "FILE...",
     "take in the tags a Mac's Finder left on files",
     "Adds the Finder tags that a Mac left on each FILE (the attribute\n"
     "user.com.apple.metadata:_kMDItemUserTags, kept by copies that keep extended\n"
     "attributes) to its OpenMeta and file-manager tags, as add-tags does: in form D,\n"
     "without tags that differ only in letter case, after the tags already there.\n"
     "Colours are left out. The Finder attribute stays as it was.",
     {kHelp},
     1,
     importFinderTags},
    {"get-rating",
     "[-p|-j] FILE...",
     "print the star rating of files",
     "Prints the star rating of each FILE (0 when it has none).",
     {kHelp, kPlist, kJson},
     1,
     getRating},
    {"set-rating",
     "RATING FILE...",
     "set the star rating of files",
     "Sets the star rating of each FILE. Ratings above 5 are stored as 5; 0 or less\n"
     "removes the rating.",
     {kHelp},
     2,
     setRating},
    {"get",
     "[-p|-j] KEY FILE...",
     "print the value under a metadata key",
     "Prints the value stored under the metadata KEY (for example kMDItemComment) of\n"
     "each FILE, whatever its type; nothing when there is none.",
     {kHelp, kPlist, kJson},
     2,
     getValue},
    {"set-string",
     "KEY VALUE FILE...",
     "store a string under a metadata key",
     "Stores the string VALUE under the metadata KEY of each FILE.",
     {kHelp},
     3,
     setString},
    {"remove",
     "KEY FILE...",
     "remove the value under a metadata key",
     "Removes the value under the metadata KEY of each FILE.",
     {kHelp},
     2,
     removeValue},
    {"get-array",
     "[-p|-j] KEY FILE...",
     "print the array under a metadata key",
     "Prints the array stored under the metadata KEY of each FILE, one item per line;\n"
     "nothing when the value is missing or no array.",
     {kHelp, kPlist, kJson},
     2,
     getArray},
    {"set-array",
     "KEY [-v ITEM]... FILE...",
     "store an array of strings under a metadata key",
     "Stores the given items as an array under the metadata KEY of each FILE.",
     {kHelp, {"--value", "-v", true, "ITEM", "an item (once per item)"}},
     2,
     setArray},
    {"add-to-array",
     "KEY -v ITEM [-v ITEM]... FILE...",
     "add strings to an array under a key",
     "Appends the items that the array under the metadata KEY of each FILE does not\n"
     "hold yet (compared exactly).",
     {kHelp, {"--value", "-v", true, "ITEM", "an item (once per item)"}},
     2,
     addToArray},
    {"register-schema",
     "[--no-wait] [--app NAME SCHEMA-FILE]",
     "announce the OpenMeta attributes a program uses",
     "Writes a schema file into ~/Library/Application Support/OpenMeta/schemaregister\n"
     "and removes it two seconds later, as OpenMeta programs do: the usual attributes\n"
     "under this program's name, or with --app the dictionary of SCHEMA-FILE (a\n"
     "property list) under NAME. The command waits the two seconds unless --no-wait\n"
     "is given, in which case the file stays until the next registration of that name.",
     {kHelp,
      {"--app", "", true, "NAME", "the program name to register under"},
      {"--no-wait", "", false, "", "return at once and leave the file in place"}},
     0,
     registerSchema},
};

}  // namespace

const std::vector<Command>& commands() { return kCommands; }

const Command* findCommand(const std::string& name) {
  for (const Command& c : kCommands)
    if (c.name == name) return &c;
  return nullptr;
}

std::string commandHelp(const Command& c) {
  std::string s =
      "Usage: openmeta " + c.name + " " + c.synopsis + "\n\n" + c.description + "\n\nOptions:\n";
  for (const OptionInfo& o : c.options) {
    std::string names = o.shortName.empty() ? "    " + o.longName : o.shortName + ", " + o.longName;
    if (o.takesValue) names += " " + o.valueName;
    s += "  " + names + std::string(names.size() < 22 ? 22 - names.size() : 1, ' ') + o.help + "\n";
  }
  s += "\nErrors are printed as \"openmeta: FILE: REASON (DOMAIN CODE)\"; the exit status\n"
       "is 0 on success and 1 when anything failed.\n";
  return s;
}

std::string programHelp() {
  std::string s =
      "Usage: openmeta [--appkit-version NUMBER] COMMAND [OPTIONS] ARGUMENTS\n"
      "       openmeta --help | --version\n\n"
      "Reads and writes OpenMeta tags, ratings and values kept in extended attributes.\n\n"
      "Commands:\n";
  for (const Command& c : kCommands)
    s += "  " + c.name + std::string(c.name.size() < 18 ? 18 - c.name.size() : 1, ' ') + c.summary +
         "\n";
  s += "\n'openmeta COMMAND --help' describes a command. --appkit-version makes the store\n"
       "behave as on another platform generation (below 1343: binary values; 1187 or\n"
       "less: no file-manager tags).\n";
  return s;
}

int runCommand(const Command& command, const std::vector<std::string>& args) {
  ParsedArguments parsed;
  std::string error;
  if (!parseArguments(args, command.options, parsed, error)) {
    printUsageError(command.name, error);
    return 1;
  }
  if (parsed.has("--plist") && parsed.has("--json")) {
    printUsageError(command.name, "give either --plist or --json");
    return 1;
  }
  if (parsed.has("--help")) {
    std::fputs(commandHelp(command).c_str(), stdout);
    return 0;
  }
  if (parsed.operands.size() < command.minOperands) {
    printUsageError(command.name,
                    "missing arguments; usage: openmeta " + command.name + " " + command.synopsis);
    return 1;
  }
  if (command.name == "add-tags" && !parsed.has("--tag")) {
    printUsageError(command.name, "give the tags to add with --tag");
    return 1;
  }
  if (command.name == "add-to-array" && !parsed.has("--value")) {
    printUsageError(command.name, "give the items to add with --value");
    return 1;
  }
  return command.run(parsed);
}

}  // namespace openmeta_tool
