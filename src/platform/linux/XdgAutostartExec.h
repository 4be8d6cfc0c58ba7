// The Exec key of desktop entries: finding the program it starts and
// writing a path so that a desktop session starts exactly that program.
#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace wf::platform::xdg {

// The program of an Exec value as the key-file reader returns it (string
// escapes such as "\s" already undone): the first argument with its quoting
// undone, field codes dropped and "%%" turned into "%". Nothing when the
// value has no program or its quoting is broken.
std::optional<std::string> execProgram(std::string_view exec);

// An Exec value that starts `path` with no arguments, as it is written in the
// file: quoted when the path holds a reserved character, "%" doubled, and the
// string escapes of desktop-entry values applied.
std::string execLineValue(std::string_view path);

// A string value as it is written in a desktop entry: backslashes, line
// breaks, tabs and a leading blank escaped.
std::string escapeStringValue(std::string_view s);

// The absolute real path of a program: a bare name is looked up in the
// directories of `searchPath` (a PATH value); a name with a slash must be
// absolute. Nothing when the program does not exist.
std::optional<std::string> resolveProgram(const std::string& program,
                                          const std::string& searchPath);

}  // namespace wf::platform::xdg
