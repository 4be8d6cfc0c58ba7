#include "MacFinderTags.h"

#include "openmeta/OpenMeta.h"

namespace openmeta_tool {

std::vector<MacFinderTag> readMacFinderTags(const std::string& path, wf::OptError* error) {
  std::vector<MacFinderTag> tags;
  const wf::Value v = wf::OpenMeta::getXAttrMetaData(kMacFinderTagsKey, path, error);
  if (!v.isArray()) return tags;
  for (const wf::Value& item : v.asArray()) {
    if (!item.isString()) continue;
    MacFinderTag tag{item.asString(), 0};
    // "name\n6": the colour follows the last line break, when it is a number.
    if (auto nl = tag.name.rfind('\n'); nl != std::string::npos) {
      const std::string suffix = tag.name.substr(nl + 1);
      bool digits = !suffix.empty() && suffix.size() <= 2;
      for (char c : suffix) digits = digits && c >= '0' && c <= '9';
      if (digits) {
        tag.colour = std::stoi(suffix);
        tag.name.erase(nl);
      }
    }
    if (!tag.name.empty()) tags.push_back(std::move(tag));
  }
  return tags;
}

std::string colourName(int colour) {
  static const char* const kNames[] = {"",     "grey",   "green", "purple",
                                       "blue", "yellow", "red",   "orange"};
  return colour > 0 && colour < 8 ? kNames[colour] : "";
}

}  // namespace openmeta_tool
