#pragma once
// Property lists built to attack whoever reads them.

#include <string>

namespace wf::test {

// A binary property list of `levels` arrays, each holding the next one
// twice, around one boolean: a few hundred bytes that stand for 2^levels
// values when every reference is followed (298 bytes at 64 levels).
std::string hostileExpansionPlist(int levels = 64);

// The same chain as a message trailer carries it:
// {"wrenfold": {"wrenfoldKeyWords": chain}}.
std::string hostileExpansionTrailerPlist(int levels = 64);

}  // namespace wf::test
