// Keyed log lines: written only when their key is on, in one fixed layout.
#include <gtest/gtest.h>
#include <sys/stat.h>

#include "app/WFHelperAppDelegate.h"
#include "platform/plist/PropertyList.h"
#include "support/Fakes.h"

namespace wf {
namespace {

using test::FakePlatform;

// An argument that counts how often it is turned into text.
struct Probe {
  int* conversions;
  operator Value() const {
    ++*conversions;
    return Value("probe");
  }
};

class KeyedLogTest : public ::testing::Test {
 protected:
  void SetUp() override { mkdir((p.library() + "/Preferences").c_str(), 0755); }
  void writePreferences(const Dictionary& prefs) {
    ASSERT_TRUE(plist::writeToFile(Value(prefs),
                                   p.library() + "/Preferences/org.ardel.Wrenfold.plist", true));
  }
  FakePlatform p;
  WFHelperAppDelegate d{p.services()};
};

TEST_F(KeyedLogTest, SwitchedOffKeyWritesAndFormatsNothing) {
  writePreferences({{"logOpenMeta", Value(false)}});
  int conversions = 0;
  d.logForKey("logOpenMeta", __FILE__, "f", 1, "value %@", Probe{&conversions});
  d.logForKey("logSettingsSync", __FILE__, "f", 1, "value %@", Probe{&conversions});
  EXPECT_TRUE(p.log.lines.empty());
  EXPECT_EQ(conversions, 0);
}

TEST_F(KeyedLogTest, SwitchedOnKeyWritesTheLine) {
  writePreferences({{"logOpenMeta", Value(true)}});
  int conversions = 0;
  d.logForKey("logOpenMeta", __FILE__, "-[WFHelperAppDelegate startOpenMetaFolderWatcher]", 1234,
              "watching %@", Probe{&conversions});
  ASSERT_EQ(p.log.lines.size(), 1u);
  EXPECT_EQ(p.log.lines[0],
            "(logOpenMeta)-[WFHelperAppDelegate startOpenMetaFolderWatcher]: 1234: watching probe");
  EXPECT_EQ(conversions, 1);
}

TEST_F(KeyedLogTest, FreeFunctionAppearsByItsPlainName) {
  p.defaults.arguments = {{"WFloginItems", Value("YES")}};
  d.logForKey("loginItems", __FILE__, "addWrenfoldHelperToLoginItems", 215, "added");
  EXPECT_EQ(p.log.lines,
            std::vector<std::string>{"(loginItems)addWrenfoldHelperToLoginItems: 215: added"});
}

TEST_F(KeyedLogTest, FreeFunctionMacroUsesTheSharedDelegate) {
  p.defaults.arguments = {{"WFloginItems", Value("YES")}};
  WFLogKeyedFree("loginItems", "n=%d", 3);
  ASSERT_EQ(p.log.lines.size(), 1u);
  EXPECT_TRUE(p.log.lines[0].rfind("(loginItems)TestBody: ", 0) == 0) << p.log.lines[0];
  EXPECT_TRUE(p.log.lines[0].ends_with(": n=3"));
}

TEST_F(KeyedLogTest, FileArgumentNeverShows) {
  p.defaults.arguments = {{"WFlogSettingsSync", Value("YES")}};
  d.logForKey("logSettingsSync", "/a/b/One.cpp", "fn", 7, "same %d", 1);
  d.logForKey("logSettingsSync", "Other.mm", "fn", 7, "same %d", 1);
  ASSERT_EQ(p.log.lines.size(), 2u);
  EXPECT_EQ(p.log.lines[0], p.log.lines[1]);
  EXPECT_EQ(p.log.lines[0].find("One.cpp"), std::string::npos);
}

TEST_F(KeyedLogTest, FormatWithoutArgumentsIsWrittenAsItStands) {
  p.defaults.arguments = {{"WFlogFinderTags", Value("YES")}};
  d.logForKey("logFinderTags", __FILE__, "fn", 42, "no arguments here");
  EXPECT_EQ(p.log.lines, std::vector<std::string>{"(logFinderTags)fn: 42: no arguments here"});
}

TEST_F(KeyedLogTest, KeyOnInFileIsSeenAtOnceAfterAChangeNotice) {
  writePreferences({{"logExternalProjects", Value(false)}});
  d.logForKey("logExternalProjects", __FILE__, "fn", 1, "one");
  writePreferences({{"logExternalProjects", Value(true)}});
  d.logForKey("logExternalProjects", __FILE__, "fn", 2, "two");  // still cached: off
  d.preferencesDidChange(nullptr);
  d.logForKey("logExternalProjects", __FILE__, "fn", 3, "three");
  EXPECT_TRUE(p.log.startingWith("(logExternalProjects)fn: 1:").empty());
  EXPECT_TRUE(p.log.startingWith("(logExternalProjects)fn: 2:").empty());
  EXPECT_EQ(p.log.startingWith("(logExternalProjects)fn: 3: three").size(), 1u);
}

TEST_F(KeyedLogTest, KeyOnInFileIsSeenWithinTheCacheLifetime) {
  writePreferences({{"logExternalProjects", Value(false)}});
  d.logForKey("logExternalProjects", __FILE__, "fn", 1, "one");
  writePreferences({{"logExternalProjects", Value(true)}});
  p.clock.now_ += 120.5;
  d.logForKey("logExternalProjects", __FILE__, "fn", 2, "two");
  EXPECT_EQ(p.log.lines, std::vector<std::string>{"(logExternalProjects)fn: 2: two"});
}

TEST_F(KeyedLogTest, StringValuesSwitchAsNSStringReadsThem) {
  p.defaults.arguments = {{"WFlogOpenMeta", Value("  +0012")}, {"WFlogFinderTags", Value("no")}};
  d.logForKey("logOpenMeta", __FILE__, "fn", 1, "on");
  d.logForKey("logFinderTags", __FILE__, "fn", 1, "off");
  EXPECT_EQ(p.log.lines, std::vector<std::string>{"(logOpenMeta)fn: 1: on"});
}

}  // namespace
}  // namespace wf
