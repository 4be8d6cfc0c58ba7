// Reading and writing the files a person names on a tool's command line.
// Reads admit regular files only (a FIFO is refused, never waited on);
// writes replace the file atomically, keep its mode, owner and extended
// attributes, and go through a symbolic link to its target, leaving the
// link in place. A failed write leaves the old file as it was.
#pragma once

#include <string>
#include <string_view>

#include "platform/base/Files.h"
#include "platform/base/UpdateLock.h"
#include "platform/plist/Value.h"

namespace wf::tools {

// The name the program was run as ("wf-defaults", "defaults").
std::string programName(const char* argv0, const char* fallback);

// The bytes of `path`, or of standard input for "-". On failure `error` is
// the reason in words, without the path. `identity` (when given) receives
// the file that was read, for writeOutput's check.
bool readInput(const std::string& path, std::string& bytes, std::string& error,
               std::optional<sys::FileIdentity>* identity = nullptr);

enum class DocumentFormat { XML, Binary, JSON };

// Parses a property list (XML or binary) or, when the text starts with "{"
// or "[", JSON. `error` is the reason without the path.
bool parseDocument(std::string_view bytes, Value& out, std::string& error,
                   DocumentFormat* format = nullptr);

// readInput + parseDocument.
bool readDocument(const std::string& path, Value& out, std::string& error,
                  DocumentFormat* format = nullptr,
                  std::optional<sys::FileIdentity>* identity = nullptr);

// Replaces `path` by `bytes` as described above; "-" writes standard output.
// With `readFrom`, the write fails and leaves the file alone when another
// program replaced the file since it was read.
bool writeOutput(const std::string& path, std::string_view bytes, std::string& error,
                 const std::optional<sys::FileIdentity>& readFrom = std::nullopt);

// Takes the lock that this project's writers hold on `path` while they
// read, change and write it back (see platform/base/UpdateLock.h), waiting
// up to ten seconds for another writer; "-" needs none. On failure `error`
// says why, without the path, and nothing may be written.
bool lockForUpdate(const std::string& path, sys::Links links, sys::UpdateLock& lock,
                   std::string& error);

// Whether something exists at `path` (a dangling link counts).
bool pathExists(const std::string& path);

}  // namespace wf::tools
