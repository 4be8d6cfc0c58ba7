// Times libplist (Debian's libplist 2.2, through its C API only) on the same
// files as bench_plist, for the side-by-side figures of `run`. Prints one line
// per operation: "<operation> <bytes> <best seconds per run>".
#include <plist/plist.h>

#include <cstdio>
#include <cstdlib>
#include <string>

#include "Timing.h"

using wf::bench::best;
using wf::bench::slurp;

int main(int argc, char** argv) {
  if (argc < 3) {
    std::fprintf(stderr, "usage: bench_libplist LIST.xml LIST.bplist [runs]\n");
    return 2;
  }
  int runs = argc > 3 ? std::atoi(argv[3]) : 15;
  std::string xml = slurp(argv[1]), binary = slurp(argv[2]);
  auto size = [](const std::string& s) { return static_cast<uint32_t>(s.size()); };
  plist_t fromXml = nullptr, fromBinary = nullptr;
  plist_from_xml(xml.data(), size(xml), &fromXml);
  plist_from_bin(binary.data(), size(binary), &fromBinary);
  if (!fromXml || !fromBinary) {
    std::fprintf(stderr, "libplist cannot parse the inputs\n");
    return 1;
  }
  std::size_t sink = 0;
  double xmlRead = best(runs, [&] {
    plist_t p = nullptr;
    plist_from_xml(xml.data(), size(xml), &p);
    sink += p != nullptr;
    plist_free(p);
  });
  double binaryRead = best(runs, [&] {
    plist_t p = nullptr;
    plist_from_bin(binary.data(), size(binary), &p);
    sink += p != nullptr;
    plist_free(p);
  });
  uint32_t xmlOut = 0, binaryOut = 0;
  double xmlWrite = best(runs, [&] {
    char* out = nullptr;
    plist_to_xml(fromXml, &out, &xmlOut);
    sink += xmlOut;
    plist_to_xml_free(out);
  });
  double binaryWrite = best(runs, [&] {
    char* out = nullptr;
    plist_to_bin(fromBinary, &out, &binaryOut);
    sink += binaryOut;
    plist_to_bin_free(out);
  });
  plist_free(fromXml);
  plist_free(fromBinary);
  std::printf("xml-read %zu %.9f\n", xml.size(), xmlRead);
  std::printf("binary-read %zu %.9f\n", binary.size(), binaryRead);
  std::printf("xml-write %u %.9f\n", xmlOut, xmlWrite);
  std::printf("binary-write %u %.9f\n", binaryOut, binaryWrite);
  return sink == 0 ? 1 : 0;
}
