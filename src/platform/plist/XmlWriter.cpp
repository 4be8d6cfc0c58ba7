// XML property lists laid out byte for byte as Foundation writes them.
#include <algorithm>
#include <cinttypes>
#include <cmath>
#include <cstdio>
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
std::string unwritableDate(Date d) {
  double s = d.seconds;
  if (std::isnan(s)) return "an undefined date (NaN)";
  if (std::isinf(s)) return s > 0 ? "an infinitely late date" : "an infinitely early date";
  if (std::fabs(s) > kMaxDateSeconds) return "a date more than 3 billion years away";
  CivilTime t = gregorianFromDate(d);
  if (dateSecondsFromGregorian(t.year, t.month, t.day, t.hour, t.minute, t.second) != std::floor(s))
    return "a date whose calendar form does not read back";
  return {};
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
      case T::Date:
        if (auto why = unwritableDate(v.asDate()); !why.empty())
          return fail(why + " cannot be written in XML (binary keeps it)");
        out_.append("<date>");
        appendDate(v.asDate());
        out_.append("</date>\n");
        return true;
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
    for (std::size_t i = 0; i < s.size(); ++i) {
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
    out_.append(s, from, std::string::npos);
    return true;
  }

  void appendReal(double d) {
    if (std::isnan(d))
      out_.append("nan");
    else if (std::isinf(d))
      out_.append(d > 0 ? "+infinity" : "-infinity");
    else
      appendShortestDouble(out_, d);
  }

  void appendDate(Date d) {
    CivilTime t = gregorianFromDate(d);
    // Years before 1 keep four digits after the sign, so they read back.
    char buf[80];
    std::snprintf(buf, sizeof buf, "%s%04" PRId64 "-%02d-%02dT%02d:%02d:%02dZ",
                  t.year < 0 ? "-" : "", t.year < 0 ? -t.year : t.year, t.month, t.day, t.hour,
                  t.minute, t.second);
    out_.append(buf);
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
