#include "version/WFVersionComparator.h"

#include <glib.h>

#include <cstddef>

#include "platform/foundation/Strings.h"

namespace wf {
namespace {

// Length in bytes of the character at the start of `s`. A byte that does not
// begin a valid UTF-8 sequence counts as a character of its own, so any input
// can be split without losing a byte.
std::size_t characterLength(std::string_view s) {
  if (s.empty()) return 0;
  gunichar c = g_utf8_get_char_validated(s.data(), static_cast<gssize>(s.size()));
  if (c == static_cast<gunichar>(-1) || c == static_cast<gunichar>(-2)) return 1;
  return static_cast<std::size_t>(g_utf8_next_char(s.data()) - s.data());
}

// The digits of a number part as ASCII, without leading zeros, so that two
// values of any length compare by length first and then digit by digit.
std::string normalizedDigits(std::string_view part) {
  std::string digits;
  for (std::size_t i = 0; i < part.size();) {
    std::size_t n = characterLength(part.substr(i));
    gunichar c = g_utf8_get_char_validated(part.data() + i, static_cast<gssize>(n));
    int value = g_unichar_digit_value(c);
    if (value < 0) value = 0;  // a number part holds only digits
    if (!(digits.empty() && value == 0)) digits.push_back(static_cast<char>('0' + value));
    i += n;
  }
  return digits;
}

int compareNumbers(std::string_view a, std::string_view b) {
  std::string x = normalizedDigits(a), y = normalizedDigits(b);
  if (x.size() != y.size()) return x.size() < y.size() ? -1 : 1;
  int c = x.compare(y);
  return c < 0 ? -1 : (c > 0 ? 1 : 0);
}

}  // namespace

WFVersionComparator* WFVersionComparator::defaultComparator() {
  static WFVersionComparator* shared = new WFVersionComparator();
  return shared;
}

int WFVersionComparator::typeOfCharacter(std::string_view text) const {
  if (text == ".") return kPeriodType;
  if (text.empty()) return kStringType;
  gunichar c = g_utf8_get_char_validated(text.data(), static_cast<gssize>(text.size()));
  if (c == static_cast<gunichar>(-1) || c == static_cast<gunichar>(-2)) return kStringType;
  return g_unichar_isdigit(c) ? kNumberType : kStringType;
}

std::vector<std::string> WFVersionComparator::splitVersionString(std::string_view version) const {
  std::vector<std::string> parts;
  if (version.empty()) return parts;
  std::size_t n = characterLength(version);
  std::string current(version.substr(0, n));
  int previousClass = typeOfCharacter(current);
  for (std::size_t i = n; i < version.size(); i += n) {
    n = characterLength(version.substr(i));
    std::string_view c = version.substr(i, n);
    int cls = typeOfCharacter(c);
    if (cls != previousClass || previousClass == kPeriodType) {
      parts.push_back(std::move(current));
      current.assign(c);
    } else {
      current.append(c);
    }
    previousClass = cls;
  }
  parts.push_back(std::move(current));
  return parts;
}

int WFVersionComparator::compareVersion(std::string_view version,
                                        std::string_view toVersion) const {
  std::vector<std::string> a = splitVersionString(version);
  std::vector<std::string> b = splitVersionString(toVersion);
  std::size_t n = a.size() < b.size() ? a.size() : b.size();
  for (std::size_t i = 0; i < n; ++i) {
    int tx = typeOfCharacter(a[i]), ty = typeOfCharacter(b[i]);
    if (tx == ty) {
      if (tx == kNumberType) {
        if (int c = compareNumbers(a[i], b[i])) return c;
      } else if (tx == kStringType) {
        int c = ns::compare(a[i], b[i]);
        if (c != 0) return c < 0 ? -1 : 1;
      }
      continue;
    }
    // Numbers and periods beat letters; a number beats a period.
    if (tx != kStringType && ty == kStringType) return 1;
    if (tx == kStringType && ty != kStringType) return -1;
    return tx == kNumberType ? 1 : -1;
  }
  if (a.size() == b.size()) return 0;
  // The longer one only adds a pre-release mark (letters): it is older.
  // It adds a number or a period: it is newer.
  if (a.size() < b.size()) return typeOfCharacter(b[n]) == kStringType ? 1 : -1;
  return typeOfCharacter(a[n]) == kStringType ? -1 : 1;
}

}  // namespace wf
