#include "support/HostilePlist.h"

#include <cstdint>
#include <vector>

namespace wf::test {

namespace {

void putBigEndian(std::string& out, std::uint64_t v, unsigned n) {
  for (unsigned i = n; i-- > 0;) out.push_back(static_cast<char>((v >> (8 * i)) & 0xFF));
}

}  // namespace

std::string hostileExpansionPlist(int levels) {
  // Object i (0 <= i < levels) is an array of two references to object
  // i + 1; the last object is the boolean true.
  std::string out = "bplist00";
  std::vector<std::uint64_t> offsets;
  for (int i = 0; i < levels; ++i) {
    offsets.push_back(out.size());
    out.push_back('\xA2');
    out.push_back(static_cast<char>(i + 1));
    out.push_back(static_cast<char>(i + 1));
  }
  offsets.push_back(out.size());
  out.push_back('\x09');
  std::uint64_t table = out.size();
  unsigned offsetSize = table > 0xFF ? 2 : 1;
  for (std::uint64_t o : offsets) putBigEndian(out, o, offsetSize);
  out.append(6, '\0');
  out.push_back(static_cast<char>(offsetSize));
  out.push_back('\x01');  // one-byte references: at most 255 levels
  putBigEndian(out, offsets.size(), 8);
  putBigEndian(out, 0, 8);
  putBigEndian(out, table, 8);
  return out;
}

}  // namespace wf::test
