// wf-plutil's verbs beyond lint, print and convert, run on real files: what
// each writes, and that every failure names the file, says why, exits 1 and
// leaves the file as it was.
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include "platform/plist/PropertyList.h"
#include "support/Fakes.h"
#include "support/RunTool.h"

using namespace wf;

namespace {

using test::ToolRun;

// Bounded: a tool that waits on something it should refuse fails the test
// (status 124) instead of hanging it.
ToolRun plutil(const std::vector<std::string>& args) {
  return test::runTool(WF_PLUTIL_BINARY, args);
}

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

const Value kDoc(Dictionary{
    {"name", Value("Wrenfold")},
    {"servers", Value(Array{Value("a.example.org"), Value(Dictionary{{"port", Value(993)}})})},
    {"a.b", Value(true)},
    {"size", Value(2.5)}});

class PlutilVerbs : public ::testing::Test {
 protected:
  test::TempDir dir;
  std::string file = dir / "t.plist";
  void SetUp() override { test::writeFile(file, xmlOf(kDoc)); }
  Value contents() { return plist::parse(test::readFile(file)); }
  // A failure: status 1, "FILE: reason" on standard error, the file untouched.
  void expectFailure(const std::vector<std::string>& args, const std::string& reason) {
    const std::string before = test::readFile(file);
    ToolRun r = plutil(args);
    EXPECT_EQ(r.status, 1) << r.err;
    EXPECT_NE(r.err.find(reason), std::string::npos) << r.err;
    EXPECT_EQ(test::readFile(file), before);
    EXPECT_EQ(test::folderEntries(dir.path()), std::vector<std::string>{"t.plist"});
  }
};

TEST_F(PlutilVerbs, VersionAndHelpNameEveryCommand) {
  ToolRun v = plutil({"--version"});
  EXPECT_EQ(v.status, 0);
  EXPECT_EQ(v.out.rfind("wf-plutil (WrenfoldHelper) ", 0), 0u) << v.out;
  ToolRun h = plutil({"--help"});
  EXPECT_EQ(h.status, 0);
  for (const char* c : {"-lint", "-p", "-convert", "-insert", "-replace", "-remove", "-extract",
                        "-type", "-s", "-r", "-o", "-e", "-append", "--version"})
    EXPECT_NE(h.out.find(std::string("  ") + c + " "), std::string::npos) << c;
}

TEST_F(PlutilVerbs, ConvertToJsonCompactAndReadable) {
  test::writeFile(
      file,
      xmlOf(Value(Dictionary{{"b", Value(Array{Value(1), Value(false)})}, {"a", Value("x\"y")}})));
  ToolRun r = plutil({"-convert", "json", "-o", "-", file});
  EXPECT_EQ(r.status, 0) << r.err;
  EXPECT_EQ(r.out, "{\"a\":\"x\\\"y\",\"b\":[1,false]}\n");
  r = plutil({"-convert", "json", "-r", "-o", "-", file});
  EXPECT_EQ(r.out, "{\n  \"a\" : \"x\\\"y\",\n  \"b\" : [\n    1,\n    false\n  ]\n}\n");
  ASSERT_EQ(plutil({"-convert", "json", file}).status, 0);
  EXPECT_EQ(test::readFile(file), "{\"a\":\"x\\\"y\",\"b\":[1,false]}\n");
  // JSON is read back like any property list.
  r = plutil({"-convert", "binary1", file});
  EXPECT_EQ(r.status, 0) << r.err;
  EXPECT_EQ(contents(),
            Value(Dictionary{{"b", Value(Array{Value(1), Value(false)})}, {"a", Value("x\"y")}}));
}

TEST_F(PlutilVerbs, JsonRefusesWhatItCannotHold) {
  test::writeFile(file, xmlOf(Value(Dictionary{{"when", Value(Date{0})}})));
  expectFailure({"-convert", "json", file},
                file + ": invalid object in plist for destination format");
  test::writeFile(file, xmlOf(Value(Dictionary{{"blob", Value(Data{1})}})));
  expectFailure({"-convert", "json", file}, "invalid object in plist for destination format");
}

TEST_F(PlutilVerbs, ExtractAsPropertyListJsonOrRaw) {
  ToolRun r = plutil({"-extract", "servers.1", "xml1", "-o", "-", file});
  EXPECT_EQ(r.status, 0) << r.err;
  EXPECT_EQ(r.out, xmlOf(Value(Dictionary{{"port", Value(993)}})));
  r = plutil({"-extract", "servers", "json", "-o", "-", file});
  EXPECT_EQ(r.out, "[\"a.example.org\",{\"port\":993}]\n");
  EXPECT_EQ(plutil({"-extract", "servers.1.port", "raw", file}).out, "993\n");
  EXPECT_EQ(plutil({"-extract", "name", "raw", file}).out, "Wrenfold\n");
  EXPECT_EQ(plutil({"-extract", "a\\.b", "raw", file}).out, "true\n");
  EXPECT_EQ(plutil({"-extract", "size", "raw", file}).out, "2.5\n");
  EXPECT_EQ(test::readFile(file), xmlOf(kDoc)) << "raw output leaves the file alone";
}

TEST_F(PlutilVerbs, ExtractWithoutOutputReplacesTheFileAsPlutilDoes) {
  ToolRun r = plutil({"-extract", "servers", "binary1", file});
  EXPECT_EQ(r.status, 0) << r.err;
  EXPECT_EQ(test::readFile(file), binaryOf(kDoc.get("servers")));
}

TEST_F(PlutilVerbs, ExtractToAnotherExtension) {
  ToolRun r = plutil({"-extract", "servers.1", "json", "-e", "json", file});
  EXPECT_EQ(r.status, 0) << r.err;
  EXPECT_EQ(test::readFile(dir / "t.json"), "{\"port\":993}\n");
  EXPECT_EQ(test::readFile(file), xmlOf(kDoc));
}

TEST_F(PlutilVerbs, ExtractFailures) {
  expectFailure({"-extract", "servers.7", "xml1", file},
                file +
                    ": Could not extract value, error: No value at that key path or invalid "
                    "key path: servers.7");
  expectFailure({"-extract", "name.x", "raw", file}, "invalid key path: name.x");
  expectFailure({"-extract", "servers", "raw", file}, "is a array");
}

TEST_F(PlutilVerbs, TypeNamesEachType) {
  test::writeFile(file, xmlOf(Value(Dictionary{{"d", Value(Dictionary{})},
                                               {"a", Value(Array{})},
                                               {"s", Value("x")},
                                               {"i", Value(1)},
                                               {"f", Value(1.5)},
                                               {"b", Value(false)},
                                               {"t", Value(Date{0})},
                                               {"x", Value(Data{})},
                                               {"u", Value(Uid{7})}})));
  const std::pair<const char*, const char*> kTypes[] = {
      {"d", "dictionary"}, {"a", "array"}, {"s", "string"}, {"i", "integer"}, {"f", "float"},
      {"b", "bool"},       {"t", "date"},  {"x", "data"},   {"u", "uid"}};
  for (auto [key, type] : kTypes) {
    ToolRun r = plutil({"-type", key, file});
    EXPECT_EQ(r.status, 0) << key;
    EXPECT_EQ(r.out, std::string(type) + "\n") << key;
  }
  expectFailure({"-type", "nothing", file}, "No value at that key path");
}

TEST_F(PlutilVerbs, InsertEveryValueType) {
  const std::pair<std::vector<std::string>, Value> kValues[] = {
      {{"-bool", "YES"}, Value(true)},
      {{"-bool", "false"}, Value(false)},
      {{"-integer", "-12"}, Value(-12)},
      {{"-float", "0.25"}, Value(0.25)},
      {{"-string", "two words"}, Value("two words")},
      {{"-date", "2024-01-02T03:04:05Z"}, Value(Date{725857445})},
      {{"-date", "2024-01-02 05:04:05 +0200"}, Value(Date{725857445})},
      {{"-data", "AQID"}, Value(Data{1, 2, 3})},
      {{"-xml", "<array><integer>1</integer></array>"}, Value(Array{Value(1)})},
      {{"-json", "{\"k\": [1, \"x\"]}"},
       Value(Dictionary{{"k", Value(Array{Value(1), Value("x")})}})},
      {{"-array"}, Value(Array{})},
      {{"-dictionary"}, Value(Dictionary{})},
  };
  int n = 0;
  for (const auto& [typed, expected] : kValues) {
    const std::string key = "k" + std::to_string(n++);
    std::vector<std::string> args{"-insert", key};
    args.insert(args.end(), typed.begin(), typed.end());
    args.push_back(file);
    ToolRun r = plutil(args);
    EXPECT_EQ(r.status, 0) << typed[0] << ": " << r.err;
    EXPECT_EQ(contents().get(key), expected) << typed[0];
  }
}

TEST_F(PlutilVerbs, InsertIntoArraysAndAppend) {
  ASSERT_EQ(plutil({"-insert", "servers.0", "-string", "first", file}).status, 0);
  ASSERT_EQ(plutil({"-insert", "servers.3", "-string", "last", file}).status, 0);
  ASSERT_EQ(plutil({"-insert", "servers", "-integer", "5", "-append", file}).status, 0);
  Value servers = contents().get("servers");
  ASSERT_TRUE(servers.isArray());
  ASSERT_EQ(servers.count(), 5u);
  EXPECT_EQ(servers.asArray()[0], Value("first"));
  EXPECT_EQ(servers.asArray()[3], Value("last"));
  EXPECT_EQ(servers.asArray()[4], Value(5));
}

TEST_F(PlutilVerbs, InsertKeepsTheFilesFormat) {
  test::writeFile(file, binaryOf(kDoc));
  ASSERT_EQ(plutil({"-insert", "new", "-bool", "NO", file}).status, 0);
  EXPECT_EQ(test::readFile(file).rfind("bplist00", 0), 0u);
}

TEST_F(PlutilVerbs, InsertFailures) {
  expectFailure({"-insert", "name", "-string", "x", file},
                file + ": Could not modify plist, error: Value already exists at key path name");
  expectFailure({"-insert", "nothing.deeper", "-string", "x", file},
                "No value at that key path or invalid key path: nothing.deeper");
  expectFailure({"-insert", "servers.9", "-string", "x", file}, "out of bounds");
  expectFailure({"-insert", "name", "-string", "x", "-append", file}, "non-array");
}

TEST_F(PlutilVerbs, WrongValueTypesAreRefusedBeforeAnyFileIsTouched) {
  expectFailure({"-insert", "n", "-integer", "12x", file}, "\"12x\" is not an integer");
  expectFailure({"-insert", "n", "-float", "one", file}, "is not a number");
  expectFailure({"-insert", "n", "-bool", "maybe", file}, "is not YES, NO, true or false");
  expectFailure({"-insert", "n", "-date", "2024-01-02garbage", file}, "is not a date");
  expectFailure({"-insert", "n", "-date", "2024-02-30T00:00:00Z", file}, "is not a date");
  expectFailure({"-insert", "n", "-data", "not base64!", file}, "is not Base64 data");
  expectFailure({"-insert", "n", "-xml", "<dict>", file}, "is not a property list");
  expectFailure({"-insert", "n", "-json", "[1,", file}, "is not JSON");
  expectFailure({"-insert", "n", "-json", "null", file}, "is not JSON");
  expectFailure({"-insert", "n", "-color", "red", file}, "unknown value type -color");
}

TEST_F(PlutilVerbs, ReplaceSetsOrInserts) {
  ASSERT_EQ(plutil({"-replace", "name", "-string", "Other", file}).status, 0);
  ASSERT_EQ(plutil({"-replace", "servers.1.port", "-integer", "143", file}).status, 0);
  ASSERT_EQ(plutil({"-replace", "fresh", "-bool", "true", file}).status, 0);
  Value d = contents();
  EXPECT_EQ(d.get("name"), Value("Other"));
  EXPECT_EQ(d.get("servers").asArray()[1].get("port"), Value(143));
  EXPECT_EQ(d.get("fresh"), Value(true));
  expectFailure({"-replace", "name.x", "-string", "x", file}, "invalid key path: name.x");
}

TEST_F(PlutilVerbs, RemoveAndItsFailure) {
  ASSERT_EQ(plutil({"-remove", "servers.0", file}).status, 0);
  ASSERT_EQ(plutil({"-remove", "a\\.b", file}).status, 0);
  Value d = contents();
  EXPECT_EQ(d.get("servers"), Value(Array{Value(Dictionary{{"port", Value(993)}})}));
  EXPECT_TRUE(d.get("a.b").isNil());
  expectFailure({"-remove", "absent", file},
                file + ": Could not modify plist, error: No value to remove at key path absent");
}

TEST_F(PlutilVerbs, SilentLintPrintsNothing) {
  ToolRun r = plutil({"-lint", "-s", file});
  EXPECT_EQ(r.status, 0);
  EXPECT_EQ(r.out, "");
  r = plutil({"-s", file});
  EXPECT_EQ(r.status, 0) << "-lint is the default command";
  EXPECT_EQ(r.out, "");
}

TEST_F(PlutilVerbs, SeveralFilesEachHandledAFailureReportedAndCounted) {
  const std::string other = dir / "u.plist";
  test::writeFile(other, binaryOf(kDoc));
  test::writeFile(dir / "bad.plist", "not a property list");
  ToolRun r = plutil(
      {"-replace", "name", "-string", "X", file, dir / "missing.plist", dir / "bad.plist", other});
  EXPECT_EQ(r.status, 1);
  EXPECT_NE(r.err.find(dir / "missing.plist: No such file or directory"), std::string::npos)
      << r.err;
  EXPECT_NE(r.err.find(dir / "bad.plist: "), std::string::npos) << r.err;
  EXPECT_EQ(test::readFile(dir / "bad.plist"), "not a property list");
  EXPECT_EQ(contents().get("name"), Value("X"));
  EXPECT_EQ(plist::parse(test::readFile(other)).get("name"), Value("X"));
  EXPECT_FALSE(test::exists(dir / "missing.plist"));
}

TEST_F(PlutilVerbs, ConvertWithAnotherExtension) {
  const std::string other = dir / "u.plist";
  test::writeFile(other, binaryOf(kDoc));
  ToolRun r = plutil({"-convert", "xml1", "-e", "xml", file, other});
  EXPECT_EQ(r.status, 0) << r.err;
  EXPECT_EQ(test::readFile(dir / "t.xml"), xmlOf(kDoc));
  EXPECT_EQ(test::readFile(dir / "u.xml"), xmlOf(kDoc));
  EXPECT_EQ(test::readFile(other), binaryOf(kDoc));
}

TEST_F(PlutilVerbs, AFifoAtTheNameIsRefusedNotWaitedOn) {
  const std::string fifo = dir / "f.plist";
  ASSERT_EQ(::mkfifo(fifo.c_str(), 0600), 0);
  ToolRun r = plutil({"-convert", "xml1", fifo});
  EXPECT_EQ(r.status, 1);
  EXPECT_NE(r.err.find(fifo + ": Not a regular file"), std::string::npos) << r.err;
}

TEST_F(PlutilVerbs, UsageErrorsTouchNothing) {
  expectFailure({"-extract", "name", "yaml", file}, "unknown format \"yaml\"");
  expectFailure({"-insert", "name"}, "needs a key path and a typed value");
  expectFailure({"-convert", "xml1", "-o", "a", file, file}, "-o needs exactly one input file");
  expectFailure({"-convert", "xml1", "-o", "a", "-e", "b", file}, "cannot be combined");
}

}  // namespace
