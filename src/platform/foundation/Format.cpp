#include "platform/foundation/Format.h"

#include <glib.h>

#include <cinttypes>
#include <cmath>
#include <cstdio>

#include "platform/foundation/Strings.h"
#include "platform/plist/Text.h"

namespace wf {

namespace {

void indent(std::string& out, int level) { out.append(static_cast<std::size_t>(level) * 4, ' '); }

// Inside containers Foundation quotes any text that is not made only of
// letters, digits and _$:./- (and always the empty string).
bool needsQuotes(std::string_view s) {
  if (s.empty()) return true;
  for (char c : s) {
    if (g_ascii_isalnum(c)) continue;
    switch (c) {
      case '_':
      case '$':
      case ':':
      case '.':
      case '/':
      case '-':
        continue;
      default:
        return true;
    }
  }
  return false;
}

void appendQuotedIfNeeded(std::string& out, std::string_view s) {
  if (!needsQuotes(s)) {
    out.append(s);
    return;
  }
  out.push_back('"');
  for (char c : s) {
    if (c == '"' || c == '\\') out.push_back('\\');
    out.push_back(c);
  }
  out.push_back('"');
}

void appendDate(std::string& out, Date d) {
  plist::CivilTime t = plist::historicalFromDate(d);
  char buf[64];
  std::snprintf(buf, sizeof buf, "%04" PRId64 "-%02d-%02d %02d:%02d:%02d +0000", t.year, t.month,
                t.day, t.hour, t.minute, t.second);
  out.append(buf);
}

void appendData(std::string& out, const Data& data) {
  static const char hex[] = "0123456789abcdef";
  out.append("{length = ").append(std::to_string(data.size())).append(", bytes = 0x");
  auto put = [&](std::size_t from, std::size_t to) {
    for (std::size_t i = from; i < to; ++i) {
      out.push_back(hex[data[i] >> 4]);
      out.push_back(hex[data[i] & 15]);
    }
  };
  // Long data shows its first and last bytes, as Foundation abbreviates it.
  if (data.size() <= 24) {
    put(0, data.size());
  } else {
    put(0, 16);
    out.append(" ... ");
    put(data.size() - 8, data.size());
  }
  out.push_back('}');
}

void describeInto(std::string& out, const Value& v, int level, bool inContainer) {
  using T = Value::Type;
  switch (v.type()) {
    case T::Nil:
      out.append("(null)");
      return;
    case T::Null:
      out.append(inContainer ? "\"<null>\"" : "<null>");
      return;
    case T::Boolean:
      out.push_back(v.asBool() ? '1' : '0');
      return;
    case T::Integer:
      out.append(std::to_string(v.asInteger()));
      return;
    case T::Unsigned:
      out.append(std::to_string(v.asUnsigned()));
      return;
    case T::Real: {
      double d = v.asReal();
      if (std::isnan(d))
        out.append("nan");
      else if (std::isinf(d))
        out.append(d > 0 ? "inf" : "-inf");
      else
        plist::appendShortestDouble(out, d);
      return;
    }
    case T::String:
      if (inContainer)
        appendQuotedIfNeeded(out, v.asString());
      else
        out.append(v.asString());
      return;
    case T::Date: {
      if (!inContainer) return appendDate(out, v.asDate());
      std::string s;
      appendDate(s, v.asDate());
      appendQuotedIfNeeded(out, s);
      return;
    }
    case T::Data:
      appendData(out, v.asData());
      return;
    case T::Uid:
      // Foundation's description less the object's address.
      out.append("<CFKeyedArchiverUID>{value = ")
          .append(std::to_string(v.asUid().value))
          .append("}");
      return;
    case T::Array: {
      const Array& a = v.asArray();
      out.append("(\n");
      for (std::size_t i = 0; i < a.size(); ++i) {
        indent(out, level + 1);
        describeInto(out, a[i], level + 1, true);
        if (i + 1 < a.size()) out.push_back(',');
        out.push_back('\n');
      }
      indent(out, level);
      out.push_back(')');
      return;
    }
    case T::Dictionary: {
      out.append("{\n");
      for (const auto& [key, value] : v.asDictionary()) {
        indent(out, level + 1);
        appendQuotedIfNeeded(out, key);
        out.append(" = ");
        describeInto(out, value, level + 1, true);
        out.append(";\n");
      }
      indent(out, level);
      out.push_back('}');
      return;
    }
  }
}

void appendCodePoint(std::string& out, std::int64_t c) {
  if (c < 0 || c > 0x10FFFF) c = 0xFFFD;
  char buf[8];
  int n = g_unichar_to_utf8(static_cast<gunichar>(c), buf);
  out.append(buf, static_cast<std::size_t>(n));
}

struct Conversion {
  bool left = false, zero = false, plus = false, space = false;
  int width = -1, precision = -1;
};

// Pads a converted field to its width; numbers keep their sign in front of
// zero padding.
void appendPadded(std::string& out, std::string field, const Conversion& conversion, bool numeric) {
  if (numeric) {
    bool negative = !field.empty() && field[0] == '-';
    std::string digits = negative ? field.substr(1) : field;
    if (conversion.precision >= 0 && static_cast<int>(digits.size()) < conversion.precision)
      digits.insert(0, static_cast<std::size_t>(conversion.precision) - digits.size(), '0');
    std::string sign = negative ? "-" : (conversion.plus ? "+" : (conversion.space ? " " : ""));
    int total = static_cast<int>(sign.size() + digits.size());
    if (conversion.zero && !conversion.left && conversion.precision < 0 && conversion.width > total)
      digits.insert(0, static_cast<std::size_t>(conversion.width - total), '0');
    field = sign + digits;
  }
  auto len = static_cast<int>(g_utf8_strlen(field.data(), static_cast<gssize>(field.size())));
  if (conversion.width > len && !conversion.left)
    out.append(static_cast<std::size_t>(conversion.width - len), ' ');
  out.append(field);
  if (conversion.width > len && conversion.left)
    out.append(static_cast<std::size_t>(conversion.width - len), ' ');
}

}  // namespace

std::string FileURL::absoluteString() const {
  static const char hex[] = "0123456789ABCDEF";
  std::string out = "file://";
  for (char ch : path) {
    auto c = static_cast<unsigned char>(ch);
    if (g_ascii_isalnum(ch) || c == '/' || c == '-' || c == '.' || c == '_' || c == '~') {
      out.push_back(ch);
    } else {
      out.push_back('%');
      out.push_back(hex[c >> 4]);
      out.push_back(hex[c & 15]);
    }
  }
  return out;
}

std::string describe(const Value& v) {
  std::string out;
  describeInto(out, v, 0, false);
  return out;
}

void FormatArg::appendObject(std::string& out) const {
  std::visit(
      [&](const auto& a) {
        using A = std::decay_t<decltype(a)>;
        if constexpr (std::is_same_v<A, Value>) {
          describeInto(out, a, 0, false);
        } else if constexpr (std::is_same_v<A, Error>) {
          out.append(a.describe());
        } else if constexpr (std::is_same_v<A, FileURL>) {
          out.append(a.absoluteString());
        } else if constexpr (std::is_same_v<A, const char*>) {
          out.append(a ? a : "(null)");
        } else if constexpr (std::is_same_v<A, double>) {
          describeInto(out, Value(a), 0, false);
        } else {
          out.append(std::to_string(a));
        }
      },
      a_);
}

void FormatArg::appendInteger(std::string& out, bool isUnsigned) const {
  std::visit(
      [&](const auto& a) {
        using A = std::decay_t<decltype(a)>;
        if constexpr (std::is_same_v<A, std::int64_t>) {
          if (isUnsigned)
            out.append(std::to_string(static_cast<std::uint64_t>(a)));
          else
            out.append(std::to_string(a));
        } else if constexpr (std::is_same_v<A, std::uint64_t>) {
          if (isUnsigned)
            out.append(std::to_string(a));
          else
            out.append(std::to_string(static_cast<std::int64_t>(a)));
        } else if constexpr (std::is_same_v<A, double>) {
          out.append(std::to_string(Value(a).integerValue()));
        } else if constexpr (std::is_same_v<A, Value>) {
          if (isUnsigned)
            out.append(std::to_string(a.unsignedIntegerValue()));
          else
            out.append(std::to_string(a.integerValue()));
        } else if constexpr (std::is_same_v<A, const char*>) {
          out.append(std::to_string(a ? ns::integerValue(a) : 0));
        } else if constexpr (std::is_same_v<A, Error>) {
          out.append(std::to_string(a.code));
        } else {
          out.push_back('0');
        }
      },
      a_);
}

void FormatArg::appendReal(std::string& out, const std::string& conversion) const {
  double d = 0;
  if (const auto* p = std::get_if<double>(&a_))
    d = *p;
  else if (const auto* i = std::get_if<std::int64_t>(&a_))
    d = static_cast<double>(*i);
  else if (const auto* u = std::get_if<std::uint64_t>(&a_))
    d = static_cast<double>(*u);
  else if (const auto* v = std::get_if<Value>(&a_))
    d = v->doubleValue();
  // Room for the widest %f of a double with the largest width we accept.
  std::string buf(2 * 4096 + 512, '\0');
  out.append(g_ascii_formatd(buf.data(), static_cast<int>(buf.size()), conversion.c_str(), d));
}

void FormatArg::appendCString(std::string& out) const {
  if (const auto* p = std::get_if<const char*>(&a_)) {
    out.append(*p ? *p : "(null)");
  } else if (const auto* v = std::get_if<Value>(&a_); v && v->isString()) {
    out.append(v->asString());
  } else {
    appendObject(out);
  }
}

std::string formatv(std::string_view fmt, const std::vector<FormatArg>& args) {
  std::string out;
  out.reserve(fmt.size() + 32 * args.size());
  std::size_t next = 0;
  static const FormatArg nilArg{Value()};
  auto take = [&]() -> const FormatArg& { return next < args.size() ? args[next++] : nilArg; };
  for (std::size_t i = 0; i < fmt.size(); ++i) {
    char c = fmt[i];
    if (c != '%') {
      out.push_back(c);
      continue;
    }
    std::size_t start = i++;
    Conversion conversion;
    for (; i < fmt.size(); ++i) {
      char f = fmt[i];
      if (f == '-')
        conversion.left = true;
      else if (f == '0')
        conversion.zero = true;
      else if (f == '+')
        conversion.plus = true;
      else if (f == ' ')
        conversion.space = true;
      else if (f != '#')
        break;
    }
    for (; i < fmt.size() && g_ascii_isdigit(fmt[i]); ++i)
      conversion.width = (conversion.width < 0 ? 0 : conversion.width) * 10 + (fmt[i] - '0');
    if (i < fmt.size() && fmt[i] == '.') {
      conversion.precision = 0;
      for (++i; i < fmt.size() && g_ascii_isdigit(fmt[i]); ++i)
        conversion.precision = conversion.precision * 10 + (fmt[i] - '0');
    }
    if (conversion.width > 4096) conversion.width = 4096;
    if (conversion.precision > 4096) conversion.precision = 4096;
    while (i < fmt.size() && std::string_view("hlqzjtL").find(fmt[i]) != std::string_view::npos)
      ++i;
    if (i >= fmt.size()) {
      out.append(fmt.substr(start));  // a lone '%' at the end stays as written
      break;
    }
    std::string field;
    switch (fmt[i]) {
      case '%':
        out.push_back('%');
        continue;
      case '@':
        take().appendObject(field);
        appendPadded(out, std::move(field), conversion, false);
        break;
      case 'd':
      case 'i':
        take().appendInteger(field, false);
        appendPadded(out, std::move(field), conversion, true);
        break;
      case 'u':
        take().appendInteger(field, true);
        appendPadded(out, std::move(field), conversion, true);
        break;
      case 'f':
      case 'g':
      case 'e':
      case 'F':
      case 'G':
      case 'E': {
        std::string real = "%";
        if (conversion.left) real += '-';
        if (conversion.plus) real += '+';
        if (conversion.space) real += ' ';
        if (conversion.zero) real += '0';
        if (conversion.width >= 0) real += std::to_string(conversion.width);
        if (conversion.precision >= 0) {
          // Two appends: GCC 12 at -O3 warns (-Wrestrict) about "." + to_string.
          real += '.';
          real += std::to_string(conversion.precision);
        }
        real += static_cast<char>(g_ascii_tolower(fmt[i]));
        take().appendReal(out, real);
        break;
      }
      case 's':
        take().appendCString(field);
        appendPadded(out, std::move(field), conversion, false);
        break;
      case 'c': {
        std::string code;
        take().appendInteger(code, false);
        appendCodePoint(field, ns::integerValue(code));
        appendPadded(out, std::move(field), conversion, false);
        break;
      }
      default:
        // Unknown conversions are printed as written.
        out.append(fmt.substr(start, i - start + 1));
        break;
    }
  }
  return out;
}

}  // namespace wf
