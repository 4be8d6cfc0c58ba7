#include <gtest/gtest.h>
#include <signal.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <set>

#include "platform/plist/PropertyList.h"
#include "support/Fakes.h"

using namespace wf;

namespace {

std::set<std::string> listDir(const std::string& dir) {
  std::vector<std::string> names = test::folderEntries(dir);
  return {names.begin(), names.end()};
}

const Value kDict(Dictionary{{"a", Value(1)}, {"b", Value(Array{Value("x")})}});
const Value kArray(Array{Value("one"), Value(2)});

}  // namespace

TEST(ReadFile, BothFormats) {
  test::TempDir dir;
  std::string xml, bin;
  ASSERT_TRUE(plist::toXML(kDict, xml));
  ASSERT_TRUE(plist::toBinary(kDict, bin));
  test::writeFile(dir / "x.plist", xml);
  test::writeFile(dir / "b.plist", bin);
  EXPECT_EQ(plist::readFile(dir / "x.plist"), kDict);
  EXPECT_EQ(plist::readFile(dir / "b.plist"), kDict);
}

TEST(ReadFile, MissingUnreadableOrNoPlistIsNil) {
  test::TempDir dir;
  std::string error;
  EXPECT_TRUE(plist::readFile(dir / "missing.plist", &error).isNil());
  EXPECT_NE(error.find("missing.plist"), std::string::npos) << error;
  EXPECT_NE(error.find("No such file"), std::string::npos) << error;
  EXPECT_TRUE(plist::readFile(dir.path(), &error).isNil());  // a folder
  test::writeFile(dir / "junk.plist", "not a plist");
  EXPECT_TRUE(plist::readFile(dir / "junk.plist", &error).isNil());
  EXPECT_NE(error.find("junk.plist: line 1, column 1"), std::string::npos) << error;
  test::writeFile(dir / "empty.plist", "");
  EXPECT_TRUE(plist::readFile(dir / "empty.plist").isNil());
  if (geteuid() != 0) {
    test::writeFile(dir / "secret.plist", "<plist><true/></plist>");
    chmod((dir / "secret.plist").c_str(), 0);
    EXPECT_TRUE(plist::readFile(dir / "secret.plist", &error).isNil());
    EXPECT_NE(error.find("Permission denied"), std::string::npos) << error;
  }
}

TEST(ReadFile, TypedReadersWantTheirRootType) {
  test::TempDir dir;
  ASSERT_TRUE(plist::writeToFile(kDict, dir / "d.plist", true));
  ASSERT_TRUE(plist::writeToFile(kArray, dir / "a.plist", true));
  EXPECT_EQ(plist::dictionaryWithContentsOfFile(dir / "d.plist"), kDict);
  EXPECT_TRUE(plist::dictionaryWithContentsOfFile(dir / "a.plist").isNil());
  EXPECT_EQ(plist::arrayWithContentsOfFile(dir / "a.plist"), kArray);
  EXPECT_TRUE(plist::arrayWithContentsOfFile(dir / "d.plist").isNil());
  EXPECT_TRUE(plist::arrayWithContentsOfFile(dir / "none.plist").isNil());
  EXPECT_TRUE(plist::dictionaryWithContentsOfFile(dir / "none.plist").isNil());
}

TEST(WriteFileAtomically, ReplacesTheFileAndLeavesNoTemporary) {
  test::TempDir dir;
  test::writeFile(dir / "f.plist", "old");
  std::string error;
  ASSERT_TRUE(plist::writeFileAtomically(dir / "f.plist", "new contents", &error)) << error;
  EXPECT_EQ(test::readFile(dir / "f.plist"), "new contents");
  EXPECT_EQ(listDir(dir.path()), std::set<std::string>{"f.plist"});
}

TEST(WriteFileAtomically, CreatesWithTheUsersPermissions) {
  test::TempDir dir;
  mode_t old = umask(022);
  bool ok = plist::writeFileAtomically(dir / "p.plist", "x");
  umask(027);
  bool ok2 = plist::writeFileAtomically(dir / "q.plist", "x");
  umask(old);
  ASSERT_TRUE(ok && ok2);
  struct stat st {};
  ASSERT_EQ(stat((dir / "p.plist").c_str(), &st), 0);
  EXPECT_EQ(st.st_mode & 0777, 0644u);
  ASSERT_EQ(stat((dir / "q.plist").c_str(), &st), 0);
  EXPECT_EQ(st.st_mode & 0777, 0640u);
}

