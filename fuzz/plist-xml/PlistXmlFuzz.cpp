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
  std::string_view input(reinterpret_cast<const char*>(data), size);
  std::string error;
  Value v = plist::parse(input, &error);
  if (v.isNil()) {
    check(!error.empty(), "failure without a message", "");
    return 0;
  }
  // Anything read must write and read back as an equal value in both formats.
  std::string xml, binary;
  check(plist::toXML(v, xml, &error), "XML writer refused a parsed value", error);
  Value fromXml = plist::parse(xml, &error);
  check(fromXml == v, "XML round trip changed the value", xml);
  check(plist::toBinary(v, binary, &error), "binary writer refused a parsed value", error);
  Value fromBinary = plist::parse(binary, &error);
  check(fromBinary == v, "binary round trip changed the value", error);
  std::string xml2;
  check(plist::toXML(fromBinary, xml2, &error) && xml2 == xml, "XML output not stable", xml2);
  return 0;
}
