// NSAppKitVersionNumber stand-in: the one test of the system generation.
// Linux stands for a current generation; tests and tools may pretend
// otherwise.
#pragma once

namespace wf {

constexpr double kCurrentAppKitVersionNumber = 2299.0;

double NSAppKitVersionNumber();
// Pretend to run on another generation (for example 1187, before Finder
// tags). OpenMeta caches what it derives: use its own setter there.
void setAppKitVersionNumberForTesting(double version);

}  // namespace wf
