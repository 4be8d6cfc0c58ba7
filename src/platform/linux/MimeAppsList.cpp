#include "platform/linux/MimeAppsList.h"

#include <vector>

namespace wf::platform::xdg {
namespace {

bool isBlank(char c) { return c == ' ' || c == '\t' || c == '\r'; }

std::string_view trimmed(std::string_view s) {
  while (!s.empty() && isBlank(s.front())) s.remove_prefix(1);
  while (!s.empty() && isBlank(s.back())) s.remove_suffix(1);
  return s;
}

// Lines without their line breaks; `endsWithBreak` tells whether the last
// line had one.
std::vector<std::string_view> splitLines(std::string_view s, bool& endsWithBreak) {
  std::vector<std::string_view> lines;
  endsWithBreak = !s.empty() && s.back() == '\n';
  std::size_t start = 0;
  while (start < s.size()) {
    std::size_t end = s.find('\n', start);
    if (end == std::string_view::npos) end = s.size();
    lines.push_back(s.substr(start, end - start));
    start = end + 1;
  }
  return lines;
}

}  // namespace

std::string settingDefaultApplication(std::string_view contents, std::string_view mimeType,
                                      std::string_view desktopId) {
  const std::string setting = std::string(mimeType) + "=" + std::string(desktopId);
  bool endsWithBreak = false;
  std::vector<std::string_view> lines = splitLines(contents, endsWithBreak);
  std::vector<std::string> out(lines.begin(), lines.end());

  bool inDefaults = false, found = false;
  std::size_t insertAt = 0;  // after the last non-blank line of such a section
  bool haveSection = false;
  for (std::size_t i = 0; i < lines.size(); ++i) {
    std::string_view line = trimmed(lines[i]);
    if (!line.empty() && line.front() == '[') {
      inDefaults = line == "[Default Applications]";
      if (inDefaults) {
        haveSection = true;
        insertAt = i + 1;
      }
      continue;
    }
    if (!inDefaults || line.empty()) continue;
    insertAt = i + 1;
    if (line.front() == '#') continue;
    std::size_t equals = line.find('=');
    if (equals == std::string_view::npos || trimmed(line.substr(0, equals)) != mimeType) continue;
    // A line break of the CR-LF kind stays as it was.
    bool crlf = !lines[i].empty() && lines[i].back() == '\r';
    out[i] = setting + (crlf ? "\r" : "");
    found = true;
  }

  if (!found && haveSection) {
    out.insert(out.begin() + static_cast<std::ptrdiff_t>(insertAt), setting);
    if (insertAt == lines.size()) endsWithBreak = true;
  }

  std::string result;
  for (std::size_t i = 0; i < out.size(); ++i) {
    result += out[i];
    if (i + 1 < out.size() || endsWithBreak) result += '\n';
  }
  if (!found && !haveSection) {
    if (!result.empty()) {
      if (result.back() != '\n') result += '\n';
      result += '\n';
    }
    result += "[Default Applications]\n" + setting + "\n";
  }
  return result;
}

}  // namespace wf::platform::xdg
