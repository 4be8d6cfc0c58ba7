#include "support/AttributeWrites.h"

#include "openmeta/OpenMeta.h"
#include "platform/plist/PropertyList.h"

namespace wf::test {

namespace {
constexpr std::string_view kPrefix = "user.com.apple.metadata:";
RecordingExtendedAttributes gRecorder;
}  // namespace

sys::Result<std::string> RecordingExtendedAttributes::get(const std::string& path,
                                                          const std::string& name,
                                                          std::size_t limit) {
  return platform::systemExtendedAttributes().get(path, name, limit);
}

sys::Result<void> RecordingExtendedAttributes::set(const std::string& path, const std::string& name,
                                                   std::string_view bytes) {
  if (std::string_view(name).rfind(kPrefix, 0) == 0)
    writes.push_back({path, name.substr(kPrefix.size()), plist::parse(bytes)});
  return platform::systemExtendedAttributes().set(path, name, bytes);
}

sys::Result<void> RecordingExtendedAttributes::remove(const std::string& path,
                                                      const std::string& name) {
  return platform::systemExtendedAttributes().remove(path, name);
}

sys::Result<std::vector<std::string>> RecordingExtendedAttributes::list(const std::string& path) {
  return platform::systemExtendedAttributes().list(path);
}

void startRecordingAttributeWrites() {
  gRecorder.writes.clear();
  OpenMeta::setExtendedAttributesForTesting(&gRecorder);
}

std::vector<AttributeWrite> stopRecordingAttributeWrites() {
  OpenMeta::setExtendedAttributesForTesting(nullptr);
  return std::move(gRecorder.writes);
}

}  // namespace wf::test
