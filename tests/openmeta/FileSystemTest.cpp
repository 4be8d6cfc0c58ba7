// What the file system refuses: links are never followed, read-only and
// protected files give POSIX errors and keep their attributes.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <linux/fs.h>
#include <sched.h>
#include <sys/ioctl.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "XAttrTestSupport.h"
#include "openmeta/OpenMeta.h"
#include "support/Fakes.h"

namespace wf::test {
namespace {

const Value kTags(Array{Value("Work"), Value("Home")});

// Every attribute of a file, name and raw value, as a snapshot.
std::map<std::string, std::string> allAttributes(const std::string& path) {
  std::map<std::string, std::string> out;
  std::string names(65536, '\0');
  const ssize_t n = llistxattr(path.c_str(), names.data(), names.size());
  if (n <= 0) return out;
  names.resize(static_cast<std::size_t>(n));
  for (std::size_t at = 0; at < names.size();) {
    const std::string name(names.c_str() + at);
    at += name.size() + 1;
    out[name] = rawAttribute(path, name).value_or("<unreadable>");
  }
  return out;
}

void expectPosix(const OptError& e, int err) {
  ASSERT_TRUE(e.has_value());
  EXPECT_EQ(e->domain, "NSPOSIXErrorDomain");
  EXPECT_EQ(e->code, err) << e->userInfo.at("info").asString();
}

// Every kind of write the store makes, each expected to fail with `err`.
void expectEveryWriteRefused(const std::string& path, int err) {
  expectPosix(OpenMeta::setXAttrMetaData(Value("x"), "kS", path), err);
  expectPosix(OpenMeta::setXAttrMetaData(Value(), "kMDItemOMUserTags", path), err);
  expectPosix(OpenMeta::setUserTags(Value(Array{Value("New")}), path), err);
  expectPosix(OpenMeta::addUserTags(Value(Array{Value("New")}), path), err);
  expectPosix(OpenMeta::clearUserTags(Value(Array{Value("Work")}), path), err);
  expectPosix(OpenMeta::setRating(3, path), err);
  expectPosix(OpenMeta::setRating(0, path), err);
  expectPosix(OpenMeta::setAppleTags(Value(Array{Value("New")}), path), err);
  expectPosix(OpenMeta::setAppleTags(Value(Array{}), path), err);
}

class Links : public ::testing::Test {
 protected:
  TempDir dir{true};
  std::string target = dir / "target";
  std::string link = dir / "link";
  void SetUp() override {
    writeFile(target, "content");
    ASSERT_EQ(symlink(target.c_str(), link.c_str()), 0);
  }
};

TEST_F(Links, WritesThroughALinkNeverReachItsTarget) {
  // Linux keeps no user attributes on links themselves, so the write fails
  // rather than landing on the target.
  expectPosix(OpenMeta::setXAttrMetaData(Value("x"), "kS", link), EPERM);
  expectPosix(OpenMeta::setUserTags(kTags, link), EPERM);
  expectPosix(OpenMeta::setAppleTags(kTags, link), EPERM);
  EXPECT_TRUE(allAttributes(target).empty());
}

TEST_F(Links, ReadsThroughALinkSeeTheLinkNotItsTarget) {
  ASSERT_FALSE(OpenMeta::setUserTags(kTags, target).has_value());
  ASSERT_FALSE(OpenMeta::setRating(4, target).has_value());
  const auto before = allAttributes(target);
  OptError error;
  EXPECT_TRUE(OpenMeta::getXAttrMetaData("kMDItemOMUserTags", link, &error).isNil());
  EXPECT_FALSE(error.has_value());
  EXPECT_TRUE(OpenMeta::getUserTags(link, &error).isNil());
  EXPECT_TRUE(OpenMeta::getAppleTags(link, &error).isNil());
  EXPECT_EQ(OpenMeta::getRating(link, &error), 0.0);
  EXPECT_FALSE(error.has_value());
  EXPECT_EQ(allAttributes(target), before);
}

TEST_F(Links, DanglingLinkIsTheLinkItself) {
  const std::string dangling = dir / "dangling";
  ASSERT_EQ(symlink((dir / "nowhere").c_str(), dangling.c_str()), 0);
  // A followed link would report ENOENT.
  expectPosix(OpenMeta::setXAttrMetaData(Value("x"), "kS", dangling), EPERM);
  OptError error;
  EXPECT_TRUE(OpenMeta::getXAttrMetaData("kS", dangling, &error).isNil());
  EXPECT_FALSE(error.has_value());
  EXPECT_FALSE(exists(dir / "nowhere"));
}

class Protected : public ::testing::Test {
 protected:
  TempDir dir{true};
  std::string file = dir / "file";
  void SetUp() override {
    writeFile(file, "content");
    ASSERT_FALSE(OpenMeta::setUserTags(kTags, file).has_value());
    ASSERT_FALSE(OpenMeta::setRating(2, file).has_value());
  }
};

TEST_F(Protected, FileWithoutWritePermission) {
  if (permissionBitsAreIgnored())
    GTEST_SKIP() << "this process bypasses permission bits (root or CAP_DAC_OVERRIDE); the "
                    "immutable-file test covers refused writes instead";
  const auto before = allAttributes(file);
  ASSERT_EQ(chmod(file.c_str(), 0444), 0);
  expectEveryWriteRefused(file, EACCES);
  EXPECT_EQ(OpenMeta::getUserTags(file, nullptr), kTags) << "still readable";
  EXPECT_EQ(allAttributes(file), before);
}

TEST_F(Protected, ImmutableFile) {
  const int fd = open(file.c_str(), O_RDONLY);
  ASSERT_GE(fd, 0);
  int flags = 0;
  if (ioctl(fd, FS_IOC_GETFLAGS, &flags) != 0) {
    close(fd);
    GTEST_SKIP() << "this file system keeps no inode flags: " << std::strerror(errno);
  }
  flags |= FS_IMMUTABLE_FL;
  if (ioctl(fd, FS_IOC_SETFLAGS, &flags) != 0) {
    const int err = errno;
    close(fd);
    GTEST_SKIP() << "cannot make a file immutable here (needs CAP_LINUX_IMMUTABLE): "
                 << std::strerror(err);
  }
  const auto before = allAttributes(file);
  expectEveryWriteRefused(file, EPERM);
  EXPECT_EQ(OpenMeta::getUserTags(file, nullptr), kTags);
  EXPECT_EQ(allAttributes(file), before);
  flags &= ~FS_IMMUTABLE_FL;
  EXPECT_EQ(ioctl(fd, FS_IOC_SETFLAGS, &flags), 0);
  close(fd);
}

// A read-only bind mount of the folder, in a mount namespace of this test
// process alone (the test runs as a process of its own under CTest).
TEST_F(Protected, ReadOnlyFileSystem) {
  // Without the right to mount, a user namespace of our own gives it.
  if (unshare(CLONE_NEWNS) != 0 && unshare(CLONE_NEWUSER | CLONE_NEWNS) != 0)
    GTEST_SKIP() << "cannot make a private mount namespace to mount a read-only file system: "
                 << std::strerror(errno);
  ASSERT_EQ(mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr), 0) << std::strerror(errno);
  const std::string view = dir / "view";
  ASSERT_EQ(mkdir(view.c_str(), 0755), 0);
  ASSERT_EQ(mount(dir.path().c_str(), view.c_str(), nullptr, MS_BIND, nullptr), 0)
      << std::strerror(errno);
  ASSERT_EQ(mount(nullptr, view.c_str(), nullptr, MS_BIND | MS_REMOUNT | MS_RDONLY, nullptr), 0)
      << std::strerror(errno);
  const std::string viewed = view + "/file";
  const auto before = allAttributes(file);
  expectEveryWriteRefused(viewed, EROFS);
  EXPECT_EQ(OpenMeta::getUserTags(viewed, nullptr), kTags);
  EXPECT_EQ(allAttributes(file), before);
  EXPECT_EQ(umount(view.c_str()), 0);
}

}  // namespace
}  // namespace wf::test
