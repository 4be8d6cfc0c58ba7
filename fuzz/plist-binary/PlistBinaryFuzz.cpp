#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>

#include "platform/plist/PropertyList.h"

using namespace wf;

namespace {

void check(bool ok, const char* what, const std::string& detail) {
  if (ok) return;
  std::fprintf(stderr, "%s: %s\n", what, detail.c_str());
  std::abort();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  // Most mutations would lose the magic; keep it so the fuzzer explores the
  // object graph rather than the format detection.
  std::string input(reinterpret_cast<const char*>(data), size);
  if (input.rfind("bplist00", 0) != 0) input.insert(0, "bplist00");
  std::string error;
  Value v = plist::parse(input, &error);
  if (v.isNil()) {
    check(!error.empty(), "failure without a message", "");
    return 0;
  }
  std::string binary, xml;
  check(plist::toBinary(v, binary, &error), "binary writer refused a parsed value", error);
  Value back = plist::parse(binary, &error);
  check(back == v, "binary round trip changed the value", error);
  // Dates keep fractions of a second only in binary; XML must still work.
  check(plist::toXML(v, xml, &error), "XML writer refused a parsed value", error);
  check(!plist::parse(xml, &error).isNil(), "written XML does not read back", error);
  return 0;
}
