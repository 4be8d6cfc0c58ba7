// Reads binary "bplist00" property lists. Every offset, count and reference
// is checked against the input before use; shared objects are parsed once,
// reference cycles are refused, and so is sharing that would make the value
// far larger than the file (see kMinExpandedBudget).
#include <algorithm>
#include <cstring>
#include <limits>
#include <unordered_map>
#include <vector>

#include "platform/plist/Codec.h"

namespace wf::plist::detail {

namespace {

constexpr std::size_t kHeaderSize = 8;
constexpr std::size_t kTrailerSize = 32;

// An object referenced from several places is parsed once and shared, so a
// few hundred bytes can describe 2^64 values (each level of arrays holding
// the next level twice); whoever walks such a value (describing, comparing,
// writing) never finishes. Values are therefore counted as if every shared
// reference were a copy. A writer that shares only scalars, as Foundation's
// and ours do, makes at most one value per reference, so a file of n bytes
// holds fewer than n; the budget allows eight times that, and never less
// than this floor.
constexpr std::uint64_t kMinExpandedBudget = std::uint64_t{1} << 20;
constexpr std::uint64_t kExpandedBudgetPerByte = 8;

// Counts the values of `v` as if every shared container were copied, each
// shared container walked once (memo), stopping as soon as the count
// passes `budget`.
class ExpansionCounter {
 public:
  explicit ExpansionCounter(std::uint64_t budget) : budget_(budget) {}

  // The count, or budget + 1 when it is larger.
  std::uint64_t count(const Value& v) {
    const void* key;
    if (v.isArray())
      key = &v.asArray();
    else if (v.isDictionary())
      key = &v.asDictionary();
    else
      return 1;
    auto [it, inserted] = memo_.try_emplace(key, 0);
    if (!inserted) return it->second;
    std::uint64_t total = 1;
    auto add = [&](std::uint64_t n) {
      total = n > budget_ - std::min(total, budget_) ? budget_ + 1 : total + n;
      return total <= budget_;
    };
    if (v.isArray()) {
      for (const Value& item : v.asArray())
        if (!add(count(item))) break;
    } else {
      for (const auto& entry : v.asDictionary())
        if (!add(1) || !add(count(entry.second))) break;
    }
    memo_[key] = total;  // the map may have grown: look the entry up again
    return total;
  }

 private:
  std::uint64_t budget_;
  std::unordered_map<const void*, std::uint64_t> memo_;
};

std::uint64_t readBigEndian(const unsigned char* p, std::size_t n) {
  // References and offsets are read for every object: the common widths
  // get straight-line code.
  switch (n) {
    case 1:
      return p[0];
    case 2:
      return static_cast<std::uint64_t>(p[0]) << 8 | p[1];
    case 4: {
      std::uint32_t v;
      std::memcpy(&v, p, 4);
      return __builtin_bswap32(v);
    }
    case 8: {
      std::uint64_t v;
      std::memcpy(&v, p, 8);
      return __builtin_bswap64(v);
    }
    default: {
      std::uint64_t v = 0;
      for (std::size_t i = 0; i < n; ++i) v = (v << 8) | p[i];
      return v;
    }
  }
}

// Index of the first byte >= 0x80, or n.
std::size_t firstNonAscii(const unsigned char* p, std::size_t n) {
  std::size_t k = 0;
  for (; k + 8 <= n; k += 8) {
    std::uint64_t w;
    std::memcpy(&w, p + k, 8);
    if (w & 0x8080808080808080ull) break;
  }
  for (; k < n; ++k)
    if (p[k] >= 0x80) return k;
  return n;
}

// Writes code point `u` as UTF-8 at `o`; returns the end of what it wrote.
char* putUTF8(char* o, std::uint32_t u) {
  if (u < 0x80) {
    *o++ = static_cast<char>(u);
  } else if (u < 0x800) {
    *o++ = static_cast<char>(0xC0 | (u >> 6));
    *o++ = static_cast<char>(0x80 | (u & 0x3F));
  } else if (u < 0x10000) {
    *o++ = static_cast<char>(0xE0 | (u >> 12));
    *o++ = static_cast<char>(0x80 | ((u >> 6) & 0x3F));
    *o++ = static_cast<char>(0x80 | (u & 0x3F));
  } else {
    *o++ = static_cast<char>(0xF0 | (u >> 18));
    *o++ = static_cast<char>(0x80 | ((u >> 12) & 0x3F));
    *o++ = static_cast<char>(0x80 | ((u >> 6) & 0x3F));
    *o++ = static_cast<char>(0x80 | (u & 0x3F));
  }
  return o;
}

// Offsets and references may take any whole number of bytes up to eight.
bool validSize(unsigned n) { return n >= 1 && n <= 8; }

class BinaryReader {
 public:
  explicit BinaryReader(std::string_view s)
      : b_(reinterpret_cast<const unsigned char*>(s.data())),
        size_(s.size()),
        budget_(std::max(kMinExpandedBudget, kExpandedBudgetPerByte * s.size())) {}

