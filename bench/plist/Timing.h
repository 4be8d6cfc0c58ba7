// What both property-list benchmarks measure with, so that their figures
// compare: whole files read into memory, and the best of several runs in
// the process's CPU time (on a machine shared with other work, wall time
// moved several-fold between runs; the work is single-threaded).
#pragma once

#include <time.h>

#include <fstream>
#include <functional>
#include <sstream>
#include <string>

namespace wf::bench {

inline std::string slurp(const char* path) {
  std::ifstream in(path, std::ios::binary);
  std::stringstream ss;
  ss << in.rdbuf();
  return ss.str();
}

inline double cpuSeconds() {
  timespec ts{};
  clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &ts);
  return static_cast<double>(ts.tv_sec) + static_cast<double>(ts.tv_nsec) * 1e-9;
}

// Best of `runs`: the least disturbed by whatever else the machine does.
inline double best(int runs, const std::function<void()>& fn) {
  double bestSeconds = 1e9;
  for (int i = 0; i < runs; ++i) {
    const double start = cpuSeconds();
    fn();
    const double d = cpuSeconds() - start;
    if (d < bestSeconds) bestSeconds = d;
  }
  return bestSeconds;
}

}  // namespace wf::bench
