// Writes binary "bplist00" property lists as Foundation does: every equal
// string, number, date, data and UID written once and referred to from each
// place (containers never merged), the narrowest offset and reference
// widths, and the standard trailer.
#include <cstring>
#include <unordered_map>
#include <vector>

#include "platform/base/TextScan.h"
#include "platform/plist/Codec.h"

namespace wf::plist::detail {

namespace {

unsigned bytesFor(std::uint64_t v) {
  if (v <= 0xFF) return 1;
  if (v <= 0xFFFF) return 2;
  if (v <= 0xFFFFFFFFull) return 4;
  return 8;
}

// Offsets and references take any width from 1 to 8 bytes.
unsigned widthFor(std::uint64_t v) {
  unsigned n = 1;
  while (n < 8 && (v >> (8 * n)) != 0) ++n;
  return n;
}

void putBigEndian(std::string& out, std::uint64_t v, unsigned n) {
  for (unsigned i = n; i-- > 0;) out.push_back(static_cast<char>((v >> (8 * i)) & 0xFF));
}

std::uint64_t bitsOf(double d) {
  std::uint64_t bits;
  std::memcpy(&bits, &d, 8);
  return bits;
}

class BinaryWriter {
 public:
  bool write(const Value& root, std::string& out) {
    if (flatten(root, 0) == kFailed) return false;
    std::uint64_t count = objects_.size();
    refSize_ = widthFor(count - 1);
    std::string bytes;
    bytes.reserve(64 + count * 16);
    bytes.append("bplist00");
    std::vector<std::uint64_t> offsets;
    offsets.reserve(objects_.size());
    for (const Object& o : objects_) {
      offsets.push_back(bytes.size());
      if (!encode(o, bytes)) return false;
    }
    std::uint64_t tableOffset = bytes.size();
    unsigned offsetSize = widthFor(offsets.empty() ? 0 : offsets.back());
    for (std::uint64_t o : offsets) putBigEndian(bytes, o, offsetSize);
    bytes.append(6, '\0');
    bytes.push_back(static_cast<char>(offsetSize));
    bytes.push_back(static_cast<char>(refSize_));
    putBigEndian(bytes, count, 8);
    putBigEndian(bytes, 0, 8);  // the root is always object 0
    putBigEndian(bytes, tableOffset, 8);
    out = std::move(bytes);
    return true;
  }

  std::string error;

 private:
  static constexpr std::uint64_t kFailed = ~std::uint64_t{0};

  struct Object {
    const Value* value;
    std::size_t firstRef = 0;  // containers: their references in refs_
  };

  std::vector<Object> objects_;
  std::vector<std::uint64_t> refs_;
  unsigned refSize_ = 1;
  // Scalars are written once and referred to wherever they recur. The keys
  // keep types apart, so 1, 1.0 and true stay distinct objects.
  std::unordered_map<std::string_view, std::uint64_t> strings_, datas_;
  std::unordered_map<std::uint64_t, std::uint64_t> integers_, unsigneds_, reals_, dates_, uids_;
  std::uint64_t true_ = kFailed, false_ = kFailed;

  std::uint64_t fail(std::string message) {
    if (error.empty()) error = std::move(message);
    return kFailed;
  }

  std::uint64_t add(const Value* v) {
    objects_.push_back({v});
    return objects_.size() - 1;
  }

  std::uint64_t shared(std::unordered_map<std::uint64_t, std::uint64_t>& seen, std::uint64_t key,
                       const Value* v) {
    auto [it, inserted] = seen.try_emplace(key, 0);
    if (inserted) it->second = add(v);
    return it->second;
  }

