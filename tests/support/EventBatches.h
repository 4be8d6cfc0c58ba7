// What file-event tests write and what their streams report.
#pragma once

#include <string>
#include <vector>

namespace wf::test {

// Creates (or truncates) a file with plain system calls, so the process's
// own-change registry knows nothing of it: to the streams it looks like
// another program's write.
void foreignWrite(const std::string& path, const std::string& bytes = "x");

// Every callback of a stream, in order.
struct Batches {
  std::vector<std::vector<std::string>> calls;
  std::vector<std::string> all() const;
  bool contains(const std::string& path) const;
};

}  // namespace wf::test
