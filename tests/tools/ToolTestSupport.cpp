#include "ToolTestSupport.h"

#include <dirent.h>
#include <fcntl.h>
#include <glib.h>
#include <sched.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <sys/xattr.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <fstream>
#include <regex>
#include <set>
#include <sstream>

namespace wf::test {

FileState stateOf(const std::string& path) {
  FileState s;
  struct stat st {};
  if (::lstat(path.c_str(), &st) != 0) return s;
  s.exists = true;
  s.mode = st.st_mode & 07777;
  s.uid = st.st_uid;
  s.gid = st.st_gid;
  if (S_ISLNK(st.st_mode)) {
    s.isLink = true;
    std::vector<char> buf(4096);
    ssize_t n = ::readlink(path.c_str(), buf.data(), buf.size());
    if (n > 0) s.linkTarget.assign(buf.data(), static_cast<std::size_t>(n));
    return s;
  }
  std::ifstream f(path, std::ios::binary);
  std::ostringstream ss;
  ss << f.rdbuf();
  s.bytes = ss.str();
  std::vector<char> names(65536);
  ssize_t n = ::llistxattr(path.c_str(), names.data(), names.size());
  for (const char* p = names.data(); n > 0 && p < names.data() + n; p += std::strlen(p) + 1) {
    std::string value(65536, '\0');
    ssize_t size = ::lgetxattr(path.c_str(), p, value.data(), value.size());
    if (size >= 0) s.xattrs[p] = value.substr(0, static_cast<std::size_t>(size));
  }
  return s;
}

std::vector<std::string> strayEntries(const std::string& folder,
                                      const std::vector<std::string>& keep) {
  std::vector<std::string> out;
  DIR* dir = ::opendir(folder.c_str());
  if (!dir) return out;
  while (dirent* e = ::readdir(dir)) {
    std::string name = e->d_name;
    if (name == "." || name == "..") continue;
    if (std::find(keep.begin(), keep.end(), name) == keep.end()) out.push_back(name);
  }
  ::closedir(dir);
  std::sort(out.begin(), out.end());
  return out;
}

namespace {

bool writeText(const char* path, const std::string& text) {
  int fd = ::open(path, O_WRONLY | O_CLOEXEC);
  if (fd < 0) return false;
  bool ok = ::write(fd, text.data(), text.size()) == static_cast<ssize_t>(text.size());
  ::close(fd);
  return ok;
}

// A mount namespace of this process's own, so that mounts made by the test
// are seen by it and its children only and vanish with it.
bool enterPrivateMounts(std::string& why) {
  static int state = 0;  // 0 not tried, 1 in one, -1 failed
  static std::string failure;
  if (state == 0) {
    state = -1;
    const uid_t uid = ::geteuid();
    const gid_t gid = ::getegid();
    if (uid == 0) {
      if (::unshare(CLONE_NEWNS) != 0) failure = std::string("unshare: ") + std::strerror(errno);
    } else if (::unshare(CLONE_NEWUSER | CLONE_NEWNS) != 0) {
      failure = std::string("no unprivileged user namespaces: ") + std::strerror(errno);
    } else {
      writeText("/proc/self/setgroups", "deny");
      writeText("/proc/self/uid_map", std::to_string(uid) + " " + std::to_string(uid) + " 1");
      writeText("/proc/self/gid_map", std::to_string(gid) + " " + std::to_string(gid) + " 1");
    }
    if (failure.empty() && ::mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0)
      failure = std::string("cannot make mounts private: ") + std::strerror(errno);
    if (failure.empty()) state = 1;
  }
  why = failure;
  return state == 1;
}

}  // namespace

SmallTmpfs::SmallTmpfs(std::size_t bytes, const std::string& extraOptions) {
  std::string tmpl = std::string(g_get_tmp_dir()) + "/wftool-XXXXXX";
  std::vector<char> buf(tmpl.begin(), tmpl.end());
  buf.push_back('\0');
  if (!::mkdtemp(buf.data())) {
    reason_ = "mkdtemp failed";
    return;
  }
  path_ = buf.data();
  if (!enterPrivateMounts(reason_)) return;
  std::string options = "size=" + std::to_string(bytes) + ",mode=0755";
  if (!extraOptions.empty()) options += "," + extraOptions;
  if (::mount("tmpfs", path_.c_str(), "tmpfs", 0, options.c_str()) != 0) {
    reason_ = std::string("cannot mount a tmpfs: ") + std::strerror(errno);
    return;
  }
  ok_ = true;
}

SmallTmpfs::~SmallTmpfs() {
  if (ok_) ::umount2(path_.c_str(), MNT_DETACH);
  if (!path_.empty()) ::rmdir(path_.c_str());
}

void SmallTmpfs::fill(const std::string& name) {
  int fd = ::open((path_ + "/" + name).c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0600);
  if (fd < 0) return;
  std::string block(4096, 'x');
  while (::write(fd, block.data(), block.size()) > 0) {
  }
  // Byte by byte into the last partial page.
  while (::write(fd, "x", 1) > 0) {
  }
  ::close(fd);
}

bool SmallTmpfs::makeReadOnly() {
  return ok_ && ::mount(nullptr, path_.c_str(), nullptr, MS_REMOUNT | MS_RDONLY, nullptr) == 0;
}

namespace {

std::vector<std::string> sorted(std::set<std::string> s) { return {s.begin(), s.end()}; }

}  // namespace

std::vector<std::string> optionsInManPage(const std::string& source) {
  // The page's text without roff's escapes: "\-" is a dash, font changes go.
  std::string text = std::regex_replace(source, std::regex(R"(\\-)"), "-");
  text = std::regex_replace(text, std::regex(R"(\\f[BIRP])"), " ");
  text = std::regex_replace(text, std::regex(R"(\\\(..)"), " ");
  return optionsInText(text);
}

std::vector<std::string> optionsInText(const std::string& text) {
  std::set<std::string> found;
  std::regex option(R"((?:^|[\s\[(|,])(-{1,2}[a-z][a-z0-9-]*))", std::regex::multiline);
  for (auto it = std::sregex_iterator(text.begin(), text.end(), option);
       it != std::sregex_iterator(); ++it)
    found.insert((*it)[1]);
  return sorted(found);
}

}  // namespace wf::test
