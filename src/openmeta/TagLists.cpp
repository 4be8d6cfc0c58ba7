// What a tag list may hold and in which form it is stored: canonical
// decomposition, one tag per case-insensitive group, first occurrence first.
#include <algorithm>
#include <set>
#include <string>
#include <vector>

#include "openmeta/OpenMeta.h"
#include "platform/foundation/Strings.h"

namespace wf {

bool OpenMeta::validateAsArrayOfStrings(const Value& object) {
  if (!object.isArray()) return false;
  for (const Value& element : object.asArray())
    if (!element.isString()) return false;
  return true;
}

Value OpenMeta::decomposeArrayOfStrings(const Value& array) {
  Array result;
  if (!array.isArray()) return Value(std::move(result));
  result.reserve(array.count());
  for (const Value& element : array.asArray())
    if (element.isString())
      result.emplace_back(ns::decomposedStringWithCanonicalMapping(element.asString()));
  return Value(std::move(result));
}

Value OpenMeta::removeDuplicateTags(const Value& tags) {
  if (tags.isNil()) return Value();
  // The first of each case-insensitive group, in the order given: what
  // orderedArrayWithDict makes of the table of the decomposed tags with
  // those tags as its hint, without building and copying the table.
  const Value decomposed = decomposeArrayOfStrings(tags);
  Array result;
  result.reserve(decomposed.count());
  // A tag list is short: its lowered names are compared in a flat list,
  // and only a long one gets a tree (a node allocated per name).
  constexpr std::size_t kFlat = 32;
  if (decomposed.count() <= kFlat) {
    std::vector<std::string> seen;
    seen.reserve(decomposed.count());
    for (const Value& tag : decomposed.asArray()) {
      std::string lowered = ns::lowercaseString(tag.asString());
      if (std::find(seen.begin(), seen.end(), lowered) != seen.end()) continue;
      seen.push_back(std::move(lowered));
      result.push_back(tag);
    }
    return Value(std::move(result));
  }
  std::set<std::string, std::less<>> seen;
  for (const Value& tag : decomposed.asArray())
    if (seen.insert(ns::lowercaseString(tag.asString())).second) result.push_back(tag);
  return Value(std::move(result));
}

Value OpenMeta::orderedArrayWithDict(const TagTable& dict, const Value& sortHint) {
  Array result;
  result.reserve(dict.size());
  if (!sortHint.isArray() || sortHint.count() == 0) {
    for (const auto& [key, tag] : dict) result.emplace_back(tag);
    return Value(std::move(result));
  }
  TagTable working = dict;
  for (const Value& hint : sortHint.asArray()) {
    if (!hint.isString()) continue;
    auto it = working.find(ns::lowercaseString(hint.asString()));
    if (it == working.end()) continue;
    working.erase(it);
    result.emplace_back(hint.asString());
  }
  for (const auto& [key, tag] : working) result.emplace_back(tag);
  return Value(std::move(result));
}

}  // namespace wf
