#include "platform/base/TextScan.h"

#include <locale.h>
#include <stdlib.h>

#include <array>
#include <cstdint>
#include <cstring>
#include <limits>
#include <string>

namespace wf::text {

namespace {

bool isAsciiDigit(char c) { return c >= '0' && c <= '9'; }

// The Unicode space, line and paragraph separators and NEL, as UTF-8.
constexpr std::array<std::string_view, 19> kUnicodeSpaces = {
    "\xC2\x85",     "\xC2\xA0",     "\xE1\x9A\x80", "\xE2\x80\x80", "\xE2\x80\x81",
    "\xE2\x80\x82", "\xE2\x80\x83", "\xE2\x80\x84", "\xE2\x80\x85", "\xE2\x80\x86",
    "\xE2\x80\x87", "\xE2\x80\x88", "\xE2\x80\x89", "\xE2\x80\x8A", "\xE2\x80\xA8",
    "\xE2\x80\xA9", "\xE2\x80\xAF", "\xE2\x81\x9F", "\xE3\x80\x80"};

// NSString's scanners skip white space and line breaks, including the
// Unicode separators.
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
    std::string_view rest = s.substr(i);
    std::size_t matched = 0;
    for (std::string_view space : kUnicodeSpaces)
      if (rest.substr(0, space.size()) == space) matched = space.size();
    if (!matched) return i;
    i += matched;
  }
  return i;
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
  while (i < s.size() && isAsciiDigit(s[i])) ++i, ++digits;
  if (i < s.size() && s[i] == '.') {
    ++i;
    while (i < s.size() && isAsciiDigit(s[i])) ++i, ++digits;
  }
  if (digits == 0) return 0.0;
  if (i < s.size() && (s[i] == 'e' || s[i] == 'E')) {
    std::size_t e = i + 1;
    if (e < s.size() && (s[e] == '+' || s[e] == '-')) ++e;
    if (e < s.size() && isAsciiDigit(s[e])) {
      while (e < s.size() && isAsciiDigit(s[e])) ++e;
      i = e;
    }
  }
  std::string number(s.substr(start, i - start));
  return asciiStrtod(number);
}

double asciiStrtod(const std::string& number) {
  // strtod_l (glibc, POSIX 2024) reads the number the same in every locale,
  // where strtod would take the locale's decimal point.
  static const locale_t cLocale = newlocale(LC_ALL_MASK, "C", nullptr);
  return cLocale ? strtod_l(number.c_str(), nullptr, cLocale)
                 : std::strtod(number.c_str(), nullptr);
}

void appendUTF8(std::string& out, std::uint32_t cp) {
  if (cp < 0x80) {
    out.push_back(static_cast<char>(cp));
  } else if (cp < 0x800) {
    out.push_back(static_cast<char>(0xC0 | (cp >> 6)));
    out.push_back(static_cast<char>(0x80 | (cp & 0x3F)));
  } else if (cp < 0x10000) {
    out.push_back(static_cast<char>(0xE0 | (cp >> 12)));
    out.push_back(static_cast<char>(0x80 | ((cp >> 6) & 0x3F)));
    out.push_back(static_cast<char>(0x80 | (cp & 0x3F)));
  } else {
    out.push_back(static_cast<char>(0xF0 | (cp >> 18)));
    out.push_back(static_cast<char>(0x80 | ((cp >> 12) & 0x3F)));
    out.push_back(static_cast<char>(0x80 | ((cp >> 6) & 0x3F)));
    out.push_back(static_cast<char>(0x80 | (cp & 0x3F)));
  }
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

}  // namespace wf::text
