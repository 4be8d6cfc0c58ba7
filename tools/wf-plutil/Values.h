// Values typed on the command line after a type flag ("-integer 5").
#pragma once

#include <string>

#include "platform/plist/Value.h"

namespace wf::plutil {

// Whether `flag` is one of -bool -integer -float -string -date -data -xml
// -json -array -dictionary; `takesText` is false for the last two.
bool isTypeFlag(const std::string& flag, bool* takesText = nullptr);

// False with `error` set when the text is no value of that type.
bool parseTypedValue(const std::string& flag, const std::string& text, Value& out,
                     std::string& error);

}  // namespace wf::plutil
