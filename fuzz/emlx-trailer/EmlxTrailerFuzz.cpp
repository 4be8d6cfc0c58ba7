// A fuzzed message file. The trailer reader must agree with a plain
// reading of the same bytes, and the import (both ways) must leave the
// message's bytes as they were. Besides the sanitizers' findings, a run
// fails (abort) when either does not hold.
#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <string_view>

#include "app/WFHelperAppDelegate.h"
#include "import/EmlxTrailer.h"
#include "platform/plist/PropertyList.h"
#include "support/Fakes.h"

namespace {

[[noreturn]] void fail(const char* why) {
  std::fprintf(stderr, "fuzz-emlx-trailer: %s\n", why);
  std::abort();
}

// The trailer as the documented rule finds it in the whole input.
wf::Value expectedTrailer(std::string_view bytes) {
  if (bytes.size() < wf::kEmlxHeadSize) return {};
  auto offset = wf::emlxTrailerOffset(bytes.substr(0, wf::kEmlxHeadSize));
  if (!offset || *offset < 0 || *offset > static_cast<std::int64_t>(bytes.size())) return {};
  std::string_view rest = bytes.substr(static_cast<std::size_t>(*offset));
  if (static_cast<std::int64_t>(rest.size()) > wf::kEmlxMaxTrailerSize) return {};
  return wf::plist::parse(rest);
}

// Values compared by their serialised form, so that a NaN equals itself.
std::string fingerprint(const wf::Value& v) {
  std::string out = "nil";
  if (!v.isNil() && !wf::plist::toXML(v, out)) out = "unserialisable";
  return out;
}

struct World {
  wf::test::FakePlatform fake;
  wf::test::TempDir store{true};
  wf::WFHelperAppDelegate delegate{fake.services()};
  World() { fake.defaults.arguments.insert_or_assign("WFrecognizeOpenMetaTags", wf::Value("YES")); }
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  static World* world = new World();
  std::string_view bytes(reinterpret_cast<const char*>(data), size);

  // The reader on a descriptor of exactly these bytes.
  int fd = memfd_create("emlx", MFD_CLOEXEC);
  if (fd < 0) fail("memfd_create");
  if (size && write(fd, data, size) != static_cast<ssize_t>(size)) fail("write memfd");
  lseek(fd, 0, SEEK_SET);
  wf::Value got = wf::readEmlxTrailerFromDescriptor(fd);
  close(fd);
  if (fingerprint(got) != fingerprint(expectedTrailer(bytes)))
    fail("trailer reader disagrees with the rule");

  // The import of the same bytes as a message file, both ways.
  std::string path = world->store / "1.emlx";
  wf::test::writeFile(path, std::string(bytes));
  world->delegate.importWrenfoldMetadataAtPath(path, wf::Value());
  wf::Value later(wf::Dictionary{{"kMDItemWrenfoldTimeStamp", wf::Value(wf::Date{1.0})},
                                 {"kMDItemOMUserTagTime", wf::Value(wf::Date{2.0})},
                                 {"kMDItemOMUserTags", got}});
  world->delegate.importWrenfoldMetadataAtPath(path, later);
  world->delegate.delayedImport({path});
  if (wf::test::readFile(path) != bytes) fail("the import changed the message's bytes");
  unlink(path.c_str());
  return 0;
}
