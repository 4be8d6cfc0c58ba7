// A one-shot call on the calling thread's main context after a delay, for
// code that has no MainLoop service to hand (the OpenMeta store, a library
// other programs link). It runs only while that context is iterated.
#pragma once

#include <functional>

namespace wf::sys {

void runAfterDelay(unsigned milliseconds, std::function<void()> fn);

}  // namespace wf::sys
