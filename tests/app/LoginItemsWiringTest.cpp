// How the launch sequence, the change notice and the uninstall notice reach
// the login items and the URL-scheme handlers.
#include <gtest/gtest.h>
#include <sys/stat.h>

#include "app/WFHelperAppDelegate.h"
#include "platform/LoginItems.h"
#include "platform/UrlHandlers.h"
#include "platform/plist/PropertyList.h"
#include "support/Fakes.h"
#include "support/LoginItemFakes.h"

namespace wf {
namespace {

using platform::Terminated;

class WiringTest : public ::testing::Test {
 protected:
  void SetUp() override {
    for (const char* f :
         {"/Mail", "/Mail/Bundles", "/Mail/Bundles/Wrenfold.mailbundle", "/Preferences"})
      mkdir((p.library() + f).c_str(), 0755);
    services = p.services();
    services.loginItems = &loginItems;
    services.urlHandlers = &urlHandlers;
  }
  void writePreferences(const Dictionary& prefs) {
    ASSERT_TRUE(plist::writeToFile(Value(prefs),
                                   p.library() + "/Preferences/org.ardel.Wrenfold.plist", true));
  }
  void addOwnItem() {
    loginItems.items.push_back({"org.ardel.WrenfoldHelper.desktop", "Wrenfold Helper",
                                p.environment.bundlePath(), "org.ardel.WrenfoldHelper"});
  }

  test::FakePlatform p;
  test::FakeLoginItems loginItems;
  test::FakeUrlHandlers urlHandlers{p.log};
  platform::Services services = p.services();
};

TEST_F(WiringTest, UrlSchemesAreTheFirstStepOfLaunch) {
  WFHelperAppDelegate d(services);
  d.applicationDidFinishLaunching();
  EXPECT_EQ(urlHandlers.calls, (std::vector<std::pair<std::string, std::string>>{
                                   {"wrenfoldlog", "com.apple.mail"},
                                   {"wrenfoldkeyword", "com.apple.mail"},
                                   {"wfkw", "com.apple.mail"},
                                   {"wrenfoldproject", "com.apple.mail"}}));
  for (std::size_t n : urlHandlers.linesBefore) EXPECT_EQ(n, 0u);  // before the banner
}

TEST_F(WiringTest, MissingPlugInRemovesTheLoginItem) {
  rmdir((p.library() + "/Mail/Bundles/Wrenfold.mailbundle").c_str());
  addOwnItem();
  WFHelperAppDelegate d(services);
  EXPECT_THROW(d.applicationDidFinishLaunching(), Terminated);
  EXPECT_EQ(loginItems.removed.size(), 1u);
  EXPECT_TRUE(loginItems.items.empty());
}

TEST_F(WiringTest, UninstallRemovesTheLoginItemAndStopsBothWatchers) {
  std::string sync = p.environment.home + "/Sync";
  mkdir(sync.c_str(), 0755);
  writePreferences({{"launchWrenfoldHelperAtLogin", Value(true)},
                    {"settingsSyncMethod", Value(2)},
                    {"syncFolderPath", Value(sync)}});
  WFHelperAppDelegate d(services);
  d.applicationDidFinishLaunching();
  ASSERT_EQ(loginItems.items.size(), 1u);
  ASSERT_TRUE(d._syncFolderStreamRef && d._openMetaStreamRef);
  EXPECT_THROW(p.notifications.deliver("WrenfoldWillUninstall"), Terminated);
  EXPECT_TRUE(loginItems.items.empty());
  EXPECT_FALSE(d._syncFolderStreamRef);
  EXPECT_FALSE(d._openMetaStreamRef);
}

TEST_F(WiringTest, LoginChoiceInTheFileAddsTheItem) {
  writePreferences({{"launchWrenfoldHelperAtLogin", Value(true)}});
  WFHelperAppDelegate d(services);
  d.preferencesDidChange(nullptr);
  EXPECT_EQ(loginItems.inserted, 1);
  writePreferences({{"launchWrenfoldHelperAtLogin", Value(false)}});
  d.preferencesDidChange(nullptr);
  EXPECT_TRUE(loginItems.items.empty());
}

TEST_F(WiringTest, CommandLineLoginChoiceDoesNotAddTheItem) {
  writePreferences({{"launchWrenfoldHelperAtLogin", Value(false)}});
  p.defaults.arguments = {{"WFlaunchWrenfoldHelperAtLogin", Value("YES")}};
  addOwnItem();
  WFHelperAppDelegate d(services);
  d.preferencesDidChange(nullptr);
  EXPECT_EQ(loginItems.inserted, 0);
  EXPECT_TRUE(loginItems.items.empty());  // the file says no: removed
}

TEST_F(WiringTest, MissingPreferencesRemoveTheItem) {
  addOwnItem();
  WFHelperAppDelegate d(services);
  d.preferencesDidChange(nullptr);
  EXPECT_TRUE(loginItems.items.empty());
}

}  // namespace
}  // namespace wf
