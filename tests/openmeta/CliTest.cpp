// The `openmeta` command: exit codes, output and error texts.
#include <gtest/gtest.h>

#include "CommandFixture.h"
#include "XAttrTestSupport.h"
#include "openmeta/OpenMeta.h"
#include "platform/plist/PropertyList.h"
#include "support/Fakes.h"

namespace wf::test {
namespace {

class Cli : public OpenMetaCommand {
 protected:
  std::string make(const std::string& name) {
    writeFile(dir / name, name);
    return dir / name;
  }
};

TEST_F(Cli, SetAndGetTags) {
  ToolRun r = run({"set-tags", "-t", "Work", "--tag", "work", "--tag=Home", file});
  EXPECT_EQ(r.status, 0) << r.err;
  EXPECT_EQ(r.out, "");
  r = run({"get-tags", file});
  EXPECT_EQ(r.status, 0);
  EXPECT_EQ(r.out, "Work\nHome\n");
  EXPECT_EQ(r.err, "");
  EXPECT_EQ(rawAttribute(file, "user.xdg.tags"), std::string("Work,Home"));
}

TEST_F(Cli, TagsOfAFileWithoutTagsPrintNothing) {
  const ToolRun r = run({"get-tags", file});
  EXPECT_EQ(r.status, 0);
  EXPECT_EQ(r.out, "");
}

TEST_F(Cli, AddAndClearTags) {
  ASSERT_EQ(run({"set-tags", "-t", "a", file}).status, 0);
  EXPECT_EQ(run({"add-tags", "-t", "B", "-t", "A", file}).status, 0);
  EXPECT_EQ(run({"get-tags", file}).out, "a\nB\n");
  EXPECT_EQ(run({"clear-tags", "-t", "b", file}).status, 0);
  EXPECT_EQ(run({"get-tags", file}).out, "a\n");
  EXPECT_EQ(run({"clear-tags", "--all", file}).status, 0);
  EXPECT_EQ(run({"get-tags", file}).out, "");
  EXPECT_EQ(OpenMeta::getXAttrMetaData("kMDItemOMUserTags", file, nullptr), Value(Array{}));
  const ToolRun neither = run({"clear-tags", file});
  EXPECT_EQ(neither.status, 1);
  EXPECT_NE(neither.err.find("--all"), std::string::npos);
  EXPECT_EQ(run({"add-tags", file}).status, 1);
}

TEST_F(Cli, SeveralFilesArePrefixedWithTheirPath) {
  const std::string a = make("a"), b = make("b");
  ASSERT_EQ(run({"set-tags", "-t", "x", "-t", "y", a, b}).status, 0);
  ASSERT_EQ(run({"add-tags", "-t", "z", b}).status, 0);
  EXPECT_EQ(run({"get-tags", a, b}).out,
            a + "\tx\n" + a + "\ty\n" + b + "\tx\n" + b + "\ty\n" + b + "\tz\n");
  EXPECT_EQ(run({"common-tags", a, b}).out, "x\ny\n");
  EXPECT_EQ(run({"set-common-tags", "-o", "X", "-t", "w", a, b}).status, 0);
  EXPECT_EQ(run({"get-tags", b}).out, "y\nz\nw\n");
}

TEST_F(Cli, PropertyListOutput) {
  ASSERT_EQ(run({"set-tags", "-t", "Work", file}).status, 0);
  ToolRun r = run({"get-tags", "--plist", file});
  EXPECT_EQ(r.status, 0);
  EXPECT_EQ(r.out.rfind("<?xml", 0), 0u);
  EXPECT_EQ(plist::parse(r.out), Value(Array{Value("Work")}));
  const std::string other = make("other");
  r = run({"get-tags", "-p", file, other});
  Dictionary expected;
  expected.emplace(file, Value(Array{Value("Work")}));
  EXPECT_EQ(plist::parse(r.out), Value(expected));
}

TEST_F(Cli, SystemErrorsGiveTheReasonInWordsThenDomainAndCode) {
  const std::string absent = dir / "absent";
  ToolRun r = run({"get-tags", absent});
  EXPECT_EQ(r.status, 1);
  EXPECT_EQ(r.err, "openmeta: " + absent + ": No such file or directory (NSPOSIXErrorDomain 2)\n");
  r = run({"set-tags", "-t", "a", absent, file});
  EXPECT_EQ(r.status, 1);
  EXPECT_EQ(r.err, "openmeta: " + absent + ": No such file or directory (NSPOSIXErrorDomain 2)\n");
  EXPECT_EQ(run({"get-tags", file}).out, "a\n") << "the other file is still done";
  r = run({"remove", "kMDItemComment", file});
  EXPECT_EQ(r.status, 1);
  EXPECT_EQ(r.err, "openmeta: " + file + ": No data available (NSPOSIXErrorDomain 61)\n");
}

TEST_F(Cli, StoreErrorsGiveTheReasonInWordsThenDomainAndCode) {
  ToolRun r = run({"set-tags", "-t", "a", ""});
  EXPECT_EQ(r.status, 1);
  EXPECT_EQ(r.err, "openmeta: : Open Meta parameter error (openmeta -1)\n");
  ASSERT_TRUE(setRawAttribute(file, metadataAttribute("kMDItemComment"), "garbage"));
  r = run({"get", "kMDItemComment", file});
  EXPECT_EQ(r.status, 1);
  EXPECT_EQ(r.err.rfind("openmeta: " + file + ": ", 0), 0u) << r.err;
  EXPECT_NE(r.err.find(" (openmeta -2)\n"), std::string::npos) << r.err;
  r = run({"set-string", "kMDItemComment", std::string(5000, 'x'), file});
  EXPECT_EQ(r.status, 1);
  EXPECT_EQ(r.err, "openmeta: " + file +
                       ": Meta data is too big - size as binary plist must be less "
                       "than (perhaps 4k?) some number of bytes (openmeta -5)\n");
}

TEST_F(Cli, RatingsStringsAndArrays) {
  EXPECT_EQ(run({"get-rating", file}).out, "0\n");
  EXPECT_EQ(run({"set-rating", "7", file}).status, 0);
  EXPECT_EQ(run({"get-rating", file}).out, "5\n");
  EXPECT_EQ(run({"set-rating", "2.5", file}).status, 0);
  EXPECT_EQ(run({"get-rating", file}).out, "2.5\n");
  EXPECT_EQ(run({"set-rating", "0", file}).status, 0);
  EXPECT_EQ(run({"get-rating", file}).out, "0\n");
  const ToolRun bad = run({"set-rating", "five", file});
  EXPECT_EQ(bad.status, 1);
  EXPECT_NE(bad.err.find("five"), std::string::npos);

  EXPECT_EQ(run({"set-string", "kMDItemComment", "a note", file}).status, 0);
  EXPECT_EQ(run({"get", "kMDItemComment", file}).out, "a note\n");
  EXPECT_EQ(run({"remove", "kMDItemComment", file}).status, 0);
  EXPECT_EQ(run({"get", "kMDItemComment", file}).out, "");

  EXPECT_EQ(run({"set-array", "kMDItemProjects", "-v", "A", file}).status, 0);
  EXPECT_EQ(run({"add-to-array", "kMDItemProjects", "-v", "a", "-v", "A", file}).status, 0);
  EXPECT_EQ(run({"get-array", "kMDItemProjects", file}).out, "A\na\n");
  EXPECT_EQ(run({"get", "kMDItemProjects", file}).out, "A\na\n");
}

TEST_F(Cli, EverySubcommandHasHelp) {
  const std::vector<std::string> names = {
      "get-tags",       "set-tags",        "add-tags",    "clear-tags",
      "common-tags",    "set-common-tags", "finder-tags", "import-finder-tags",
      "get-rating",     "set-rating",      "get",         "set-string",
      "remove",         "get-array",       "set-array",   "add-to-array",
      "register-schema"};
  for (const std::string& name : names) {
    const ToolRun r = run({name, "--help"});
    EXPECT_EQ(r.status, 0) << name;
    EXPECT_EQ(r.out.rfind("Usage: openmeta " + name + " ", 0), 0u) << name << ": " << r.out;
    EXPECT_NE(run({"--help"}).out.find("  " + name + " "), std::string::npos) << name;
  }
}

TEST_F(Cli, UsageErrorsExitWith1) {
  EXPECT_EQ(run({}).status, 1);
  EXPECT_EQ(run({"frobnicate"}).status, 1);
  EXPECT_EQ(run({"get-tags"}).status, 1);
  EXPECT_EQ(run({"get-tags", "--bogus", file}).status, 1);
  EXPECT_EQ(run({"set-tags", file, "-t"}).status, 1);
  EXPECT_EQ(run({"--version"}).status, 0);
}

TEST_F(Cli, DoubleDashEndsOptions) {
  const std::string dashed = make("-t");
  EXPECT_EQ(run({"set-tags", "-t", "x", "--", dashed}).status, 0);
  EXPECT_EQ(run({"get-tags", "--", dashed}).out, "x\n");
}

TEST_F(Cli, OlderGenerationWritesBinaryValues) {
  EXPECT_EQ(run({"--appkit-version", "1200", "set-tags", "-t", "x", file}).status, 0);
  EXPECT_EQ(rawAttribute(file, metadataAttribute("kMDItemOMUserTags"))->substr(0, 8), "bplist00");
  EXPECT_EQ(run({"--appkit-version", "1100", "get-tags", file}).out, "x\n");
}

TEST_F(Cli, RegisterSchemaWaitsForTheRemoval) {
  const std::string folder = home.path() + "/Library/Application Support/OpenMeta/schemaregister";
  const ToolRun r = run({"register-schema"});
  EXPECT_EQ(r.status, 0) << r.err;
  EXPECT_TRUE(exists(folder));
  EXPECT_FALSE(exists(folder + "/openmeta.openmetaschema")) << "removed before the command ended";
}

TEST_F(Cli, RegisterSchemaWithoutWaitingLeavesTheFile) {
  const std::string schema = dir / "schema.plist";
  ASSERT_TRUE(
      plist::writeToFile(Value(Dictionary{{"kMDItemOMUserTags", Value(Array{})}}), schema, true));
  const ToolRun r = run({"register-schema", "--no-wait", "--app", "Example.app", schema});
  EXPECT_EQ(r.status, 0) << r.err;
  const std::string file = home.path() +
                           "/Library/Application Support/OpenMeta/schemaregister/"
                           "Example.app.openmetaschema";
  EXPECT_EQ(plist::dictionaryWithContentsOfFile(file).get("kMDItemOMUserTags"), Value(Array{}));
  EXPECT_EQ(run({"register-schema", "--app", "X", dir / "absent"}).status, 1);
}

}  // namespace
}  // namespace wf::test
