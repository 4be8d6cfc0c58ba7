// The Finder tags of files that came from a Mac. Copies that keep extended
// attributes in the user namespace carry them as the metadata attribute
// "_kMDItemUserTags": a property-list array of "name" or "name\n<colour>".
#pragma once

#include <string>
#include <vector>

#include "platform/foundation/Error.h"

namespace openmeta_tool {

struct MacFinderTag {
  std::string name;
  int colour = 0;  // 0 none, 1 grey, 2 green, 3 purple, 4 blue, 5 yellow, 6 red, 7 orange
};

constexpr const char* kMacFinderTagsKey = "_kMDItemUserTags";

// The tags in the attribute's order; none when the attribute is missing.
// Entries that are no strings, or empty names, are skipped.
std::vector<MacFinderTag> readMacFinderTags(const std::string& path, wf::OptError* error);

// "red", "orange", ... for a colour number; empty for none or unknown.
std::string colourName(int colour);

}  // namespace openmeta_tool
