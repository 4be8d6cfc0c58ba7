// Runs the built wf-plutil on good and bad files.
#include <gtest/gtest.h>

#include <cmath>

#include "platform/plist/PropertyList.h"
#include "support/Fakes.h"
#include "support/HostilePlist.h"
#include "support/RunTool.h"

using namespace wf;

namespace {

using test::ToolRun;

// With `limitSeconds`, the tool is ended (status 124) when it runs longer.
ToolRun plutil(const std::vector<std::string>& args, int limitSeconds = 30) {
  return test::runTool(WF_PLUTIL_BINARY, args, {}, "", limitSeconds);
}

const Value kValue(Dictionary{{"name", Value("Wrenfold")},
                              {"list", Value(Array{Value(1), Value(true), Value(Data{1, 2})})}});

std::string xmlOf(const Value& v) {
  std::string s;
  EXPECT_TRUE(plist::toXML(v, s));
  return s;
}

std::string binaryOf(const Value& v) {
  std::string s;
  EXPECT_TRUE(plist::toBinary(v, s));
  return s;
}

}  // namespace

TEST(Plutil, Help) {
  ToolRun r = plutil({"-help"});
  EXPECT_EQ(r.status, 0);
  EXPECT_NE(r.out.find("usage: wf-plutil"), std::string::npos);
  EXPECT_NE(r.out.find("-convert FORMAT"), std::string::npos);
}

TEST(Plutil, UsageErrors) {
  EXPECT_EQ(plutil({}).status, 1);
  ToolRun r = plutil({"-lint"});
  EXPECT_EQ(r.status, 1);
  EXPECT_NE(r.err.find("no files given"), std::string::npos);
  r = plutil({"-frobnicate", "x"});
  EXPECT_EQ(r.status, 1);
  EXPECT_NE(r.err.find("unknown command -frobnicate"), std::string::npos);
  r = plutil({"-convert", "swift", "x"});
  EXPECT_EQ(r.status, 1);
  EXPECT_NE(r.err.find("unknown format \"swift\""), std::string::npos);
  r = plutil({"-lint", "-q", "x"});
  EXPECT_EQ(r.status, 1);
  EXPECT_NE(r.err.find("unknown option -q"), std::string::npos);
}

TEST(Plutil, LintGoodFiles) {
  test::TempDir dir;
  test::writeFile(dir / "a.plist", xmlOf(kValue));
  test::writeFile(dir / "b.plist", binaryOf(kValue));
  ToolRun r = plutil({"-lint", dir / "a.plist", dir / "b.plist"});
  EXPECT_EQ(r.status, 0) << r.err;
  EXPECT_EQ(r.out, dir / "a.plist" + ": OK\n" + dir / "b.plist" + ": OK\n");
}

TEST(Plutil, LintBadFileNamesTheFileAndTheProblem) {
  test::TempDir dir;
  const std::string bad = "<plist>\n<dict><key>k</key></dict>\n</plist>\n";
  test::writeFile(dir / "good.plist", xmlOf(kValue));
  test::writeFile(dir / "bad.plist", bad);
  ToolRun r = plutil({"-lint", dir / "good.plist", dir / "bad.plist", dir / "missing.plist"});
  EXPECT_EQ(r.status, 1);
  EXPECT_EQ(r.out, dir / "good.plist" + ": OK\n");
  EXPECT_NE(r.err.find(dir / "bad.plist" + ": line 2, column 7: key \"k\" has no value"),
            std::string::npos)
      << r.err;
  EXPECT_NE(r.err.find("missing.plist: No such file or directory"), std::string::npos) << r.err;
  EXPECT_EQ(test::readFile(dir / "bad.plist"), bad);
}

TEST(Plutil, ConvertInPlaceBothWays) {
  test::TempDir dir;
  test::writeFile(dir / "f.plist", xmlOf(kValue));
  ToolRun r = plutil({"-convert", "binary1", dir / "f.plist"});
  EXPECT_EQ(r.status, 0) << r.err;
  EXPECT_EQ(test::readFile(dir / "f.plist"), binaryOf(kValue));
  r = plutil({"-convert", "xml1", dir / "f.plist"});
  EXPECT_EQ(r.status, 0) << r.err;
  EXPECT_EQ(test::readFile(dir / "f.plist"), xmlOf(kValue));
}

TEST(Plutil, ConvertToAnotherFileOrStandardOutput) {
  test::TempDir dir;
  std::string input = binaryOf(kValue);
  test::writeFile(dir / "in.plist", input);
  ToolRun r = plutil({"-convert", "xml1", "-o", dir / "out.plist", dir / "in.plist"});
  EXPECT_EQ(r.status, 0) << r.err;
  EXPECT_EQ(test::readFile(dir / "out.plist"), xmlOf(kValue));
  EXPECT_EQ(test::readFile(dir / "in.plist"), input);
  r = plutil({"-convert", "xml1", "-o", "-", dir / "in.plist"});
  EXPECT_EQ(r.status, 0);
  EXPECT_EQ(r.out, xmlOf(kValue));
}

TEST(Plutil, ConvertBadInputLeavesEverythingUntouched) {
  test::TempDir dir;
  const std::string bad = "bplist00 this is not really one";
  test::writeFile(dir / "bad.plist", bad);
  ToolRun r = plutil({"-convert", "xml1", dir / "bad.plist"});
  EXPECT_EQ(r.status, 1);
  EXPECT_NE(r.err.find(dir / "bad.plist" + ": "), std::string::npos) << r.err;
  EXPECT_NE(r.err.find("binary property list"), std::string::npos) << r.err;
  EXPECT_EQ(test::readFile(dir / "bad.plist"), bad);
  r = plutil({"-convert", "binary1", "-o", dir / "out.plist", dir / "bad.plist"});
  EXPECT_EQ(r.status, 1);
  EXPECT_FALSE(test::exists(dir / "out.plist"));
  EXPECT_EQ(test::readFile(dir / "bad.plist"), bad);
}

