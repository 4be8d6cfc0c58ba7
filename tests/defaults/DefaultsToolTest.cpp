// The wf-defaults tool, run as a user would run it, against a temporary home.
#include <glib.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <string>
#include <vector>

#include "platform/plist/PropertyList.h"
#include "support/Fakes.h"
#include "support/RunTool.h"

namespace {

using wf::test::ToolRun;

class DefaultsTool : public ::testing::Test {
 protected:
  wf::test::TempDir home;
  std::string prefs() const {
    return home.path() + "/Library/Preferences/org.ardel.WrenfoldHelper.plist";
  }

  ToolRun run(const std::vector<std::string>& args) {
    return wf::test::runTool(WF_DEFAULTS_BINARY, args, {"HOME=" + home.path()});
  }
};

TEST_F(DefaultsTool, TheHelpersOwnAdviceWorksAndIsReadAsYes) {
  ToolRun w = run({"write", "org.ardel.WrenfoldHelper", "disableOpenMetaScanning", "1"});
  ASSERT_EQ(w.status, 0) << w.err;
  wf::Value d = wf::plist::dictionaryWithContentsOfFile(prefs());
  ASSERT_TRUE(d.isDictionary());
  EXPECT_TRUE(d.get("disableOpenMetaScanning").boolValue());
  ToolRun r = run({"read", "org.ardel.WrenfoldHelper", "disableOpenMetaScanning"});
  EXPECT_EQ(r.status, 0);
  EXPECT_EQ(r.out, "1\n");
}

TEST_F(DefaultsTool, TypedValuesAreStoredWithTheirTypes) {
  ASSERT_EQ(run({"write", "d", "b", "-bool", "YES"}).status, 0);
  ASSERT_EQ(run({"write", "d", "i", "-int", "-42"}).status, 0);
  ASSERT_EQ(run({"write", "d", "f", "-float", "2.5"}).status, 0);
  ASSERT_EQ(run({"write", "d", "a", "-array", "x", "y"}).status, 0);
  ASSERT_EQ(run({"write", "d", "a", "-array-add", "z"}).status, 0);
  ASSERT_EQ(run({"write", "d", "t", "-date", "2026-11-22 10:30:05 +0000"}).status, 0);
  wf::Value d =
      wf::plist::dictionaryWithContentsOfFile(home.path() + "/Library/Preferences/d.plist");
  ASSERT_TRUE(d.isDictionary());
  EXPECT_TRUE(d.get("b").isBoolean());
  EXPECT_EQ(d.get("i"), wf::Value(-42));
  EXPECT_EQ(d.get("f"), wf::Value(2.5));
  EXPECT_EQ(d.get("a"), wf::Value(wf::Array{wf::Value("x"), wf::Value("y"), wf::Value("z")}));
  ASSERT_TRUE(d.get("t").isDate());
  EXPECT_EQ(run({"read", "d", "t"}).out, "2026-11-22 10:30:05 +0000\n");
}

TEST_F(DefaultsTool, DeleteRemovesOneKeyThenTheDomain) {
  ASSERT_EQ(run({"write", "d", "k", "v"}).status, 0);
  ASSERT_EQ(run({"write", "d", "l", "w"}).status, 0);
  EXPECT_EQ(run({"delete", "d", "k"}).status, 0);
  ToolRun r = run({"read", "d", "k"});
  EXPECT_EQ(r.status, 1);
  EXPECT_NE(r.err.find("The domain/default pair of (d, k) does not exist"), std::string::npos);
  EXPECT_EQ(run({"read", "d", "l"}).out, "w\n");
  EXPECT_EQ(run({"delete", "d"}).status, 0);
  EXPECT_FALSE(wf::test::exists(home.path() + "/Library/Preferences/d.plist"));
  EXPECT_EQ(run({"delete", "d"}).status, 1);
}

TEST_F(DefaultsTool, MissingDomainAndBadArgumentsFailWithStatusOne) {
  EXPECT_EQ(run({"read", "nothing.here"}).status, 1);
  EXPECT_EQ(run({"write", "d", "k", "-int", "twelve"}).status, 1);
  EXPECT_EQ(run({"frobnicate"}).status, 1);
  EXPECT_EQ(run({}).status, 1);
  EXPECT_EQ(run({"--help"}).status, 0);
}

TEST_F(DefaultsTool, AFileThatIsNoDictionaryIsNeverOverwritten) {
  g_mkdir_with_parents((home.path() + "/Library/Preferences").c_str(), 0755);
  wf::test::writeFile(prefs(), "this is not a property list");
  ToolRun w = run({"write", "org.ardel.WrenfoldHelper", "k", "v"});
  EXPECT_EQ(w.status, 1);
  EXPECT_NE(w.err.find(prefs()), std::string::npos);
  EXPECT_EQ(wf::test::readFile(prefs()), "this is not a property list");
}

TEST_F(DefaultsTool, ADomainGivenAsAPathNamesThatFile) {
  std::string path = home.path() + "/custom";
  ASSERT_EQ(run({"write", path, "k", "v"}).status, 0);
  EXPECT_TRUE(wf::test::exists(path + ".plist"));
  EXPECT_EQ(run({"read", path + ".plist", "k"}).out, "v\n");
}

}  // namespace
