// The running program's identity and the user's folders on Linux.
//
// Bundle path: the real path of /proc/self/exe. Resources: the installed
// share/wrenfold-helper/ beside bin/ when it holds Info.plist, else the
// source tree's resources/ (a build-tree binary). Library: $HOME/Library,
// home from HOME, else the password database; no home, no Library.
#pragma once

#include <string>

#include "platform/Platform.h"

namespace wf::platform {

class ProcessEnvironment : public Environment {
 public:
  ProcessEnvironment();
  std::string bundlePath() const override { return bundlePath_; }
  std::string bundleIdentifier() const override;
  Value infoValue(const std::string& key) const override;
  std::optional<std::string> pathForResource(const std::string& name,
                                             const std::string& type) const override;
  std::vector<std::string> userLibraryDirectories() const override;
  // Library/Application Scripts/<bundle identifier>, as on the Mac.
  std::vector<std::string> userApplicationScriptsDirectories() const override;
  // The kernel release's leading numbers (uname), e.g. 6.1.0.
  std::vector<long> operatingSystemVersion() const override;
  std::string systemVersionPlistPath() const override;
  std::string xdgConfigHome() const override;

  const std::string& resourceDirectory() const { return resources_; }
  // HOME, else the password database's home; empty when neither gives one.
  static std::string homeDirectory();
  // The helper's own defaults file in the user's Library (empty: no home).
  static std::string ownDefaultsFile();

 private:
  std::string bundlePath_;
  std::string resources_;
  Dictionary info_;
};

}  // namespace wf::platform
