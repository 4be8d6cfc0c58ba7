// Scheme handlers written into a real temporary mimeapps.list.
#include <dirent.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include "platform/linux/MimeAppsUrlHandlers.h"
#include "support/Fakes.h"

namespace wf::platform {
namespace {

using test::exists;
using test::readFile;
using test::writeFile;

class MimeAppsTest : public ::testing::Test {
 protected:
  void SetUp() override {
    config = env.xdgConfigHome();
    list = config + "/mimeapps.list";
    workspace.installed["com.apple.mail"] =
        home.path() + "/share/applications/com.apple.mail.desktop";
  }
  test::TempDir home;
  test::FakeEnvironment env{home.path()};
  test::FakeWorkspace workspace;
  MimeAppsUrlHandlers handlers{env, workspace};
  std::string config, list;
};

TEST_F(MimeAppsTest, NotInstalledFailsWithTheStatusAndWritesNothing) {
  workspace.installed.clear();
  EXPECT_EQ(handlers.setDefaultHandlerForURLScheme("wrenfoldlog", "com.apple.mail"), -10814);
  EXPECT_FALSE(exists(list));
  mkdir(config.c_str(), 0700);
  writeFile(list, "[Default Applications]\nx-scheme-handler/wrenfoldlog=other.desktop\n");
  EXPECT_EQ(handlers.setDefaultHandlerForURLScheme("wrenfoldlog", "com.apple.mail"), -10814);
  EXPECT_EQ(readFile(list), "[Default Applications]\nx-scheme-handler/wrenfoldlog=other.desktop\n");
}

TEST_F(MimeAppsTest, CreatesTheListAndItsFolder) {
  ASSERT_FALSE(exists(config));
  EXPECT_EQ(handlers.setDefaultHandlerForURLScheme("wrenfoldlog", "com.apple.mail"), 0);
  EXPECT_EQ(readFile(list),
            "[Default Applications]\nx-scheme-handler/wrenfoldlog=com.apple.mail.desktop\n");
}

TEST_F(MimeAppsTest, KeepsEverythingElse) {
  mkdir(config.c_str(), 0700);
  const std::string before =
      "# keep me\n[Added Associations]\ntext/html=firefox.desktop;\n\n"
      "[Default Applications]\ntext/html=firefox.desktop\nX-Unknown-Key=whatever\n";
  writeFile(list, before);
  EXPECT_EQ(handlers.setDefaultHandlerForURLScheme("wfkw", "com.apple.mail"), 0);
  EXPECT_EQ(readFile(list), before + "x-scheme-handler/wfkw=com.apple.mail.desktop\n");
}

TEST_F(MimeAppsTest, KeepsTheFileMode) {
  mkdir(config.c_str(), 0700);
  writeFile(list, "[Default Applications]\n");
  chmod(list.c_str(), 0600);
  EXPECT_EQ(handlers.setDefaultHandlerForURLScheme("wrenfoldlog", "com.apple.mail"), 0);
  struct stat st;
  ASSERT_EQ(stat(list.c_str(), &st), 0);
  EXPECT_EQ(st.st_mode & 0777, 0600u);
}

TEST_F(MimeAppsTest, UnchangedListIsNotRewritten) {
  mkdir(config.c_str(), 0700);
  writeFile(list, "[Default Applications]\nx-scheme-handler/wrenfoldlog=com.apple.mail.desktop\n");
  struct stat before, after;
  ASSERT_EQ(stat(list.c_str(), &before), 0);
  EXPECT_EQ(handlers.setDefaultHandlerForURLScheme("wrenfoldlog", "com.apple.mail"), 0);
  ASSERT_EQ(stat(list.c_str(), &after), 0);
  EXPECT_EQ(before.st_ino, after.st_ino);
}

TEST_F(MimeAppsTest, ReplacedAtomicallyWithNoTemporaryFilesLeft) {
  mkdir(config.c_str(), 0700);
  writeFile(list, "[Default Applications]\n");
  struct stat before, after;
  ASSERT_EQ(stat(list.c_str(), &before), 0);
  EXPECT_EQ(handlers.setDefaultHandlerForURLScheme("wrenfoldlog", "com.apple.mail"), 0);
  ASSERT_EQ(stat(list.c_str(), &after), 0);
  EXPECT_NE(before.st_ino, after.st_ino);  // a new file renamed into place
  int files = 0;
  DIR* d = opendir(config.c_str());
  ASSERT_NE(d, nullptr);
  while (dirent* e = readdir(d))
    if (e->d_name[0] != '.') ++files;
  closedir(d);
  EXPECT_EQ(files, 1);
}

TEST_F(MimeAppsTest, LinkedListStaysALink) {
  mkdir(config.c_str(), 0700);
  std::string real = home.path() + "/dotfiles-mimeapps.list";
  writeFile(real, "# dotfiles\n");
  ASSERT_EQ(symlink(real.c_str(), list.c_str()), 0);
  EXPECT_EQ(handlers.setDefaultHandlerForURLScheme("wrenfoldlog", "com.apple.mail"), 0);
  struct stat st;
  ASSERT_EQ(lstat(list.c_str(), &st), 0);
  EXPECT_TRUE(S_ISLNK(st.st_mode));
  EXPECT_EQ(readFile(real),
            "# dotfiles\n\n[Default Applications]\n"
            "x-scheme-handler/wrenfoldlog=com.apple.mail.desktop\n");
}

TEST_F(MimeAppsTest, DanglingLinkIsLeftAlone) {
  mkdir(config.c_str(), 0700);
  ASSERT_EQ(symlink("/nonexistent/mimeapps.list", list.c_str()), 0);
  EXPECT_EQ(handlers.setDefaultHandlerForURLScheme("wrenfoldlog", "com.apple.mail"), kLSUnknownErr);
  struct stat st;
  ASSERT_EQ(lstat(list.c_str(), &st), 0);
  EXPECT_TRUE(S_ISLNK(st.st_mode));
}

TEST_F(MimeAppsTest, FolderInThePlaceOfTheListFails) {
  mkdir(config.c_str(), 0700);
  mkdir(list.c_str(), 0700);
  EXPECT_EQ(handlers.setDefaultHandlerForURLScheme("wrenfoldlog", "com.apple.mail"), kLSUnknownErr);
}

TEST_F(MimeAppsTest, UnwritableFolderFailsAndKeepsTheList) {
  if (geteuid() == 0) GTEST_SKIP() << "root writes into read-only folders";
  mkdir(config.c_str(), 0700);
  writeFile(list, "[Default Applications]\n");
  chmod(config.c_str(), 0500);
  EXPECT_EQ(handlers.setDefaultHandlerForURLScheme("wrenfoldlog", "com.apple.mail"), kLSUnknownErr);
  chmod(config.c_str(), 0700);
  EXPECT_EQ(readFile(list), "[Default Applications]\n");
}

TEST_F(MimeAppsTest, SchemeThatCannotBeAKeyIsRefused) {
  for (const char* scheme : {"", "wrenfold\nlog", "a=b", "[x]", "1abc", "a b"})
    EXPECT_EQ(handlers.setDefaultHandlerForURLScheme(scheme, "com.apple.mail"), kLSUnknownErr)
        << scheme;
  EXPECT_FALSE(exists(list));
}

}  // namespace
}  // namespace wf::platform
