// A whole property list holding one string: what the tests put into the
// list files that travel through the sync folder (anything else is refused).
#pragma once

#include <string>

namespace wf::test {

inline std::string list(const std::string& text) {
  return "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<plist version=\"1.0\">\n<string>" + text +
         "</string>\n</plist>\n";
}

}  // namespace wf::test
