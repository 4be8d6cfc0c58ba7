// The `openmeta` command line as getopt_long reads one, JSON output, and the
// Finder tags a Mac leaves on files.
#include <gtest/gtest.h>

#include "CommandFixture.h"
#include "XAttrTestSupport.h"
#include "openmeta/OpenMeta.h"
#include "platform/plist/PropertyList.h"
#include "support/Fakes.h"

namespace wf::test {
namespace {

const char kMacTags[] = "user.com.apple.metadata:_kMDItemUserTags";

class CliConventions : public OpenMetaCommand {
 protected:
  // The attribute as a Mac writes it: a binary property list.
  void setMacTags(const std::vector<std::string>& entries) {
    Array a;
    for (const std::string& e : entries) a.emplace_back(e);
    std::string bytes;
    ASSERT_TRUE(plist::toBinary(Value(std::move(a)), bytes));
    ASSERT_TRUE(setRawAttribute(file, kMacTags, bytes));
  }
};

TEST_F(CliConventions, ValuesAttachedOrSeparateShortOrLong) {
  ToolRun r = run({"set-tags", "-tBeta", "--tag=Work", "-t", "Home", "--tag", "Play", file});
  EXPECT_EQ(r.status, 0) << r.err;
  EXPECT_EQ(run({"get-tags", file}).out, "Beta\nWork\nHome\nPlay\n");
}

TEST_F(CliConventions, ShortOptionsClusterAndLongOnesAbbreviate) {
  ASSERT_EQ(run({"set-tags", "-t", "a", "-t", "b", file}).status, 0);
  // "-at b": --all and then --tag's value; both given is a usage error.
  ToolRun both = run({"clear-tags", "-atb", file});
  EXPECT_EQ(both.status, 1);
  EXPECT_NE(both.err.find("either --all or"), std::string::npos) << both.err;
  ToolRun help = run({"clear-tags", "-ah"});
  EXPECT_EQ(help.status, 0);
  EXPECT_EQ(help.out.rfind("Usage: openmeta clear-tags", 0), 0u);
  EXPECT_EQ(run({"clear-tags", "--al", file}).status, 0);
  EXPECT_EQ(run({"get-tags", file}).out, "");
  EXPECT_EQ(plist::parse(run({"get-tags", "--pl", file}).out), Value());
  ToolRun unknown = run({"get-tags", "-x", file});
  EXPECT_EQ(unknown.status, 1);
  EXPECT_NE(unknown.err.find("unknown option -x"), std::string::npos) << unknown.err;
  ToolRun ambiguous = run({"register-schema", "--", "x"});
  EXPECT_EQ(ambiguous.status, 1);
  ToolRun missing = run({"set-tags", file, "--tag"});
  EXPECT_EQ(missing.status, 1);
  EXPECT_NE(missing.err.find("--tag needs a value"), std::string::npos) << missing.err;
}

TEST_F(CliConventions, DoubleDashMakesDashedNamesFiles) {
  const std::string dashed = dir / "-tX";
  writeFile(dashed, "x");
  ASSERT_EQ(::chdir(dir.path().c_str()), 0);
  EXPECT_EQ(run({"set-tags", "-t", "y", "--", "-tX"}).status, 0);
  EXPECT_EQ(run({"get-tags", "--", "-tX"}).out, "y\n");
}

TEST_F(CliConventions, VersionAndProgramHelp) {
  ToolRun v = run({"--version"});
  EXPECT_EQ(v.status, 0);
  EXPECT_EQ(v.out.rfind("openmeta (WrenfoldHelper) ", 0), 0u) << v.out;
  EXPECT_NE(run({"--help"}).out.find("--version"), std::string::npos);
  EXPECT_EQ(run({"--appkit-version=1200", "set-tags", "-t", "x", file}).status, 0);
  EXPECT_EQ(rawAttribute(file, metadataAttribute("kMDItemOMUserTags"))->substr(0, 8), "bplist00");
}

TEST_F(CliConventions, JsonOutput) {
  ASSERT_EQ(run({"set-tags", "-t", "W\xC3\xB6rk", "-t", "a\"b", file}).status, 0);
  ASSERT_EQ(run({"set-rating", "2.5", file}).status, 0);
  ToolRun r = run({"get-tags", "--json", file});
  EXPECT_EQ(r.status, 0) << r.err;
  EXPECT_EQ(r.out, "[\n  \"Wo\xCC\x88rk\",\n  \"a\\\"b\"\n]\n");
  EXPECT_EQ(run({"get-rating", "-j", file}).out, "2.5\n");
  const std::string other = dir / "other";
  writeFile(other, "x");
  r = run({"get-rating", "-j", file, other});
  EXPECT_EQ(r.out, "{\n  \"" + file + "\" : 2.5,\n  \"" + other + "\" : 0\n}\n");
  // A date has no JSON form: said so, exit 1.
  r = run({"get", "-j", "kMDItemOMUserTagTime", file});
  EXPECT_EQ(r.status, 1);
  EXPECT_NE(r.err.find("cannot print the value as JSON"), std::string::npos) << r.err;
  EXPECT_EQ(run({"get-tags", "-p", "-j", file}).status, 1);
}

TEST_F(CliConventions, GetTagsMarksTheFinderTagsOfAMac) {
  ASSERT_EQ(run({"set-tags", "-t", "Work", file}).status, 0);
  setMacTags({"Red\n6", "work", "Urgent", "Plain\n0", "Odd\nname"});
  ToolRun r = run({"get-tags", file});
  EXPECT_EQ(r.status, 0) << r.err;
  EXPECT_EQ(r.out,
            "Work\n"
            "Red (Finder tag, red)\n"
            "Urgent (Finder tag)\n"
            "Plain (Finder tag)\n"
            "Odd\nname (Finder tag)\n");
  // Structured output holds the tags alone.
  EXPECT_EQ(plist::parse(run({"get-tags", "-p", file}).out), Value(Array{Value("Work")}));
}

TEST_F(CliConventions, ImportFinderTagsMergesByTheStoresRules) {
  ASSERT_EQ(run({"set-tags", "-t", "Work", file}).status, 0);
  setMacTags({"Red\n6", "WORK", "Cafe\xCC\x81", "caf\xC3\xA9\n2"});
  const std::string macBytes = *rawAttribute(file, kMacTags);
  ToolRun r = run({"import-finder-tags", file});
  EXPECT_EQ(r.status, 0) << r.err;
  const Value expected(Array{Value("Work"), Value("Red"), Value("Cafe\xCC\x81")});
  EXPECT_EQ(OpenMeta::getXAttrMetaData("kMDItemOMUserTags", file, nullptr), expected);
  EXPECT_EQ(rawAttribute(file, "user.xdg.tags"), std::string("Work,Red,Cafe\xCC\x81"));
  EXPECT_EQ(rawAttribute(file, kMacTags), macBytes) << "the Finder attribute is left as it was";
  EXPECT_EQ(run({"get-tags", file}).out, "Work\nRed\nCafe\xCC\x81\n") << "nothing left to mark";
  // Again: nothing new, nothing written.
  const auto time = rawAttribute(file, metadataAttribute("kMDItemOMUserTagTime"));
  EXPECT_EQ(run({"import-finder-tags", file}).status, 0);
  EXPECT_EQ(rawAttribute(file, metadataAttribute("kMDItemOMUserTagTime")), time);
}

TEST_F(CliConventions, ImportFinderTagsFailures) {
  ToolRun r = run({"import-finder-tags", dir / "absent", file});
  EXPECT_EQ(r.status, 1);
  EXPECT_EQ(r.err, "openmeta: " + (dir / "absent") +
                       ": No such file or directory (NSPOSIXErrorDomain 2)\n");
  EXPECT_EQ(run({"get-tags", file}).out, "") << "a file without Finder tags gains none";
  ASSERT_TRUE(setRawAttribute(file, kMacTags, "not a property list"));
  r = run({"import-finder-tags", file});
  EXPECT_EQ(r.status, 1);
  EXPECT_NE(r.err.find("(openmeta -2)"), std::string::npos) << r.err;
  EXPECT_EQ(rawAttribute(file, metadataAttribute("kMDItemOMUserTags")), std::nullopt);
}

}  // namespace
}  // namespace wf::test
