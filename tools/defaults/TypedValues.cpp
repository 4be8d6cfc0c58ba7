#include "TypedValues.h"

#include <glib.h>

#include <cerrno>
#include <cstdlib>

#include "Dates.h"
#include "platform/foundation/Strings.h"
#include "platform/plist/PropertyList.h"

namespace wf::defaults {

namespace {

bool parseBool(const std::string& s, bool& out) {
  std::string l = ns::lowercaseString(s);
  if (l == "yes" || l == "true" || l == "1") return out = true, true;
  if (l == "no" || l == "false" || l == "0") return out = false, true;
  return false;
}

bool parseInteger(const std::string& s, long long& out) {
  if (s.empty() || g_ascii_isspace(s[0])) return false;
  char* end = nullptr;
  errno = 0;
  out = std::strtoll(s.c_str(), &end, 10);
  return errno == 0 && end && *end == '\0';
}

bool parseReal(const std::string& s, double& out) {
  if (s.empty() || g_ascii_isspace(s[0])) return false;
  char* end = nullptr;
  errno = 0;
  out = g_ascii_strtod(s.c_str(), &end);
  return errno == 0 && end && *end == '\0';
}

// Hexadecimal digits, two per byte, as defaults -data takes them.
bool parseHex(const std::string& s, Data& out) {
  std::string digits;
  for (char c : s)
    if (!g_ascii_isspace(c)) digits.push_back(c);
  if (digits.size() % 2 != 0) return false;
  out.clear();
  for (std::size_t i = 0; i < digits.size(); i += 2) {
    int hi = g_ascii_xdigit_value(digits[i]), lo = g_ascii_xdigit_value(digits[i + 1]);
    if (hi < 0 || lo < 0) return false;
    out.push_back(static_cast<std::uint8_t>(hi * 16 + lo));
  }
  return true;
}

}  // namespace

bool isTypeFlag(const std::string& s) {
  return s == "-string" || s == "-int" || s == "-integer" || s == "-float" || s == "-bool" ||
         s == "-boolean" || s == "-date" || s == "-data";
}

bool parseTyped(const std::string& flag, const std::string& text, Value& out, std::string& error) {
  if (flag == "-string") return out = Value(text), true;
  if (flag == "-int" || flag == "-integer") {
    long long i;
    if (!parseInteger(text, i)) return error = "not an integer: " + text, false;
    return out = Value(i), true;
  }
  if (flag == "-float") {
    double d;
    if (!parseReal(text, d)) return error = "not a number: " + text, false;
    return out = Value(d), true;
  }
  if (flag == "-bool" || flag == "-boolean") {
    bool b;
    if (!parseBool(text, b)) return error = "not a boolean: " + text, false;
    return out = Value(b), true;
  }
  if (flag == "-date") {
    Date d;
    if (!tools::parseDate(text, d))
      return error = "not a date: " + text + " (use " + tools::kDateForms + ")", false;
    return out = Value(d), true;
  }
  if (flag == "-data") {
    Data d;
    if (!parseHex(text, d)) return error = "not hexadecimal data: " + text, false;
    return out = Value(std::move(d)), true;
  }
  error = "unknown type flag " + flag;
  return false;
}

Value untypedValue(const std::string& text) {
  std::size_t first = text.find_first_not_of(" \t\r\n");
  if (first != std::string::npos && text[first] == '<') {
    Value v = plist::parse(text);
    if (!v.isNil()) return v;
  }
  return Value(text);
}

std::string typeWord(const Value& v) {
  switch (v.type()) {
    case Value::Type::String:
      return "string";
    case Value::Type::Integer:
    case Value::Type::Unsigned:
      return "integer";
    case Value::Type::Real:
      return "float";
    case Value::Type::Boolean:
      return "boolean";
    case Value::Type::Date:
      return "date";
    case Value::Type::Data:
      return "data";
    case Value::Type::Array:
      return "array";
    case Value::Type::Dictionary:
      return "dictionary";
    case Value::Type::Uid:
      return "uid";
    default:
      return "unknown";
  }
}

}  // namespace wf::defaults
