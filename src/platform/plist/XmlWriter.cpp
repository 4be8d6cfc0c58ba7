// XML property lists laid out byte for byte as Foundation writes them.
#include <algorithm>
#include <cinttypes>
#include <cmath>
#include <cstdio>
#include <vector>

#include "platform/foundation/Strings.h"
#include "platform/plist/Codec.h"
#include "platform/plist/Text.h"

namespace wf::plist::detail {

namespace {

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
      case T::Array: {
        const Array& a = v.asArray();
        if (a.empty()) {
          out_.append("<array/>\n");
          return true;
        }
        out_.append("<array>\n");
        for (const Value& item : a)
          if (!write(item, depth + 1)) return false;
        tabs(depth);
        out_.append("</array>\n");
        return true;
      }
      case T::Dictionary:
        return writeDictionary(v.asDictionary(), depth);
    }
    return fail("unknown value type");
  }

  std::string error;

 private:
  bool fail(std::string message) {
    if (error.empty()) error = std::move(message);
    return false;
  }

  void tabs(int depth) { out_.append(static_cast<std::size_t>(depth), '\t'); }

  bool writeDictionary(const Dictionary& d, int depth) {
    if (d.empty()) {
      out_.append("<dict/>\n");
      return true;
    }
    out_.append("<dict>\n");
    // Keys go out in Foundation's string order; for ASCII keys that is the
    // map's own byte order, so only non-ASCII keys need a sort.
    bool ascii = std::all_of(d.begin(), d.end(), [](const auto& kv) {
      return std::all_of(kv.first.begin(), kv.first.end(),
                         [](char c) { return static_cast<unsigned char>(c) < 0x80; });
    });
    auto writeEntry = [&](const std::string& key, const Value& value) {
      tabs(depth + 1);
      out_.append("<key>");
      if (!appendEscaped(key)) return false;
      out_.append("</key>\n");
      return write(value, depth + 1);
    };
    if (ascii) {
      for (const auto& [key, value] : d)
        if (!writeEntry(key, value)) return false;
    } else {
      std::vector<const Dictionary::value_type*> entries;
      entries.reserve(d.size());
      for (const auto& kv : d) entries.push_back(&kv);
      std::stable_sort(entries.begin(), entries.end(), [](const auto* a, const auto* b) {
        return ns::compare(a->first, b->first) < 0;
      });
      for (const auto* kv : entries)
        if (!writeEntry(kv->first, kv->second)) return false;
    }
    tabs(depth);
    out_.append("</dict>\n");
    return true;
  }

  bool appendEscaped(const std::string& s) {
    if (!ns::isValidUTF8(s)) return fail("a string is not valid UTF-8");
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
    if (error) *error = writer.error;
    return false;
  }
  text.append("</plist>\n");
  out = std::move(text);
  return true;
}

}  // namespace wf::plist::detail
