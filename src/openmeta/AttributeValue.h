// Internals of the OpenMeta store shared by its source files: the error
// values, the attribute-value encoding and the platform generation.
#pragma once

#include <string>
#include <string_view>

#include "platform/foundation/Error.h"
#include "platform/plist/Value.h"

namespace wf::platform {
class ExtendedAttributes;
}

namespace wf::openmeta {

// An error of the "openmeta" domain whose only user info is {"info": text}.
Error storeError(long code, std::string info);
// A POSIX error for `err` whose only user info is {"info": errnoString(err)}.
Error posixError(int err);

// The path as the system calls take it; false when it is empty or holds a
// NUL byte (it has no file-system representation then).
bool hasFileSystemRepresentation(const std::string& path);

// Serialises a value as the platform generation writes attribute values.
// False with a -2 error when the codec refuses it (nil, NSNull inside).
bool encodeAttributeValue(const Value& value, std::string& out, OptError* error);
// Parses attribute bytes of either property-list format. Nil with a -2 error
// when they are no property list.
Value decodeAttributeValue(std::string_view bytes, OptError* error);

// The file manager's list as "user.xdg.tags" holds it: the names joined by
// ",", a "," inside a name written as its look-alike; empty names left out.
std::string joinedFinderTags(const Array& tags);

// Whether values are written as XML (generation 1343 or later) or binary.
bool writesXMLValues();

// The current date, as property lists keep dates.
Date currentDate();

// Where the store's attributes are read and written: the file system's own,
// or what a test put in their place.
platform::ExtendedAttributes& attributes();

}  // namespace wf::openmeta
