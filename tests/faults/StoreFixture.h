// A helper on a private bus whose home holds a Mail store, a sync folder
// and the plug-in's folder, with the means to tag messages as another
// application would and to wait for the helper's answer to it.
#pragma once

#include <gtest/gtest.h>

#include <ctime>
#include <filesystem>
#include <functional>
#include <map>
#include <string>

#include "FaultSupport.h"
#include "platform/plist/PropertyList.h"
#include "support/Fakes.h"
#include "support/Harness.h"

namespace wf::faults {

class StoreFixture : public ::testing::Test {
 protected:
  void SetUp() override {
    makeFolders(mailbox());
    makeFolders(sync());
    makeFolders(ardel());
    test::writeFile(ardel() + "/WrenfoldKeywords.plist", list("local keywords"));
    test::writeFile(sync() + "/WrenfoldKeywords.plist", list("shared keywords"));
    s.writePreferences({{"settingsSyncMethod", Value(2)},
                        {"syncFolderPath", Value(sync())},
                        {"recognizeOpenMetaTags", Value(true)}});
    // No interval runs: these tests are about the folders.
    s.writeHelperDefaults({{"disableExternalProjectScanning", Value(true)}});
  }

  std::string store() const { return s.library() + "/Mail/V2"; }
  std::string mailbox() const { return store() + "/Inbox.mbox/Messages"; }
  std::string sync() const { return s.home() + "/sync"; }
  std::string ardel() const { return s.library() + "/Mail/Ardel"; }
  std::string stubFolder() const { return ardel() + "/OpenMetaUpdates"; }

  void launch(std::vector<std::string> extra = {}) {
    std::vector<std::string> args{"-WFlogSettingsSync", "YES", "-WFlogOpenMeta", "YES"};
    args.insert(args.end(), extra.begin(), extra.end());
    s.startHelper(args);
    ASSERT_TRUE(s.waitForLaunch()) << s.stderrText();
    // The round trip's answer comes before its sync-folder step, which makes
    // the folder if it is missing; a test that takes the folder away must
    // not race it. Launch and round trip each end that step with a line.
    ASSERT_TRUE(s.waitUntil(
        [&] {
          return s.countInStderr("Already watching folder  " + sync()) >= 1 ||
                 s.countInStderr("failed to start the SyncFolder Listener") >= 2;
        },
        10))
        << s.stderrText();
  }

  // Now, as the helper's dates count it.
  static double now() { return static_cast<double>(std::time(nullptr)) - 978307200.0; }

  // A message of the plug-in, stamped long ago.
  std::string message(const std::string& folder, const std::string& name) {
    std::string path = folder + "/" + name;
    writeMessage(path, wrenfoldMessage("Subject: " + name + "\n\nbody\n", {}));
    return path;
  }
  // Another application tags it now: the helper leaves a stub.
  static void tag(const std::string& path, double when = now() - 1) {
    setSpotlightAttribute(path, "kMDItemOMUserTags", Value(Array{Value("urgent")}));
    setSpotlightAttribute(path, "kMDItemOMUserTagTime", Value(Date{when}));
  }
  std::string stubOf(const std::string& messagePath) const {
    std::string name = std::filesystem::path(messagePath).stem().string();
    return stubFolder() + "/" + name;
  }
  // The stub is there and whole.
  bool stubWritten(const std::string& messagePath) const {
    Value stub = plist::dictionaryWithContentsOfFile(stubOf(messagePath));
    return stub.isDictionary() && stub.get("FilePath") == Value(messagePath);
  }
  bool waitForStub(const std::string& messagePath, double seconds = 30) {
    return s.waitForFiles([&] { return stubWritten(messagePath); }, seconds);
  }
  // The helper stamped the message after handling it.
  bool imported(const std::string& messagePath) const {
    Value stamp = spotlightAttribute(messagePath, "kMDItemWrenfoldTimeStamp");
    return stamp.isDate() && stamp.asDate().seconds > 1000.0 &&
           !(stamp.asDate() == Date::distantFuture());
  }

  e2e::Session s;
};

}  // namespace wf::faults
