// Removal never follows a link, even one swapped in for a folder between
// the look at an entry and the removal of what is inside it.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <stdio.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <filesystem>
#include <thread>

#include "SystemFaults.h"
#include "platform/base/Files.h"
#include "platform/foundation/FileManager.h"
#include "support/Fakes.h"

namespace fs = std::filesystem;

namespace wf {
namespace {

constexpr int kFiles = 500;

class RemovalRace : public ::testing::Test {
 protected:
  void SetUp() override {
    char tmpl[] = "/tmp/wf-removal-XXXXXX";
    ASSERT_NE(mkdtemp(tmpl), nullptr);
    root_ = tmpl;
    outside_ = root_ + "/outside";
    fs::create_directories(outside_);
    for (int i = 0; i < kFiles; ++i) test::writeFile(outside_ + "/f" + std::to_string(i), "x");
    folder_ = root_ + "/folder";
  }
  void TearDown() override { fs::remove_all(root_); }

  int filesOutside() const {
    int n = 0;
    for (int i = 0; i < kFiles; ++i) n += test::exists(outside_ + "/f" + std::to_string(i)) ? 1 : 0;
    return n;
  }

  // The folder holds the same 500 names as `outside`; while `remove`
  // works through it, a racer keeps exchanging the folder's name with a
  // link to `outside`. A removal that goes by path names would then remove
  // outside's files.
  template <class Remove>
  void race(int rounds, Remove remove) {
    std::string spare = root_ + "/spare";
    for (int round = 0; round < rounds; ++round) {
      fs::remove_all(folder_);
      fs::remove(spare);
      fs::create_directories(folder_);
      for (int i = 0; i < kFiles; ++i) test::writeFile(folder_ + "/f" + std::to_string(i), "in");
      fs::create_symlink(outside_, spare);
      std::atomic<bool> stop{false};
      std::thread racer([&] {
        while (!stop)
          (void)renameat2(AT_FDCWD, folder_.c_str(), AT_FDCWD, spare.c_str(), RENAME_EXCHANGE);
      });
      remove(folder_);
      stop = true;
      racer.join();
      // Whichever name the folder ended under, take it away as a test does.
      for (const std::string& p : {folder_, spare})
        if (!fs::is_symlink(p)) fs::remove_all(p);
    }
  }

  std::string root_, outside_, folder_;
};

TEST_F(RemovalRace, FoundationRemovalOfAFolderNeverEntersALinkSwappedIn) {
  race(3,
       [](const std::string& path) { (void)FileManager::defaultManager().removeItemAtPath(path); });
  EXPECT_EQ(filesOutside(), kFiles);
}

TEST_F(RemovalRace, AFileRemovalNeverRemovesAFolder) {
  mkdir(folder_.c_str(), 0755);
  test::writeFile(folder_ + "/inside", "inside");
  auto removed = sys::removePath(folder_, sys::Removal::FileOrLink);
  ASSERT_FALSE(removed.ok());
  EXPECT_TRUE(removed.error().isErrno(EISDIR));
  EXPECT_EQ(test::readFile(folder_ + "/inside"), "inside");
}

TEST_F(RemovalRace, ALinkIsRemovedItselfAndItsTargetStays) {
  fs::create_symlink(outside_, folder_);
  ASSERT_TRUE(sys::removePath(folder_, sys::Removal::Tree).ok());
  EXPECT_FALSE(fs::is_symlink(folder_));
  EXPECT_EQ(filesOutside(), kFiles);
}

TEST_F(RemovalRace, ATreeRemovalStopsAtAFileSystemMountedBelowIt) {
  // /tmp and a tmpfs mounted two levels down: the removal empties what is
  // on its own file system and leaves the mounted one as it is.
  fs::create_directories(folder_ + "/a/mounted");
  faults::TmpfsMount mount(folder_ + "/a/mounted", 64 * 1024);
  if (!mount.mounted()) GTEST_SKIP() << "needs root for a small tmpfs: " << mount.reason();
  test::writeFile(folder_ + "/a/mounted/kept", "on another file system");
  test::writeFile(folder_ + "/a/local", "x");
  auto removed = sys::removePath(folder_, sys::Removal::Tree);
  ASSERT_FALSE(removed.ok());
  EXPECT_TRUE(removed.error().isErrno(EXDEV)) << removed.error().describe();
  EXPECT_TRUE(test::exists(folder_ + "/a/mounted/kept"));
  EXPECT_FALSE(test::exists(folder_ + "/a/local"));
}

}  // namespace
}  // namespace wf
