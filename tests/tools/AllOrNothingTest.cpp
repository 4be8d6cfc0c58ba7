// An openmeta command that fails changes nothing: sizes and values are
// checked before the first write, and where a later attribute cannot be
// written the earlier ones are put back. The file's attributes are then
// byte for byte what they were.
#include <gtest/gtest.h>
#include <sys/xattr.h>

#include <cerrno>

#include "ToolBinaries.h"
#include "ToolTestSupport.h"
#include "platform/plist/PropertyList.h"
#include "support/Fakes.h"

namespace wf::test {
namespace {

const std::string kList = "user.com.apple.metadata:kMDItemOMUserTags";
const std::string kTagTime = "user.com.apple.metadata:kMDItemOMUserTagTime";
const std::string kRatingTime = "user.com.apple.metadata:kMDItemOMRatingTime";
const std::string kMirror = "user.xdg.tags";

ToolRun openmeta(const std::vector<std::string>& args) { return runTool(openmetaBinary(), args); }

// 120 tags of 46 characters: far more than 4096 bytes as a property list.
std::vector<std::string> manyTagArgs() {
  std::vector<std::string> args;
  for (int i = 0; i < 120; ++i) {
    std::string tag = "a-rather-long-tag-name-that-fills-the-list-" + std::to_string(1000 + i);
    args.insert(args.end(), {"-t", tag});
  }
  return args;
}

std::vector<std::string> operator+(std::vector<std::string> a, const std::vector<std::string>& b) {
  a.insert(a.end(), b.begin(), b.end());
  return a;
}

// The attribute bytes a date of now is written as: the length is the same
// for every date of this era.
std::string dateAttribute() {
  std::string xml;
  plist::toXML(Value(Date{8e8}), xml);
  return xml;
}

// Fills the file system's room for attributes with one attribute of `file`
// so that exactly `fits` (name and bytes) can still be added, and no more:
// the largest filler that leaves room for them.
bool leaveRoomFor(const std::string& file,
                  const std::vector<std::pair<std::string, std::string>>& fits) {
  auto fitsWith = [&](std::size_t fillerSize) {
    std::string filler(fillerSize, 'f');
    // Replacing would count the old filler and the new one at once.
    ::removexattr(file.c_str(), "user.filler");
    if (::setxattr(file.c_str(), "user.filler", filler.data(), filler.size(), 0) != 0) return false;
    bool all = true;
    for (const auto& [name, bytes] : fits)
      all = all && ::setxattr(file.c_str(), name.c_str(), bytes.data(), bytes.size(), 0) == 0;
    for (const auto& [name, bytes] : fits) ::removexattr(file.c_str(), name.c_str());
    return all;
  };
  std::size_t low = 1, high = 60000;  // fitsWith(low) holds, fitsWith(high) does not
  if (!fitsWith(low) || fitsWith(high)) return false;
  while (high - low > 1) {
    std::size_t mid = (low + high) / 2;
    (fitsWith(mid) ? low : high) = mid;
  }
  return fitsWith(low);
}

class AllOrNothing : public ::testing::Test {
 protected:
  void SetUp() override {
    writeFile(file, "message");
    ToolRun r = openmeta({"set-tags", "-t", "old", file});
    ASSERT_EQ(r.status, 0) << r.err;
    before = stateOf(file);
    ASSERT_EQ(before.xattrs.count(kMirror), 1u);
  }
  void expectUnchanged(const ToolRun& r) {
    EXPECT_EQ(r.status, 1) << r.out << r.err;
    EXPECT_EQ(stateOf(file).xattrs, before.xattrs);
  }
  TempDir dir{true};  // tmpfs: keeps user extended attributes
  std::string file = dir / "1.emlx";
  FileState before;
};

TEST_F(AllOrNothing, SetTagsPastTheLimit) {
  ToolRun r = openmeta(std::vector<std::string>{"set-tags"} + manyTagArgs() + std::vector{file});
  EXPECT_NE(r.err.find("Meta data is too big"), std::string::npos) << r.err;
  expectUnchanged(r);
  ToolRun tags = openmeta({"get-tags", file});
  EXPECT_EQ(tags.out, "old\n");
}

TEST_F(AllOrNothing, AddTagsPastTheLimit) {
  ToolRun r = openmeta(std::vector<std::string>{"add-tags"} + manyTagArgs() + std::vector{file});
  EXPECT_NE(r.err.find("Meta data is too big"), std::string::npos) << r.err;
  expectUnchanged(r);
}

TEST_F(AllOrNothing, AStringPastTheLimit) {
  expectUnchanged(openmeta({"set-string", "kMDItemComment", std::string(5000, 'c'), file}));
}

TEST_F(AllOrNothing, AnArrayPastTheLimit) {
  expectUnchanged(openmeta(std::vector<std::string>{"set-array", "kMDItemKeywords", "-v",
                                                    std::string(5000, 'k'), file}));
}

// A file system that keeps little room for attributes: the one after the
// tag time and the file manager's tags, the OpenMeta list, does not fit.
TEST(AllOrNothingOnAFullFileSystem, SetTagsPutsBackWhatItWrote) {
  SmallTmpfs disk(1024 * 1024, "nr_inodes=8");
  if (!disk.ok()) GTEST_SKIP() << "no tmpfs of our own: " << disk.reason();
  const std::string file = disk / "1.emlx";
  writeFile(file, "message");
  std::vector<std::string> args{"set-tags"};
  std::string joined;
  for (int i = 0; i < 30; ++i) {
    std::string tag = "tag-number-" + std::to_string(100 + i);
    args.insert(args.end(), {"-t", tag});
    joined += (joined.empty() ? "" : ",") + tag;
  }
  args.push_back(file);
  ASSERT_TRUE(leaveRoomFor(file, {{kTagTime, dateAttribute()}, {kMirror, joined}}))
      << "the tmpfs keeps no count of its room for attributes";
  const FileState before = stateOf(file);
  ToolRun r = runTool(openmetaBinary(), args);
  EXPECT_EQ(r.status, 1) << r.err;
  EXPECT_NE(r.err.find("No space left on device"), std::string::npos) << r.err;
  EXPECT_EQ(stateOf(file).xattrs, before.xattrs);
}

TEST(AllOrNothingOnAFullFileSystem, SetRatingPutsBackTheRatingTime) {
  SmallTmpfs disk(1024 * 1024, "nr_inodes=8");
  if (!disk.ok()) GTEST_SKIP() << "no tmpfs of our own: " << disk.reason();
  const std::string file = disk / "1.emlx";
  writeFile(file, "message");
  ASSERT_TRUE(leaveRoomFor(file, {{kRatingTime, dateAttribute()}}))
      << "the tmpfs keeps no count of its room for attributes";
  const FileState before = stateOf(file);
  ToolRun r = runTool(openmetaBinary(), {"set-rating", "4", file});
  EXPECT_EQ(r.status, 1) << r.err;
  EXPECT_EQ(stateOf(file).xattrs, before.xattrs);
}

}  // namespace
}  // namespace wf::test