  Value parse(std::string* error) {
    Value v = parseAll();
    if (v.isNil() && error) *error = error_;
    return v;
  }

 private:
  const unsigned char* b_;
  std::size_t size_;
  unsigned offsetSize_ = 0, refSize_ = 0;
  std::uint64_t count_ = 0, tableOffset_ = 0;
  std::size_t objectsEnd_ = 0;  // objects live in [8, objectsEnd_)
  std::vector<Value> cache_;
  std::vector<std::uint8_t> state_;  // 0 unread, 1 being read, 2 read
  // Set when a container is referenced a second time: only then can the
  // value stand for more than the file holds, and only then is it counted.
  bool sharesContainers_ = false;
  std::uint64_t budget_;
  std::string error_;

  Value fail(std::string message) {
    if (error_.empty()) error_ = std::move(message);
    return Value();
  }
  Value failObject(std::uint64_t index, std::size_t offset, const std::string& what) {
    return fail("object " + std::to_string(index) + " at byte " + std::to_string(offset) + ": " +
                what);
  }

  Value parseAll() {
    if (size_ < kHeaderSize + kTrailerSize + 2)
      return fail("binary property list is truncated (" + std::to_string(size_) + " bytes)");
    if (std::memcmp(b_, "bplist00", 8) != 0)
      return fail("unsupported binary property list version \"" +
                  std::string(reinterpret_cast<const char*>(b_) + 6, 2) + "\" (only 00)");
    const unsigned char* t = b_ + size_ - kTrailerSize;
    offsetSize_ = t[6];
    refSize_ = t[7];
    count_ = readBigEndian(t + 8, 8);
    std::uint64_t top = readBigEndian(t + 16, 8);
    tableOffset_ = readBigEndian(t + 24, 8);
    std::size_t trailerAt = size_ - kTrailerSize;
    std::string where = "trailer at byte " + std::to_string(trailerAt) + ": ";
    if (!validSize(offsetSize_))
      return fail(where + "offset size " + std::to_string(offsetSize_) + " is not 1 to 8");
    if (!validSize(refSize_))
      return fail(where + "reference size " + std::to_string(refSize_) + " is not 1 to 8");
    if (count_ == 0) return fail(where + "the list has no objects");
    if (top >= count_)
      return fail(where + "top object " + std::to_string(top) + " is beyond the " +
                  std::to_string(count_) + " objects");
    if (tableOffset_ < kHeaderSize + 1 || tableOffset_ >= trailerAt)
      return fail(where + "offset table at byte " + std::to_string(tableOffset_) +
                  " is outside the file");
    if (count_ > (trailerAt - tableOffset_) / offsetSize_)
      return fail(where + std::to_string(count_) + " objects do not fit the offset table");
    if (refSize_ < 8 && count_ > (std::uint64_t{1} << (8 * refSize_)))
      return fail(where + std::to_string(count_) + " objects cannot be named by " +
                  std::to_string(refSize_) + "-byte references");
    objectsEnd_ = static_cast<std::size_t>(tableOffset_);
    cache_.resize(static_cast<std::size_t>(count_));
    state_.assign(static_cast<std::size_t>(count_), 0);
    Value root = object(top, 0);
    if (root.isNil() || !sharesContainers_) return root;
    if (ExpansionCounter(budget_).count(root) > budget_) {
      std::size_t offset = 0;
      offsetOf(top, offset);
      return failObject(top, offset,
                        "shared objects expand to more than " + std::to_string(budget_) +
                            " values (counting every reference as a copy)");
    }
    return root;
  }

