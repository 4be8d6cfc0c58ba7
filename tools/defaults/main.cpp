// wf-defaults: read, write and delete values in a user-defaults domain, so
// that the advice the helper logs ("defaults write org.ardel.WrenfoldHelper
// disableOpenMetaScanning 1") works on Linux. A domain is the property list
// ~/Library/Preferences/DOMAIN.plist; a domain given as a path names the
// file itself (".plist" is added when missing).
#include <glib.h>
#include <pwd.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

#include "platform/foundation/FileManager.h"
#include "platform/foundation/Format.h"
#include "platform/foundation/Strings.h"
#include "platform/plist/PropertyList.h"

namespace {

const char* kUsage =
    "Usage: defaults read DOMAIN [KEY]\n"
    "       defaults write DOMAIN KEY VALUE\n"
    "       defaults write DOMAIN KEY -string|-int|-float|-bool|-date VALUE\n"
    "       defaults write DOMAIN KEY -array VALUE...\n"
    "       defaults write DOMAIN KEY -array-add VALUE...\n"
    "       defaults write DOMAIN KEY -dict KEY VALUE...\n"
    "       defaults delete DOMAIN [KEY]\n"
    "\n"
    "DOMAIN is a domain name such as org.ardel.WrenfoldHelper, kept in\n"
    "~/Library/Preferences/DOMAIN.plist, or the path of a property-list file.\n"
    "A VALUE without a type flag is stored as a string; -bool takes YES, NO,\n"
    "TRUE, FALSE, 1 or 0; -date takes \"YYYY-MM-DD HH:MM:SS +0000\".\n";

std::string homeFolder() {
  if (const char* h = getenv("HOME"); h && *h) return h;
  if (const passwd* pw = getpwuid(getuid()); pw && pw->pw_dir) return pw->pw_dir;
  return "/";
}

std::string domainPath(const std::string& domain) {
  if (domain.find('/') != std::string::npos)
    return wf::ns::hasSuffix(domain, ".plist") ? domain : domain + ".plist";
  if (domain == "NSGlobalDomain" || domain == "-g" || domain == "-globalDomain")
    return homeFolder() + "/Library/Preferences/.GlobalPreferences.plist";
  return homeFolder() + "/Library/Preferences/" + domain + ".plist";
}

int fail(const std::string& message) {
  std::fprintf(stderr, "%s\n", message.c_str());
  return 1;
}

// The domain's dictionary; nil when the file does not exist. A file that
// exists but holds no dictionary is an error, never silently replaced.
bool loadDomain(const std::string& path, wf::Value& out, std::string& error) {
  if (!wf::FileManager::defaultManager().fileExistsAtPath(path)) {
    out = wf::Value();
    return true;
  }
  std::string parseError;
  wf::Value v = wf::plist::readFile(path, &parseError);
  if (v.isNil()) {
    error = path + ": " + (parseError.empty() ? "cannot be read" : parseError);
    return false;
  }
  if (!v.isDictionary()) {
    error = path + ": the property list's root is not a dictionary";
    return false;
  }
  out = v;
  return true;
}

bool saveDomain(const std::string& path, const wf::Dictionary& d, std::string& error) {
  std::string folder = wf::ns::stringByDeletingLastPathComponent(path);
  if (!folder.empty()) wf::FileManager::defaultManager().createDirectoryAtPath(folder, true);
  if (!wf::plist::writeToFile(wf::Value(d), path, true, &error)) {
    error = path + ": " + error;
    return false;
  }
  return true;
}

bool parseBool(const std::string& s, bool& out) {
  std::string l = wf::ns::lowercaseString(s);
  if (l == "yes" || l == "true" || l == "1") return out = true, true;
  if (l == "no" || l == "false" || l == "0") return out = false, true;
  return false;
}

bool parseInteger(const std::string& s, long long& out) {
  if (s.empty()) return false;
  char* end = nullptr;
  errno = 0;
  out = std::strtoll(s.c_str(), &end, 10);
  return errno == 0 && end && *end == '\0';
}

bool parseReal(const std::string& s, double& out) {
  if (s.empty()) return false;
  char* end = nullptr;
  out = std::strtod(s.c_str(), &end);
  return end && *end == '\0';
}

bool parseDate(const std::string& s, wf::Value& out) {
  int y, mo, d, h = 0, mi = 0, sec = 0;
  if (std::sscanf(s.c_str(), "%d-%d-%d %d:%d:%d", &y, &mo, &d, &h, &mi, &sec) < 3) return false;
  GDateTime* dt = g_date_time_new_utc(y, mo, d, h, mi, sec);
  if (!dt) return false;
  GDateTime* ref = g_date_time_new_utc(2001, 1, 1, 0, 0, 0);
  double seconds = static_cast<double>(g_date_time_difference(dt, ref)) / 1e6;
  g_date_time_unref(dt);
  g_date_time_unref(ref);
  out = wf::Value(wf::Date{seconds});
  return true;
}

// One typed value from the command line; `error` says what is wrong.
bool parseTyped(const std::string& type, const std::string& text, wf::Value& out,
                std::string& error) {
  if (type == "-string") return out = wf::Value(text), true;
  if (type == "-int" || type == "-integer") {
    long long i;
    if (!parseInteger(text, i)) return error = "not an integer: " + text, false;
    return out = wf::Value(i), true;
  }
  if (type == "-float") {
    double d;
    if (!parseReal(text, d)) return error = "not a number: " + text, false;
    return out = wf::Value(d), true;
  }
  if (type == "-bool" || type == "-boolean") {
    bool b;
    if (!parseBool(text, b)) return error = "not a boolean: " + text, false;
    return out = wf::Value(b), true;
  }
  if (type == "-date") {
    if (!parseDate(text, out)) return error = "not a date: " + text, false;
    return true;
  }
  error = "unknown type flag " + type;
  return false;
}

bool isTypeFlag(const std::string& s) {
  return s == "-string" || s == "-int" || s == "-integer" || s == "-float" || s == "-bool" ||
         s == "-boolean" || s == "-date";
}

int doRead(const std::vector<std::string>& args) {
  if (args.empty() || args.size() > 2) return fail(kUsage);
  std::string path = domainPath(args[0]), error;
  wf::Value d;
  if (!loadDomain(path, d, error)) return fail(error);
  if (d.isNil()) return fail("\nDomain " + args[0] + " does not exist");
  if (args.size() == 1) {
    std::printf("%s\n", wf::describe(d).c_str());
    return 0;
  }
  const wf::Value* v = d.find(args[1]);
  if (!v)
    return fail("\nThe domain/default pair of (" + args[0] + ", " + args[1] + ") does not exist");
  std::printf("%s\n", wf::describe(*v).c_str());
  return 0;
}

int doWrite(const std::vector<std::string>& args) {
  if (args.size() < 3) return fail(kUsage);
  const std::string& key = args[1];
  std::vector<std::string> rest(args.begin() + 2, args.end());
  std::string path = domainPath(args[0]), error;
  wf::Value current;
  if (!loadDomain(path, current, error)) return fail(error);
  wf::Dictionary d = current.isNil() ? wf::Dictionary{} : current.asDictionary();

  wf::Value value;
  const std::string& flag = rest[0];
  if (flag == "-array" || flag == "-array-add") {
    wf::Array a;
    if (flag == "-array-add")
      if (auto* old = d.count(key) ? &d[key] : nullptr; old && old->isArray()) a = old->asArray();
    for (size_t i = 1; i < rest.size(); ++i) {
      if (isTypeFlag(rest[i]) && i + 1 < rest.size()) {
        wf::Value item;
        if (!parseTyped(rest[i], rest[i + 1], item, error)) return fail(error);
        a.push_back(item);
        ++i;
      } else {
        a.push_back(wf::Value(rest[i]));
      }
    }
    value = wf::Value(std::move(a));
  } else if (flag == "-dict" || flag == "-dict-add") {
    if ((rest.size() - 1) % 2 != 0) return fail("-dict needs KEY VALUE pairs");
    wf::Dictionary sub;
    if (flag == "-dict-add")
      if (auto it = d.find(key); it != d.end() && it->second.isDictionary())
        sub = it->second.asDictionary();
    for (size_t i = 1; i + 1 < rest.size(); i += 2) sub[rest[i]] = wf::Value(rest[i + 1]);
    value = wf::Value(std::move(sub));
  } else if (isTypeFlag(flag)) {
    if (rest.size() != 2) return fail(kUsage);
    if (!parseTyped(flag, rest[1], value, error)) return fail(error);
  } else {
    if (rest.size() != 1) return fail(kUsage);
    value = wf::Value(rest[0]);
  }
  d[key] = value;
  if (!saveDomain(path, d, error)) return fail(error);
  return 0;
}

int doDelete(const std::vector<std::string>& args) {
  if (args.empty() || args.size() > 2) return fail(kUsage);
  std::string path = domainPath(args[0]), error;
  wf::Value current;
  if (!loadDomain(path, current, error)) return fail(error);
  if (current.isNil())
    return fail("\nDomain (" + args[0] + ") not found.\nDefaults have not been changed.");
  if (args.size() == 1) {
    wf::OptError e;
    if (!wf::FileManager::defaultManager().removeItemAtPath(path, &e))
      return fail(path + ": " + e->localizedDescription());
    return 0;
  }
  wf::Dictionary d = current.asDictionary();
  if (d.erase(args[1]) == 0)
    return fail("\nDomain (" + args[0] + ") not found.\nDefaults have not been changed.");
  if (!saveDomain(path, d, error)) return fail(error);
  return 0;
}

}  // namespace

int main(int argc, char** argv) {
  std::vector<std::string> args(argv + 1, argv + argc);
  if (args.empty() || args[0] == "help" || args[0] == "--help" || args[0] == "-h") {
    std::fputs(kUsage, args.empty() ? stderr : stdout);
    return args.empty() ? 1 : 0;
  }
  std::string verb = args[0];
  args.erase(args.begin());
  if (verb == "read") return doRead(args);
  if (verb == "write") return doWrite(args);
  if (verb == "delete") return doDelete(args);
  return fail("defaults: unknown command '" + verb + "'\n" + kUsage);
}
