#include "support/HostilePlist.h"

#include <cstdint>
#include <vector>

namespace wf::test {

namespace {

void putBigEndian(std::string& out, std::uint64_t v, unsigned n) {
  for (unsigned i = n; i-- > 0;) out.push_back(static_cast<char>((v >> (8 * i)) & 0xFF));
}

// Objects written in order, object 0 on top; one-byte references (at most
// 255 objects), offsets one or two bytes wide.
std::string binaryPlist(const std::vector<std::string>& objects) {
  std::string out = "bplist00";
  std::vector<std::uint64_t> offsets;
  for (const std::string& o : objects) {
    offsets.push_back(out.size());
    out += o;
  }
  std::uint64_t table = out.size();
  unsigned offsetSize = table > 0xFF ? 2 : 1;
  for (std::uint64_t o : offsets) putBigEndian(out, o, offsetSize);
  out.append(6, '\0');
  out.push_back(static_cast<char>(offsetSize));
  out.push_back('\x01');
  putBigEndian(out, offsets.size(), 8);
  putBigEndian(out, 0, 8);
  putBigEndian(out, table, 8);
  return out;
}

std::string asciiString(const std::string& s) {
  std::string o;
  if (s.size() < 15) {
    o += static_cast<char>(0x50 | s.size());
  } else {
    o += "\x5F\x10";
    o += static_cast<char>(s.size());
  }
  return o + s;
}

// Objects first .. first+levels-1 each hold the next one twice; the last
// one is the boolean true.
void appendChain(std::vector<std::string>& objects, int levels) {
  int first = static_cast<int>(objects.size());
  for (int i = 0; i < levels; ++i) {
    char next = static_cast<char>(first + i + 1);
    objects.push_back(std::string{'\xA2', next, next});
  }
  objects.emplace_back(1, '\x09');
}

}  // namespace

std::string hostileExpansionPlist(int levels) {
  std::vector<std::string> objects;
  appendChain(objects, levels);
  return binaryPlist(objects);
}

std::string hostileExpansionTrailerPlist(int levels) {
  // 0: {1: 2}, 1: "wrenfold", 2: {3: 4}, 3: "wrenfoldKeyWords", 4…: the chain
  std::vector<std::string> objects{std::string{'\xD1', 1, 2}, asciiString("wrenfold"),
                                   std::string{'\xD1', 3, 4}, asciiString("wrenfoldKeyWords")};
  appendChain(objects, levels);
  return binaryPlist(objects);
}

}  // namespace wf::test
