// XML property lists laid out byte for byte as Foundation writes them.
#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <string_view>
#include <vector>

#include "platform/base/TextScan.h"
#include "platform/plist/Codec.h"
#include "platform/plist/Text.h"

namespace wf::plist::detail {

namespace {

// Foundation orders keys by a literal comparison of UTF-16 code units. In
// UTF-8 byte order equals code-point order, which differs from code-unit
// order only where a character beyond the Basic Multilingual Plane (lead
// byte F0-F4, a surrogate pair in UTF-16) meets one in U+E000-U+FFFF (lead
// byte EE or EF): surrogates sort below those.
bool precedesInUTF16(std::string_view a, std::string_view b) {
  auto m = std::mismatch(a.begin(), a.end(), b.begin(), b.end());
  if (m.second == b.end()) return false;
  if (m.first == a.end()) return true;
  auto x = static_cast<unsigned char>(*m.first), y = static_cast<unsigned char>(*m.second);
  bool xAstral = x >= 0xF0, yAstral = y >= 0xF0;
  if (xAstral != yAstral && (xAstral ? y : x) >= 0xEE) return xAstral;
  return x < y;
}

bool hasAstralCharacter(std::string_view s) {
  return std::any_of(s.begin(), s.end(),
                     [](char c) { return static_cast<unsigned char>(c) >= 0xF0; });
}

// XML dates are whole seconds (Foundation drops the fraction). Years
// outside 1-9999 are written with a sign or more digits, which our reader
// reads back to the same date; what cannot be written so (NaN, infinities,
// dates beyond what the reader accepts) is refused rather than changed.
// Returns why a date cannot be written, or nothing.
std::string unwritableDate(Date d, CivilTime& t) {
  double s = d.seconds;
  if (std::isnan(s)) return "an undefined date (NaN)";
  if (std::isinf(s)) return s > 0 ? "an infinitely late date" : "an infinitely early date";
  if (std::fabs(s) > kMaxDateSeconds) return "a date more than 3 billion years away";
  t = gregorianFromDate(d);
  if (dateSecondsFromGregorian(t.year, t.month, t.day, t.hour, t.minute, t.second) != std::floor(s))
    return "a date whose calendar form does not read back";
  return {};
}

// `value` in at least `width` decimal digits, zero-padded, at `p`; returns
// the end. Dates are written by the thousand, so this stands in for printf.
char* putDigits(char* p, std::uint64_t value, int width) {
  char digits[20];
  int n = 0;
  do {
    digits[n++] = static_cast<char>('0' + value % 10);
    value /= 10;
  } while (value != 0);
  while (n < width) digits[n++] = '0';
  while (n > 0) *p++ = digits[--n];
  return p;
}

class XmlWriter {
 public:
  explicit XmlWriter(std::string& out) : out_(out) {}

  bool write(const Value& v, int depth) {
    using T = Value::Type;
    if (depth > kMaxDepth) return fail("containers are nested deeper than 512 levels");
    tabs(depth);
    switch (v.type()) {
      case T::Nil:
        return fail("a property list cannot hold nil");
      case T::Null:
        return fail("a property list cannot hold NSNull");
      case T::Boolean:
        out_.append(v.asBool() ? "<true/>\n" : "<false/>\n");
        return true;
      case T::Integer:
        out_.append("<integer>").append(std::to_string(v.asInteger())).append("</integer>\n");
        return true;
      case T::Unsigned:
        out_.append("<integer>").append(std::to_string(v.asUnsigned())).append("</integer>\n");
        return true;
      case T::Real:
        out_.append("<real>");
        appendReal(v.asReal());
        out_.append("</real>\n");
        return true;
      case T::String:
        out_.append("<string>");
        if (!appendEscaped(v.asString())) return false;
        out_.append("</string>\n");
        return true;
      case T::Date: {
        CivilTime t{};
        if (auto why = unwritableDate(v.asDate(), t); !why.empty())
          return fail(why + " cannot be written in XML (binary keeps it)");
        appendDate(t);
        return true;
      }
      case T::Data:
        out_.append("<data>\n");
        appendBase64Lines(out_, v.asData(), depth);
        tabs(depth);
        out_.append("</data>\n");
        return true;
      case T::Uid:
        // Foundation's XML form of a keyed archive's reference.
        out_.append("<dict>\n");
        tabs(depth + 1);
        out_.append("<key>CF$UID</key>\n");
        tabs(depth + 1);
        out_.append("<integer>").append(std::to_string(v.asUid().value)).append("</integer>\n");
        tabs(depth);
        out_.append("</dict>\n");
        return true;
      case T::Array: {
        const Array& a = v.asArray();
        if (a.empty()) {
          out_.append("<array/>\n");
          return true;
        }
        out_.append("<array>\n");
        for (std::size_t i = 0; i < a.size(); ++i)
          if (!write(a[i], depth + 1)) return failedAt(std::to_string(i));
        tabs(depth);
        out_.append("</array>\n");
        return true;
      }
      case T::Dictionary:
        return writeDictionary(v.asDictionary(), depth);
    }
    return fail("unknown value type");
  }

  // The message, with the key path of the value that failed ("a.b.2").
  std::string message() const {
    if (failPath_.empty()) return error_;
    std::string path;
    for (auto it = failPath_.rbegin(); it != failPath_.rend(); ++it)
      path.append(path.empty() ? "" : ".").append(*it);
    return error_ + " (at key path \"" + path + "\")";
  }

