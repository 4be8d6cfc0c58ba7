#include "version/WFVersionComparator.h"

#include <cstddef>

#include "platform/foundation/Strings.h"

namespace wf {
namespace {

// A byte that does not begin a valid UTF-8 sequence counts as a character
// of its own, so any input can be split without losing a byte.
using ns::characterLength;

// The digits of a number part as ASCII, without leading zeros, so that two
// values of any length compare by length first and then digit by digit.
std::string normalizedDigits(std::string_view part) {
  std::string digits;
  for (std::size_t i = 0; i < part.size();) {
    std::size_t n = characterLength(part.substr(i));
    int value = ns::decimalDigitValue(part.substr(i, n));
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
  return ns::decimalDigitValue(text) >= 0 ? kNumberType : kStringType;
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
