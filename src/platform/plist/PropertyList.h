// The property-list codec: XML (version 1.0) and binary ("bplist00").
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include "platform/plist/Value.h"

namespace wf::plist {

enum class Format { XML, Binary };

// Parses either format (detected from the bytes). On failure returns nil and,
// when `error` is given, a message that says what is wrong and where.
Value parse(std::string_view bytes, std::string* error = nullptr, Format* format = nullptr);

// XML exactly as Foundation writes it. Fails (returns false, message in
// `error`) for values a property list cannot hold: nil, NSNull.
bool toXML(const Value& v, std::string& out, std::string* error = nullptr);
// Binary "bplist00" that Foundation reads.
bool toBinary(const Value& v, std::string& out, std::string* error = nullptr);
bool serialize(const Value& v, Format f, std::string& out, std::string* error = nullptr);

// Reads a whole file and parses it; nil when missing, unreadable or no plist.
Value readFile(const std::string& path, std::string* error = nullptr);
// +[NSDictionary dictionaryWithContentsOfFile:]: nil unless the root is a dictionary.
Value dictionaryWithContentsOfFile(const std::string& path);
// +[NSArray arrayWithContentsOfFile:]: nil unless the root is an array.
Value arrayWithContentsOfFile(const std::string& path);

// Writes bytes to a temporary file in the same folder (created exclusively,
// mode 0666 less umask), fsyncs and renames it over `path`. The temporary
// file is never left behind. Returns false with `error` set on failure.
bool writeFileAtomically(const std::string& path, std::string_view bytes,
                         std::string* error = nullptr);
// -[NSArray/NSDictionary writeToFile:atomically:]: XML; non-atomic writes
// truncate and write in place.
bool writeToFile(const Value& v, const std::string& path, bool atomically,
                 std::string* error = nullptr);

}  // namespace wf::plist
