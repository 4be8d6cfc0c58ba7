// The login item as a desktop session sees it: autostart entries written and
// removed by the real helper as the plug-in's preferences change.
#include <gio/gdesktopappinfo.h>
#include <gtest/gtest.h>
#include <stdlib.h>
#include <sys/stat.h>

#include <algorithm>
#include <cstdio>

#include "support/Fakes.h"
#include "support/Harness.h"

namespace wf::e2e {
namespace {

constexpr double kWait = 20;
constexpr const char* kEntryName = "org.ardel.WrenfoldHelper.desktop";

std::string realPath(const std::string& path) {
  char* r = realpath(path.c_str(), nullptr);
  std::string out = r ? r : path;
  free(r);
  return out;
}

class LoginItemsE2E : public ::testing::Test {
 protected:
  std::string autostart() const { return s.home() + "/.config/autostart"; }
  std::vector<std::string> entries() const { return test::folderEntries(autostart()); }
  void setAtLogin(bool on) {
    s.writePreferences({{"launchWrenfoldHelperAtLogin", Value(on)}, {"loginItems", Value(true)}});
  }
  // The entry as a desktop session reads it: a launchable application that
  // is not hidden and starts the helper binary.
  void expectStartsTheHelper(const std::string& file) {
    GDesktopAppInfo* info = g_desktop_app_info_new_from_filename(file.c_str());
    ASSERT_NE(info, nullptr) << test::readFile(file);
    EXPECT_FALSE(g_desktop_app_info_get_is_hidden(info));
    EXPECT_STREQ(g_app_info_get_name(G_APP_INFO(info)), "Wrenfold Helper");
    EXPECT_EQ(realPath(g_app_info_get_executable(G_APP_INFO(info))), realPath(helperBinary()));
    gchar* id = g_desktop_app_info_get_string(info, "X-Bundle-Identifier");
    EXPECT_STREQ(id, "org.ardel.WrenfoldHelper");
    g_free(id);
    g_object_unref(info);
    if (system("command -v desktop-file-validate >/dev/null 2>&1") == 0) {
      std::string cmd = "desktop-file-validate '" + file + "'";
      EXPECT_EQ(system(cmd.c_str()), 0) << test::readFile(file);
    }
  }
  Session s;
};

TEST_F(LoginItemsE2E, OnCreatesExactlyOneEntry) {
  setAtLogin(true);
  s.startHelper();
  ASSERT_TRUE(s.waitForLaunch()) << s.stderrText();
  ASSERT_TRUE(s.waitForLine("Adding WrenfoldHelper To LoginItems", kWait)) << s.stderrText();
  EXPECT_EQ(entries(), (std::vector<std::string>{kEntryName}));
  expectStartsTheHelper(autostart() + "/" + kEntryName);
}

TEST_F(LoginItemsE2E, RepeatedChangesNeverMakeASecondEntry) {
  setAtLogin(true);
  s.startHelper();
  ASSERT_TRUE(s.waitForLaunch()) << s.stderrText();
  for (int i = 0; i < 4; ++i) ASSERT_TRUE(s.roundTrip()) << s.stderrText();
  EXPECT_EQ(s.countInStderr("Adding WrenfoldHelper To LoginItems"), 1) << s.stderrText();
  EXPECT_GE(s.countInStderr("Not changing LoginItems"), 4);
  EXPECT_EQ(entries(), (std::vector<std::string>{kEntryName}));
}

TEST_F(LoginItemsE2E, OffRemovesTheEntry) {
  setAtLogin(true);
  s.startHelper();
  ASSERT_TRUE(s.waitForLaunch()) << s.stderrText();
  ASSERT_EQ(entries().size(), 1u);
  setAtLogin(false);
  s.emit("WrenfoldPreferencesDidChange");
  ASSERT_TRUE(
      s.waitForLine("Removing WrenfoldHelper From LoginItems (found item with same path)", kWait))
      << s.stderrText();
  // The line is written just before the entry goes; the answer to a later
  // notice comes after.
  ASSERT_TRUE(s.roundTrip()) << s.stderrText();
  EXPECT_TRUE(entries().empty());
  EXPECT_TRUE(s.helperRunning());
}

TEST_F(LoginItemsE2E, EntryOfAnOldCopyIsReplaced) {
  std::string old = s.home() + "/Old Helper/wrenfold-helper";
  mkdir((s.home() + "/Old Helper").c_str(), 0755);
  test::writeFile(old, "#!/bin/sh\n");
  chmod(old.c_str(), 0755);
  mkdir((s.home() + "/.config").c_str(), 0700);
  mkdir(autostart().c_str(), 0700);
  test::writeFile(autostart() + "/" + kEntryName,
                  "[Desktop Entry]\nType=Application\nName=Wrenfold Helper\nExec=\"" + old +
                      "\"\nX-Bundle-Identifier=org.ardel.WrenfoldHelper\n");
  test::writeFile(autostart() + "/other.desktop",
                  "[Desktop Entry]\nType=Application\nName=Other\nExec=/bin/true\n");
  setAtLogin(true);
  s.startHelper();
  ASSERT_TRUE(s.waitForLaunch()) << s.stderrText();
  ASSERT_TRUE(s.waitForLine("Adding WrenfoldHelper To LoginItems", kWait)) << s.stderrText();
  EXPECT_EQ(s.countInStderr("Removing extraneous WrenfoldHelper From LoginItems (found item with "
                            "same identifier)"),
            1)
      << s.stderrText();
  EXPECT_EQ(entries(), (std::vector<std::string>{kEntryName, "other.desktop"}));
  expectStartsTheHelper(autostart() + "/" + kEntryName);
  EXPECT_TRUE(test::exists(old));  // the old copy itself is not touched
}

TEST_F(LoginItemsE2E, UninstallRemovesTheEntry) {
  setAtLogin(true);
  s.startHelper();
  ASSERT_TRUE(s.waitForLaunch()) << s.stderrText();
  ASSERT_EQ(entries().size(), 1u);
  s.emit("WrenfoldWillUninstall");
  EXPECT_EQ(s.waitForExit(kWait), 0);
  EXPECT_TRUE(entries().empty()) << s.stderrText();
}

TEST_F(LoginItemsE2E, MissingPlugInRemovesTheEntry) {
  mkdir((s.home() + "/.config").c_str(), 0700);
  mkdir(autostart().c_str(), 0700);
  test::writeFile(autostart() + "/" + kEntryName,
                  "[Desktop Entry]\nType=Application\nName=Wrenfold Helper\nExec=" +
                      realPath(helperBinary()) + "\n");
  s.removePlugIn();
  s.startHelper();
  EXPECT_EQ(s.waitForExit(kWait), 0);
  EXPECT_TRUE(entries().empty()) << s.stderrText();
}

TEST_F(LoginItemsE2E, EntryTheUserDisabledStaysDisabled) {
  mkdir((s.home() + "/.config").c_str(), 0700);
  mkdir(autostart().c_str(), 0700);
  const std::string disabled =
      "[Desktop Entry]\nType=Application\nName=Wrenfold Helper\nExec=" + realPath(helperBinary()) +
      "\nX-GNOME-Autostart-enabled=false\n"
      "X-Bundle-Identifier=org.ardel.WrenfoldHelper\n";
  test::writeFile(autostart() + "/" + kEntryName, disabled);
  setAtLogin(true);
  s.startHelper();
  ASSERT_TRUE(s.waitForLaunch()) << s.stderrText();
  ASSERT_TRUE(s.waitForLine("Not changing LoginItems", kWait)) << s.stderrText();
  EXPECT_EQ(entries(), (std::vector<std::string>{kEntryName}));
  EXPECT_EQ(test::readFile(autostart() + "/" + kEntryName), disabled);
}

}  // namespace
}  // namespace wf::e2e
