// Key paths as plutil reads them: keys separated by ".", an array element
// named by its index, "\." for a dot inside a key and "\\" for a backslash.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "platform/plist/Value.h"

namespace wf::tools {

std::vector<std::string> splitKeyPath(std::string_view keyPath);

// The value the path names, or nullptr.
const Value* valueAtKeyPath(const Value& root, const std::vector<std::string>& path);

enum class Edit {
  Insert,   // the last component must not exist yet (an array index may be one past the end)
  Replace,  // sets the value whether or not one exists
  Remove,   // the value must exist
  Append,   // the path names an array; the value goes at its end
};

// Applies the edit to a copy of `root` and returns it; nil with `error` set
// (plutil's wording) when the path does not fit the edit.
Value editAtKeyPath(const Value& root, const std::vector<std::string>& path, Edit edit,
                    const Value& value, const std::string& keyPath, std::string& error);

// plutil's names of the types: "dictionary", "array", "string", "integer",
// "float", "bool", "date", "data".
std::string typeName(const Value& v);

}  // namespace wf::tools
