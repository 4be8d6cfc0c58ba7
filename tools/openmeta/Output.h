// How the command prints values and errors.
#pragma once

#include <string>

#include "platform/foundation/Error.h"
#include "platform/plist/Value.h"

namespace openmeta_tool {

enum class OutputFormat { Lines, PropertyList, Json };

// One value per line: a string as it is, an array one element per line,
// anything else in Foundation's description. Nil prints nothing.
void printLines(const wf::Value& value, const std::string& prefix = "");
// The value as an XML property list or as JSON; nil prints nothing.
bool printStructured(const wf::Value& value, OutputFormat format);

// The reason in words: the system's text for a POSIX error, the store's own
// text for its errors.
std::string reasonOf(const wf::Error& error);
// "openmeta: SUBJECT: REASON (DOMAIN CODE)" on standard error.
void printError(const std::string& subject, const wf::Error& error);
// "openmeta: MESSAGE" on standard error.
void printUsageError(const std::string& command, const std::string& message);

}  // namespace openmeta_tool
