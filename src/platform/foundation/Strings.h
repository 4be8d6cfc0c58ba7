// NSString semantics that the helper's logic relies on, in one place.
// All strings are UTF-8.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include "platform/base/TextScan.h"

namespace wf::ns {

// The number scanners and the UTF-8 check live a layer down, where the
// property-list codec shares them.
using text::boolValue;
using text::doubleValue;
using text::integerValue;

// -[NSString lowercaseString] (locale-independent, Unicode data).
std::string lowercaseString(std::string_view s);
// -[NSString decomposedStringWithCanonicalMapping] (form D).
std::string decomposedStringWithCanonicalMapping(std::string_view s);
// -[NSString compare:] with no options: case-sensitive, canonically
// equivalent strings compare equal. Returns -1, 0 or 1.
int compare(std::string_view a, std::string_view b);

bool hasPrefix(std::string_view s, std::string_view prefix);
bool hasSuffix(std::string_view s, std::string_view suffix);

// Path operations with Foundation's results on edge cases.
std::string lastPathComponent(std::string_view path);
std::string stringByDeletingLastPathComponent(std::string_view path);
std::string pathExtension(std::string_view path);
std::string stringByDeletingPathExtension(std::string_view path);
std::string stringByAppendingPathComponent(std::string_view path, std::string_view component);

using text::firstInvalidUTF8;
using text::isValidUTF8;

// Length in bytes of the character at the start of `s`; a byte that does
// not begin a valid UTF-8 sequence counts as a character of its own.
std::size_t characterLength(std::string_view s);
// The value of the character at the start of `s` when it is a Unicode
// decimal digit (any script), else -1.
int decimalDigitValue(std::string_view s);

}  // namespace wf::ns
