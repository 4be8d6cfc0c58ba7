// The command line of wf-plutil: one command, its arguments, options and
// files, in plutil's order ("-convert json -r -o out.json in.plist").
#pragma once

#include <string>
#include <vector>

#include "platform/plist/Value.h"

namespace wf::plutil {

enum class Command { Lint, Print, Convert, Insert, Replace, Remove, Extract, Type, Help, Version };

struct Options {
  Command command = Command::Lint;
  std::string format;     // -convert, -extract
  std::string keyPath;    // -insert, -replace, -remove, -extract, -type
  Value value;            // -insert, -replace
  bool append = false;    // -insert ... -append
  bool silent = false;    // -s
  bool readable = false;  // -r
  std::string output;     // -o
  std::string extension;  // -e
  std::vector<std::string> files;
};

// False with `error` set (a usage error) when the command line is wrong.
bool parseOptions(const std::vector<std::string>& args, Options& out, std::string& error);

extern const char kUsage[];

}  // namespace wf::plutil