  bool offsetOf(std::uint64_t index, std::size_t& offset) {
    std::uint64_t o = readBigEndian(b_ + tableOffset_ + index * offsetSize_, offsetSize_);
    if (o < kHeaderSize || o >= objectsEnd_) {
      fail("offset table: object " + std::to_string(index) + " at byte " + std::to_string(o) +
           " is outside the object area");
      return false;
    }
    offset = static_cast<std::size_t>(o);
    return true;
  }

  // Reads the length that follows a marker whose low nibble is 0xF.
  bool readCount(std::uint64_t index, std::size_t offset, unsigned low, std::size_t& pos,
                 std::uint64_t& count) {
    pos = offset + 1;
    if (low != 0xF) {
      count = low;
      return true;
    }
    if (pos >= objectsEnd_ || (b_[pos] & 0xF0) != 0x10 || (b_[pos] & 0x0F) > 3) {
      failObject(index, offset, "malformed length");
      return false;
    }
    std::size_t n = std::size_t{1} << (b_[pos] & 0x0F);
    if (pos + 1 + n > objectsEnd_) {
      failObject(index, offset, "length runs past the object area");
      return false;
    }
    count = readBigEndian(b_ + pos + 1, n);
    pos += 1 + n;
    return true;
  }

  // True when `count` items of `itemSize` bytes fit between pos and the end
  // of the object area (checked without overflow).
  bool fits(std::size_t pos, std::uint64_t count, std::uint64_t itemSize) const {
    return pos <= objectsEnd_ && count <= (objectsEnd_ - pos) / itemSize;
  }

  Value object(std::uint64_t index, int depth) {
    auto i = static_cast<std::size_t>(index);
    if (state_[i] == 2) {
      if (cache_[i].isArray() || cache_[i].isDictionary()) sharesContainers_ = true;
      return cache_[i];
    }
    std::size_t offset;
    if (!offsetOf(index, offset)) return Value();
    if (state_[i] == 1)
      return failObject(index, offset, "reference cycle (the object contains itself)");
    unsigned marker = b_[offset];
    unsigned high = marker >> 4, low = marker & 0xF;
    // Scalars are as cheap to read again as to copy and are returned
    // directly; what owns memory is kept for the next reference.
    Value v;
    switch (high) {
      case 0x0:
        if (marker == 0x08 || marker == 0x09) return Value(marker == 0x09);
        return failObject(
            index, offset,
            marker == 0x00 ? "null objects cannot be read" : "unknown marker 0x0" + hex(low));
      case 0x1:
        return integer(index, offset, low);
      case 0x2: {
        if (low != 2 && low != 3) return failObject(index, offset, "real of unknown size");
        std::size_t n = std::size_t{1} << low;
        if (offset + 1 + n > objectsEnd_) return failObject(index, offset, "truncated real");
        std::uint64_t bits = readBigEndian(b_ + offset + 1, n);
        if (n == 4) {
          float f;
          auto b32 = static_cast<std::uint32_t>(bits);
          std::memcpy(&f, &b32, 4);
          return Value(static_cast<double>(f));
        }
        double d;
        std::memcpy(&d, &bits, 8);
        return Value(d);
      }
      case 0x3: {
        if (low != 3) return failObject(index, offset, "date of unknown size");
        if (offset + 9 > objectsEnd_) return failObject(index, offset, "truncated date");
        std::uint64_t bits = readBigEndian(b_ + offset + 1, 8);
        double d;
        std::memcpy(&d, &bits, 8);
        return Value(Date{d});
      }
      case 0x4:
      case 0x5:
      case 0x6:
        v = bytesObject(index, offset, high, low);
        break;
      case 0x8: {
        std::size_t n = low + 1;
        if (n > 8) return failObject(index, offset, "UID wider than 8 bytes");
        if (offset + 1 + n > objectsEnd_) return failObject(index, offset, "truncated UID");
        return Value(Uid{readBigEndian(b_ + offset + 1, n)});
      }
      case 0xA:
      case 0xC:
      case 0xD:
        if (depth >= kMaxDepth)
          return failObject(index, offset, "containers are nested deeper than 512 levels");
        state_[i] = 1;
        v = high == 0xD ? dictionary(index, offset, low, depth) : array(index, offset, low, depth);
        break;
      default:
        return failObject(index, offset, "unknown marker 0x" + hex(marker));
    }
    if (v.isNil()) return Value();
    cache_[i] = v;
    state_[i] = 2;
    return v;
  }