 private:
  std::string error_;
  std::vector<std::string> failPath_;  // innermost first

  bool fail(std::string message) {
    if (error_.empty()) error_ = std::move(message);
    return false;
  }
  // Called on the way out of a failed child: records where it was.
  bool failedAt(std::string component) {
    failPath_.push_back(std::move(component));
    return false;
  }

  void tabs(int depth) { out_.append(static_cast<std::size_t>(depth), '\t'); }

  bool writeDictionary(const Dictionary& d, int depth) {
    if (d.empty()) {
      out_.append("<dict/>\n");
      return true;
    }
    out_.append("<dict>\n");
    // Keys go out in Foundation's UTF-16 order; that is the dictionary's own
    // byte order unless a key holds a character beyond the BMP.
    bool byteOrder = std::none_of(d.begin(), d.end(),
                                  [](const auto& kv) { return hasAstralCharacter(kv.first); });
    auto writeEntry = [&](const std::string& key, const Value& value) {
      tabs(depth + 1);
      out_.append("<key>");
      if (!appendEscaped(key)) return failedAt(key);
      out_.append("</key>\n");
      return write(value, depth + 1) || failedAt(key);
    };
    if (byteOrder) {
      for (const auto& [key, value] : d)
        if (!writeEntry(key, value)) return false;
    } else {
      std::vector<const Dictionary::value_type*> entries;
      entries.reserve(d.size());
      for (const auto& kv : d) entries.push_back(&kv);
      std::stable_sort(entries.begin(), entries.end(), [](const auto* a, const auto* b) {
        return precedesInUTF16(a->first, b->first);
      });
      for (const auto* kv : entries)
        if (!writeEntry(kv->first, kv->second)) return false;
    }
    tabs(depth);
    out_.append("</dict>\n");
    return true;
  }

  bool appendEscaped(const std::string& s) {
    if (!text::isValidUTF8(s)) return fail("a string is not valid UTF-8");
    std::size_t from = 0;
    const std::size_t n = s.size();
    std::size_t i = 0;
    while (i < n) {
      // Eight bytes at a time past text with nothing to escape.
      if (n - i >= 8) {
        std::uint64_t w;
        std::memcpy(&w, s.data() + i, 8);
        if (!holdsMarkup(w)) {
          i += 8;
          continue;
        }
      }
      const std::size_t stop = std::min(n, i + 8);
      for (; i < stop; ++i) {
        const char* entity;
        switch (s[i]) {
          case '&':
            entity = "&amp;";
            break;
          case '<':
            entity = "&lt;";
            break;
          case '>':
            entity = "&gt;";
            break;
          default:
            continue;
        }
        out_.append(s, from, i - from).append(entity);
        from = i + 1;
      }
    }
    out_.append(s, from, std::string::npos);
    return true;
  }

  // Whether any of the eight bytes is '&', '<' or '>'.
  static bool holdsMarkup(std::uint64_t w) {
    constexpr std::uint64_t kOnes = 0x0101010101010101ull, kHighs = 0x8080808080808080ull;
    auto anyZero = [](std::uint64_t x) { return ((x - kOnes) & ~x & kHighs) != 0; };
    return anyZero(w ^ (kOnes * '&')) || anyZero(w ^ (kOnes * '<')) || anyZero(w ^ (kOnes * '>'));
  }

  void appendReal(double d) {
    if (std::isnan(d))
      out_.append("nan");
    else if (std::isinf(d))
      out_.append(d > 0 ? "+infinity" : "-infinity");
    else
      appendShortestDouble(out_, d);
  }

  // "<date>YYYY-MM-DDTHH:MM:SSZ</date>\n"; years before 1 keep four digits
  // after the sign, so they read back.
  void appendDate(const CivilTime& t) {
    char buf[80];
    char* p = buf;
    for (char c : std::string_view("<date>")) *p++ = c;
    if (t.year < 0) *p++ = '-';
    p = putDigits(p, static_cast<std::uint64_t>(t.year < 0 ? -t.year : t.year), 4);
    *p++ = '-';
    p = putDigits(p, static_cast<std::uint64_t>(t.month), 2);
    *p++ = '-';
    p = putDigits(p, static_cast<std::uint64_t>(t.day), 2);
    *p++ = 'T';
    p = putDigits(p, static_cast<std::uint64_t>(t.hour), 2);
    *p++ = ':';
    p = putDigits(p, static_cast<std::uint64_t>(t.minute), 2);
    *p++ = ':';
    p = putDigits(p, static_cast<std::uint64_t>(t.second), 2);
    for (char c : std::string_view("Z</date>\n")) *p++ = c;
    out_.append(buf, static_cast<std::size_t>(p - buf));
  }

  std::string& out_;
};

}  // namespace

bool writeXML(const Value& v, std::string& out, std::string* error) {
  std::string text;
  text.reserve(4096);
  text.append(
      "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n"
      "<!DOCTYPE plist PUBLIC \"-//Apple//DTD PLIST 1.0//EN\" "
      "\"http://www.apple.com/DTDs/PropertyList-1.0.dtd\">\n"
      "<plist version=\"1.0\">\n");
  XmlWriter writer(text);
  if (!writer.write(v, 0)) {
    if (error) *error = writer.message();
    return false;
  }
  text.append("</plist>\n");
  out = std::move(text);
  return true;
}

}  // namespace wf::plist::detail
