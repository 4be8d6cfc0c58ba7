#include "Json.h"

#include <glib.h>

#include <cerrno>
#include <cmath>
#include <cstdio>
#include <cstdlib>

namespace wf::tools {

namespace {

void quote(std::string& out, const std::string& s) {
  out.push_back('"');
  for (unsigned char c : s) {
    switch (c) {
      case '"':
        out += "\\\"";
        break;
      case '\\':
        out += "\\\\";
        break;
      case '\n':
        out += "\\n";
        break;
      case '\r':
        out += "\\r";
        break;
      case '\t':
        out += "\\t";
        break;
      case '\b':
        out += "\\b";
        break;
      case '\f':
        out += "\\f";
        break;
      default:
        if (c < 0x20) {
          char buf[8];
          std::snprintf(buf, sizeof buf, "\\u%04x", c);
          out += buf;
        } else {
          out.push_back(static_cast<char>(c));
        }
    }
  }
  out.push_back('"');
}

void newline(std::string& out, bool pretty, int level) {
  if (!pretty) return;
  out.push_back('\n');
  out.append(static_cast<std::size_t>(level) * 2, ' ');
}

bool write(const Value& v, bool pretty, int level, std::string& out, std::string& error) {
  using T = Value::Type;
  switch (v.type()) {
    case T::Boolean:
      out += v.asBool() ? "true" : "false";
      return true;
    case T::Integer:
      out += std::to_string(v.asInteger());
      return true;
    case T::Unsigned:
      out += std::to_string(v.asUnsigned());
      return true;
    case T::Real: {
      if (!std::isfinite(v.asReal())) {
        error = "invalid object in plist for destination format (a number JSON cannot hold)";
        return false;
      }
      char buf[G_ASCII_DTOSTR_BUF_SIZE];
      out += g_ascii_dtostr(buf, sizeof buf, v.asReal());
      return true;
    }
    case T::String:
      quote(out, v.asString());
      return true;
    case T::Array: {
      const Array& a = v.asArray();
      out.push_back('[');
      for (std::size_t i = 0; i < a.size(); ++i) {
        if (i) out.push_back(',');
        newline(out, pretty, level + 1);
        if (!write(a[i], pretty, level + 1, out, error)) return false;
      }
      if (!a.empty()) newline(out, pretty, level);
      out.push_back(']');
      return true;
    }
    case T::Dictionary: {
      out.push_back('{');
      bool first = true;
      for (const auto& [key, value] : v.asDictionary()) {
        if (!first) out.push_back(',');
        first = false;
        newline(out, pretty, level + 1);
        quote(out, key);
        out += pretty ? " : " : ":";
        if (!write(value, pretty, level + 1, out, error)) return false;
      }
      if (!first) newline(out, pretty, level);
      out.push_back('}');
      return true;
    }
    case T::Date:
      error = "invalid object in plist for destination format (a date)";
      return false;
    case T::Data:
      error = "invalid object in plist for destination format (data)";
      return false;
    default:
      error = "invalid object in plist for destination format";
      return false;
  }
}

class Parser {
 public:
  explicit Parser(std::string_view s) : s_(s) {}

  bool document(Value& out, std::string& error) {
    if (!value(out, 0)) return fail(error);
    space();
    if (at_ != s_.size()) {
      why_ = "garbage after the JSON value";
      return fail(error);
    }
    return true;
  }

