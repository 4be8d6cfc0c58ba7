// Every way a tool rewrites a file in place keeps what the file was: its
// mode, owner, extended attributes and the link it was reached through; and
// a write that fails leaves the file as it was, with nothing beside it.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <sys/fanotify.h>
#include <sys/stat.h>
#include <sys/xattr.h>
#include <unistd.h>

#include <cstring>

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
  bool readsTheFile = true;  // import replaces the domain without reading it
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
    {"defaults_import", defaultsBinary, {"import", "FILE", "-"}, kImport, false},
};

std::string original() {
  std::string xml;
  plist::toXML(Value(Dictionary{{"k", Value("v")}, {"z", Value(Array{Value(1)})}}), xml);
  return xml;
}

class InPlaceEdit : public ::testing::TestWithParam<Edit> {
 protected:
  StartedTool startEdit(const std::string& file) {
    std::vector<std::string> args = GetParam().args;
    for (std::string& a : args)
      if (a == "FILE") a = file;
    return startTool(GetParam().binary(), args, {"HOME=" + home.path()}, GetParam().input);
  }
  ToolRun edit(const std::string& file) {
    StartedTool t = startEdit(file);
    return finishTool(t);
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

// Another program renames its own version over the file while the tool is
// between reading and writing it: the tool must not overwrite that version.
// The moment is made exact with fanotify permission events on the file: the
// tool's read is its first open, and the writer opens the old file once more
// to copy its extended attributes just before the rename; the test replaces
// the file while that open waits for its answer.
TEST_P(InPlaceEdit, AFileReplacedDuringTheCallIsLeftAsTheOtherProgramWroteIt) {
  if (!GetParam().readsTheFile) GTEST_SKIP() << "replaces the file without reading it first";
  writeFile(file, original());
  const int fan = ::fanotify_init(FAN_CLASS_CONTENT | FAN_CLOEXEC, O_RDONLY | O_CLOEXEC);
  if (fan < 0) GTEST_SKIP() << "no fanotify permission events: " << std::strerror(errno);
  ASSERT_EQ(::fanotify_mark(fan, FAN_MARK_ADD, FAN_OPEN_PERM, AT_FDCWD, file.c_str()), 0)
      << std::strerror(errno);
  std::string replacement;
  plist::toXML(Value(Dictionary{{"other", Value("program")}}), replacement);
  writeFile(dir / "other.plist", replacement);

  StartedTool tool = startEdit(file);
  int opens = 0;
  bool replaced = false;
  while (!replaced) {
    pollfd p{fan, POLLIN, 0};
    if (::poll(&p, 1, 10000) <= 0) break;  // bounded: the tool never opened the file again
    alignas(fanotify_event_metadata) char buf[4096];
    ssize_t n = ::read(fan, buf, sizeof buf);
    if (n <= 0) break;
    for (auto* e = reinterpret_cast<fanotify_event_metadata*>(buf); FAN_EVENT_OK(e, n);
         e = FAN_EVENT_NEXT(e, n)) {
      if (++opens == 2 && !replaced) {
        ASSERT_EQ(::rename((dir / "other.plist").c_str(), file.c_str()), 0);
        replaced = true;
      }
      fanotify_response answer{e->fd, FAN_ALLOW};
      ASSERT_EQ(::write(fan, &answer, sizeof answer), static_cast<ssize_t>(sizeof answer));
      ::close(e->fd);
    }
  }
  ::close(fan);  // answers whatever is still pending
  ToolRun r = finishTool(tool);
  ASSERT_TRUE(replaced) << "the tool opened the file " << opens << " time(s); status " << r.status;
  EXPECT_EQ(r.status, 1) << r.err;
  EXPECT_NE(r.err.find(file + ": Replaced by another program while being changed"),
            std::string::npos)
      << r.err;
  EXPECT_EQ(readFile(file), replacement);
  EXPECT_EQ(strayEntries(dir.path(), {"d.plist"}), std::vector<std::string>{});
}

INSTANTIATE_TEST_SUITE_P(Tools, InPlaceEdit, ::testing::ValuesIn(kEdits),
                         [](const auto& info) { return std::string(info.param.name); });

}  // namespace
}  // namespace wf::test
