// Every way a tool rewrites a file in place keeps what the file was: its
// mode, owner, extended attributes and the link it was reached through; and
// a write that fails leaves the file as it was, with nothing beside it.
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/xattr.h>
#include <unistd.h>

#include "ToolBinaries.h"
#include "ToolTestSupport.h"
#include "platform/plist/PropertyList.h"
#include "support/Fakes.h"

namespace wf::test {
namespace {

// One way of changing the property list at FILE in place.
struct Edit {
  const char* name;
  std::string (*binary)();
  std::vector<std::string> args;  // "FILE" stands for the file's path
  std::string input = "";
};

void PrintTo(const Edit& e, std::ostream* os) { *os << e.name; }

const char kImport[] =
    "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<plist version=\"1.0\"><dict><key>n</key>"
    "<string>imported</string></dict></plist>\n";

const Edit kEdits[] = {
    {"plutil_convert_binary", plutilBinary, {"-convert", "binary1", "FILE"}},
    {"plutil_convert_json", plutilBinary, {"-convert", "json", "FILE"}},
    {"plutil_insert", plutilBinary, {"-insert", "n", "-string", "new", "FILE"}},
    {"plutil_replace", plutilBinary, {"-replace", "k", "-integer", "5", "FILE"}},
    {"plutil_remove", plutilBinary, {"-remove", "k", "FILE"}},
    {"defaults_write", defaultsBinary, {"write", "FILE", "n", "-date", "2024-01-02T03:04:05Z"}},
    {"defaults_delete_key", defaultsBinary, {"delete", "FILE", "k"}},
    {"defaults_rename", defaultsBinary, {"rename", "FILE", "k", "n"}},
    {"defaults_import", defaultsBinary, {"import", "FILE", "-"}, kImport},
};

std::string original() {
  std::string xml;
  plist::toXML(Value(Dictionary{{"k", Value("v")}, {"z", Value(Array{Value(1)})}}), xml);
  return xml;
}

class InPlaceEdit : public ::testing::TestWithParam<Edit> {
 protected:
  ToolRun edit(const std::string& file) {
    std::vector<std::string> args = GetParam().args;
    for (std::string& a : args)
      if (a == "FILE") a = file;
    return runTool(GetParam().binary(), args, {"HOME=" + home.path()}, GetParam().input);
  }
  TempDir home;
  TempDir dir{true};  // tmpfs: keeps user extended attributes
  std::string file = dir / "d.plist";
};

TEST_P(InPlaceEdit, KeepsThePermissionBits) {
  writeFile(file, original());
  ASSERT_EQ(::chmod(file.c_str(), 0600), 0);
  ToolRun r = edit(file);
  ASSERT_EQ(r.status, 0) << r.err;
  FileState after = stateOf(file);
  EXPECT_NE(after.bytes, original()) << "the edit changed nothing";
  EXPECT_EQ(after.mode, 0600u);
  writeFile(file, original());
  ASSERT_EQ(::chmod(file.c_str(), 0640), 0);
  ASSERT_EQ(edit(file).status, 0);
  EXPECT_EQ(stateOf(file).mode, 0640u);
}

TEST_P(InPlaceEdit, KeepsTheOwner) {
  if (::geteuid() != 0) GTEST_SKIP() << "giving a file to another owner needs root";
  writeFile(file, original());
  ASSERT_EQ(::chown(file.c_str(), 4321, 4322), 0);
  ToolRun r = edit(file);
  ASSERT_EQ(r.status, 0) << r.err;
  FileState after = stateOf(file);
  EXPECT_EQ(after.uid, 4321u);
  EXPECT_EQ(after.gid, 4322u);
}

TEST_P(InPlaceEdit, KeepsExtendedAttributes) {
  writeFile(file, original());
  ASSERT_EQ(::setxattr(file.c_str(), "user.xdg.tags", "Work", 4, 0), 0);
  ASSERT_EQ(::setxattr(file.c_str(), "user.com.apple.metadata:kMDItemOMUserTags", "x", 1, 0), 0);
  ToolRun r = edit(file);
  ASSERT_EQ(r.status, 0) << r.err;
  FileState after = stateOf(file);
  EXPECT_NE(after.bytes, original());
  EXPECT_EQ(after.xattrs["user.xdg.tags"], "Work");
  EXPECT_EQ(after.xattrs["user.com.apple.metadata:kMDItemOMUserTags"], "x");
}

TEST_P(InPlaceEdit, WritesALinksTargetAndKeepsTheLink) {
  ASSERT_EQ(::mkdir((dir / "real").c_str(), 0755), 0);
  writeFile(dir / "real/d.plist", original());
  ASSERT_EQ(::symlink("real/d.plist", file.c_str()), 0);
  ToolRun r = edit(file);
  ASSERT_EQ(r.status, 0) << r.err;
  FileState link = stateOf(file);
  EXPECT_TRUE(link.isLink) << "the link was replaced by a file";
  EXPECT_EQ(link.linkTarget, "real/d.plist");
  EXPECT_NE(stateOf(dir / "real/d.plist").bytes, original()) << "the target was not written";
  EXPECT_EQ(strayEntries(dir / "real", {"d.plist"}), std::vector<std::string>{});
}

TEST_P(InPlaceEdit, AFullDiskLeavesTheFileAsItWas) {
  SmallTmpfs disk(64 * 1024);
  if (!disk.ok()) GTEST_SKIP() << "no tmpfs of our own to fill: " << disk.reason();
  const std::string path = disk / "d.plist";
  writeFile(path, original());
  disk.fill("filler");
  const FileState before = stateOf(path);
  ToolRun r = edit(path);
  EXPECT_EQ(r.status, 1);
  EXPECT_NE(r.err.find(path + ": "), std::string::npos) << r.err;
  EXPECT_NE(r.err.find("No space left on device"), std::string::npos) << r.err;
  EXPECT_EQ(stateOf(path), before);
  EXPECT_EQ(strayEntries(disk.path(), {"d.plist", "filler"}), std::vector<std::string>{});
}

TEST_P(InPlaceEdit, AnUnwritableFolderLeavesTheFileAsItWas) {
  SmallTmpfs disk(1024 * 1024);
  if (!disk.ok()) GTEST_SKIP() << "no tmpfs of our own to make read-only: " << disk.reason();
  const std::string path = disk / "d.plist";
  writeFile(path, original());
  ASSERT_TRUE(disk.makeReadOnly());
  const FileState before = stateOf(path);
  ToolRun r = edit(path);
  EXPECT_EQ(r.status, 1);
  EXPECT_NE(r.err.find(path + ": "), std::string::npos) << r.err;
  EXPECT_NE(r.err.find("Read-only file system"), std::string::npos) << r.err;
  EXPECT_EQ(stateOf(path), before);
}

INSTANTIATE_TEST_SUITE_P(Tools, InPlaceEdit, ::testing::ValuesIn(kEdits),
                         [](const auto& info) { return std::string(info.param.name); });

}  // namespace
}  // namespace wf::test
