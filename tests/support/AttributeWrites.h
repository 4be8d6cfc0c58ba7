// What the OpenMeta store writes, seen through its extended-attribute seam.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "platform/ExtendedAttributes.h"
#include "platform/plist/Value.h"

namespace wf::test {

// One write of a metadata attribute ("user.com.apple.metadata:" + key).
struct AttributeWrite {
  std::string path;
  std::string key;  // the name without the Spotlight prefix
  Value value;
};

// The file system's attributes, with every metadata write noted on the way.
class RecordingExtendedAttributes : public platform::ExtendedAttributes {
 public:
  sys::Result<std::string> get(const std::string& path, const std::string& name,
                               std::size_t limit) override;
  sys::Result<void> set(const std::string& path, const std::string& name,
                        std::string_view bytes) override;
  sys::Result<void> remove(const std::string& path, const std::string& name) override;
  sys::Result<std::vector<std::string>> list(const std::string& path) override;

  std::vector<AttributeWrite> writes;
};

// Every metadata write the store makes, in order, between the two calls.
void startRecordingAttributeWrites();
std::vector<AttributeWrite> stopRecordingAttributeWrites();

}  // namespace wf::test
