// Helpers shared by the imports that talk to another application.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "platform/Scripting.h"
#include "platform/plist/Value.h"

namespace wf {

// The first of `identifiers` (in their order of preference) that is running.
std::optional<std::string> firstRunning(const std::vector<std::string>& identifiers,
                                        const std::vector<std::string>& running);

// The texts of the items of a script's result, in order, without empty
// ones. The item count is asked afresh at every step. May raise
// wf::NSException; `names` then holds what was gathered before.
void appendItemTexts(const platform::AppleEventDescriptor* result, Array& names);

Value stringArray(const std::vector<std::string>& strings);
Value optionalString(const std::optional<std::string>& s);

}  // namespace wf
