// The Spotlight-visible attributes of a file ("user.com.apple.metadata:" +
// key), set and read directly, past the store: what another program sees.
#pragma once

#include <string>
#include <vector>

#include "platform/plist/Value.h"

namespace wf::test {

// The value is written as an XML property list; throws when it cannot be.
void setSpotlightAttribute(const std::string& path, const std::string& key, const Value& value);
// Bytes as they are, for values no writer of property lists would make.
void setRawSpotlightAttribute(const std::string& path, const std::string& key,
                              const std::string& bytes);
// Nil when the attribute is missing.
Value spotlightAttribute(const std::string& path, const std::string& key);
bool hasSpotlightAttribute(const std::string& path, const std::string& key);
// The keys of every Spotlight attribute of the file.
std::vector<std::string> spotlightKeys(const std::string& path);

}  // namespace wf::test