  static std::string hex(unsigned v) {
    static const char digits[] = "0123456789ABCDEF";
    std::string out;
    if (v > 15) out.push_back(digits[(v >> 4) & 15]);
    out.push_back(digits[v & 15]);
    return out;
  }

  Value integer(std::uint64_t index, std::size_t offset, unsigned low) {
    if (low > 4) return failObject(index, offset, "integer of unknown size");
    std::size_t n = std::size_t{1} << low;
    if (offset + 1 + n > objectsEnd_) return failObject(index, offset, "truncated integer");
    const unsigned char* p = b_ + offset + 1;
    if (n < 8) return Value(static_cast<long long>(readBigEndian(p, n)));  // unsigned on disk
    if (n == 8)
      return Value(static_cast<long long>(static_cast<std::int64_t>(readBigEndian(p, 8))));
    // 128-bit: Foundation keeps the low 64 bits; a zero high half means an
    // unsigned value, an all-ones high half a negative one.
    std::uint64_t highHalf = readBigEndian(p, 8), lowHalf = readBigEndian(p + 8, 8);
    if (highHalf == 0) return Value(static_cast<unsigned long long>(lowHalf));
    return Value(static_cast<long long>(static_cast<std::int64_t>(lowHalf)));
  }

  Value bytesObject(std::uint64_t index, std::size_t offset, unsigned high, unsigned low) {
    std::size_t pos;
    std::uint64_t count;
    if (!readCount(index, offset, low, pos, count)) return Value();
    std::uint64_t unit = high == 0x6 ? 2 : 1;
    const char* kind = high == 0x4 ? "data" : "string";
    if (!fits(pos, count, unit))
      return failObject(index, offset,
                        std::string(kind) + " of " + std::to_string(count) +
                            (high == 0x6 ? " characters" : " bytes") +
                            " runs past the object area");
    const unsigned char* p = b_ + pos;
    auto n = static_cast<std::size_t>(count);
    if (high == 0x4) return Value(Data(p, p + n));
    if (high == 0x5) {
      std::size_t bad = firstNonAscii(p, n);
      if (bad < n)
        return failObject(
            index, offset,
            "ASCII string holds byte 0x" + hex(p[bad]) + " at byte " + std::to_string(pos + bad));
      return Value(std::string_view(reinterpret_cast<const char*>(p), n));
    }
    // At most three bytes of UTF-8 per UTF-16 unit (a pair's four bytes
    // stand for two units): written in place, the length set once at the end.
    std::string out(n * 3, '\0');
    char* o = out.data();
    for (std::size_t k = 0; k < n; ++k) {
      std::uint32_t u = static_cast<std::uint32_t>(p[2 * k] << 8 | p[2 * k + 1]);
      if (u < 0x80) {
        *o++ = static_cast<char>(u);
        continue;
      }
      if (u >= 0xD800 && u <= 0xDBFF && k + 1 < n) {
        std::uint32_t u2 = static_cast<std::uint32_t>(p[2 * k + 2] << 8 | p[2 * k + 3]);
        if (u2 >= 0xDC00 && u2 <= 0xDFFF) {
          u = 0x10000 + ((u - 0xD800) << 10) + (u2 - 0xDC00);
          ++k;
        }
      }
      // A lone surrogate cannot be UTF-8; it becomes U+FFFD.
      if (u >= 0xD800 && u <= 0xDFFF) u = 0xFFFD;
      o = putUTF8(o, u);
    }
    out.resize(static_cast<std::size_t>(o - out.data()));
    return Value(std::move(out));
  }

