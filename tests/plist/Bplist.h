// Builds binary property lists by hand, object by object, so tests can
// produce layouts (and damage) that our writer never would.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace wf::test {

struct Bplist {
  std::vector<std::string> objects;  // encoded objects, in index order
  unsigned offsetSize = 1;
  unsigned refSize = 1;
  std::uint64_t top = 0;
  // Overrides for damaged trailers; unset when ~0.
  std::uint64_t countOverride = ~0ull;
  std::uint64_t tableOverride = ~0ull;
  std::vector<std::uint64_t> offsetOverrides;  // per object, ~0 means real offset

  static std::string be(std::uint64_t v, unsigned n) {
    std::string s;
    for (unsigned i = n; i-- > 0;) s.push_back(static_cast<char>((v >> (8 * i)) & 0xFF));
    return s;
  }
  std::string ref(std::uint64_t r) const { return be(r, refSize); }

  std::string build() const {
    std::string out = "bplist00";
    std::vector<std::uint64_t> offsets;
    for (const auto& o : objects) {
      offsets.push_back(out.size());
      out += o;
    }
    std::uint64_t table = out.size();
    for (std::size_t i = 0; i < offsets.size(); ++i) {
      std::uint64_t o = offsets[i];
      if (i < offsetOverrides.size() && offsetOverrides[i] != ~0ull) o = offsetOverrides[i];
      out += be(o, offsetSize);
    }
    out += std::string(6, '\0');
    out.push_back(static_cast<char>(offsetSize));
    out.push_back(static_cast<char>(refSize));
    out += be(countOverride != ~0ull ? countOverride : objects.size(), 8);
    out += be(top, 8);
    out += be(tableOverride != ~0ull ? tableOverride : table, 8);
    return out;
  }
};

inline std::string asciiObject(const std::string& s) {
  std::string o;
  if (s.size() < 15) {
    o.push_back(static_cast<char>(0x50 | s.size()));
  } else {
    o.push_back('\x5F');
    o.push_back('\x10');
    o.push_back(static_cast<char>(s.size()));
  }
  return o + s;
}

}  // namespace wf::test
