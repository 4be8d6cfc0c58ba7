#include "platform/linux/XdgAutostartExec.h"

#include <limits.h>
#include <stdlib.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstring>

namespace wf::platform::xdg {
namespace {

bool isArgumentSeparator(char c) { return c == ' ' || c == '\t' || c == '\n'; }

// Characters that a desktop session's parser gives a meaning of their own
// outside quotes.
bool isReserved(char c) { return std::strchr(" \t\n\"'\\><~|&;$*?#()`", c) != nullptr && c; }

// Field codes stand for files and URLs the session passes; the program
// itself never holds one, so they are dropped rather than expanded.
std::string withoutFieldCodes(std::string_view s) {
  std::string out;
  for (std::size_t i = 0; i < s.size(); ++i) {
    if (s[i] != '%') {
      out.push_back(s[i]);
    } else if (i + 1 < s.size()) {
      if (s[i + 1] == '%') out.push_back('%');
      ++i;
    }
  }
  return out;
}

}  // namespace

std::optional<std::string> execProgram(std::string_view exec) {
  std::size_t i = 0;
  while (i < exec.size() && isArgumentSeparator(exec[i])) ++i;
  if (i == exec.size()) return std::nullopt;
  std::string word;
  if (exec[i] == '"') {
    bool closed = false;
    for (++i; i < exec.size(); ++i) {
      char c = exec[i];
      if (c == '"') {
        closed = true;
        ++i;
        break;
      }
      if (c == '\\' && i + 1 < exec.size() && std::strchr("\"`$\\", exec[i + 1]) && exec[i + 1]) {
        word.push_back(exec[++i]);
      } else {
        word.push_back(c);
      }
    }
    if (!closed) return std::nullopt;
    // A quoted argument ends at its closing quote; anything glued to it
    // makes the line ambiguous.
    if (i < exec.size() && !isArgumentSeparator(exec[i])) return std::nullopt;
  } else {
    while (i < exec.size() && !isArgumentSeparator(exec[i])) word.push_back(exec[i++]);
  }
  std::string program = withoutFieldCodes(word);
  if (program.empty()) return std::nullopt;
  return program;
}

std::string execLineValue(std::string_view path) {
  std::string argument;
  bool quote = path.empty();
  for (char c : path) quote = quote || isReserved(c);
  if (quote) argument.push_back('"');
  for (char c : path) {
    if (quote && (c == '"' || c == '`' || c == '$' || c == '\\')) argument.push_back('\\');
    argument.push_back(c);
    if (c == '%') argument.push_back('%');
  }
  if (quote) argument.push_back('"');
  // The escapes of every string value come last: a backslash of the quoting
  // is written doubled.
  return escapeStringValue(argument);
}

std::string escapeStringValue(std::string_view s) {
  std::string value;
  for (char c : s) {
    switch (c) {
      case '\\':
        value += "\\\\";
        break;
      case '\n':
        value += "\\n";
        break;
      case '\t':
        value += "\\t";
        break;
      case '\r':
        value += "\\r";
        break;
      default:
        value.push_back(c);
    }
  }
  if (!value.empty() && value[0] == ' ') value.replace(0, 1, "\\s");
  return value;
}

namespace {

std::optional<std::string> realPath(const std::string& path) {
  char* resolved = realpath(path.c_str(), nullptr);
  if (!resolved) return std::nullopt;
  std::string out(resolved);
  free(resolved);
  return out;
}

bool isExecutableFile(const std::string& path) {
  struct stat st;
  return stat(path.c_str(), &st) == 0 && S_ISREG(st.st_mode) && access(path.c_str(), X_OK) == 0;
}

}  // namespace

std::optional<std::string> resolveProgram(const std::string& program,
                                          const std::string& searchPath) {
  if (program.empty() || program.find('\0') != std::string::npos) return std::nullopt;
  if (program.find('/') != std::string::npos) {
    // A relative path would depend on where the session happens to start it.
    if (program[0] != '/') return std::nullopt;
    return realPath(program);
  }
  std::size_t start = 0;
  while (start <= searchPath.size()) {
    std::size_t end = searchPath.find(':', start);
    if (end == std::string::npos) end = searchPath.size();
    std::string dir = searchPath.substr(start, end - start);
    start = end + 1;
    if (dir.empty() || dir[0] != '/') continue;
    std::string candidate = dir + "/" + program;
    if (isExecutableFile(candidate)) return realPath(candidate);
  }
  return std::nullopt;
}

}  // namespace wf::platform::xdg
