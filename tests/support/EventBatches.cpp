#include "support/EventBatches.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <stdexcept>

namespace wf::test {

void foreignWrite(const std::string& path, const std::string& bytes) {
  int fd = open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644);
  if (fd < 0) throw std::runtime_error("cannot write " + path);
  if (write(fd, bytes.data(), bytes.size()) != static_cast<ssize_t>(bytes.size())) {
    close(fd);
    throw std::runtime_error("short write " + path);
  }
  close(fd);
}

std::vector<std::string> Batches::all() const {
  std::vector<std::string> out;
  for (const auto& c : calls) out.insert(out.end(), c.begin(), c.end());
  return out;
}

bool Batches::contains(const std::string& path) const {
  auto a = all();
  return std::find(a.begin(), a.end(), path) != a.end();
}

}  // namespace wf::test
