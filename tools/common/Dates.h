// Dates typed on a command line, read in full: a date that is only partly
// understood is refused, never stored as something else.
#pragma once

#include <string>
#include <string_view>

#include "platform/plist/Value.h"

namespace wf::tools {

// Accepts "YYYY-MM-DD HH:MM:SS ±HHMM" (the form dates are printed in) and
// ISO 8601 "YYYY-MM-DDTHH:MM:SS" with optional fractional seconds and "Z",
// "±HH:MM", "±HHMM" or "±HH". Nothing may follow the date.
bool parseDate(std::string_view text, Date& out);

// ISO 8601 in UTC: "2024-01-02T03:04:05Z".
std::string iso8601(Date date);

// What parseDate() accepts, for error messages.
extern const char* const kDateForms;

}  // namespace wf::tools
