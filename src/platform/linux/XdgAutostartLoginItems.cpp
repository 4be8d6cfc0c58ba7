#include "platform/linux/XdgAutostartLoginItems.h"

#include <dirent.h>
#include <glib.h>
#include <glib/gstdio.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>

#include "platform/base/Files.h"
#include "platform/base/Owners.h"
#include "platform/glib/Owners.h"
#include "platform/linux/XdgAutostartExec.h"

namespace wf::platform {
namespace {

constexpr const char* kGroup = "Desktop Entry";
// A desktop entry is a few hundred bytes; anything far larger is not one.
constexpr gsize kMaxEntrySize = 1 << 20;

std::optional<std::string> stringForKey(GKeyFile* file, const char* key) {
  auto value = sys::adoptG(g_key_file_get_string(file, kGroup, key, nullptr));
  if (!value) return std::nullopt;
  return std::string(value.get());
}

std::string searchPath() {
  const char* path = g_getenv("PATH");
  return path ? path : "/usr/local/bin:/usr/bin:/bin";
}

bool hasDesktopSuffix(const std::string& name) {
  static constexpr std::string_view kSuffix = ".desktop";
  return name.size() > kSuffix.size() &&
         name.compare(name.size() - kSuffix.size(), kSuffix.size(), kSuffix) == 0;
}

}  // namespace

namespace xdg {

LoginItem autostartItem(const std::string& fileName, std::string_view contents,
                        const std::string& searchPath) {
  LoginItem item;
  item.token = fileName;
  auto file = sys::adoptG(g_key_file_new());
  if (!g_key_file_load_from_data(file.get(), contents.data(), contents.size(), G_KEY_FILE_NONE,
                                 nullptr))
    return item;
  item.displayName = stringForKey(file.get(), "Name");
  item.bundleIdentifier = stringForKey(file.get(), "X-Bundle-Identifier");
  if (std::optional<std::string> exec = stringForKey(file.get(), "Exec")) {
    if (std::optional<std::string> program = execProgram(*exec))
      item.resolvedPath = resolveProgram(*program, searchPath);
  }
  return item;
}

std::string autostartEntry(const std::string& displayName, const std::string& path,
                           const std::string& bundleIdentifier) {
  return "[Desktop Entry]\n"
         "Type=Application\n"
         "Name=" +
         xdg::escapeStringValue(displayName) + "\n" + "Exec=" + execLineValue(path) + "\n" +
         "X-Bundle-Identifier=" + xdg::escapeStringValue(bundleIdentifier) + "\n";
}

}  // namespace xdg

std::string XdgAutostartLoginItems::autostartFolder() const {
  return environment_.xdgConfigHome() + "/autostart";
}

std::vector<LoginItem> XdgAutostartLoginItems::snapshot() {
  std::string folder = autostartFolder();
  std::vector<std::string> names;
  if (sys::UniqueDir dir{opendir(folder.c_str())}) {
    while (dirent* entry = readdir(dir.get())) {
      std::string name = entry->d_name;
      if (hasDesktopSuffix(name)) names.push_back(std::move(name));
    }
  }
  std::sort(names.begin(), names.end());
  std::string programs = searchPath();
  std::vector<LoginItem> items;
  for (const std::string& name : names) {
    std::string path = folder + "/" + name;
    // A folder, a broken link, a FIFO or an unreadable file is an entry
    // that does not resolve; it is still part of the list.
    auto contents = sys::readRegularFile(path, kMaxEntrySize);
    if (!contents) {
      items.push_back(LoginItem{name, std::nullopt, std::nullopt, std::nullopt});
      continue;
    }
    items.push_back(xdg::autostartItem(name, contents.value(), programs));
  }
  return items;
}

bool XdgAutostartLoginItems::remove(const LoginItem& item) {
  if (item.token.empty() || item.token.find('/') != std::string::npos) return false;
  return sys::removePath(autostartFolder() + "/" + item.token, sys::Removal::FileOrLink).ok();
}

bool XdgAutostartLoginItems::insertLast(const std::string& displayName, const std::string& path,
                                        const std::string& bundleIdentifier) {
  // A desktop entry holds UTF-8 only; a path that is not cannot be written
  // so that a session would find it again.
  if (!g_utf8_validate(path.data(), static_cast<gssize>(path.size()), nullptr) ||
      !g_utf8_validate(displayName.data(), static_cast<gssize>(displayName.size()), nullptr) ||
      bundleIdentifier.empty() || bundleIdentifier.find('/') != std::string::npos ||
      bundleIdentifier.find('\n') != std::string::npos)
    return false;
  std::string folder = autostartFolder();
  if (g_mkdir_with_parents(folder.c_str(), 0700) != 0) return false;
  std::string target;
  // Another entry with the helper's file name is never overwritten: it may
  // be one the user keeps for a reason this helper cannot see.
  for (int n = 1; n <= 100 && target.empty(); ++n) {
    std::string name = bundleIdentifier + (n == 1 ? "" : "-" + std::to_string(n)) + ".desktop";
    std::string candidate = folder + "/" + name;
    struct stat st;
    if (lstat(candidate.c_str(), &st) != 0) target = candidate;
  }
  if (target.empty()) return false;
  std::string entry = xdg::autostartEntry(displayName, path, bundleIdentifier);
  return g_file_set_contents(target.c_str(), entry.data(), static_cast<gssize>(entry.size()),
                             nullptr);
}

}  // namespace wf::platform
