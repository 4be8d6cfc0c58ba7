// Reads XML property lists: a small, strict scanner for the subset of XML
// that property lists use, with positions in every error.
#include <charconv>
#include <cmath>
#include <cstring>
#include <limits>

#include "platform/base/TextScan.h"
#include "platform/plist/Codec.h"
#include "platform/plist/Text.h"

namespace wf::plist::detail {

namespace {

bool isSpace(char c) { return c == ' ' || c == '\t' || c == '\n' || c == '\r'; }
bool isAsciiAlpha(char c) { return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z'); }
bool isAsciiDigit(char c) { return c >= '0' && c <= '9'; }
char asciiLower(char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c; }
bool isNameStart(char c) { return isAsciiAlpha(c) || c == '_' || c == ':'; }
bool isNameChar(char c) {
  return isAsciiAlpha(c) || isAsciiDigit(c) || c == '_' || c == ':' || c == '-' || c == '.';
}

std::string_view trim(std::string_view s) {
  while (!s.empty() && isSpace(s.front())) s.remove_prefix(1);
  while (!s.empty() && isSpace(s.back())) s.remove_suffix(1);
  return s;
}

bool equalsNoCase(std::string_view a, std::string_view b) {
  if (a.size() != b.size()) return false;
  for (std::size_t i = 0; i < a.size(); ++i)
    if (asciiLower(a[i]) != asciiLower(b[i])) return false;
  return true;
}

// UTF-16 text without its byte-order mark as UTF-8; false at a lone
// surrogate or an odd byte at the end.
bool utf8FromUTF16(std::string_view bytes, bool bigEndian, std::string& out) {
  if (bytes.size() % 2) return false;
  auto unit = [&](std::size_t i) {
    auto hi = static_cast<unsigned char>(bytes[bigEndian ? i : i + 1]);
    auto lo = static_cast<unsigned char>(bytes[bigEndian ? i + 1 : i]);
    return static_cast<std::uint32_t>(hi << 8 | lo);
  };
  out.reserve(bytes.size());
  for (std::size_t i = 0; i < bytes.size(); i += 2) {
    std::uint32_t cp = unit(i);
    if (cp >= 0xDC00 && cp <= 0xDFFF) return false;
    if (cp >= 0xD800 && cp <= 0xDBFF) {
      if (i + 2 >= bytes.size()) return false;
      std::uint32_t low = unit(i + 2);
      if (low < 0xDC00 || low > 0xDFFF) return false;
      cp = 0x10000 + ((cp - 0xD800) << 10) + (low - 0xDC00);
      i += 2;
    }
    text::appendUTF8(out, cp);
  }
  return true;
}

struct Tag {
  std::string_view name;
  bool empty = false;  // <name/>
  std::size_t at = 0;  // offset of '<'
};

class XmlReader {
 public:
  explicit XmlReader(std::string_view s, bool fromUTF16 = false) : s_(s), fromUTF16_(fromUTF16) {}

  Value parse(std::string* error) {
    Value v = parseDocument();
    if (v.isNil() && error) *error = message();
    return v;
  }

 private:
  std::string_view s_;
  std::size_t p_ = 0;
  std::string what_;
  std::size_t where_ = 0;
  bool failed_ = false;
  bool fromUTF16_ = false;  // converted from UTF-16, so it may say so

  Value fail(std::size_t at, std::string what) {
    if (!failed_) {
      failed_ = true;
      where_ = at;
      what_ = std::move(what);
    }
    return Value();
  }

  std::string message() const {
    std::size_t line = 1, lineStart = 0;
    for (std::size_t i = 0; i < where_ && i < s_.size(); ++i)
      if (s_[i] == '\n') ++line, lineStart = i + 1;
    std::size_t column = 1;
    for (std::size_t i = lineStart; i < where_ && i < s_.size(); ++i)
      if ((static_cast<unsigned char>(s_[i]) & 0xC0) != 0x80) ++column;
    return "line " + std::to_string(line) + ", column " + std::to_string(column) + ": " + what_;
  }

  bool startsWith(std::string_view prefix) const { return s_.substr(p_, prefix.size()) == prefix; }
  bool atEnd() const { return p_ >= s_.size(); }

  static std::string show(std::string_view text) {
    std::string out;
    for (char c : text.substr(0, 20)) {
      if (c == '\n' || c == '\r' || c == '\t') c = ' ';
      out.push_back(c);
    }
    if (text.size() > 20) out.append("\u2026");
    return out;
  }

  // Skips "<!-- ... -->" at p_ (which starts with "<!--").
  bool skipComment() {
    std::size_t at = p_;
    auto end = s_.find("-->", p_ + 4);
    if (end == std::string_view::npos)
      return fail(at, "comment is not closed (missing \"-->\")"), false;
    p_ = end + 3;
    return true;
  }

  // Skips "<? ... ?>" at p_.
  bool skipProcessingInstruction() {
    std::size_t at = p_;
    auto end = s_.find("?>", p_ + 2);
    if (end == std::string_view::npos)
      return fail(at, "processing instruction is not closed (missing \"?>\")"), false;
    p_ = end + 2;
    return true;
  }

  // Skips white space, comments and processing instructions between
  // elements. Returns false on a malformed comment.
  bool skipMisc() {
    while (!atEnd()) {
      if (isSpace(s_[p_])) {
        ++p_;
      } else if (startsWith("<!--")) {
        if (!skipComment()) return false;
      } else if (startsWith("<?")) {
        if (!skipProcessingInstruction()) return false;
      } else {
        break;
      }
    }
    return true;
  }

  bool parseXmlDeclaration() {
    std::size_t at = p_;
    auto end = s_.find("?>", p_);
    if (end == std::string_view::npos)
      return fail(at, "XML declaration is not closed (missing \"?>\")"), false;
    std::string_view decl = s_.substr(p_, end - p_);
    auto enc = decl.find("encoding");
    if (enc != std::string_view::npos) {
      auto q = decl.find_first_of("\"'", enc);
      if (q != std::string_view::npos) {
        auto q2 = decl.find(decl[q], q + 1);
        if (q2 != std::string_view::npos) {
          std::string_view name = decl.substr(q + 1, q2 - q - 1);
          if (!equalsNoCase(name, "UTF-8") && !equalsNoCase(name, "UTF8") &&
              !equalsNoCase(name, "US-ASCII") && !equalsNoCase(name, "ASCII") &&
              !(fromUTF16_ && (equalsNoCase(name, "UTF-16") || equalsNoCase(name, "UTF-16BE") ||
                               equalsNoCase(name, "UTF-16LE"))))
            return fail(at + q + 1, "unsupported encoding \"" + show(name) + "\" (only UTF-8)"),
                   false;
        }
      }
    }
    p_ = end + 2;
    return true;
  }

  bool skipDoctype() {
    std::size_t at = p_;
    int brackets = 0;
    char quote = 0;
    for (std::size_t i = p_ + 9; i < s_.size(); ++i) {
      char c = s_[i];
      if (quote) {
        if (c == quote) quote = 0;
      } else if (c == '"' || c == '\'') {
        quote = c;
      } else if (c == '[') {
        ++brackets;
      } else if (c == ']') {
        --brackets;
      } else if (c == '>' && brackets <= 0) {
        p_ = i + 1;
        return true;
      }
    }
    return fail(at, "DOCTYPE is not closed (missing \">\")"), false;
  }

  static constexpr std::string_view kStandardProlog =
      "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<!DOCTYPE plist PUBLIC \"-//Apple//DTD PLIST "
      "1.0//EN\" \"http://www.apple.com/DTDs/PropertyList-1.0.dtd\">\n";

  Value parseDocument() {
    if (startsWith("\xEF\xBB\xBF")) p_ = 3;
    if (auto bad = text::firstInvalidUTF8(s_); bad != std::string_view::npos)
      return fail(bad, "invalid UTF-8 byte 0x" + hex(static_cast<unsigned char>(s_[bad])));
    // The prolog every writer of the format puts first, byte for byte, is
    // passed over at once: what the loop below accepts it as, without
    // searching it (small lists, an attribute each, are mostly prolog).
    if (startsWith(kStandardProlog)) p_ += kStandardProlog.size();
    while (true) {
      while (!atEnd() && isSpace(s_[p_])) ++p_;
      if (startsWith("<?xml") && p_ + 5 < s_.size() && (isSpace(s_[p_ + 5]) || s_[p_ + 5] == '?')) {
        if (!parseXmlDeclaration()) return Value();
      } else if (startsWith("<?")) {
        if (!skipProcessingInstruction()) return Value();
      } else if (startsWith("<!--")) {
        if (!skipComment()) return Value();
      } else if (startsWith("<!DOCTYPE")) {
        if (!skipDoctype()) return Value();
      } else {
        break;
      }
    }
    if (atEnd()) return fail(p_, "no property list (the document is empty)");
    if (s_[p_] != '<')
      return fail(p_, "expected an element, found \"" + show(s_.substr(p_)) + "\"");
    Tag tag;
    if (!parseStartTag(tag)) return Value();
    Value root;
    if (tag.name == "plist") {
      if (tag.empty) return fail(tag.at, "the <plist> element is empty");
      if (!skipMisc()) return Value();
      if (startsWith("</")) return fail(p_, "the <plist> element is empty");
      if (atEnd() || s_[p_] != '<')
        return fail(p_, "expected a value inside <plist>, found \"" + show(s_.substr(p_)) + "\"");
      Tag inner;
      if (!parseStartTag(inner)) return Value();
      root = parseValue(inner, 0);
      if (failed_) return Value();
      if (!skipMisc()) return Value();
      if (!startsWith("</"))
        return fail(p_, atEnd() ? std::string("<plist> is not closed")
                                : "<plist> holds more than one value");
      if (!parseEndTag("plist")) return Value();
    } else {
      // Foundation also reads a bare value without the <plist> wrapper.
      root = parseValue(tag, 0);
      if (failed_) return Value();
    }
    if (!skipMisc()) return Value();
    if (!atEnd())
      return fail(p_,
                  "unexpected content after the property list: \"" + show(s_.substr(p_)) + "\"");
    return root;
  }

  static std::string hex(unsigned v) {
    static const char digits[] = "0123456789ABCDEF";
    return std::string{digits[(v >> 4) & 15], digits[v & 15]};
  }

  // At '<' of a start tag; reads name and attributes.
  bool parseStartTag(Tag& tag) {
    tag = Tag{};
    tag.at = p_;
    ++p_;
    std::size_t nameStart = p_;
    if (atEnd() || !isNameStart(s_[p_]))
      return fail(tag.at, "expected an element name after \"<\""), false;
    while (!atEnd() && isNameChar(s_[p_])) ++p_;
    tag.name = s_.substr(nameStart, p_ - nameStart);
    while (true) {
      std::size_t before = p_;
      while (!atEnd() && isSpace(s_[p_])) ++p_;
      if (atEnd()) return fail(tag.at, "tag <" + std::string(tag.name) + "> is not closed"), false;
      if (s_[p_] == '>') {
        ++p_;
        return true;
      }
      if (startsWith("/>")) {
        p_ += 2;
        tag.empty = true;
        return true;
      }
      if (before == p_ || !isNameStart(s_[p_]))
        return fail(p_, "malformed tag <" + std::string(tag.name) + ">"), false;
      while (!atEnd() && isNameChar(s_[p_])) ++p_;
      while (!atEnd() && isSpace(s_[p_])) ++p_;
      if (atEnd() || s_[p_] != '=')
        return fail(p_, "attribute without a value in <" + std::string(tag.name) + ">"), false;
      ++p_;
      while (!atEnd() && isSpace(s_[p_])) ++p_;
      if (atEnd() || (s_[p_] != '"' && s_[p_] != '\''))
        return fail(p_, "attribute value is not quoted in <" + std::string(tag.name) + ">"), false;
      auto close = s_.find(s_[p_], p_ + 1);
      if (close == std::string_view::npos)
        return fail(p_, "attribute value is not closed in <" + std::string(tag.name) + ">"), false;
      p_ = close + 1;
    }
  }

  // At "</"; the name must match.
  bool parseEndTag(std::string_view name) {
    std::size_t at = p_;
    p_ += 2;
    std::size_t nameStart = p_;
    while (!atEnd() && isNameChar(s_[p_])) ++p_;
    std::string_view found = s_.substr(nameStart, p_ - nameStart);
    if (found != name)
      return fail(at, "expected </" + std::string(name) + ">, found </" + show(found) + ">"), false;
    while (!atEnd() && isSpace(s_[p_])) ++p_;
    if (atEnd() || s_[p_] != '>')
      return fail(at, "end tag </" + std::string(name) + "> is not closed"), false;
    ++p_;
    return true;
  }

  // The character data of an element up to its end tag, with entities,
  // character references and CDATA sections resolved.
  bool parseText(const Tag& tag, std::string& out) {
    out.clear();
    if (tag.empty) return true;
    while (true) {
      std::size_t lt = s_.find('<', p_);
      if (lt == std::string_view::npos)
        return fail(tag.at, "<" + std::string(tag.name) + "> is not closed"), false;
      // Plain runs between markup are copied whole.
      while (p_ < lt) {
        const void* amp = std::memchr(s_.data() + p_, '&', lt - p_);
        std::size_t stop =
            amp ? static_cast<std::size_t>(static_cast<const char*>(amp) - s_.data()) : lt;
        out.append(s_.data() + p_, stop - p_);
        p_ = stop;
        if (p_ < lt && !parseEntity(out)) return false;
      }
      if (startsWith("</")) return parseEndTag(tag.name);
      if (startsWith("<![CDATA[")) {
        auto end = s_.find("]]>", p_ + 9);
        if (end == std::string_view::npos)
          return fail(p_, "CDATA section is not closed (missing \"]]>\")"), false;
        out.append(s_.substr(p_ + 9, end - p_ - 9));
        p_ = end + 3;
      } else if (startsWith("<!--")) {
        if (!skipComment()) return false;
      } else if (startsWith("<?")) {
        if (!skipProcessingInstruction()) return false;
      } else {
        return fail(p_, "unexpected element inside <" + std::string(tag.name) + ">"), false;
      }
    }
  }

  // At '&'.
  bool parseEntity(std::string& out) {
    std::size_t at = p_;
    std::size_t semi = s_.find(';', p_);
    if (semi == std::string_view::npos || semi - p_ > 12)
      return fail(at, "\"&\" does not start an entity (write &amp;)"), false;
    std::string_view name = s_.substr(p_ + 1, semi - p_ - 1);
    p_ = semi + 1;
    if (name == "amp") return out.push_back('&'), true;
    if (name == "lt") return out.push_back('<'), true;
    if (name == "gt") return out.push_back('>'), true;
    if (name == "quot") return out.push_back('"'), true;
    if (name == "apos") return out.push_back('\''), true;
    if (name.size() >= 2 && name[0] == '#') {
      bool hexForm = name[1] == 'x' || name[1] == 'X';
      std::string_view digits = name.substr(hexForm ? 2 : 1);
      std::uint32_t cp = 0;
      auto r = std::from_chars(digits.data(), digits.data() + digits.size(), cp, hexForm ? 16 : 10);
      if (digits.empty() || r.ec != std::errc() || r.ptr != digits.data() + digits.size())
        return fail(at, "malformed character reference &" + std::string(name) + ";"), false;
      if (cp == 0 || cp > 0x10FFFF || (cp >= 0xD800 && cp <= 0xDFFF))
        return fail(at, "character reference &" + std::string(name) + "; is not a character"),
               false;
      text::appendUTF8(out, cp);
      return true;
    }
    return fail(at, "unknown entity &" + show(name) + ";"), false;
  }

  Value parseValue(const Tag& tag, int depth) {
    std::string_view n = tag.name;
    if (n == "dict") return parseDict(tag, depth);
    if (n == "array") return parseArray(tag, depth);
    if (n == "true" || n == "false") {
      if (!tag.empty) {
        if (!skipMisc()) return Value();
        if (!startsWith("</")) return fail(p_, "<" + std::string(n) + "> must be empty");
        if (!parseEndTag(n)) return Value();
      }
      return Value(n == "true");
    }
    std::string text;
    if (n == "string") {
      if (!parseText(tag, text)) return Value();
      return Value(std::move(text));
    }
    if (n == "integer") return parseInteger(tag);
    if (n == "real") return parseReal(tag);
    if (n == "date") return parseDate(tag);
    if (n == "data") {
      if (!parseText(tag, text)) return Value();
      Data data;
      std::size_t bad = 0;
      if (!decodeBase64(text, data, bad))
        return fail(tag.at, bad < text.size() ? "invalid base64 character \"" +
                                                    show(text.substr(bad, 1)) + "\" in <data>"
                                              : std::string("truncated base64 in <data>"));
      return Value(std::move(data));
    }
    if (n == "key") return fail(tag.at, "<key> outside a dictionary");
    if (n == "plist") return fail(tag.at, "<plist> inside a property list");
    return fail(tag.at, "unknown element <" + show(n) + ">");
  }

  // Reads the next child start tag of a container; false at its end tag
  // (consumed) or on error.
  bool nextChild(const Tag& parent, Tag& child) {
    if (!skipMisc()) return false;
    if (atEnd()) return fail(parent.at, "<" + std::string(parent.name) + "> is not closed"), false;
    if (startsWith("</")) {
      parseEndTag(parent.name);
      return false;
    }
    if (s_[p_] != '<')
      return fail(p_, "unexpected text \"" + show(s_.substr(p_)) + "\" in <" +
                          std::string(parent.name) + ">"),
             false;
    return parseStartTag(child);
  }

  Value parseArray(const Tag& tag, int depth) {
    if (depth >= kMaxDepth) return fail(tag.at, "containers are nested deeper than 512 levels");
    Array items;
    if (tag.empty) return Value(std::move(items));
    Tag child;
    while (nextChild(tag, child)) {
      Value v = parseValue(child, depth + 1);
      if (failed_) return Value();
      items.push_back(std::move(v));
    }
    if (failed_) return Value();
    return Value(std::move(items));
  }

  Value parseDict(const Tag& tag, int depth) {
    if (depth >= kMaxDepth) return fail(tag.at, "containers are nested deeper than 512 levels");
    Dictionary::Entries entries;
    if (tag.empty) return Value(Dictionary());
    Tag keyTag;
    std::string key;
    while (nextChild(tag, keyTag)) {
      if (keyTag.name != "key")
        return fail(keyTag.at, "expected <key> in <dict>, found <" + show(keyTag.name) + ">");
      if (!parseText(keyTag, key)) return Value();
      Tag valueTag;
      if (!skipMisc()) return Value();
      if (atEnd() || startsWith("</"))
        return fail(keyTag.at, "key \"" + show(key) + "\" has no value");
      if (!nextChild(tag, valueTag)) return Value();
      if (valueTag.name == "key") return fail(keyTag.at, "key \"" + show(key) + "\" has no value");
      Value v = parseValue(valueTag, depth + 1);
      if (failed_) return Value();
      entries.emplace_back(std::move(key), std::move(v));
      key = std::string();
    }
    if (failed_) return Value();
    // A repeated key keeps its last value, as Foundation does.
    Dictionary dict = Dictionary::fromEntries(std::move(entries));
    // Foundation's XML form of a keyed archive's reference reads back as one.
    if (dict.size() == 1 && dict.begin()->first == "CF$UID") {
      const Value& n = dict.begin()->second;
      if (n.type() == Value::Type::Unsigned) return Value(Uid{n.asUnsigned()});
      if (n.type() == Value::Type::Integer && n.asInteger() >= 0)
        return Value(Uid{static_cast<std::uint64_t>(n.asInteger())});
    }
    return Value(std::move(dict));
  }

  Value parseInteger(const Tag& tag) {
    std::string raw;
    if (!parseText(tag, raw)) return Value();
    std::string_view t = trim(raw);
    if (t.empty()) return fail(tag.at, "empty <integer>");
    bool negative = false;
    if (t[0] == '+' || t[0] == '-') {
      negative = t[0] == '-';
      t.remove_prefix(1);
    }
    int base = 10;
    if (t.size() > 2 && t[0] == '0' && (t[1] == 'x' || t[1] == 'X')) {
      base = 16;
      t.remove_prefix(2);
    }
    std::uint64_t magnitude = 0;
    auto r = std::from_chars(t.data(), t.data() + t.size(), magnitude, base);
    if (t.empty() || r.ptr != t.data() + t.size() ||
        (r.ec != std::errc() && r.ec != std::errc::result_out_of_range) || t[0] == '-' ||
        t[0] == '+')
      return fail(tag.at, "<integer> \"" + show(raw) + "\" is not a number");
    constexpr std::uint64_t kMinMagnitude = std::uint64_t{1} << 63;
    if (r.ec == std::errc::result_out_of_range || (negative && magnitude > kMinMagnitude))
      return fail(tag.at, "<integer> " + show(trim(raw)) + " is out of the 64-bit range");
    if (negative)
      return Value(static_cast<long long>(magnitude == kMinMagnitude
                                              ? std::numeric_limits<std::int64_t>::min()
                                              : -static_cast<std::int64_t>(magnitude)));
    return Value(static_cast<unsigned long long>(magnitude));
  }

  Value parseReal(const Tag& tag) {
    std::string raw;
    if (!parseText(tag, raw)) return Value();
    std::string_view t = trim(raw);
    if (t.empty()) return fail(tag.at, "empty <real>");
    std::string_view word = t;
    bool negative = false;
    if (word[0] == '+' || word[0] == '-') {
      negative = word[0] == '-';
      word.remove_prefix(1);
    }
    if (equalsNoCase(word, "nan")) return Value(std::numeric_limits<double>::quiet_NaN());
    if (equalsNoCase(word, "inf") || equalsNoCase(word, "infinity"))
      return Value(negative ? -HUGE_VAL : HUGE_VAL);
    double d = 0;
    auto r = std::from_chars(word.data(), word.data() + word.size(), d);
    bool ok = !word.empty() && word[0] != '+' && word[0] != '-' &&
              r.ptr == word.data() + word.size() &&
              (r.ec == std::errc() || r.ec == std::errc::result_out_of_range);
    if (!ok) return fail(tag.at, "<real> \"" + show(raw) + "\" is not a number");
    if (r.ec == std::errc::result_out_of_range) {
      std::string copy(word);
      d = text::asciiStrtod(copy);  // overflows to infinity, underflows to 0
    }
    return Value(negative ? -d : d);
  }

  Value parseDate(const Tag& tag) {
    std::string raw;
    if (!parseText(tag, raw)) return Value();
    std::string_view t = trim(raw);
    auto bad = [&] {
      return fail(tag.at,
                  "<date> \"" + show(raw) + "\" is not a date (expected YYYY-MM-DDTHH:MM:SSZ)");
    };
    std::size_t i = 0;
    bool negative = false;
    if (i < t.size() && t[i] == '-') negative = true, ++i;
    std::size_t yearStart = i;
    std::int64_t year = 0;
    while (i < t.size() && isAsciiDigit(t[i]) && i - yearStart < 10)
      year = year * 10 + (t[i++] - '0');
    if (i - yearStart < 4) return bad();
    if (negative) year = -year;
    int parts[5] = {1, 1, 0, 0, 0};
    const char seps[5] = {'-', '-', 'T', ':', ':'};
    for (int k = 0; k < 5 && i < t.size() && t[i] == seps[k]; ++k) {
      if (i + 2 >= t.size() || !isAsciiDigit(t[i + 1]) || !isAsciiDigit(t[i + 2])) return bad();
      parts[k] = (t[i + 1] - '0') * 10 + (t[i + 2] - '0');
      i += 3;
    }
    if (i + 1 != t.size() || t[i] != 'Z') return bad();
    if (parts[0] < 1 || parts[0] > 12 || parts[1] < 1 || parts[1] > 31 || parts[2] > 23 ||
        parts[3] > 59 || parts[4] > 59)
      return fail(tag.at, "<date> \"" + show(raw) + "\" is out of range");
    double seconds =
        dateSecondsFromGregorian(year, parts[0], parts[1], parts[2], parts[3], parts[4]);
    // Beyond this no calendar arithmetic is meaningful (or exact).
    if (std::fabs(seconds) > kMaxDateSeconds)
      return fail(tag.at, "<date> \"" + show(raw) + "\" is out of range");
    return Value(Date{seconds});
  }
};

}  // namespace

Value parseXML(std::string_view bytes, std::string* error) {
  // Foundation also reads UTF-16 lists that start with a byte-order mark;
  // they are read as their UTF-8 equivalent (positions then refer to that).
  bool big = bytes.substr(0, 2) == "\xFE\xFF", little = bytes.substr(0, 2) == "\xFF\xFE";
  if (!big && !little) return XmlReader(bytes).parse(error);
  std::string_view body = bytes.substr(2);
  std::string utf8;
  if (!utf8FromUTF16(body, big, utf8)) {
    if (error) *error = "line 1, column 1: invalid UTF-16 text";
    return Value();
  }
  return XmlReader(utf8, true).parse(error);
}

}  // namespace wf::plist::detail
