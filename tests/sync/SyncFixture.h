// A delegate on fakes with settings sync through a folder switched on, its
// keyed log switched on, and helpers to read the log.
#pragma once

#include <gtest/gtest.h>

#include <memory>
#include <string>

#include "app/WFHelperAppDelegate.h"
#include "support/Fakes.h"
#include "support/ListFiles.h"

namespace wf::test {

class SyncTest : public ::testing::Test {
 protected:
  void SetUp() override;
  void TearDown() override;

  // A plug-in preference, given as a command-line override.
  void setPreference(const std::string& key, const std::string& value);
  void removePreference(const std::string& key);

  // Keyed lines "(logSettingsSync)-[WFHelperAppDelegate sel]: N: message"
  // from the delegate method with the C++ name `method`.
  std::size_t keyed(const std::string& method, const std::string& message) const;
  // Keyed lines from a free function.
  std::size_t keyedFree(const std::string& function, const std::string& message) const;
  // Lines that the keyed log wrote, of any method.
  std::size_t keyedLines() const;
  std::size_t always(const std::string& message) const { return platform.log.count(message); }
  std::size_t alwaysStartingWith(const std::string& prefix) const {
    return platform.log.startingWith(prefix).size();
  }

  std::string localFile(const std::string& name) const { return local + "/" + name; }
  std::string syncFile(const std::string& name) const { return sync + "/" + name; }

  FakePlatform platform;
  std::unique_ptr<WFHelperAppDelegate> delegate;
  std::string local;  // the plug-in's support folder
  std::string sync;   // the sync folder (not made yet)
};

}  // namespace wf::test
