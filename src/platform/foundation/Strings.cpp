#include "platform/foundation/Strings.h"

#include <glib.h>

#include <cstring>
#include <limits>

#include "platform/base/Owners.h"

namespace wf::ns {

namespace {

// NSString's scanners skip white space and line breaks, including the
// Unicode separators; decode one character at a time to see them.
std::size_t skipWhitespace(std::string_view s) {
  std::size_t i = 0;
  while (i < s.size()) {
    unsigned char c = static_cast<unsigned char>(s[i]);
    if (c < 0x80) {
      if (c == ' ' || (c >= '\t' && c <= '\r')) {
        ++i;
        continue;
      }
      return i;
    }
    gunichar u = g_utf8_get_char_validated(s.data() + i, static_cast<gssize>(s.size() - i));
    if (u == static_cast<gunichar>(-1) || u == static_cast<gunichar>(-2)) return i;
    GUnicodeType t = g_unichar_type(u);
    bool space = t == G_UNICODE_SPACE_SEPARATOR || t == G_UNICODE_LINE_SEPARATOR ||
                 t == G_UNICODE_PARAGRAPH_SEPARATOR || u == 0x85;
    if (!space) return i;
    i += static_cast<std::size_t>(g_utf8_skip[c]);
  }
  return i;
}

// Foundation's path methods first collapse runs of slashes and drop a
// trailing slash (except for the root itself).
std::string fixSlashes(std::string_view path) {
  std::string out;
  out.reserve(path.size());
  for (char c : path) {
    if (c == '/' && !out.empty() && out.back() == '/') continue;
    out.push_back(c);
  }
  if (out.size() > 1 && out.back() == '/') out.pop_back();
  return out;
}

// Index where the last component of a fixed path starts.
std::size_t startOfLastComponent(const std::string& fixed) {
  auto slash = fixed.rfind('/');
  return slash == std::string::npos ? 0 : slash + 1;
}

// Index of the dot that starts the extension, npos when there is none: a
// leading dot (".profile") or a trailing dot ("name.") is no extension.
std::size_t extensionDot(const std::string& fixed) {
  if (fixed.size() <= 1) return std::string::npos;
  std::size_t start = startOfLastComponent(fixed);
  auto dot = fixed.rfind('.');
  if (dot == std::string::npos || dot < start) return std::string::npos;
  if (dot == start || dot + 1 == fixed.size()) return std::string::npos;
  return dot;
}

}  // namespace

bool boolValue(std::string_view s) {
  std::size_t i = skipWhitespace(s);
  if (i < s.size() && (s[i] == '+' || s[i] == '-')) ++i;
  while (i < s.size() && s[i] == '0') ++i;
  if (i >= s.size()) return false;
  char c = s[i];
  return c == 'Y' || c == 'y' || c == 'T' || c == 't' || (c >= '1' && c <= '9');
}

std::int64_t integerValue(std::string_view s) {
  std::size_t i = skipWhitespace(s);
  bool negative = false;
  if (i < s.size() && (s[i] == '+' || s[i] == '-')) {
    negative = s[i] == '-';
    ++i;
  }
  // Accumulate as a negative number so that INT64_MIN is reachable.
  constexpr std::int64_t kMin = std::numeric_limits<std::int64_t>::min();
  constexpr std::int64_t kMax = std::numeric_limits<std::int64_t>::max();
  std::int64_t acc = 0;
  bool saturated = false;
  for (; i < s.size() && s[i] >= '0' && s[i] <= '9'; ++i) {
    int d = s[i] - '0';
    if (saturated) continue;
    if (acc < (kMin + d) / 10) {
      saturated = true;
      continue;
    }
    acc = acc * 10 - d;
  }
  if (saturated) return negative ? kMin : kMax;
  if (negative) return acc;
  return acc == kMin ? kMax : -acc;
}

double doubleValue(std::string_view s) {
  std::size_t i = skipWhitespace(s);
  std::size_t start = i;
  if (i < s.size() && (s[i] == '+' || s[i] == '-')) ++i;
  std::size_t digits = 0;
  while (i < s.size() && g_ascii_isdigit(s[i])) ++i, ++digits;
  if (i < s.size() && s[i] == '.') {
    ++i;
    while (i < s.size() && g_ascii_isdigit(s[i])) ++i, ++digits;
  }
  if (digits == 0) return 0.0;
  if (i < s.size() && (s[i] == 'e' || s[i] == 'E')) {
    std::size_t e = i + 1;
    if (e < s.size() && (s[e] == '+' || s[e] == '-')) ++e;
    if (e < s.size() && g_ascii_isdigit(s[e])) {
      while (e < s.size() && g_ascii_isdigit(s[e])) ++e;
      i = e;
    }
  }
  std::string number(s.substr(start, i - start));
  return g_ascii_strtod(number.c_str(), nullptr);
}

std::string lowercaseString(std::string_view s) {
  if (!isValidUTF8(s)) {
    // Not text we can map; lower the ASCII letters and keep the rest.
    std::string out(s);
    for (char& c : out) c = g_ascii_tolower(c);
    return out;
  }
  sys::GPtr<char> lower(g_utf8_strdown(s.data(), static_cast<gssize>(s.size())));
  return std::string(lower.get());
}

std::string decomposedStringWithCanonicalMapping(std::string_view s) {
  sys::GPtr<char> nfd(g_utf8_normalize(s.data(), static_cast<gssize>(s.size()), G_NORMALIZE_NFD));
  if (!nfd) return std::string(s);  // invalid UTF-8: nothing to decompose
  return std::string(nfd.get());
}

int compare(std::string_view a, std::string_view b) {
  if (a == b) return 0;
  // UTF-8 byte order is code-point order, so the decomposed forms can be
  // compared bytewise.
  std::string da = decomposedStringWithCanonicalMapping(a);
  std::string db = decomposedStringWithCanonicalMapping(b);
  int c = da.compare(db);
  return c < 0 ? -1 : (c > 0 ? 1 : 0);
}

bool hasPrefix(std::string_view s, std::string_view prefix) {
  return !prefix.empty() && s.substr(0, prefix.size()) == prefix;
}

bool hasSuffix(std::string_view s, std::string_view suffix) {
  return !suffix.empty() && s.size() >= suffix.size() &&
         s.substr(s.size() - suffix.size()) == suffix;
}

std::string lastPathComponent(std::string_view path) {
  std::string fixed = fixSlashes(path);
  if (fixed.size() <= 1) return fixed;
  return fixed.substr(startOfLastComponent(fixed));
}

std::string stringByDeletingLastPathComponent(std::string_view path) {
  std::string fixed = fixSlashes(path);
  if (fixed.empty() || fixed == "/") return fixed;
  std::size_t start = startOfLastComponent(fixed);
  if (start == 0) return "";
  if (start == 1) return "/";
  return fixed.substr(0, start - 1);
}

std::string pathExtension(std::string_view path) {
  std::string fixed = fixSlashes(path);
  std::size_t dot = extensionDot(fixed);
  return dot == std::string::npos ? std::string() : fixed.substr(dot + 1);
}

std::string stringByDeletingPathExtension(std::string_view path) {
  std::string fixed = fixSlashes(path);
  std::size_t dot = extensionDot(fixed);
  return dot == std::string::npos ? fixed : fixed.substr(0, dot);
}

std::string stringByAppendingPathComponent(std::string_view path, std::string_view component) {
  if (path.empty()) return fixSlashes(component);
  if (component.empty()) return fixSlashes(path);
  std::string joined(path);
  joined.push_back('/');
  joined.append(component);
  return fixSlashes(joined);
}

// Written out rather than g_utf8_validate(), which refuses NUL characters.
std::size_t firstInvalidUTF8(std::string_view s) {
  const auto* begin = reinterpret_cast<const unsigned char*>(s.data());
  const auto* p = begin;
  const auto* end = p + s.size();
  while (p < end) {
    // Skip ASCII eight bytes at a time; most property lists are ASCII.
    while (end - p >= 8) {
      std::uint64_t w;
      std::memcpy(&w, p, 8);
      if (w & 0x8080808080808080ull) break;
      p += 8;
    }
    if (p >= end) break;
    unsigned c = *p;
    if (c < 0x80) {
      ++p;
      continue;
    }
    int n;
    unsigned cp;
    if (c >= 0xC2 && c <= 0xDF) {
      n = 1;
      cp = c & 0x1F;
    } else if (c >= 0xE0 && c <= 0xEF) {
      n = 2;
      cp = c & 0x0F;
    } else if (c >= 0xF0 && c <= 0xF4) {
      n = 3;
      cp = c & 0x07;
    } else {
      return static_cast<std::size_t>(p - begin);
    }
    if (end - p <= n) return static_cast<std::size_t>(p - begin);
    for (int k = 1; k <= n; ++k) {
      if ((p[k] & 0xC0) != 0x80) return static_cast<std::size_t>(p - begin);
      cp = (cp << 6) | (p[k] & 0x3F);
    }
    if ((n == 2 && cp < 0x800) || (n == 3 && (cp < 0x10000 || cp > 0x10FFFF)) ||
        (cp >= 0xD800 && cp <= 0xDFFF))
      return static_cast<std::size_t>(p - begin);
    p += n + 1;
  }
  return std::string_view::npos;
}

bool isValidUTF8(std::string_view s) { return firstInvalidUTF8(s) == std::string_view::npos; }

std::size_t characterLength(std::string_view s) {
  if (s.empty()) return 0;
  gunichar c = g_utf8_get_char_validated(s.data(), static_cast<gssize>(s.size()));
  if (c == static_cast<gunichar>(-1) || c == static_cast<gunichar>(-2)) return 1;
  return static_cast<std::size_t>(g_utf8_next_char(s.data()) - s.data());
}

int decimalDigitValue(std::string_view s) {
  if (s.empty()) return -1;
  gunichar c = g_utf8_get_char_validated(s.data(), static_cast<gssize>(s.size()));
  if (c == static_cast<gunichar>(-1) || c == static_cast<gunichar>(-2)) return -1;
  return g_unichar_digit_value(c);
}

}  // namespace wf::ns
