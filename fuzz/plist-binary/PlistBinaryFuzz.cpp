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
  // The writer takes the narrowest offset and reference widths (1 to 8).
  auto bytes = reinterpret_cast<const unsigned char*>(binary.data());
  auto bigEndian = [&](std::size_t at, unsigned n) {
    std::uint64_t v = 0;
    for (unsigned i = 0; i < n; ++i) v = v << 8 | bytes[at + i];
    return v;
  };
  std::size_t trailer = binary.size() - 32;
  unsigned offsetSize = bytes[trailer + 6], refSize = bytes[trailer + 7];
  std::uint64_t count = bigEndian(trailer + 8, 8), table = bigEndian(trailer + 24, 8);
  auto narrowest = [](std::uint64_t max, unsigned n) {
    return n >= 1 && n <= 8 && (n == 1 || max >> (8 * (n - 1)) != 0) &&
           (n == 8 || max >> (8 * n) == 0);
  };
  std::uint64_t lastOffset =
      bigEndian(static_cast<std::size_t>(table + (count - 1) * offsetSize), offsetSize);
  check(narrowest(lastOffset, offsetSize), "offset width is not the narrowest",
        std::to_string(offsetSize));
  check(narrowest(count - 1, refSize), "reference width is not the narrowest",
        std::to_string(refSize));
  // XML keeps dates to the second and refuses only dates it cannot carry
  // (NaN, infinities, billions of years away); what it writes reads back.
  if (!plist::toXML(v, xml, &error)) {
    check(error.find("cannot be written in XML") != std::string::npos,
          "XML writer refused a parsed value", error);
    return 0;
  }
  check(!plist::parse(xml, &error).isNil(), "written XML does not read back", error);
  return 0;
}
