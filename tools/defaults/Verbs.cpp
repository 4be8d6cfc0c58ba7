#include "Verbs.h"

#include <cstdio>

#include "Domains.h"
#include "ToolFiles.h"
#include "TypedValues.h"
#include "platform/base/Files.h"
#include "platform/base/UpdateLock.h"
#include "platform/foundation/Format.h"
#include "platform/foundation/Strings.h"
#include "platform/plist/PropertyList.h"

namespace wf::defaults {

namespace {

int fail(const std::string& message) {
  std::fprintf(stderr, "%s\n", message.c_str());
  return 1;
}

int usageError(const std::string& program) { return fail(usage(program)); }

// The domain as the messages name it.
std::string shown(const std::string& domain) {
  return isGlobalDomain(domain) ? "NSGlobalDomain" : domain;
}

bool contains(const std::string& haystack, const std::string& word) {
  return ns::lowercaseString(haystack).find(ns::lowercaseString(word)) != std::string::npos;
}

// Whether any key or string inside `v` contains `word`, without regard to case.
bool mentions(const Value& v, const std::string& word) {
  if (v.isString()) return contains(v.asString(), word);
  if (v.isArray()) {
    for (const Value& item : v.asArray())
      if (mentions(item, word)) return true;
    return false;
  }
  if (v.isDictionary()) {
    for (const auto& [key, value] : v.asDictionary())
      if (contains(key, word) || mentions(value, word)) return true;
    return false;
  }
  return contains(describe(v), word);
}

// A -array, -array-add, -dict or -dict-add list: items may carry type flags.
bool typedItems(const Args& rest, std::size_t from, std::vector<Value>& out, std::string& error) {
  for (std::size_t i = from; i < rest.size(); ++i) {
    if (isTypeFlag(rest[i])) {
      if (i + 1 >= rest.size()) return error = rest[i] + " needs a value", false;
      Value item;
      if (!parseTyped(rest[i], rest[i + 1], item, error)) return false;
      out.push_back(item);
      ++i;
    } else {
      out.push_back(untypedValue(rest[i]));
    }
  }
  return true;
}

// Holds the domain file for one read-change-write, so that two writers of
// this project take turns instead of one losing the other's change.
bool lockDomain(const std::string& path, sys::UpdateLock& lock, std::string& error) {
  if (tools::lockForUpdate(path, sys::Links::Follow, lock, error)) return true;
  error = path + ": " + error;
  return false;
}

}  // namespace

std::string usage(const std::string& p) {
  const std::string pad(p.size(), ' ');
  return "Usage: " + p + " read [DOMAIN [KEY]]\n" +     //
         "       " + p + " read-type DOMAIN KEY\n" +    //
         "       " + p + " write DOMAIN KEY VALUE\n" +  //
         "       " + p +
         " write DOMAIN KEY -string|-int|-integer|-float|-bool|-boolean|-date|-data VALUE\n" +
         "       " + p + " write DOMAIN KEY -array|-array-add VALUE...\n" + "       " + p +
         " write DOMAIN KEY -dict|-dict-add KEY VALUE...\n" + "       " + p +
         " delete DOMAIN [KEY]\n" +                            //
         "       " + p + " rename DOMAIN OLD-KEY NEW-KEY\n" +  //
         "       " + p + " domains\n" +                        //
         "       " + p + " find WORD\n" +                      //
         "       " + p + " export DOMAIN FILE|-\n" +           //
         "       " + p + " import DOMAIN FILE|-\n" +           //
         "       " + p + " --help | --version\n" +
         "\n"
         "DOMAIN is a domain name such as org.ardel.WrenfoldHelper, kept in\n"
         "~/Library/Preferences/DOMAIN.plist; -g or NSGlobalDomain for the global\n"
         "domain; or the path of a property-list file. A VALUE without a type flag\n"
         "is read as a property list's XML text when it is one, else stored as a\n"
         "string. -bool takes YES, NO, TRUE, FALSE, 1 or 0; -data takes hexadecimal\n"
         "digits; -date takes \"YYYY-MM-DD HH:MM:SS +HHMM\" or ISO 8601\n"
         "(\"2024-01-02T03:04:05Z\", or with an offset). Items of -array and -dict\n"
         "may carry type flags. Files are changed atomically and keep their\n"
         "permissions, owner, extended attributes and links.\n";
}

int read(const std::string& program, const Args& args) {
  if (args.size() > 2) return usageError(program);
  if (args.empty()) {
    // Every domain, as one dictionary keyed by domain name.
    Dictionary all;
    for (const std::string& name : domainNames()) {
      Value d;
      std::string error;
      if (loadDomain(domainPath(name), d, error) && !d.isNil()) all.insert_or_assign(name, d);
    }
    Value g;
    std::string error;
    if (loadDomain(domainPath("NSGlobalDomain"), g, error) && !g.isNil())
      all.insert_or_assign("NSGlobalDomain", g);
    std::printf("%s\n", describe(Value(std::move(all))).c_str());
    return 0;
  }
  std::string path = domainPath(args[0]), error;
  Value d;
  if (!loadDomain(path, d, error)) return fail(error);
  if (d.isNil()) return fail("\nDomain " + shown(args[0]) + " does not exist");
  if (args.size() == 1) {
    std::printf("%s\n", describe(d).c_str());
    return 0;
  }
  const Value* v = d.find(args[1]);
  if (!v)
    return fail("\nThe domain/default pair of (" + shown(args[0]) + ", " + args[1] +
                ") does not exist");
  std::printf("%s\n", describe(*v).c_str());
  return 0;
}

int readType(const std::string& program, const Args& args) {
  if (args.size() != 2) return usageError(program);
  std::string path = domainPath(args[0]), error;
  Value d;
  if (!loadDomain(path, d, error)) return fail(error);
  const Value* v = d.isNil() ? nullptr : d.find(args[1]);
  if (!v)
    return fail("\nThe domain/default pair of (" + shown(args[0]) + ", " + args[1] +
                ") does not exist");
  std::printf("Type is %s\n", typeWord(*v).c_str());
  return 0;
}

int write(const std::string& program, const Args& args) {
  if (args.size() < 3) return usageError(program);
  const std::string& key = args[1];
  const Args rest(args.begin() + 2, args.end());
  std::string path = domainPath(args[0]), error;
  sys::UpdateLock lock;
  if (!lockDomain(path, lock, error)) return fail(error);
  Value current;
  std::optional<sys::FileIdentity> read;
  if (!loadDomain(path, current, error, &read)) return fail(error);
  Dictionary d = current.isNil() ? Dictionary{} : current.asDictionary();

  Value value;
  const std::string& flag = rest[0];
  if (flag == "-array" || flag == "-array-add") {
    Array a;
    if (flag == "-array-add")
      if (auto it = d.find(key); it != d.end() && it->second.isArray()) a = it->second.asArray();
    std::vector<Value> items;
    if (!typedItems(rest, 1, items, error)) return fail(error);
    a.insert(a.end(), items.begin(), items.end());
    value = Value(std::move(a));
  } else if (flag == "-dict" || flag == "-dict-add") {
    Dictionary sub;
    if (flag == "-dict-add")
      if (auto it = d.find(key); it != d.end() && it->second.isDictionary())
        sub = it->second.asDictionary();
    // KEY VALUE pairs; a VALUE may carry a type flag.
    for (std::size_t i = 1; i < rest.size();) {
      if (i + 1 >= rest.size()) return fail(flag + " needs KEY VALUE pairs");
      const std::string& subKey = rest[i];
      Value item;
      if (isTypeFlag(rest[i + 1])) {
        if (i + 2 >= rest.size()) return fail(rest[i + 1] + " needs a value");
        if (!parseTyped(rest[i + 1], rest[i + 2], item, error)) return fail(error);
        i += 3;
      } else {
        item = untypedValue(rest[i + 1]);
        i += 2;
      }
      sub.insert_or_assign(subKey, item);
    }
    value = Value(std::move(sub));
  } else if (isTypeFlag(flag)) {
    if (rest.size() != 2) return usageError(program);
    if (!parseTyped(flag, rest[1], value, error)) return fail(error);
  } else if (flag.size() > 1 && flag[0] == '-' && rest.size() > 1) {
    return fail("unknown type flag " + flag);
  } else {
    if (rest.size() != 1) return usageError(program);
    value = untypedValue(rest[0]);
  }
  d.insert_or_assign(key, value);
  if (!saveDomain(path, d, error, read)) return fail(error);
  return 0;
}

int remove(const std::string& program, const Args& args) {
  if (args.empty() || args.size() > 2) return usageError(program);
  std::string path = domainPath(args[0]), error;
  sys::UpdateLock lock;
  if (!lockDomain(path, lock, error)) return fail(error);
  Value current;
  std::optional<sys::FileIdentity> read;
  if (!loadDomain(path, current, error, &read)) return fail(error);
  if (current.isNil())
    return fail("\nDomain (" + shown(args[0]) + ") not found.\nDefaults have not been changed.");
  if (args.size() == 1) {
    if (auto r = sys::removePath(path, sys::Removal::FileOrLink); !r)
      return fail(path + ": " + r.error().message);
    return 0;
  }
  Dictionary d = current.asDictionary();
  if (d.erase(args[1]) == 0)
    return fail("\nDomain (" + shown(args[0]) + ") not found.\nDefaults have not been changed.");
  if (!saveDomain(path, d, error, read)) return fail(error);
  return 0;
}

int rename(const std::string& program, const Args& args) {
  if (args.size() != 3) return usageError(program);
  std::string path = domainPath(args[0]), error;
  sys::UpdateLock lock;
  if (!lockDomain(path, lock, error)) return fail(error);
  Value current;
  std::optional<sys::FileIdentity> read;
  if (!loadDomain(path, current, error, &read)) return fail(error);
  const Value* old = current.isNil() ? nullptr : current.find(args[1]);
  if (!old)
    return fail("\nThe domain/default pair of (" + shown(args[0]) + ", " + args[1] +
                ") does not exist");
  Dictionary d = current.asDictionary();
  Value moved = *old;
  d.erase(args[1]);
  d.insert_or_assign(args[2], moved);
  if (!saveDomain(path, d, error, read)) return fail(error);
  return 0;
}

int domains(const std::string& program, const Args& args) {
  if (!args.empty()) return usageError(program);
  std::string line;
  for (const std::string& name : domainNames()) line += (line.empty() ? "" : ", ") + name;
  std::printf("%s\n", line.c_str());
  return 0;
}

int find(const std::string& program, const Args& args) {
  if (args.size() != 1) return usageError(program);
  const std::string& word = args[0];
  std::vector<std::string> names = domainNames();
  names.emplace_back("NSGlobalDomain");
  for (const std::string& name : names) {
    Value d;
    std::string error;
    if (!loadDomain(domainPath(name), d, error) || d.isNil()) continue;
    Dictionary found;
    bool domainMatches = contains(name, word);
    for (const auto& [key, value] : d.asDictionary())
      if (domainMatches || contains(key, word) || mentions(value, word))
        found.insert_or_assign(key, value);
    if (found.empty()) continue;
    std::printf("Found %zu key%s in domain '%s': %s\n", found.size(), found.size() == 1 ? "" : "s",
                name.c_str(), describe(Value(found)).c_str());
  }
  return 0;
}

int exportDomain(const std::string& program, const Args& args) {
  if (args.size() != 2) return usageError(program);
  std::string path = domainPath(args[0]), error;
  Value d;
  if (!loadDomain(path, d, error)) return fail(error);
  if (d.isNil()) return fail("\nDomain " + shown(args[0]) + " does not exist");
  std::string bytes;
  if (!plist::toXML(d, bytes, &error)) return fail(path + ": " + error);
  if (!tools::writeOutput(args[1], bytes, error)) return fail(args[1] + ": " + error);
  return 0;
}

int importDomain(const std::string& program, const Args& args) {
  if (args.size() != 2) return usageError(program);
  Value v;
  std::string error;
  if (!tools::readDocument(args[1], v, error))
    return fail((args[1] == "-" ? std::string("<stdin>") : args[1]) + ": " + error);
  if (!v.isDictionary()) return fail(args[1] + ": the property list's root is not a dictionary");
  const std::string path = domainPath(args[0]);
  sys::UpdateLock lock;
  if (!lockDomain(path, lock, error)) return fail(error);
  if (!saveDomain(path, v.asDictionary(), error)) return fail(error);
  return 0;
}

}  // namespace wf::defaults