  std::uint64_t flatten(const Value& v, int depth) {
    using T = Value::Type;
    switch (v.type()) {
      case T::Nil:
        return fail("a property list cannot hold nil");
      case T::Null:
        return fail("a property list cannot hold NSNull");
      case T::Boolean: {
        std::uint64_t& slot = v.asBool() ? true_ : false_;
        if (slot == kFailed) slot = add(&v);
        return slot;
      }
      case T::Integer:
        return shared(integers_, static_cast<std::uint64_t>(v.asInteger()), &v);
      case T::Unsigned:
        return shared(unsigneds_, v.asUnsigned(), &v);
      case T::Real:
        return shared(reals_, bitsOf(v.asReal()), &v);
      case T::Date:
        return shared(dates_, bitsOf(v.asDate().seconds), &v);
      case T::String: {
        if (!text::isValidUTF8(v.asString())) return fail("a string is not valid UTF-8");
        auto [it, inserted] = strings_.try_emplace(v.asString(), 0);
        if (inserted) it->second = add(&v);
        return it->second;
      }
      case T::Data: {
        const Data& d = v.asData();
        std::string_view bytes(reinterpret_cast<const char*>(d.data()), d.size());
        auto [it, inserted] = datas_.try_emplace(bytes, 0);
        if (inserted) it->second = add(&v);
        return it->second;
      }
      case T::Uid:
        return shared(uids_, v.asUid().value, &v);
      case T::Array: {
        if (depth >= kMaxDepth) return fail("containers are nested deeper than 512 levels");
        std::uint64_t self = add(&v);
        const Array& a = v.asArray();
        std::size_t first = refs_.size();
        objects_[self].firstRef = first;
        refs_.resize(first + a.size());
        for (std::size_t k = 0; k < a.size(); ++k) {
          std::uint64_t r = flatten(a[k], depth + 1);
          if (r == kFailed) return kFailed;
          refs_[first + k] = r;
        }
        return self;
      }
      case T::Dictionary: {
        if (depth >= kMaxDepth) return fail("containers are nested deeper than 512 levels");
        std::uint64_t self = add(&v);
        const Dictionary& d = v.asDictionary();
        std::size_t first = refs_.size();
        objects_[self].firstRef = first;
        refs_.resize(first + 2 * d.size());
        std::size_t k = 0;
        for (const auto& [key, value] : d) {
          std::uint64_t r = flattenKey(key);
          if (r == kFailed) return kFailed;
          refs_[first + k++] = r;
        }
        k = 0;
        for (const auto& [key, value] : d) {
          std::uint64_t r = flatten(value, depth + 1);
          if (r == kFailed) return kFailed;
          refs_[first + d.size() + k++] = r;
        }
        return self;
      }
    }
    return fail("unknown value type");
  }

  // Keys are plain strings in the map, not Values; they share the string
  // table with string values.
  std::uint64_t flattenKey(const std::string& key) {
    if (!text::isValidUTF8(key)) return fail("a dictionary key is not valid UTF-8");
    auto it = strings_.find(key);
    if (it != strings_.end()) return it->second;
    keys_.push_back(&key);
    std::uint64_t index = add(nullptr);
    objects_[index].firstRef = keys_.size() - 1;
    strings_.emplace(key, index);
    return index;
  }
  std::vector<const std::string*> keys_;

  static void marker(std::string& out, unsigned high, std::uint64_t count) {
    if (count < 15) {
      out.push_back(static_cast<char>(high << 4 | count));
      return;
    }
    out.push_back(static_cast<char>(high << 4 | 0xF));
    unsigned n = bytesFor(count);
    out.push_back(static_cast<char>(0x10 | (n == 1 ? 0 : n == 2 ? 1 : n == 4 ? 2 : 3)));
    putBigEndian(out, count, n);
  }

