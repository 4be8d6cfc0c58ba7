// What both property-list benchmarks measure with, so that their figures
// compare: whole files read into memory, and the best of several runs.
#pragma once

#include <chrono>
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

// Best of `runs`: the least disturbed by whatever else the machine does.
inline double best(int runs, const std::function<void()>& fn) {
  double bestSeconds = 1e9;
  for (int i = 0; i < runs; ++i) {
    auto start = std::chrono::steady_clock::now();
    fn();
    std::chrono::duration<double> d = std::chrono::steady_clock::now() - start;
    if (d.count() < bestSeconds) bestSeconds = d.count();
  }
  return bestSeconds;
}

}  // namespace wf::bench
