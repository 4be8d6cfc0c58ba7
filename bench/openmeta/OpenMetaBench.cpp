// Set-and-read of a five-tag list on many files through the store, and the
// same work done by Python (peer.py) in the same run; prints both and their
// ratio. Usage: bench-openmeta [FILES (10000)] [FOLDER (/dev/shm)]
#include <glib.h>
#include <sys/xattr.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <string>
#include <vector>

#include "openmeta/OpenMeta.h"

namespace {

std::string makeFolder(const std::string& base, const char* name) {
  std::string tmpl = base + "/" + name + "-XXXXXX";
  if (!g_mkdtemp(tmpl.data())) {
    std::perror(("cannot make a folder in " + base).c_str());
    std::exit(1);
  }
  return tmpl;
}

void removeFolder(const std::string& folder) {
  const std::string cmd = "rm -rf '" + folder + "'";
  if (std::system(cmd.c_str()) != 0) std::fprintf(stderr, "could not remove %s\n", folder.c_str());
}

std::vector<std::string> makeFiles(const std::string& folder, int count) {
  std::vector<std::string> paths;
  for (int i = 0; i < count; ++i) {
    char name[32];
    std::snprintf(name, sizeof name, "/f%05d", i);
    paths.push_back(folder + name);
    std::ofstream(paths.back()).flush();
  }
  return paths;
}

// The system calls alone, with values prepared beforehand: what any
// implementation of this work pays on this machine.
double floorSeconds(const std::string& folder, int count) {
  const std::vector<std::string> paths = makeFiles(folder, count);
  std::string value(400, 'x');
  char buffer[4096];
  const auto start = std::chrono::steady_clock::now();
  for (const std::string& path : paths) {
    const char* p = path.c_str();
    lsetxattr(p, "user.com.apple.metadata:kMDItemOMUserTagTime", value.data(), 200, 0);
    lsetxattr(p, "user.xdg.tags", value.data(), 40, 0);
    lsetxattr(p, "user.com.apple.metadata:kMDItemOMUserTags", value.data(), value.size(), 0);
    lgetxattr(p, "user.xdg.tags", buffer, sizeof buffer);
    lgetxattr(p, "user.com.apple.metadata:kMDItemOMUserTags", buffer, sizeof buffer);
    lgetxattr(p, "user.kOM109SyncDone", buffer, sizeof buffer);
    lsetxattr(p, "user.kOM109SyncDone", value.data(), 200, 0);
  }
  return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
}

double storeSeconds(const std::string& folder, int count) {
  const std::vector<std::string> paths = makeFiles(folder, count);
  const wf::Value tags(wf::Array{wf::Value("Work"), wf::Value("Home"), wf::Value("Urgent"),
                                 wf::Value("Project Alpha"), wf::Value("Caf\xC3\xA9")});
  const auto start = std::chrono::steady_clock::now();
  for (const std::string& path : paths) {
    if (auto error = wf::OpenMeta::setUserTags(tags, path)) {
      std::fprintf(stderr, "set failed on %s: %ld\n", path.c_str(), error->code);
      std::exit(1);
    }
    wf::OptError error;
    if (wf::OpenMeta::getUserTags(path, &error).count() != 5 || error) {
      std::fprintf(stderr, "read back failed on %s\n", path.c_str());
      std::exit(1);
    }
  }
  return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
}

double peerSeconds(const std::string& folder, int count) {
  const std::string cmd =
      "python3 '" WF_OPENMETA_PEER "' '" + folder + "' " + std::to_string(count);
  FILE* p = popen(cmd.c_str(), "r");
  if (!p) return -1;
  char line[128] = {0};
  const bool got = std::fgets(line, sizeof line, p) != nullptr;
  if (pclose(p) != 0 || !got) return -1;
  return std::atof(line);
}

}  // namespace

int main(int argc, char** argv) {
  const int count = argc > 1 ? std::atoi(argv[1]) : 10000;
  const std::string base = argc > 2 ? argv[2] : "/dev/shm";
  if (count <= 0) {
    std::fprintf(stderr, "usage: bench-openmeta [FILES] [FOLDER]\n");
    return 2;
  }
  const std::string ours = makeFolder(base, "bench-openmeta");
  const std::string theirs = makeFolder(base, "bench-openmeta-peer");
  const std::string bare = makeFolder(base, "bench-openmeta-floor");
  const double store = storeSeconds(ours, count);
  const double peer = peerSeconds(theirs, count);
  const double floor = floorSeconds(bare, count);
  removeFolder(ours);
  removeFolder(theirs);
  removeFolder(bare);

  std::printf("set-and-read of a five-tag list on %d files in %s\n", count, base.c_str());
  std::printf("  %-34s %9.3f s  %8.1f us/file\n", "OpenMeta (C++)", store, store * 1e6 / count);
  if (peer < 0) {
    std::printf("  python3 peer: could not run %s\n", WF_OPENMETA_PEER);
    return 1;
  }
  std::printf("  %-34s %9.3f s  %8.1f us/file\n", "python3 os.setxattr + plistlib", peer,
              peer * 1e6 / count);
  std::printf("  %-34s %9.3f s  %8.1f us/file\n", "system calls alone (7 per file)", floor,
              floor * 1e6 / count);
  std::printf("  ratio: OpenMeta is %.1fx faster (goal: 10x)\n", peer / store);
  if (store > floor && peer > floor)
    std::printf("  ratio of the time above the system calls: %.1fx\n",
                (peer - floor) / (store - floor));
  return 0;
}
