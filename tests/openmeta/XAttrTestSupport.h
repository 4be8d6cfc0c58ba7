// Helpers for the store's tests: raw attribute access that bypasses the
// store, a guard for the platform generation, and running programs.
#pragma once

#include <sys/xattr.h>

#include <optional>
#include <ostream>
#include <string>
#include <vector>

#include "openmeta/OpenMeta.h"
#include "platform/foundation/Format.h"
#include "support/RunTool.h"

namespace wf {
// Failure messages show values as Foundation describes them.
inline void PrintTo(const Value& v, std::ostream* os) { *os << describe(v); }
}  // namespace wf

namespace wf::test {

// The whole raw value of a Linux attribute (full name, "user." included), or
// nullopt when it is missing. Never follows a symbolic link.
inline std::optional<std::string> rawAttribute(const std::string& path, const std::string& name) {
  std::string buffer(65536, '\0');
  const ssize_t n = lgetxattr(path.c_str(), name.c_str(), buffer.data(), buffer.size());
  if (n < 0) return std::nullopt;
  buffer.resize(static_cast<std::size_t>(n));
  return buffer;
}

inline bool setRawAttribute(const std::string& path, const std::string& name,
                            const std::string& bytes) {
  return lsetxattr(path.c_str(), name.c_str(), bytes.data(), bytes.size(), 0) == 0;
}

// The Linux name of a metadata attribute.
inline std::string metadataAttribute(const std::string& key) {
  return std::string(OpenMeta::kAttributeNamespace) + OpenMeta::spotlightKey(key);
}

// Runs the store as another platform generation for one test.
class GenerationGuard {
 public:
  explicit GenerationGuard(double appKitVersion) {
    OpenMeta::setAppKitVersionNumberForTesting(appKitVersion);
  }
  ~GenerationGuard() {
    OpenMeta::setAppKitVersionNumberForTesting(OpenMeta::kDefaultAppKitVersionNumber);
  }
  GenerationGuard(const GenerationGuard&) = delete;
  GenerationGuard& operator=(const GenerationGuard&) = delete;
};

// Whether the process can bypass file permission bits (root, or a capability).
bool permissionBitsAreIgnored();

}  // namespace wf::test