TEST(WriteFileAtomically, MissingFolderFailsCleanly) {
  test::TempDir dir;
  std::string error;
  EXPECT_FALSE(plist::writeFileAtomically(dir / "no/such/f.plist", "x", &error));
  EXPECT_NE(error.find("f.plist"), std::string::npos) << error;
  EXPECT_TRUE(listDir(dir.path()).empty());
}

TEST(WriteFileAtomically, ReadOnlyFolderFailsAndKeepsTheOldFile) {
  if (geteuid() == 0) GTEST_SKIP() << "root ignores folder permissions";
  test::TempDir dir;
  test::writeFile(dir / "f.plist", "old");
  chmod(dir.path().c_str(), 0555);
  std::string error;
  bool ok = plist::writeFileAtomically(dir / "f.plist", "new", &error);
  chmod(dir.path().c_str(), 0755);
  EXPECT_FALSE(ok);
  EXPECT_NE(error.find("Permission denied"), std::string::npos) << error;
  EXPECT_EQ(test::readFile(dir / "f.plist"), "old");
  EXPECT_EQ(listDir(dir.path()), std::set<std::string>{"f.plist"});
}

TEST(WriteFileAtomically, FailedWriteRemovesTheTemporaryAndKeepsTheOldFile) {
  // A file-size limit makes write() fail part-way, as a full disk would.
  test::TempDir dir;
  test::writeFile(dir / "f.plist", "old");
  struct sigaction ignore {
  }, previous{};
  ignore.sa_handler = SIG_IGN;
  sigaction(SIGXFSZ, &ignore, &previous);
  rlimit saved{};
  getrlimit(RLIMIT_FSIZE, &saved);
  rlimit small = saved;
  small.rlim_cur = 1024;
  ASSERT_EQ(setrlimit(RLIMIT_FSIZE, &small), 0);
  std::string error;
  bool ok = plist::writeFileAtomically(dir / "f.plist", std::string(100000, 'x'), &error);
  setrlimit(RLIMIT_FSIZE, &saved);
  sigaction(SIGXFSZ, &previous, nullptr);
  EXPECT_FALSE(ok);
  EXPECT_NE(error.find("File too large"), std::string::npos) << error;
  EXPECT_EQ(test::readFile(dir / "f.plist"), "old");
  EXPECT_EQ(listDir(dir.path()), std::set<std::string>{"f.plist"});
}

TEST(WriteToFile, AtomicAndInPlaceWritesReadBack) {
  test::TempDir dir;
  ASSERT_TRUE(plist::writeToFile(kDict, dir / "a.plist", true));
  ASSERT_TRUE(plist::writeToFile(kDict, dir / "b.plist", false));
  EXPECT_EQ(plist::readFile(dir / "a.plist"), kDict);
  EXPECT_EQ(test::readFile(dir / "a.plist"), test::readFile(dir / "b.plist"));
  EXPECT_EQ(test::readFile(dir / "a.plist").rfind("<?xml", 0), 0u);
  // In place truncates what was there.
  ASSERT_TRUE(plist::writeToFile(Value(Array{}), dir / "b.plist", false));
  EXPECT_EQ(plist::arrayWithContentsOfFile(dir / "b.plist"), Value(Array{}));
}

TEST(WriteToFile, UnwritableValueLeavesTheFileAlone) {
  test::TempDir dir;
  test::writeFile(dir / "f.plist", "old");
  std::string error;
  EXPECT_FALSE(plist::writeToFile(Value(Array{Value()}), dir / "f.plist", true, &error));
  EXPECT_FALSE(plist::writeToFile(Value(Array{Value()}), dir / "f.plist", false, &error));
  EXPECT_EQ(test::readFile(dir / "f.plist"), "old");
  EXPECT_EQ(listDir(dir.path()), std::set<std::string>{"f.plist"});
}
