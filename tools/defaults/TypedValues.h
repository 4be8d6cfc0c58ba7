// Values typed on the defaults command line: "-int 5", "-date ...", or a
// bare value that is a property list's text or else a string.
#pragma once

#include <string>

#include "platform/plist/Value.h"

namespace wf::defaults {

bool isTypeFlag(const std::string& s);

// False with `error` set when the text is no value of the flag's type.
bool parseTyped(const std::string& flag, const std::string& text, Value& out, std::string& error);

// A value without a flag: XML property-list text becomes its value, any
// other text a string.
Value untypedValue(const std::string& text);

// "string", "integer", "float", "boolean", "date", "data", "array",
// "dictionary", as read-type prints them.
std::string typeWord(const Value& v);

}  // namespace wf::defaults
