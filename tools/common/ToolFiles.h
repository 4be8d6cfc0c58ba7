// Reading and writing the files a person names on a tool's command line.
// Reads admit regular files only (a FIFO is refused, never waited on);
// writes replace the file atomically, keep its mode, owner and extended
// attributes, and go through a symbolic link to its target, leaving the
// link in place. A failed write leaves the old file as it was.
#pragma once

#include <string>
#include <string_view>

#include "platform/plist/Value.h"

namespace wf::tools {

// The name the program was run as ("wf-defaults", "defaults").
std::string programName(const char* argv0, const char* fallback);

// The bytes of `path`, or of standard input for "-". On failure `error` is
// the reason in words, without the path.
bool readInput(const std::string& path, std::string& bytes, std::string& error);

enum class DocumentFormat { XML, Binary, JSON };

// Parses a property list (XML or binary) or, when the text starts with "{"
// or "[", JSON. `error` is the reason without the path.
bool parseDocument(std::string_view bytes, Value& out, std::string& error,
                   DocumentFormat* format = nullptr);

// readInput + parseDocument.
bool readDocument(const std::string& path, Value& out, std::string& error,
                  DocumentFormat* format = nullptr);

// Replaces `path` by `bytes` as described above; "-" writes standard output.
bool writeOutput(const std::string& path, std::string_view bytes, std::string& error);

// Whether something exists at `path` (a dangling link counts).
bool pathExists(const std::string& path);

}  // namespace wf::tools
