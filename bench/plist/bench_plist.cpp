// Times the codec on an XML and a binary property list. Prints one line per
// operation: "<operation> <bytes> <best seconds per run>".
#include <cstdio>
#include <cstdlib>
#include <string>

#include "Timing.h"
#include "platform/plist/PropertyList.h"

using namespace wf;

using wf::bench::best;
using wf::bench::slurp;

int main(int argc, char** argv) {
  if (argc < 3) {
    std::fprintf(stderr, "usage: bench_plist LIST.xml LIST.bplist [runs]\n");
    return 2;
  }
  int runs = argc > 3 ? std::atoi(argv[3]) : 15;
  std::string xml = slurp(argv[1]), binary = slurp(argv[2]);
  std::string error;
  Value fromXml = plist::parse(xml, &error);
  Value fromBinary = plist::parse(binary, &error);
  if (fromXml.isNil() || fromBinary.isNil()) {
    std::fprintf(stderr, "cannot parse the inputs: %s\n", error.c_str());
    return 1;
  }
  std::size_t sink = 0;
  double xmlRead = best(runs, [&] { sink += plist::parse(xml).count(); });
  double binaryRead = best(runs, [&] { sink += plist::parse(binary).count(); });
  std::string out;
  double xmlWrite = best(runs, [&] {
    plist::toXML(fromXml, out);
    sink += out.size();
  });
  std::size_t xmlOut = out.size();
  double binaryWrite = best(runs, [&] {
    plist::toBinary(fromBinary, out);
    sink += out.size();
  });
  std::size_t binaryOut = out.size();
  std::printf("xml-read %zu %.9f\n", xml.size(), xmlRead);
  std::printf("binary-read %zu %.9f\n", binary.size(), binaryRead);
  std::printf("xml-write %zu %.9f\n", xmlOut, xmlWrite);
  std::printf("binary-write %zu %.9f\n", binaryOut, binaryWrite);
  return sink == 0 ? 1 : 0;
}
