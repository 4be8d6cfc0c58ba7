// JSON for the tools: the property lists JSON can hold (dictionaries,
// arrays, strings, numbers, booleans), and JSON read back into values.
#pragma once

#include <string>
#include <string_view>

#include "platform/plist/Value.h"

namespace wf::tools {

// Fails for dates, data, NSNull and numbers JSON cannot write (NaN,
// infinities), naming the first such value. `pretty` indents by two blanks.
// Dictionary keys come out in the order the dictionary keeps them.
bool toJSON(const Value& v, bool pretty, std::string& out, std::string& error);

// Integers without fraction or exponent become integers, other numbers
// reals; null is refused (a property list has no place for it).
bool parseJSON(std::string_view text, Value& out, std::string& error);

}  // namespace wf::tools
