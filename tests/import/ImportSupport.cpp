#include "ImportSupport.h"

#include <dlfcn.h>
#include <sys/xattr.h>

#include <cerrno>
#include <stdexcept>

#include "paths/Paths.h"
#include "platform/plist/PropertyList.h"
#include "support/KeyedLines.h"

namespace {

constexpr const char* kPrefix = "user.com.apple.metadata:";
bool gRecording = false;
std::vector<wf::test::AttributeWrite>* gWrites = nullptr;

using LSetXattr = int (*)(const char*, const char*, const void*, size_t, int);

}  // namespace

// Interposed for the whole test program: records what the store writes,
// then does the real write.
extern "C" int lsetxattr(const char* path, const char* name, const void* value, size_t size,
                         int flags) noexcept {
  static auto real = reinterpret_cast<LSetXattr>(dlsym(RTLD_NEXT, "lsetxattr"));
  if (gRecording && gWrites && std::string_view(name).rfind(kPrefix, 0) == 0) {
    std::string bytes(static_cast<const char*>(value), size);
    gWrites->push_back(
        {path, std::string(name + std::string_view(kPrefix).size()), wf::plist::parse(bytes)});
  }
  if (!real) {
    errno = ENOSYS;
    return -1;
  }
  return real(path, name, value, size, flags);
}

namespace wf::test {

void setSpotlightAttribute(const std::string& path, const std::string& key, const Value& value) {
  std::string bytes;
  if (!plist::toXML(value, bytes)) throw std::runtime_error("value cannot be serialised");
  std::string name = kPrefix + key;
  bool was = gRecording;
  gRecording = false;
  int rc = ::lsetxattr(path.c_str(), name.c_str(), bytes.data(), bytes.size(), 0);
  gRecording = was;
  if (rc != 0) throw std::runtime_error("lsetxattr failed on " + path);
}

Value spotlightAttribute(const std::string& path, const std::string& key) {
  std::string name = kPrefix + key;
  std::string buffer(65536, '\0');
  ssize_t n = lgetxattr(path.c_str(), name.c_str(), buffer.data(), buffer.size());
  if (n < 0) return {};
  buffer.resize(static_cast<std::size_t>(n));
  return plist::parse(buffer);
}

bool hasSpotlightAttribute(const std::string& path, const std::string& key) {
  std::string name = kPrefix + key;
  return lgetxattr(path.c_str(), name.c_str(), nullptr, 0) >= 0;
}

std::vector<std::string> spotlightKeys(const std::string& path) {
  std::string names(65536, '\0');
  ssize_t n = llistxattr(path.c_str(), names.data(), names.size());
  std::vector<std::string> keys;
  if (n <= 0) return keys;
  names.resize(static_cast<std::size_t>(n));
  std::size_t pos = 0;
  while (pos < names.size()) {
    std::string name = names.c_str() + pos;
    pos += name.size() + 1;
    if (name.rfind(kPrefix, 0) == 0) keys.push_back(name.substr(std::string(kPrefix).size()));
  }
  return keys;
}

namespace {
std::vector<AttributeWrite> gRecorded;
}

void startRecordingAttributeWrites() {
  gRecorded.clear();
  gWrites = &gRecorded;
  gRecording = true;
}

std::vector<AttributeWrite> stopRecordingAttributeWrites() {
  gRecording = false;
  gWrites = nullptr;
  return std::move(gRecorded);
}

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