 private:
  bool fail(std::string& error) const {
    error = "JSON text at offset " + std::to_string(at_) + ": " + why_;
    return false;
  }
  void space() {
    while (at_ < s_.size() &&
           (s_[at_] == ' ' || s_[at_] == '\t' || s_[at_] == '\n' || s_[at_] == '\r'))
      ++at_;
  }
  bool word(std::string_view w) {
    if (s_.substr(at_, w.size()) != w) return false;
    at_ += w.size();
    return true;
  }
  bool value(Value& out, int depth) {
    if (depth > 512) return why_ = "nested too deeply", false;
    space();
    if (at_ >= s_.size()) return why_ = "unexpected end of text", false;
    char c = s_[at_];
    if (c == '{') return object(out, depth);
    if (c == '[') return array(out, depth);
    if (c == '"') {
      std::string s;
      if (!string(s)) return false;
      out = Value(std::move(s));
      return true;
    }
    if (word("true")) return out = Value(true), true;
    if (word("false")) return out = Value(false), true;
    if (word("null")) return why_ = "null has no property-list equivalent", false;
    if (c == '-' || (c >= '0' && c <= '9')) return number(out);
    return why_ = std::string("unexpected character '") + c + "'", false;
  }
  bool object(Value& out, int depth) {
    ++at_;
    Dictionary d;
    space();
    if (at_ < s_.size() && s_[at_] == '}') {
      ++at_;
      out = Value(std::move(d));
      return true;
    }
    while (true) {
      space();
      std::string key;
      if (at_ >= s_.size() || s_[at_] != '"') return why_ = "expected a key in quotes", false;
      if (!string(key)) return false;
      space();
      if (!word(":")) return why_ = "expected ':'", false;
      Value v;
      if (!value(v, depth + 1)) return false;
      d.insert_or_assign(key, v);
      space();
      if (word(",")) continue;
      if (word("}")) break;
      return why_ = "expected ',' or '}'", false;
    }
    out = Value(std::move(d));
    return true;
  }
  bool array(Value& out, int depth) {
    ++at_;
    Array a;
    space();
    if (at_ < s_.size() && s_[at_] == ']') {
      ++at_;
      out = Value(std::move(a));
      return true;
    }
    while (true) {
      Value v;
      if (!value(v, depth + 1)) return false;
      a.push_back(v);
      space();
      if (word(",")) continue;
      if (word("]")) break;
      return why_ = "expected ',' or ']'", false;
    }
    out = Value(std::move(a));
    return true;
  }
  bool hex4(unsigned& out) {
    if (at_ + 4 > s_.size()) return false;
    out = 0;
    for (int i = 0; i < 4; ++i) {
      int d = g_ascii_xdigit_value(s_[at_++]);
      if (d < 0) return false;
      out = out * 16 + static_cast<unsigned>(d);
    }
    return true;
  }
  bool string(std::string& out) {
    ++at_;
    while (at_ < s_.size()) {
      char c = s_[at_++];
      if (c == '"') {
        if (!g_utf8_validate(out.data(), static_cast<gssize>(out.size()), nullptr))
          return why_ = "a string is not valid UTF-8", false;
        return true;
      }
      if (static_cast<unsigned char>(c) < 0x20)
        return why_ = "control character in a string", false;
      if (c != '\\') {
        out.push_back(c);
        continue;
      }
      if (at_ >= s_.size()) break;
      char e = s_[at_++];
      switch (e) {
        case '"':
        case '\\':
        case '/':
          out.push_back(e);
          break;
        case 'b':
          out.push_back('\b');
          break;
        case 'f':
          out.push_back('\f');
          break;
        case 'n':
          out.push_back('\n');
          break;
        case 'r':
          out.push_back('\r');
          break;
        case 't':
          out.push_back('\t');
          break;
        case 'u': {
          unsigned u;
          if (!hex4(u)) return why_ = "bad \\u escape", false;
          if (u >= 0xD800 && u < 0xDC00) {
            unsigned low;
            if (!word("\\u") || !hex4(low) || low < 0xDC00 || low > 0xDFFF)
              return why_ = "unpaired surrogate", false;
            u = 0x10000 + ((u - 0xD800) << 10) + (low - 0xDC00);
          } else if (u >= 0xDC00 && u <= 0xDFFF) {
            return why_ = "unpaired surrogate", false;
          }
          char buf[8];
          int n = g_unichar_to_utf8(static_cast<gunichar>(u), buf);
          out.append(buf, static_cast<std::size_t>(n));
          break;
        }
        default:
          return why_ = "bad escape in a string", false;
      }
    }
    return why_ = "unterminated string", false;
  }
  bool number(Value& out) {
    std::size_t start = at_;
    if (s_[at_] == '-') ++at_;
    bool real = false;
    auto digitsHere = [&] {
      std::size_t from = at_;
      while (at_ < s_.size() && s_[at_] >= '0' && s_[at_] <= '9') ++at_;
      return at_ > from;
    };
    if (!digitsHere()) return why_ = "bad number", false;
    if (at_ < s_.size() && s_[at_] == '.') {
      ++at_;
      real = true;
      if (!digitsHere()) return why_ = "bad number", false;
    }
    if (at_ < s_.size() && (s_[at_] == 'e' || s_[at_] == 'E')) {
      ++at_;
      real = true;
      if (at_ < s_.size() && (s_[at_] == '+' || s_[at_] == '-')) ++at_;
      if (!digitsHere()) return why_ = "bad number", false;
    }
    std::string text(s_.substr(start, at_ - start));
    errno = 0;
    if (!real) {
      if (text[0] == '-') {
        long long v = std::strtoll(text.c_str(), nullptr, 10);
        if (errno == 0) return out = Value(v), true;
      } else {
        unsigned long long v = std::strtoull(text.c_str(), nullptr, 10);
        if (errno == 0) return out = Value(v), true;
      }
      errno = 0;
    }
    out = Value(g_ascii_strtod(text.c_str(), nullptr));
    return true;
  }

  std::string_view s_;
  std::size_t at_ = 0;
  std::string why_;
};

}  // namespace

bool toJSON(const Value& v, bool pretty, std::string& out, std::string& error) {
  out.clear();
  if (!write(v, pretty, 0, out, error)) return false;
  out.push_back('\n');
  return true;
}

bool parseJSON(std::string_view text, Value& out, std::string& error) {
  return Parser(text).document(out, error);
}

}  // namespace wf::tools
