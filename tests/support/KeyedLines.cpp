#include "support/KeyedLines.h"

#include <cctype>

namespace wf::test {

std::vector<std::string> keyedMessages(const FakeLog& log, const std::string& key,
                                       const std::string& function) {
  std::vector<std::string> out;
  const std::string head = "(" + key + ")" + function + ": ";
  for (const std::string& line : log.lines) {
    if (line.rfind(head, 0) != 0) continue;
    std::size_t i = head.size();
    std::size_t digits = i;
    while (digits < line.size() && std::isdigit(static_cast<unsigned char>(line[digits]))) ++digits;
    if (digits == i || line.compare(digits, 2, ": ") != 0) continue;
    out.push_back(line.substr(digits + 2));
  }
  return out;
}

}  // namespace wf::test
