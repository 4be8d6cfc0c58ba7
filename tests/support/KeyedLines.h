// Reading the helper's keyed log lines, "(key)function: line: message", out
// of a fake log.
#pragma once

#include <string>
#include <vector>

#include "support/Fakes.h"

namespace wf::test {

// The messages of the keyed lines of `key` written by `function`, in order,
// without their "(key)function: line: " head.
std::vector<std::string> keyedMessages(const FakeLog& log, const std::string& key,
                                       const std::string& function);

}  // namespace wf::test