TEST(Plutil, PrintIsReadable) {
  test::TempDir dir;
  Dictionary d{{"name", Value("Wren \"fold\"")},
               {"list", Value(Array{Value(1), Value(true), Value(2.5), Value(Data{1, 2})})},
               {"empty", Value(Dictionary{})},
               {"when", Value(Date{0})}};
  test::writeFile(dir / "p.plist", binaryOf(Value(d)));
  ToolRun r = plutil({"-p", dir / "p.plist"});
  EXPECT_EQ(r.status, 0) << r.err;
  EXPECT_EQ(r.out,
            "{\n"
            "  \"empty\" => {\n"
            "  }\n"
            "  \"list\" => [\n"
            "    0 => 1\n"
            "    1 => true\n"
            "    2 => 2.5\n"
            "    3 => {length = 2, bytes = 0x0102}\n"
            "  ]\n"
            "  \"name\" => \"Wren \\\"fold\\\"\"\n"
            "  \"when\" => 2001-01-01 00:00:00 +0000\n"
            "}\n");
}

TEST(Plutil, PrintShowsAUidWithItsNumber) {
  test::TempDir dir;
  Value archive(Dictionary{{"$top", Value(Dictionary{{"root", Value(Uid{1})}})},
                           {"$objects", Value(Array{Value("$null"), Value(Uid{0})})}});
  test::writeFile(dir / "a.plist", binaryOf(archive));
  ToolRun r = plutil({"-p", dir / "a.plist"});
  EXPECT_EQ(r.status, 0) << r.err;
  EXPECT_EQ(r.out,
            "{\n"
            "  \"$objects\" => [\n"
            "    0 => \"$null\"\n"
            "    1 => <CFKeyedArchiverUID>{value = 0}\n"
            "  ]\n"
            "  \"$top\" => {\n"
            "    \"root\" => <CFKeyedArchiverUID>{value = 1}\n"
            "  }\n"
            "}\n");
}

TEST(Plutil, AKeyedArchiveStaysOneThroughBothFormats) {
  test::TempDir dir;
  const std::string xml =
      "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n"
      "<!DOCTYPE plist PUBLIC \"-//Apple//DTD PLIST 1.0//EN\" "
      "\"http://www.apple.com/DTDs/PropertyList-1.0.dtd\">\n"
      "<plist version=\"1.0\">\n"
      "<dict>\n"
      "\t<key>$archiver</key>\n"
      "\t<string>NSKeyedArchiver</string>\n"
      "\t<key>$objects</key>\n"
      "\t<array>\n"
      "\t\t<string>$null</string>\n"
      "\t\t<string>hello</string>\n"
      "\t</array>\n"
      "\t<key>$top</key>\n"
      "\t<dict>\n"
      "\t\t<key>root</key>\n"
      "\t\t<dict>\n"
      "\t\t\t<key>CF$UID</key>\n"
      "\t\t\t<integer>1</integer>\n"
      "\t\t</dict>\n"
      "\t</dict>\n"
      "\t<key>$version</key>\n"
      "\t<integer>100000</integer>\n"
      "</dict>\n"
      "</plist>\n";
  test::writeFile(dir / "k.plist", xml);
  ToolRun r = plutil({"-convert", "binary1", dir / "k.plist"});
  ASSERT_EQ(r.status, 0) << r.err;
  Value binary = plist::parse(test::readFile(dir / "k.plist"));
  EXPECT_EQ(binary.valueForKeyPath("$top.root"), Value(Uid{1}));
  EXPECT_NE(test::readFile(dir / "k.plist").find(std::string("\x80\x01", 2)), std::string::npos);
  r = plutil({"-convert", "xml1", dir / "k.plist"});
  ASSERT_EQ(r.status, 0) << r.err;
  EXPECT_EQ(test::readFile(dir / "k.plist"), xml);
}

TEST(Plutil, ADateXmlCannotCarryIsRefusedWithItsKeyPath) {
  test::TempDir dir;
  Value v(Dictionary{{"events", Value(Array{Value(Date{std::nan("")})})}});
  std::string input = binaryOf(v);
  test::writeFile(dir / "d.plist", input);
  ToolRun r = plutil({"-convert", "xml1", dir / "d.plist"});
  EXPECT_EQ(r.status, 1);
  EXPECT_NE(r.err.find("an undefined date (NaN) cannot be written in XML"), std::string::npos)
      << r.err;
  EXPECT_NE(r.err.find("\"events.0\""), std::string::npos) << r.err;
  EXPECT_EQ(test::readFile(dir / "d.plist"), input);
}

TEST(Plutil, SharingThatExpandsWithoutBoundFailsLintAndPrintQuickly) {
  test::TempDir dir;
  test::writeFile(dir / "h.plist", test::hostileExpansionPlist(64));
  ToolRun r = plutil({"-lint", dir / "h.plist"}, 60);
  EXPECT_EQ(r.status, 1);
  EXPECT_EQ(r.out, "");
  EXPECT_NE(r.err.find(dir / "h.plist" + ": object "), std::string::npos) << r.err;
  EXPECT_NE(r.err.find("expand to more than"), std::string::npos) << r.err;
  r = plutil({"-p", dir / "h.plist"}, 60);
  EXPECT_EQ(r.status, 1);  // not 124: it ended by itself
  EXPECT_EQ(r.out, "");
  EXPECT_NE(r.err.find("expand to more than"), std::string::npos) << r.err;
}
