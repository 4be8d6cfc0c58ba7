// Text forms shared by the codec and by Foundation descriptions: numbers,
// calendar dates and base64.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include "platform/plist/Value.h"

namespace wf::plist {

// The shortest text that reads back as the same double ("0.1", "5", "1e+20").
void appendShortestDouble(std::string& out, double d);

struct CivilTime {
  std::int64_t year;
  int month, day, hour, minute, second;
};

// Proleptic Gregorian calendar, UTC, whole seconds (rounded down): the
// calendar property lists use on the wire.
CivilTime gregorianFromDate(Date d);
// Foundation's descriptions switch to the Julian calendar before
// 1582-10-15, so that the distant past prints as 0001-01-01.
CivilTime historicalFromDate(Date d);
// Seconds since 2001-01-01 for a proleptic Gregorian UTC time.
double dateSecondsFromGregorian(std::int64_t year, int month, int day, int hour, int minute,
                                int second);

// Base64 lines exactly as Foundation's XML writer lays them out.
void appendBase64Lines(std::string& out, const Data& data, int indent);
// Decodes base64, skipping white space. On failure returns false and sets
// `bad` to the offset of the offending character.
bool decodeBase64(std::string_view text, Data& out, std::size_t& bad);

}  // namespace wf::plist
