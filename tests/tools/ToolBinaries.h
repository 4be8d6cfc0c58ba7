// Where the tools under test are: the build's own, unless the environment
// names others (WF_PLUTIL, WF_DEFAULTS, WF_OPENMETA), so that the same tests
// can be run against another build of the tools.
#pragma once

#include <cstdlib>
#include <string>

namespace wf::test {

inline std::string toolBinary(const char* variable, const char* built) {
  const char* other = std::getenv(variable);
  return other && *other ? other : built;
}
inline std::string plutilBinary() { return toolBinary("WF_PLUTIL", WF_PLUTIL_BINARY); }
inline std::string defaultsBinary() { return toolBinary("WF_DEFAULTS", WF_DEFAULTS_BINARY); }
inline std::string openmetaBinary() { return toolBinary("WF_OPENMETA", WF_OPENMETA_BINARY); }

}  // namespace wf::test
