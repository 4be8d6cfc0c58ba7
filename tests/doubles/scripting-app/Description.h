// What the double answers, from a property-list description file (read
// afresh at every call, so a test can change the answers while it runs)
// and from the command line, which wins.
//
// The description is a dictionary:
//   "compile"   absent or true: scripts compile; a string: Compile fails
//               with that message; false: fails with a stock message
//   "execute"   {"result": value} or {"error": "description"}; absent: an
//               empty list. An array becomes a list (av), a string text (s),
//               an integer x, a boolean b, a dictionary a{sv}
//   "objects"   path -> {property -> value}: a string is text (s),
//               {"o": path} one object (o), an array of paths elements (ao),
//               {"error": "message"} a property whose reading fails
//   "misbehave" "hang" (never reply), "crash" (die instead of replying),
//               "flood" (send "floodCount" signals, then reply)
//   "misbehaveAfter" the number of calls answered properly first
//   "floodCount" default 5000
#pragma once

#include <gio/gio.h>

#include <string>

#include "platform/plist/Value.h"

namespace wf::test {

struct Options {
  std::string name;
  std::string descriptionFile;
  Dictionary overrides;  // from the command line
};

// The file's dictionary with the overrides laid over it.
Value loadDescription(const Options& options);

// The value of an Execute result (to be boxed in a variant).
GVariant* resultVariant(const Value& v);

// A property's value, or nullptr with `error` set when reading it fails.
GVariant* propertyVariant(const Value& v, std::string& error);

}  // namespace wf::test
