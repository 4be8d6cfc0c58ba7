#include "platform/linux/MimeAppsUrlHandlers.h"

#include <glib.h>
#include <glib/gstdio.h>
#include <stdlib.h>
#include <sys/stat.h>

#include <optional>

#include "platform/base/Files.h"
#include "platform/linux/MimeAppsList.h"
#include "platform/linux/SessionBus.h"

namespace wf::platform {
namespace {

// RFC 3986: a letter, then letters, digits, "+", "-" and ".". Anything else
// could not stand in a key of the list.
bool isUrlScheme(const std::string& scheme) {
  if (scheme.empty() || !g_ascii_isalpha(scheme[0])) return false;
  for (char c : scheme)
    if (!g_ascii_isalnum(c) && c != '+' && c != '-' && c != '.') return false;
  return true;
}

// The file to rewrite: a list that is a link (kept in a dotfiles folder,
// say) is changed where it points, so the link stays a link.
std::optional<std::string> fileToWrite(const std::string& path) {
  struct stat st;
  if (lstat(path.c_str(), &st) != 0 || !S_ISLNK(st.st_mode)) return path;
  char* target = realpath(path.c_str(), nullptr);
  if (!target) return std::nullopt;  // a dangling link is left alone
  std::string out(target);
  free(target);
  return out;
}

std::string joined(const std::vector<std::string>& words) {
  std::string out;
  for (const std::string& word : words) out += (out.empty() ? "" : ", ") + word;
  return out;
}

}  // namespace

std::string MimeAppsUrlHandlers::explainFailure(long status, const std::string& bundleIdentifier,
                                                const std::vector<std::string>& schemes) const {
  std::string list = mimeAppsListPath();
  if (status == kLSApplicationNotFoundErr) {
    std::vector<std::string> folders;
    for (const std::string& dir : xdgDataDirectories())
      folders.push_back(dir + (dir.back() == '/' ? "" : "/") + "applications");
    return "URL scheme handlers: no desktop entry " + bundleIdentifier + ".desktop in " +
           joined(folders) + "; " + joined(schemes) + " keep their current handler in " + list +
           ". Install the mail client's desktop entry under the name " + bundleIdentifier +
           ".desktop in one of those folders and start the helper again.";
  }
  if (status == kLSUnknownErr)
    return "URL scheme handlers: " + list + " could not be read or replaced; " + joined(schemes) +
           " keep their current handler.";
  return "";
}

std::string MimeAppsUrlHandlers::mimeAppsListPath() const {
  return environment_.xdgConfigHome() + "/mimeapps.list";
}

long MimeAppsUrlHandlers::setDefaultHandlerForURLScheme(const std::string& scheme,
                                                        const std::string& bundleIdentifier) {
  if (!workspace_.desktopEntryPathForIdentifier(bundleIdentifier)) return kLSApplicationNotFoundErr;
  if (!isUrlScheme(scheme)) return kLSUnknownErr;
  std::optional<std::string> path = fileToWrite(mimeAppsListPath());
  if (!path) return kLSUnknownErr;

  std::string contents;
  int mode = 0600;
  struct stat st;
  if (stat(path->c_str(), &st) == 0) {
    if (!S_ISREG(st.st_mode)) return kLSUnknownErr;
    mode = static_cast<int>(st.st_mode & 07777);
    auto bytes = sys::readRegularFile(*path, sys::kMaxConfigFileBytes);
    if (!bytes) return kLSUnknownErr;
    contents = std::move(bytes.value());
  } else {
    std::string folder = environment_.xdgConfigHome();
    if (g_mkdir_with_parents(folder.c_str(), 0700) != 0) return kLSUnknownErr;
  }

  std::string changed = xdg::settingDefaultApplication(contents, "x-scheme-handler/" + scheme,
                                                       bundleIdentifier + ".desktop");
  if (changed == contents) return 0;
  if (!g_file_set_contents_full(path->c_str(), changed.data(), static_cast<gssize>(changed.size()),
                                G_FILE_SET_CONTENTS_CONSISTENT, mode, nullptr))
    return kLSUnknownErr;
  return 0;
}

}  // namespace wf::platform
