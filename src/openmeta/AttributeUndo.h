// What a setter that writes several attributes keeps of them beforehand, so
// that a failed write puts back those it had already changed: a failed
// setter leaves the file's attributes byte for byte as they were.
#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "platform/foundation/Error.h"

namespace wf::openmeta {

class AttributeUndo {
 public:
  // Keeps the bytes of the attribute `systemName` ("user.…") of `path` as
  // they are now (or that it is missing). An error when they cannot be read:
  // the setter then writes nothing.
  OptError remember(const std::string& path, const std::string& systemName);
  // Writes `bytes` to `systemName`, keeping first what it replaces. Where
  // the attribute is `probablyMissing` the write is tried as a creation:
  // on a file that never had it, that one call is all; `created` tells.
  OptError write(const std::string& path, const std::string& systemName, std::string_view bytes,
                 bool probablyMissing, bool* created = nullptr);
  // Removes `systemName` (a missing one is no error), keeping it first.
  OptError remove(const std::string& path, const std::string& systemName);
  // Writes every remembered attribute back as it was, last one first.
  void restore() const;

 private:
  bool isKept(const std::string& path, const std::string& systemName) const;

  struct Kept {
    std::string path;
    std::string name;
    std::optional<std::string> bytes;  // nullopt: the attribute was missing
  };
  std::vector<Kept> kept_;
};

// "user." + spotlightKey(key), the attribute a metadata key is kept in.
std::string metaDataAttribute(const std::string& key);
// The serialised form of `value` that setXAttr would write, checked against
// the size limit; the error setXAttr would return otherwise.
OptError checkAttributeValue(const Value& value);

}  // namespace wf::openmeta
