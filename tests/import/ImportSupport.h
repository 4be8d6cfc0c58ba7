// The import tests' fixture: a delegate on fakes, message files on tmpfs and
// the keyed log lines of the import.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "app/WFHelperAppDelegate.h"
#include "support/AttributeWrites.h"
#include "support/Attributes.h"
#include "support/Fakes.h"
#include "support/Messages.h"

namespace wf::test {

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
