// NSString's number scanners and the UTF-8 check: the text rules that the
// property-list codec and the Foundation stand-ins both build on.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

namespace wf::text {

// -[NSString boolValue]: YES for a leading "Y", "y", "T", "t" or a digit 1-9
// after optional blanks, sign and zeros.
bool boolValue(std::string_view s);
// -[NSString integerValue]: the leading decimal integer (blanks and sign
// allowed), saturating; 0 when there is none.
std::int64_t integerValue(std::string_view s);
// -[NSString doubleValue].
double doubleValue(std::string_view s);

// strtod in the C locale, whatever locale the process runs in.
double asciiStrtod(const std::string& number);
// Appends the UTF-8 form of the code point `cp` (below 0x110000).
void appendUTF8(std::string& out, std::uint32_t cp);

bool isValidUTF8(std::string_view s);
// Offset of the first byte that is not valid UTF-8 (NUL is valid), or npos.
std::size_t firstInvalidUTF8(std::string_view s);

}  // namespace wf::text
