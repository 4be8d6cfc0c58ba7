// The session-bus pieces of the platform on a private bus: distributed
// notifications as signals, running applications as owned names, and
// installed applications as desktop entries.
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <fstream>

#include "platform/linux/SessionBus.h"
#include "support/Harness.h"

namespace wf::e2e {
namespace {

using platform::BusNotificationCenter;
using platform::BusWorkspace;
using platform::Notification;

GDBusConnection* connect(const Session& s) {
  return g_dbus_connection_new_for_address_sync(
      s.busAddress().c_str(),
      GDBusConnectionFlags(G_DBUS_CONNECTION_FLAGS_AUTHENTICATION_CLIENT |
                           G_DBUS_CONNECTION_FLAGS_MESSAGE_BUS_CONNECTION),
      nullptr, nullptr, nullptr);
}

// Makes sure the bus has applied what the connection sent so far.
void settle(GDBusConnection* c) {
  GVariant* r = g_dbus_connection_call_sync(c, "org.freedesktop.DBus", "/org/freedesktop/DBus",
                                            "org.freedesktop.DBus", "GetId", nullptr, nullptr,
                                            G_DBUS_CALL_FLAGS_NONE, -1, nullptr, nullptr);
  if (r) g_variant_unref(r);
}

TEST(BusNotifications, PostIsABroadcastSignalOfTheWrenfoldInterface) {
  Session s;
  s.watch("WrenfoldFinderTagsWereModified");
  GDBusConnection* c = connect(s);
  ASSERT_TRUE(c);
  {
    BusNotificationCenter center(c);
    center.post("WrenfoldFinderTagsWereModified");
    EXPECT_TRUE(s.waitForSignal("WrenfoldFinderTagsWereModified", 1, 10));
  }
  g_object_unref(c);
}

TEST(BusNotifications, ObserverSeesOnlyItsName) {
  Session s;
  GDBusConnection* c = connect(s);
  ASSERT_TRUE(c);
  {
    BusNotificationCenter center(c);
    std::vector<std::string> seen;
    center.addObserver("WrenfoldKeywordListWasSaved",
                       [&](const Notification& n) { seen.push_back(n.name); });
    settle(c);
    s.emit("WrenfoldProjectListWasSaved");
    s.emit("WrenfoldKeywordListWasSaved");
    ASSERT_TRUE(s.waitUntil([&] { return !seen.empty(); }, 10));
    // The other signal went out first; had it matched, it would be here.
    EXPECT_EQ(seen, std::vector<std::string>{"WrenfoldKeywordListWasSaved"});
  }
  g_object_unref(c);
}

TEST(BusNotifications, SignalOfAnotherInterfaceIsNoNotification) {
  Session s;
  GDBusConnection* c = connect(s);
  ASSERT_TRUE(c);
  {
    BusNotificationCenter center(c);
    int seen = 0;
    center.addObserver("WrenfoldWillUninstall", [&](const Notification&) { ++seen; });
    settle(c);
    g_dbus_connection_emit_signal(s.bus(), nullptr, "/org/ardel/Wrenfold", "org.example.Other",
                                  "WrenfoldWillUninstall", nullptr, nullptr);
    s.emit("WrenfoldWillUninstall");
    ASSERT_TRUE(s.waitUntil([&] { return seen > 0; }, 10));
    EXPECT_EQ(seen, 1);
  }
  g_object_unref(c);
}

TEST(BusWorkspaceTest, RunningApplicationsAreOwnedWellKnownNames) {
  Session s;
  ASSERT_TRUE(s.ownName("org.example.First"));
  ASSERT_TRUE(s.ownName("com.apple.mail"));
  GDBusConnection* c = connect(s);
  ASSERT_TRUE(c);
  {
    BusWorkspace workspace(c);
    auto running = workspace.runningApplicationIdentifiers();
    EXPECT_NE(std::find(running.begin(), running.end(), "com.apple.mail"), running.end());
    EXPECT_NE(std::find(running.begin(), running.end(), "org.example.First"), running.end());
    for (const auto& name : running) {
      EXPECT_NE(name[0], ':') << name;
      EXPECT_NE(name, "org.freedesktop.DBus");
    }
  }
  g_object_unref(c);
}

TEST(BusWorkspaceTest, OwnerChangesAreLaunchAndTerminateNotices) {
  Session s;
  GDBusConnection* c = connect(s);
  ASSERT_TRUE(c);
  {
    BusWorkspace workspace(c);
    std::vector<std::string> events;
    workspace.addLaunchObserver([&](const Notification& n) {
      events.push_back("launch " + n.userInfo.at("NSApplicationBundleIdentifier").asString());
    });
    workspace.addTerminateObserver([&](const Notification& n) {
      events.push_back("quit " + n.userInfo.at("NSApplicationBundleIdentifier").asString());
    });
    settle(c);
    ASSERT_TRUE(s.ownName("com.apple.mail"));
    ASSERT_TRUE(s.releaseName("com.apple.mail"));
    ASSERT_TRUE(s.waitUntil([&] { return events.size() >= 2; }, 10));
    EXPECT_EQ(events, (std::vector<std::string>{"launch com.apple.mail", "quit com.apple.mail"}));
  }
  g_object_unref(c);
}

TEST(BusWorkspaceTest, HandOverBetweenOwnersAndUniqueNamesAreNoNotices) {
  Session s;
  GDBusConnection* c = connect(s);
  ASSERT_TRUE(c);
  {
    BusWorkspace workspace(c);
    int notices = 0;
    workspace.addLaunchObserver([&](const Notification&) { ++notices; });
    workspace.addTerminateObserver([&](const Notification&) { ++notices; });
    workspace.nameOwnerChanged(":1.7", "", ":1.7");
    workspace.nameOwnerChanged(":1.7", ":1.7", "");
    workspace.nameOwnerChanged("com.apple.mail", ":1.8", ":1.9");
    EXPECT_EQ(notices, 0);
    workspace.nameOwnerChanged("com.apple.mail", "", ":1.9");
    EXPECT_EQ(notices, 1);
  }
  g_object_unref(c);
}

TEST(BusWorkspaceTest, InstalledApplicationsAreDesktopEntries) {
  Session s;
  std::string dataHome = s.home() + "/.local/share";
  std::string dataDir = s.home() + "/share";
  std::ofstream(dataHome + "/applications/org.example.Home.desktop") << "[Desktop Entry]\n";
  std::ofstream(dataDir + "/applications/org.example.System.desktop") << "[Desktop Entry]\n";
  setenv("XDG_DATA_HOME", dataHome.c_str(), 1);
  setenv("XDG_DATA_DIRS", ("relative/dir:" + dataDir).c_str(), 1);
  BusWorkspace workspace(nullptr);
  EXPECT_EQ(workspace.desktopEntryPathForIdentifier("org.example.Home"),
            dataHome + "/applications/org.example.Home.desktop");
  EXPECT_EQ(workspace.desktopEntryPathForIdentifier("org.example.System"),
            dataDir + "/applications/org.example.System.desktop");
  EXPECT_FALSE(workspace.desktopEntryPathForIdentifier("org.example.Missing"));
  EXPECT_FALSE(workspace.desktopEntryPathForIdentifier("../applications/org.example.Home"));
  EXPECT_FALSE(workspace.desktopEntryPathForIdentifier(""));
  unsetenv("XDG_DATA_HOME");
  unsetenv("XDG_DATA_DIRS");
}

}  // namespace
}  // namespace wf::e2e
