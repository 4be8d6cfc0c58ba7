// How the command prints values and errors.
#pragma once

#include <string>

#include "platform/foundation/Error.h"
#include "platform/plist/Value.h"

namespace openmeta_tool {

// One value per line: a string as it is, an array one element per line,
// anything else in Foundation's description. Nil prints nothing.
void printLines(const wf::Value& value, const std::string& prefix = "");
// The value as an XML property list; nil prints nothing.
bool printPropertyList(const wf::Value& value);

// "openmeta: SUBJECT: DOMAIN CODE: INFO" on standard error.
void printError(const std::string& subject, const wf::Error& error);
// "openmeta: MESSAGE" on standard error.
void printUsageError(const std::string& command, const std::string& message);

}  // namespace openmeta_tool
