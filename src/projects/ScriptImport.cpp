#include "projects/ScriptImport.h"

#include <algorithm>

namespace wf {

std::optional<std::string> firstRunning(const std::vector<std::string>& identifiers,
                                        const std::vector<std::string>& running) {
  for (const auto& id : identifiers)
    if (std::find(running.begin(), running.end(), id) != running.end()) return id;
  return std::nullopt;
}

void appendItemTexts(const platform::AppleEventDescriptor* result, Array& names) {
  if (!result) return;
  for (long i = 1; i <= result->numberOfItems(); ++i) {
    auto item = result->descriptorAtIndex(i);
    if (!item) continue;
    auto text = item->stringValue();
    if (text && !text->empty()) names.emplace_back(*text);
  }
}

Value stringArray(const std::vector<std::string>& strings) {
  Array a;
  for (const auto& s : strings) a.emplace_back(s);
  return Value(std::move(a));
}

Value optionalString(const std::optional<std::string>& s) { return s ? Value(*s) : Value(); }

}  // namespace wf
