#include "Values.h"

#include <glib.h>

#include <cerrno>
#include <cstdlib>

#include "Dates.h"
#include "Json.h"
#include "platform/glib/Owners.h"
#include "platform/plist/PropertyList.h"

namespace wf::plutil {

namespace {

// Strict Base64: the alphabet, "=" padding, blanks and line breaks ignored.
bool decodeBase64(const std::string& text, Data& out) {
  std::string clean;
  for (char c : text) {
    if (c == ' ' || c == '\n' || c == '\t' || c == '\r') continue;
    if (!g_ascii_isalnum(c) && c != '+' && c != '/' && c != '=') return false;
    clean.push_back(c);
  }
  if (clean.size() % 4 != 0) return false;
  auto pad = clean.find('=');
  if (pad != std::string::npos &&
      (pad < clean.size() - 2 || clean.find_first_not_of('=', pad) != std::string::npos))
    return false;
  gsize length = 0;
  auto bytes = wf::sys::adoptG(g_base64_decode(clean.c_str(), &length));
  out.assign(bytes.get(), bytes.get() + length);
  return true;
}

}  // namespace

bool isTypeFlag(const std::string& flag, bool* takesText) {
  static const char* const kWithText[] = {"-bool", "-integer", "-float", "-string",
                                          "-date", "-data",    "-xml",   "-json"};
  for (const char* f : kWithText)
    if (flag == f) {
      if (takesText) *takesText = true;
      return true;
    }
  if (flag == "-array" || flag == "-dictionary") {
    if (takesText) *takesText = false;
    return true;
  }
  return false;
}

bool parseTypedValue(const std::string& flag, const std::string& text, Value& out,
                     std::string& error) {
  auto refuse = [&](const std::string& what) {
    error = "invalid value for " + flag + ": \"" + text + "\" is not " + what;
    return false;
  };
  if (flag == "-string") return out = Value(text), true;
  if (flag == "-array") return out = Value(Array{}), true;
  if (flag == "-dictionary") return out = Value(Dictionary{}), true;
  if (flag == "-bool") {
    std::string l = text;
    for (char& c : l) c = g_ascii_tolower(c);
    if (l == "yes" || l == "true") return out = Value(true), true;
    if (l == "no" || l == "false") return out = Value(false), true;
    return refuse("YES, NO, true or false");
  }
  if (flag == "-integer") {
    char* end = nullptr;
    errno = 0;
    long long v = std::strtoll(text.c_str(), &end, 10);
    if (text.empty() || errno != 0 || *end != '\0' || g_ascii_isspace(text[0]))
      return refuse("an integer");
    return out = Value(v), true;
  }
  if (flag == "-float") {
    char* end = nullptr;
    errno = 0;
    double v = g_ascii_strtod(text.c_str(), &end);
    if (text.empty() || errno != 0 || *end != '\0' || g_ascii_isspace(text[0]))
      return refuse("a number");
    return out = Value(v), true;
  }
  if (flag == "-date") {
    Date d;
    if (!tools::parseDate(text, d)) return refuse(std::string("a date: use ") + tools::kDateForms);
    return out = Value(d), true;
  }
  if (flag == "-data") {
    Data d;
    if (!decodeBase64(text, d)) return refuse("Base64 data");
    return out = Value(std::move(d)), true;
  }
  if (flag == "-xml") {
    std::string message;
    out = plist::parse(text, &message);
    if (out.isNil()) return refuse("a property list (" + message + ")");
    return true;
  }
  if (flag == "-json") {
    std::string message;
    if (!tools::parseJSON(text, out, message)) return refuse("JSON (" + message + ")");
    return true;
  }
  error = "unknown type " + flag;
  return false;
}

}  // namespace wf::plutil
