#include "ProcessFigures.h"

#include <dirent.h>

#include <chrono>
#include <fstream>

namespace wf::faults {

long residentKiB(pid_t pid) {
  std::ifstream in("/proc/" + std::to_string(pid) + "/status");
  std::string line;
  while (std::getline(in, line))
    if (line.rfind("VmRSS:", 0) == 0) return std::stol(line.substr(6));
  return -1;
}

int openDescriptors(pid_t pid) {
  DIR* d = opendir(("/proc/" + std::to_string(pid) + "/fd").c_str());
  if (!d) return -1;
  int count = 0;
  while (dirent* e = readdir(d))
    if (e->d_name[0] != '.') ++count;
  closedir(d);
  return count;
}

std::optional<double> timedRoundTrip(e2e::Session& s, double bound) {
  auto start = std::chrono::steady_clock::now();
  if (!s.roundTrip(bound)) return std::nullopt;
  return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
}

std::string Range::text() const {
  return "start " + std::to_string(first) + ", peak " + std::to_string(peak) + ", end " +
         std::to_string(last);
}

}  // namespace wf::faults
