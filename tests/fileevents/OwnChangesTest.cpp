#include <gtest/gtest.h>

#include "platform/FileEvents.h"

using wf::platform::OwnChanges;

TEST(OwnChangesTest, ThePathItselfIsOwn) {
  EXPECT_TRUE(OwnChanges::isOwnEventPath("/s/WrenfoldKeywords.plist", "/s/WrenfoldKeywords.plist"));
}

TEST(OwnChangesTest, EverythingBelowARemovedFolderIsOwn) {
  EXPECT_TRUE(OwnChanges::isOwnEventPath("/s/sub/a/b", "/s/sub"));
  EXPECT_TRUE(OwnChanges::isOwnEventPath("/s/sub/a", "/s/sub/"));
}

TEST(OwnChangesTest, TemporariesInTheSameFolderAreOwn) {
  EXPECT_TRUE(OwnChanges::isOwnEventPath("/s/.WrenfoldKeywords.plist.wfcopy-Ab12Cd",
                                         "/s/WrenfoldKeywords.plist"));
  EXPECT_TRUE(OwnChanges::isOwnEventPath("/s/.list.plist.tmp", "/s/list.plist"));
}

TEST(OwnChangesTest, NeighboursAreNotOwn) {
  EXPECT_FALSE(
      OwnChanges::isOwnEventPath("/s/WrenfoldKeywords.plist2", "/s/WrenfoldKeywords.plist"));
  EXPECT_FALSE(OwnChanges::isOwnEventPath("/s/subway", "/s/sub"));
  EXPECT_FALSE(OwnChanges::isOwnEventPath("/s", "/s/sub"));
  EXPECT_FALSE(OwnChanges::isOwnEventPath("/t/.list.plist.tmp", "/s/list.plist"));
  EXPECT_FALSE(OwnChanges::isOwnEventPath("/s/.list.plist", "/s/list.plist"));
  EXPECT_FALSE(OwnChanges::isOwnEventPath("/s/.list.plist.tmp/x", "/s/list.plist"));
  EXPECT_FALSE(OwnChanges::isOwnEventPath("/s/anything", ""));
}

namespace {
struct RecordingListener : wf::platform::OwnChangeListener {
  std::vector<std::string> calls;
  void drainForeignEvents() override { calls.push_back("foreign"); }
  void drainOwnEvents(const std::string& path) override { calls.push_back("own " + path); }
};
}  // namespace

TEST(OwnChangesTest, AChangeDrainsBeforeAndAfter) {
  RecordingListener listener;
  OwnChanges::addListener(&listener);
  { wf::platform::OwnChange change("/s/x"); }
  OwnChanges::removeListener(&listener);
  { wf::platform::OwnChange change("/s/y"); }
  EXPECT_EQ(listener.calls, (std::vector<std::string>{"foreign", "own /s/x"}));
}
