#include "ImportSupport.h"

#include "paths/Paths.h"
#include "support/KeyedLines.h"

namespace wf::test {

ImportFixture::ImportFixture() {
  delegate = std::make_unique<WFHelperAppDelegate>(fake.services());
}

ImportFixture::~ImportFixture() {
  stopRecordingAttributeWrites();
  delegate.reset();
}

void ImportFixture::setLogOpenMeta(bool on) {
  fake.defaults.arguments.insert_or_assign("WFlogOpenMeta", Value(on ? "YES" : "NO"));
}

void ImportFixture::setRecognizeOpenMetaTags(bool on) {
  fake.defaults.arguments.insert_or_assign("WFrecognizeOpenMetaTags", Value(on ? "YES" : "NO"));
}

std::string ImportFixture::writeMessage(const std::string& name, const std::string& bytes) {
  std::string path = messages / name;
  writeFile(path, bytes);
  return path;
}

std::string ImportFixture::stubFolder() const {
  return fake.library() + "/Mail/Ardel/OpenMetaUpdates";
}

std::vector<std::string> ImportFixture::keyedMessages(const std::string& selector) const {
  return test::keyedMessages(fake.log, "logOpenMeta", "-[WFHelperAppDelegate " + selector + "]");
}

}  // namespace wf::test
