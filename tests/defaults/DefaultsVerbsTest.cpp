// wf-defaults beyond read/write/delete: dates read in full, the other verbs
// of defaults, its name and version, and failures that change nothing.
#include <gtest/gtest.h>
#include <unistd.h>

#include "ToolTestSupport.h"
#include "platform/plist/PropertyList.h"
#include "support/Fakes.h"

namespace wf::test {
namespace {

class DefaultsVerbs : public ::testing::Test {
 protected:
  TempDir home;
  std::string prefs = home.path() + "/Library/Preferences";
  ToolRun run(const std::vector<std::string>& args, const std::string& input = "",
              const std::string& binary = WF_DEFAULTS_BINARY) {
    return runTool(binary, args, {"HOME=" + home.path()}, input);
  }
  Value domain(const std::string& name) {
    return plist::dictionaryWithContentsOfFile(prefs + "/" + name + ".plist");
  }
  // Status 1, the reason on standard error, the domain file as it was.
  void expectRefused(const std::vector<std::string>& args, const std::string& reason) {
    const std::string path = prefs + "/d.plist";
    const std::string before = exists(path) ? readFile(path) : "";
    ToolRun r = run(args);
    EXPECT_EQ(r.status, 1) << r.err;
    EXPECT_NE(r.err.find(reason), std::string::npos) << r.err;
    EXPECT_EQ(exists(path) ? readFile(path) : "", before);
  }
};

TEST_F(DefaultsVerbs, DatesAreReadInFullWithTheirOffset) {
  const std::pair<const char*, double> kDates[] = {
      {"2024-01-02T03:04:05Z", 725857445},
      {"2024-01-02T05:04:05+02:00", 725857445},
      {"2024-01-02T05:04:05+0200", 725857445},
      {"2024-01-01T22:04:05-05:00", 725857445},
      // Accepted; an XML property list keeps whole seconds only.
      {"2024-01-02T03:04:05.5Z", 725857445},
      {"2024-01-02 03:04:05 +0000", 725857445},
      {"2024-01-02 05:04:05 +0200", 725857445},
  };
  for (auto [text, seconds] : kDates) {
    ToolRun r = run({"write", "d", "t", "-date", text});
    ASSERT_EQ(r.status, 0) << text << ": " << r.err;
    EXPECT_EQ(domain("d").get("t"), Value(Date{seconds})) << text;
  }
  EXPECT_EQ(run({"read", "d", "t"}).out, "2024-01-02 03:04:05 +0000\n");
}

TEST_F(DefaultsVerbs, DatesWithGarbageOrOutOfRangeAreRefused) {
  ASSERT_EQ(run({"write", "d", "t", "-date", "2024-01-02T03:04:05Z"}).status, 0);
  for (const char* bad :
       {"2024-01-02garbage", "2024-01-02", "2024-01-02T03:04:05", "2024-01-02T03:04:05Zjunk",
        "2024-01-02 03:04:05 +0000 ", "2024-13-02T03:04:05Z", "2023-02-29T03:04:05Z",
        "2024-01-02T24:00:00Z", "2024-01-02T03:04:05+2400", "tomorrow", ""})
    expectRefused({"write", "d", "t", "-date", bad}, "not a date");
  EXPECT_EQ(domain("d").get("t"), Value(Date{725857445}));
}

TEST_F(DefaultsVerbs, CallsItselfByTheNameItWasRunAs) {
  TempDir bin;
  ASSERT_EQ(::symlink(WF_DEFAULTS_BINARY, (bin / "defaults").c_str()), 0);
  ToolRun asDefaults = run({"--help"}, "", bin / "defaults");
  EXPECT_EQ(asDefaults.status, 0);
  EXPECT_EQ(asDefaults.out.rfind("Usage: defaults read", 0), 0u) << asDefaults.out;
  ToolRun asItself = run({"--help"});
  EXPECT_EQ(asItself.out.rfind("Usage: wf-defaults read", 0), 0u) << asItself.out;
  EXPECT_NE(asItself.out.find("wf-defaults read-type"), std::string::npos);
  EXPECT_EQ(run({"frobnicate"}, "", bin / "defaults").err.rfind("defaults: unknown command", 0),
            0u);
  ToolRun v = run({"--version"}, "", bin / "defaults");
  EXPECT_EQ(v.status, 0);
  EXPECT_EQ(v.out.rfind("defaults (WrenfoldHelper) ", 0), 0u) << v.out;
}

TEST_F(DefaultsVerbs, ReadType) {
  ASSERT_EQ(run({"write", "d", "i", "-int", "3"}).status, 0);
  ASSERT_EQ(run({"write", "d", "b", "-boolean", "TRUE"}).status, 0);
  ASSERT_EQ(run({"write", "d", "x", "-data", "00ff"}).status, 0);
  EXPECT_EQ(run({"read-type", "d", "i"}).out, "Type is integer\n");
  EXPECT_EQ(run({"read-type", "d", "b"}).out, "Type is boolean\n");
  EXPECT_EQ(run({"read-type", "d", "x"}).out, "Type is data\n");
  EXPECT_EQ(domain("d").get("x"), Value(Data{0x00, 0xff}));
  expectRefused({"read-type", "d", "absent"}, "The domain/default pair of (d, absent)");
}

TEST_F(DefaultsVerbs, WrongValuesAreRefused) {
  ASSERT_EQ(run({"write", "d", "k", "v"}).status, 0);
  expectRefused({"write", "d", "k", "-int", "12x"}, "not an integer: 12x");
  expectRefused({"write", "d", "k", "-float", "1.5.2"}, "not a number");
  expectRefused({"write", "d", "k", "-bool", "perhaps"}, "not a boolean");
  expectRefused({"write", "d", "k", "-data", "0g"}, "not hexadecimal data");
  expectRefused({"write", "d", "k", "-array", "-int", "x"}, "not an integer");
  expectRefused({"write", "d", "k", "-dict", "a"}, "needs KEY VALUE pairs");
  expectRefused({"write", "d", "k", "-colour", "red"}, "unknown type flag -colour");
}

TEST_F(DefaultsVerbs, ArraysAndDictionariesTakeTypedItemsAndAdd) {
  ASSERT_EQ(run({"write", "d", "a", "-array", "x", "-int", "2", "-bool", "NO"}).status, 0);
  ASSERT_EQ(run({"write", "d", "a", "-array-add", "-float", "0.5"}).status, 0);
  EXPECT_EQ(domain("d").get("a"), Value(Array{Value("x"), Value(2), Value(false), Value(0.5)}));
  ASSERT_EQ(run({"write", "d", "m", "-dict", "one", "-int", "1", "two", "2"}).status, 0);
  ASSERT_EQ(run({"write", "d", "m", "-dict-add", "three", "-date", "2024-01-02T03:04:05Z"}).status,
            0);
  EXPECT_EQ(
      domain("d").get("m"),
      Value(Dictionary{{"one", Value(1)}, {"two", Value("2")}, {"three", Value(Date{725857445})}}));
}

TEST_F(DefaultsVerbs, APropertyListTextIsItsValue) {
  ASSERT_EQ(
      run({"write", "d", "p", "<array><string>a</string><integer>1</integer></array>"}).status, 0);
  EXPECT_EQ(domain("d").get("p"), Value(Array{Value("a"), Value(1)}));
  ASSERT_EQ(run({"write", "d", "s", "<not a plist"}).status, 0);
  EXPECT_EQ(domain("d").get("s"), Value("<not a plist"));
}

TEST_F(DefaultsVerbs, RenameMovesAValue) {
  ASSERT_EQ(run({"write", "d", "old", "-int", "7"}).status, 0);
  ASSERT_EQ(run({"rename", "d", "old", "new"}).status, 0);
  EXPECT_EQ(domain("d"), Value(Dictionary{{"new", Value(7)}}));
  expectRefused({"rename", "d", "old", "other"}, "The domain/default pair of (d, old)");
  expectRefused({"rename", "nothing", "a", "b"}, "does not exist");
}

TEST_F(DefaultsVerbs, DomainsFindAndReadEverything) {
  ASSERT_EQ(run({"write", "org.example.B", "colour", "Blue"}).status, 0);
  ASSERT_EQ(run({"write", "org.example.A", "shade", "light blue"}).status, 0);
  ASSERT_EQ(run({"write", "-g", "AppleLocale", "en_GB"}).status, 0);
  EXPECT_TRUE(exists(prefs + "/.GlobalPreferences.plist"));
  EXPECT_EQ(run({"domains"}).out, "org.example.A, org.example.B\n");
  ToolRun f = run({"find", "BLUE"});
  EXPECT_EQ(f.status, 0);
  EXPECT_NE(f.out.find("Found 1 key in domain 'org.example.A'"), std::string::npos) << f.out;
  EXPECT_NE(f.out.find("Found 1 key in domain 'org.example.B'"), std::string::npos) << f.out;
  EXPECT_EQ(f.out.find("NSGlobalDomain"), std::string::npos) << f.out;
  EXPECT_NE(run({"find", "locale"}).out.find("domain 'NSGlobalDomain'"), std::string::npos);
  ToolRun all = run({"read"});
  EXPECT_EQ(all.status, 0);
  EXPECT_NE(all.out.find("org.example.A = {"), std::string::npos) << all.out;
  EXPECT_EQ(run({"read", "NSGlobalDomain", "AppleLocale"}).out, "en_GB\n");
}

TEST_F(DefaultsVerbs, ExportAndImportThroughFilesAndStandardStreams) {
  ASSERT_EQ(run({"write", "d", "k", "-int", "1"}).status, 0);
  ToolRun out = run({"export", "d", "-"});
  EXPECT_EQ(out.status, 0);
  EXPECT_EQ(plist::parse(out.out), Value(Dictionary{{"k", Value(1)}}));
  ASSERT_EQ(run({"export", "d", home / "copy.plist"}).status, 0);
  ASSERT_EQ(run({"import", "e", home / "copy.plist"}).status, 0);
  EXPECT_EQ(domain("e"), Value(Dictionary{{"k", Value(1)}}));
  ASSERT_EQ(run({"import", "e", "-"}, "{\"from\": \"stdin\"}").status, 0);
  EXPECT_EQ(domain("e"), Value(Dictionary{{"from", Value("stdin")}}));
  expectRefused({"export", "nothing", "-"}, "Domain nothing does not exist");
}

TEST_F(DefaultsVerbs, ImportRefusesWhatIsNoDictionary) {
  ASSERT_EQ(run({"write", "d", "k", "v"}).status, 0);
  writeFile(home / "array.plist", "<plist><array/></plist>");
  writeFile(home / "junk.plist", "junk");
  expectRefused({"import", "d", home / "array.plist"}, "root is not a dictionary");
  expectRefused({"import", "d", home / "junk.plist"}, home / "junk.plist: ");
  expectRefused({"import", "d", home / "absent.plist"}, "No such file or directory");
}

}  // namespace
}  // namespace wf::test