  static void string(std::string& out, const std::string& s) {
    bool ascii = true;
    for (char c : s)
      if (static_cast<unsigned char>(c) >= 0x80) {
        ascii = false;
        break;
      }
    if (ascii) {
      marker(out, 0x5, s.size());
      out.append(s);
      return;
    }
    // UTF-16 big-endian, counted in code units.
    std::u16string units;
    units.reserve(s.size());
    const auto* p = reinterpret_cast<const unsigned char*>(s.data());
    const auto* end = p + s.size();
    while (p < end) {
      std::uint32_t cp;
      if (*p < 0x80) {
        cp = *p++;
      } else if (*p < 0xE0) {
        cp = (p[0] & 0x1Fu) << 6 | (p[1] & 0x3Fu);
        p += 2;
      } else if (*p < 0xF0) {
        cp = (p[0] & 0x0Fu) << 12 | (p[1] & 0x3Fu) << 6 | (p[2] & 0x3Fu);
        p += 3;
      } else {
        cp = (p[0] & 0x07u) << 18 | (p[1] & 0x3Fu) << 12 | (p[2] & 0x3Fu) << 6 | (p[3] & 0x3Fu);
        p += 4;
      }
      if (cp >= 0x10000) {
        cp -= 0x10000;
        units.push_back(static_cast<char16_t>(0xD800 + (cp >> 10)));
        units.push_back(static_cast<char16_t>(0xDC00 + (cp & 0x3FF)));
      } else {
        units.push_back(static_cast<char16_t>(cp));
      }
    }
    marker(out, 0x6, units.size());
    for (char16_t u : units) {
      out.push_back(static_cast<char>(u >> 8));
      out.push_back(static_cast<char>(u & 0xFF));
    }
  }

  bool encode(const Object& o, std::string& out) {
    using T = Value::Type;
    if (!o.value) {
      string(out, *keys_[o.firstRef]);
      return true;
    }
    const Value& v = *o.value;
    switch (v.type()) {
      case T::Boolean:
        out.push_back(v.asBool() ? '\x09' : '\x08');
        break;
      case T::Integer: {
        std::int64_t i = v.asInteger();
        // Only eight-byte integers are signed on disk.
        unsigned n = i < 0 ? 8 : bytesFor(static_cast<std::uint64_t>(i));
        out.push_back(static_cast<char>(0x10 | (n == 1 ? 0 : n == 2 ? 1 : n == 4 ? 2 : 3)));
        putBigEndian(out, static_cast<std::uint64_t>(i), n);
        break;
      }
      case T::Unsigned:
        // Beyond the signed range Foundation writes a 128-bit integer.
        out.push_back('\x14');
        putBigEndian(out, 0, 8);
        putBigEndian(out, v.asUnsigned(), 8);
        break;
      case T::Real:
        out.push_back('\x23');
        putBigEndian(out, bitsOf(v.asReal()), 8);
        break;
      case T::Date:
        out.push_back('\x33');
        putBigEndian(out, bitsOf(v.asDate().seconds), 8);
        break;
      case T::String:
        string(out, v.asString());
        break;
      case T::Data: {
        const Data& d = v.asData();
        marker(out, 0x4, d.size());
        out.append(reinterpret_cast<const char*>(d.data()), d.size());
        break;
      }
      case T::Uid: {
        // 0x8N holds N+1 bytes; Foundation uses 1, 2, 4 or 8.
        std::uint64_t u = v.asUid().value;
        unsigned n = bytesFor(u);
        out.push_back(static_cast<char>(0x80 | (n - 1)));
        putBigEndian(out, u, n);
        break;
      }
      case T::Array: {
        std::size_t n = v.asArray().size();
        marker(out, 0xA, n);
        for (std::size_t k = 0; k < n; ++k) putBigEndian(out, refs_[o.firstRef + k], refSize_);
        break;
      }
      case T::Dictionary: {
        std::size_t n = v.asDictionary().size();
        marker(out, 0xD, n);
        for (std::size_t k = 0; k < 2 * n; ++k) putBigEndian(out, refs_[o.firstRef + k], refSize_);
        break;
      }
      default:
        error = "a property list cannot hold nil";
        return false;
    }
    return true;
  }
};

}  // namespace

bool writeBinary(const Value& v, std::string& out, std::string* error) {
  BinaryWriter writer;
  if (!writer.write(v, out)) {
    if (error) *error = writer.error;
    return false;
  }
  return true;
}

}  // namespace wf::plist::detail
