// Binary property lists that describe far more than they hold: an array
// whose two elements are the same next array, `levels` deep, so that 298
// bytes stand for 2^levels leaves once every shared reference is copied.
#pragma once

#include <string>

namespace wf::faults {

// The bare chain (64 levels: 298 bytes).
std::string expandingPlist(int levels = 64);
// The chain as a message trailer would carry it: {"wrenfold":
// {"wrenfoldKeyWords": chain}}.
std::string expandingTrailerPlist(int levels = 64);

}  // namespace wf::faults