  bool ref(std::size_t pos, std::uint64_t index, std::size_t offset, std::uint64_t& target) {
    // One or two bytes in nearly every list: read here, without the call.
    if (refSize_ == 1)
      target = b_[pos];
    else if (refSize_ == 2)
      target = static_cast<std::uint64_t>(b_[pos]) << 8 | b_[pos + 1];
    else
      target = readBigEndian(b_ + pos, refSize_);
    if (target >= count_) {
      failObject(index, offset,
                 "reference to object " + std::to_string(target) + " beyond the " +
                     std::to_string(count_) + " objects");
      return false;
    }
    return true;
  }

  Value array(std::uint64_t index, std::size_t offset, unsigned low, int depth) {
    std::size_t pos;
    std::uint64_t count;
    if (!readCount(index, offset, low, pos, count)) return Value();
    if (!fits(pos, count, refSize_))
      return failObject(index, offset,
                        "array of " + std::to_string(count) + " items runs past the object area");
    Array items;
    items.reserve(static_cast<std::size_t>(count));
    for (std::uint64_t k = 0; k < count; ++k) {
      std::uint64_t target;
      if (!ref(pos + k * refSize_, index, offset, target)) return Value();
      Value item = object(target, depth + 1);
      if (item.isNil()) return Value();
      items.push_back(std::move(item));
    }
    return Value(std::move(items));
  }

  Value dictionary(std::uint64_t index, std::size_t offset, unsigned low, int depth) {
    std::size_t pos;
    std::uint64_t count;
    if (!readCount(index, offset, low, pos, count)) return Value();
    if (count > std::numeric_limits<std::uint64_t>::max() / 2 || !fits(pos, count * 2, refSize_))
      return failObject(
          index, offset,
          "dictionary of " + std::to_string(count) + " entries runs past the object area");
    Dictionary::Entries entries;
    entries.reserve(static_cast<std::size_t>(count));
    std::size_t valuesAt = pos + static_cast<std::size_t>(count) * refSize_;
    for (std::uint64_t k = 0; k < count; ++k) {
      std::uint64_t keyRef, valueRef;
      if (!ref(pos + k * refSize_, index, offset, keyRef) ||
          !ref(valuesAt + k * refSize_, index, offset, valueRef))
        return Value();
      // Keys are strings, which stay cached: use them where they are.
      if (state_[static_cast<std::size_t>(keyRef)] != 2) {
        Value key = object(keyRef, depth + 1);
        if (key.isNil()) return Value();
      }
      const Value& key = cache_[static_cast<std::size_t>(keyRef)];
      if (!key.isString())
        return failObject(index, offset,
                          "key " + std::to_string(k) + " (object " + std::to_string(keyRef) +
                              ") is not a string");
      Value value = object(valueRef, depth + 1);
      if (value.isNil()) return Value();
      entries.emplace_back(key.asString(), std::move(value));
    }
    // A repeated key keeps its last value.
    Dictionary dict = Dictionary::fromEntries(std::move(entries));
    return Value(std::move(dict));
  }
};

}  // namespace

Value parseBinary(std::string_view bytes, std::string* error) {
  return BinaryReader(bytes).parse(error);
}

}  // namespace wf::plist::detail
