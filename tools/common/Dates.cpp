#include "Dates.h"

#include <glib.h>

#include <cmath>
#include <cstdint>
#include <cstdio>

#include "platform/glib/Owners.h"

namespace wf::tools {

const char* const kDateForms =
    "\"YYYY-MM-DD HH:MM:SS +HHMM\" or ISO 8601 \"YYYY-MM-DDTHH:MM:SSZ\" (or with an offset)";

namespace {

// Seconds between 1970-01-01 and 2001-01-01, the reference date of Date.
constexpr std::int64_t kReferenceFromUnix = 978307200;

class Reader {
 public:
  explicit Reader(std::string_view s) : s_(s) {}
  // Exactly `count` digits; nothing is consumed when they are not there.
  bool digits(int count, int& out) {
    if (at_ + static_cast<std::size_t>(count) > s_.size()) return false;
    int v = 0;
    for (std::size_t i = 0; i < static_cast<std::size_t>(count); ++i) {
      char c = s_[at_ + i];
      if (c < '0' || c > '9') return false;
      v = v * 10 + (c - '0');
    }
    at_ += static_cast<std::size_t>(count);
    out = v;
    return true;
  }
  bool literal(char c) {
    if (at_ >= s_.size() || s_[at_] != c) return false;
    ++at_;
    return true;
  }
  bool peek(char c) const { return at_ < s_.size() && s_[at_] == c; }
  bool done() const { return at_ == s_.size(); }

 private:
  std::string_view s_;
  std::size_t at_ = 0;
};

// "±HHMM", "±HH:MM" or "±HH" (with colonAllowed), in seconds east of UTC.
bool offset(Reader& r, bool colonAllowed, int& seconds) {
  int sign;
  if (r.literal('+'))
    sign = 1;
  else if (r.literal('-'))
    sign = -1;
  else
    return false;
  int h = 0, m = 0;
  if (!r.digits(2, h)) return false;
  if (!r.done()) {
    if (colonAllowed) r.literal(':');
    if (!r.digits(2, m)) return false;
  } else if (!colonAllowed) {
    return false;
  }
  if (h > 23 || m > 59) return false;
  seconds = sign * (h * 3600 + m * 60);
  return true;
}

}  // namespace

bool parseDate(std::string_view text, Date& out) {
  Reader r(text);
  int y, mo, d, h, mi, sec;
  if (!r.digits(4, y) || !r.literal('-') || !r.digits(2, mo) || !r.literal('-') || !r.digits(2, d))
    return false;
  bool iso;
  if (r.literal('T'))
    iso = true;
  else if (r.literal(' '))
    iso = false;
  else
    return false;
  if (!r.digits(2, h) || !r.literal(':') || !r.digits(2, mi) || !r.literal(':') ||
      !r.digits(2, sec))
    return false;
  double fraction = 0;
  if (iso && r.literal('.')) {
    int digit, scale = 10, count = 0;
    while (r.digits(1, digit)) {
      fraction += static_cast<double>(digit) / scale;
      scale *= 10;
      if (++count > 6) return false;
    }
    if (count == 0) return false;
  }
  int east = 0;
  if (iso) {
    if (!r.literal('Z') && !offset(r, true, east)) return false;
  } else {
    if (!r.literal(' ') || !offset(r, false, east)) return false;
  }
  if (!r.done()) return false;
  if (mo < 1 || mo > 12 ||
      !g_date_valid_dmy(static_cast<GDateDay>(d), static_cast<GDateMonth>(mo),
                        static_cast<GDateYear>(y)))
    return false;
  if (h > 23 || mi > 59 || sec > 59) return false;
  auto utc = wf::sys::adoptG(g_date_time_new_utc(y, mo, d, h, mi, sec));
  if (!utc) return false;
  std::int64_t unix = g_date_time_to_unix(utc.get());
  out = Date{static_cast<double>(unix - east - kReferenceFromUnix) + fraction};
  return true;
}

std::string iso8601(Date date) {
  double whole = std::floor(date.seconds);
  auto owned = wf::sys::adoptG(
      g_date_time_new_from_unix_utc(static_cast<gint64>(whole) + kReferenceFromUnix));
  GDateTime* t = owned.get();
  if (!t) return "";
  char buf[64];
  std::snprintf(buf, sizeof buf, "%04d-%02d-%02dT%02d:%02d:%02dZ", g_date_time_get_year(t),
                g_date_time_get_month(t), g_date_time_get_day_of_month(t), g_date_time_get_hour(t),
                g_date_time_get_minute(t), g_date_time_get_second(t));
  return buf;
}

}  // namespace wf::tools
