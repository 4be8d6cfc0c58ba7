// Helpers for the import tests: a delegate on fakes, message files with
// trailers, attribute access and the keyed log lines of the import.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "app/WFHelperAppDelegate.h"
#include "support/Fakes.h"
#include "support/Messages.h"

namespace wf::test {

// The Spotlight-visible attributes of a file, set and read raw.
void setSpotlightAttribute(const std::string& path, const std::string& key, const Value& value);
Value spotlightAttribute(const std::string& path, const std::string& key);
bool hasSpotlightAttribute(const std::string& path, const std::string& key);
std::vector<std::string> spotlightKeys(const std::string& path);

// Every attribute write made by this process, in order, while recording.
struct AttributeWrite {
  std::string path;
  std::string key;  // the name without the Spotlight prefix
  Value value;
};
void startRecordingAttributeWrites();
std::vector<AttributeWrite> stopRecordingAttributeWrites();

// A delegate over fakes, with message files on tmpfs.
class ImportFixture {
 public:
  ImportFixture();
  ~ImportFixture();
  FakePlatform fake;
  TempDir messages{true};
  std::unique_ptr<WFHelperAppDelegate> delegate;

  void setLogOpenMeta(bool on);
  void setRecognizeOpenMetaTags(bool on);
  std::string writeMessage(const std::string& name, const std::string& bytes);
  std::string stubFolder() const;
  // The messages of the keyed lines of `selector`, in order.
  std::vector<std::string> keyedMessages(const std::string& selector) const;
  std::vector<std::string> importMessages() const {
    return keyedMessages("importWrenfoldMetadataAtPath:andExistingAttributes:");
  }
};

}  // namespace wf::test
