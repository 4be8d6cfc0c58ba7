#include "HostilePlist.h"

#include <cstdint>
#include <vector>

namespace wf::faults {
namespace {

// Objects written in order; references and offsets one or two bytes wide.
std::string binaryPlist(const std::vector<std::string>& objects) {
  std::string out = "bplist00";
  std::vector<std::size_t> offsets;
  for (const std::string& o : objects) {
    offsets.push_back(out.size());
    out += o;
  }
  std::size_t tableOffset = out.size();
  int offsetSize = tableOffset > 0xFF ? 2 : 1;
  for (std::size_t off : offsets) {
    if (offsetSize == 2) out += static_cast<char>((off >> 8) & 0xFF);
    out += static_cast<char>(off & 0xFF);
  }
  std::string trailer(6, '\0');
  trailer += static_cast<char>(offsetSize);
  trailer += static_cast<char>(1);  // object references: one byte
  auto be64 = [&](std::uint64_t v) {
    for (int i = 7; i >= 0; --i) trailer += static_cast<char>((v >> (8 * i)) & 0xFF);
  };
  be64(objects.size());
  be64(0);  // the top object
  be64(tableOffset);
  return out + trailer;
}

std::string asciiString(const std::string& s) {
  std::string o;
  if (s.size() < 15) {
    o += static_cast<char>(0x50 | s.size());
  } else {
    o += '\x5F';
    o += '\x10';
    o += static_cast<char>(s.size());
  }
  return o + s;
}

// Arrays first..first+levels-1 each hold the next one twice; the last
// object is an empty array.
void appendChain(std::vector<std::string>& objects, int levels) {
  int first = static_cast<int>(objects.size());
  for (int i = 0; i < levels; ++i) {
    char next = static_cast<char>(first + i + 1);
    objects.push_back(std::string{'\xA2', next, next});
  }
  objects.push_back(std::string(1, '\xA0'));
}

}  // namespace

std::string expandingPlist(int levels) {
  std::vector<std::string> objects;
  appendChain(objects, levels);
  return binaryPlist(objects);
}

std::string expandingTrailerPlist(int levels) {
  // 0: {1: 2}, 1: "wrenfold", 2: {3: 4}, 3: "wrenfoldKeyWords", 4…: the chain
  std::vector<std::string> objects{std::string{'\xD1', 1, 2}, asciiString("wrenfold"),
                                   std::string{'\xD1', 3, 4}, asciiString("wrenfoldKeyWords")};
  appendChain(objects, levels);
  return binaryPlist(objects);
}

}  // namespace wf::faults
