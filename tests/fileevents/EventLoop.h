// Running the GLib main context in tests: bounded waits for events.
#pragma once

#include <functional>
#include <string>
#include <vector>

namespace wf::test {

// Iterates the default main context until `done` holds or `seconds` pass;
// returns whether it holds.
bool runUntil(const std::function<bool()>& done, double seconds);
// Iterates the default main context for `seconds` (for showing that
// nothing arrives), woken by a timeout rather than by polling.
void runFor(double seconds);

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
