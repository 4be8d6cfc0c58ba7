#include "platform/plist/Text.h"

#include <array>
#include <charconv>
#include <cmath>

namespace wf::plist {

namespace {

constexpr std::int64_t kUnixOf2001 = 978307200;
constexpr std::int64_t kUnixEpochJulianDay = 2440588;
constexpr std::int64_t kGregorianReformJulianDay = 2299161;  // 1582-10-15

std::int64_t floorDiv(std::int64_t a, std::int64_t b) {
  std::int64_t q = a / b;
  if ((a % b != 0) && ((a < 0) != (b < 0))) --q;
  return q;
}

// Days since 1970-01-01 and seconds into that day, from a Date. Dates
// beyond any calendar anyone uses are clamped so the arithmetic stays defined.
void splitDate(Date d, std::int64_t& days, int& secondOfDay) {
  double s = std::floor(d.seconds);
  if (std::isnan(s)) s = 0;
  constexpr double kLimit = 1e17;  // about three billion years
  if (s > kLimit) s = kLimit;
  if (s < -kLimit) s = -kLimit;
  std::int64_t unix = static_cast<std::int64_t>(s) + kUnixOf2001;
  days = floorDiv(unix, 86400);
  secondOfDay = static_cast<int>(unix - days * 86400);
}

void fillTime(CivilTime& t, int secondOfDay) {
  t.hour = secondOfDay / 3600;
  t.minute = secondOfDay / 60 % 60;
  t.second = secondOfDay % 60;
}

// Howard Hinnant's civil_from_days.
void civilFromDays(std::int64_t z, CivilTime& t) {
  z += 719468;
  std::int64_t era = floorDiv(z, 146097);
  std::int64_t doe = z - era * 146097;
  std::int64_t yoe = (doe - doe / 1460 + doe / 36524 - doe / 146096) / 365;
  std::int64_t doy = doe - (365 * yoe + yoe / 4 - yoe / 100);
  std::int64_t mp = (5 * doy + 2) / 153;
  t.day = static_cast<int>(doy - (153 * mp + 2) / 5 + 1);
  t.month = static_cast<int>(mp < 10 ? mp + 3 : mp - 9);
  t.year = yoe + era * 400 + (t.month <= 2 ? 1 : 0);
}

std::int64_t daysFromCivil(std::int64_t y, int m, int d) {
  y -= m <= 2 ? 1 : 0;
  std::int64_t era = floorDiv(y, 400);
  std::int64_t yoe = y - era * 400;
  std::int64_t mp = m > 2 ? m - 3 : m + 9;
  std::int64_t doy = (153 * mp + 2) / 5 + d - 1;
  std::int64_t doe = yoe * 365 + yoe / 4 - yoe / 100 + doy;
  return era * 146097 + doe - 719468;
}

const char kBase64[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";

}  // namespace

void appendShortestDouble(std::string& out, double d) {
  char buf[64];
  auto r = std::to_chars(buf, buf + sizeof buf, d);
  out.append(buf, r.ptr);
}

CivilTime gregorianFromDate(Date d) {
  std::int64_t days;
  int sod;
  splitDate(d, days, sod);
  CivilTime t{};
  civilFromDays(days, t);
  fillTime(t, sod);
  return t;
}

CivilTime historicalFromDate(Date d) {
  std::int64_t days;
  int sod;
  splitDate(d, days, sod);
  CivilTime t{};
  std::int64_t jdn = days + kUnixEpochJulianDay;
  if (jdn >= kGregorianReformJulianDay) {
    civilFromDays(days, t);
  } else {
    // Julian calendar from the Julian day number.
    std::int64_t c = jdn + 32082;
    std::int64_t dd = floorDiv(4 * c + 3, 1461);
    std::int64_t e = c - floorDiv(1461 * dd, 4);
    std::int64_t m = (5 * e + 2) / 153;
    t.day = static_cast<int>(e - (153 * m + 2) / 5 + 1);
    t.month = static_cast<int>(m + 3 - 12 * (m / 10));
    t.year = dd - 4800 + m / 10;
  }
  fillTime(t, sod);
  return t;
}

double dateSecondsFromGregorian(std::int64_t year, int month, int day, int hour, int minute,
                                int second) {
  std::int64_t days = daysFromCivil(year, month, day);
  std::int64_t unix = days * 86400 + hour * 3600 + minute * 60 + second;
  return static_cast<double>(unix - kUnixOf2001);
}

void appendBase64Lines(std::string& out, const Data& data, int indent) {
  // Foundation counts each tab as eight columns against a 76-column line
  // and indents at most eight levels.
  if (indent > 8) indent = 8;
  const std::size_t lineLength = static_cast<std::size_t>(76 - 8 * indent);
  const std::size_t groupsPerLine = lineLength / 4;
  std::size_t n = data.size();
  std::size_t i = 0;
  while (i < n) {
    out.append(static_cast<std::size_t>(indent), '\t');
    std::size_t groups = 0;
    while (i < n && groups < groupsPerLine) {
      std::uint32_t b0 = data[i];
      std::uint32_t b1 = i + 1 < n ? data[i + 1] : 0;
      std::uint32_t b2 = i + 2 < n ? data[i + 2] : 0;
      std::uint32_t triple = (b0 << 16) | (b1 << 8) | b2;
      char quad[4] = {kBase64[(triple >> 18) & 63], kBase64[(triple >> 12) & 63],
                      i + 1 < n ? kBase64[(triple >> 6) & 63] : '=',
                      i + 2 < n ? kBase64[triple & 63] : '='};
      out.append(quad, 4);
      i += 3;
      ++groups;
    }
    out.push_back('\n');
  }
}

bool decodeBase64(std::string_view text, Data& out, std::size_t& bad) {
  static const auto table = [] {
    std::array<short, 256> t{};
    t.fill(-1);
    for (int k = 0; k < 64; ++k) t[static_cast<unsigned char>(kBase64[k])] = static_cast<short>(k);
    return t;
  }();
  out.clear();
  out.reserve(text.size() / 4 * 3);
  std::uint32_t acc = 0;
  int have = 0;
  int padding = 0;
  for (std::size_t i = 0; i < text.size(); ++i) {
    unsigned char c = static_cast<unsigned char>(text[i]);
    if (c == ' ' || c == '\t' || c == '\n' || c == '\r') continue;
    if (c == '=') {
      // Padding ends a group; nothing but more padding and blanks may follow.
      if (have < 2) {
        bad = i;
        return false;
      }
      ++padding;
      continue;
    }
    int v = table[c];
    if (v < 0 || padding > 0) {
      bad = i;
      return false;
    }
    acc = (acc << 6) | static_cast<std::uint32_t>(v);
    if (++have == 4) {
      out.push_back(static_cast<std::uint8_t>(acc >> 16));
      out.push_back(static_cast<std::uint8_t>(acc >> 8));
      out.push_back(static_cast<std::uint8_t>(acc));
      acc = 0;
      have = 0;
    }
  }
  if (have == 1) {
    bad = text.size();
    return false;
  }
  if (have == 2) {
    out.push_back(static_cast<std::uint8_t>(acc >> 4));
  } else if (have == 3) {
    out.push_back(static_cast<std::uint8_t>(acc >> 10));
    out.push_back(static_cast<std::uint8_t>(acc >> 2));
  }
  return true;
}

}  // namespace wf::plist
