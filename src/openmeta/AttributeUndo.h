// What a setter that writes several attributes keeps of them beforehand, so
// that a failed write puts back those it had already changed: a failed
// setter leaves the file's attributes byte for byte as they were.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "platform/foundation/Error.h"

namespace wf::openmeta {

class AttributeUndo {
 public:
  // Keeps the bytes of the attribute `systemName` ("user.…") of `path` as
  // they are now (or that it is missing). An error when they cannot be read:
  // the setter then writes nothing.
  OptError remember(const std::string& path, const std::string& systemName);
  // Writes every remembered attribute back as it was, last one first.
  void restore() const;

 private:
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
