// Autostart entries in a real temporary $XDG_CONFIG_HOME/autostart.
#include <gtest/gtest.h>
#include <stdlib.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdlib>
#include <string>

#include "platform/linux/XdgAutostartLoginItems.h"
#include "support/Fakes.h"

namespace wf::platform {
namespace {

using test::exists;
using test::readFile;
using test::writeFile;

// PATH for one test, restored afterwards.
class ScopedPath {
 public:
  explicit ScopedPath(const std::string& value) {
    if (const char* old = getenv("PATH")) old_ = old;
    setenv("PATH", value.c_str(), 1);
  }
  ~ScopedPath() { setenv("PATH", old_.c_str(), 1); }

 private:
  std::string old_;
};

class XdgAutostartTest : public ::testing::Test {
 protected:
  void SetUp() override {
    folder = env.xdgConfigHome() + "/autostart";
    bin = home.path() + "/bin";
    mkdir((home.path() + "/.config").c_str(), 0700);
    mkdir(folder.c_str(), 0700);
    mkdir(bin.c_str(), 0755);
  }
  std::string program(const std::string& name) {
    std::string path = bin + "/" + name;
    writeFile(path, "#!/bin/sh\n");
    chmod(path.c_str(), 0755);
    return path;
  }
  void entry(const std::string& file, const std::string& body) {
    writeFile(folder + "/" + file, body);
  }
  static std::string desktop(const std::string& exec, const std::string& extra = "") {
    return "[Desktop Entry]\nType=Application\nName=Thing\nExec=" + exec + "\n" + extra;
  }

  test::TempDir home;
  test::FakeEnvironment env{home.path()};
  XdgAutostartLoginItems items{env};
  std::string folder, bin;
};

TEST_F(XdgAutostartTest, MissingFolderIsAnEmptyList) {
  rmdir(folder.c_str());
  EXPECT_TRUE(items.snapshot().empty());
}

TEST_F(XdgAutostartTest, EntriesInAscendingFileNameOrder) {
  std::string p = program("thing");
  entry("zeta.desktop", desktop(p));
  entry("Alpha.desktop", desktop(p));
  entry("alpha.desktop", desktop(p));
  entry("beta.desktop", desktop(p));
  entry("notes.txt", desktop(p));
  entry("beta.desktop~", desktop(p));
  std::vector<std::string> tokens;
  for (const LoginItem& i : items.snapshot()) tokens.push_back(i.token);
  EXPECT_EQ(tokens, (std::vector<std::string>{"Alpha.desktop", "alpha.desktop", "beta.desktop",
                                              "zeta.desktop"}));
}

TEST_F(XdgAutostartTest, NameProgramAndIdentifier) {
  std::string p = program("thing");
  entry("a.desktop", desktop(p + " --quiet %U", "X-Bundle-Identifier=org.example.Thing\n"));
  entry("b.desktop", "[Desktop Entry]\nExec=" + p + "\n");
  auto list = items.snapshot();
  ASSERT_EQ(list.size(), 2u);
  EXPECT_EQ(list[0].displayName, "Thing");
  EXPECT_EQ(list[0].resolvedPath, p);
  EXPECT_EQ(list[0].bundleIdentifier, "org.example.Thing");
  EXPECT_EQ(list[1].displayName, std::nullopt);
  EXPECT_EQ(list[1].bundleIdentifier, std::nullopt);
  EXPECT_EQ(list[1].resolvedPath, p);
}

TEST_F(XdgAutostartTest, MissingProgramDoesNotResolve) {
  entry("a.desktop", desktop(bin + "/nowhere"));
  entry("b.desktop", desktop("no-such-program-anywhere-xyz"));
  for (const LoginItem& i : items.snapshot()) EXPECT_EQ(i.resolvedPath, std::nullopt) << i.token;
}

TEST_F(XdgAutostartTest, BareProgramIsLookedUpInPath) {
  std::string p = program("thing");
  ScopedPath path("relative/dir::" + bin + ":/usr/bin");
  entry("a.desktop", desktop("thing %u"));
  auto list = items.snapshot();
  ASSERT_EQ(list.size(), 1u);
  EXPECT_EQ(list[0].resolvedPath, p);
}

TEST_F(XdgAutostartTest, NonExecutableFileInPathIsNotTheProgram) {
  writeFile(bin + "/plain", "data");
  chmod((bin + "/plain").c_str(), 0644);
  ScopedPath path(bin);
  entry("a.desktop", desktop("plain"));
  EXPECT_EQ(items.snapshot().at(0).resolvedPath, std::nullopt);
}

TEST_F(XdgAutostartTest, RelativeProgramDoesNotResolve) {
  program("thing");
  entry("a.desktop", desktop("bin/thing"));
  EXPECT_EQ(items.snapshot().at(0).resolvedPath, std::nullopt);
}

TEST_F(XdgAutostartTest, OddQuotingResolves) {
  mkdir((bin + "/My Apps").c_str(), 0755);
  std::string spaced = program("My Apps/the \"helper\" $1");
  // In the file: quotes around the argument, \" \$ for the quoting, and
  // each backslash doubled by the string escapes.
  entry("a.desktop", desktop("\"" + bin + "/My Apps/the \\\\\"helper\\\\\" \\\\$1\" --x"));
  std::string percent = program("100%");
  entry("b.desktop", desktop(bin + "/100%% %F"));
  entry("c.desktop", desktop("\"" + bin + "/My\\sApps"));  // unterminated quote
  auto list = items.snapshot();
  ASSERT_EQ(list.size(), 3u);
  EXPECT_EQ(list[0].resolvedPath, spaced);
  EXPECT_EQ(list[1].resolvedPath, percent);
  EXPECT_EQ(list[2].resolvedPath, std::nullopt);
}

TEST_F(XdgAutostartTest, LinksResolveToTheRealProgram) {
  std::string p = program("real");
  ASSERT_EQ(symlink(p.c_str(), (bin + "/link").c_str()), 0);
  entry("a.desktop", desktop(bin + "/./link"));
  EXPECT_EQ(items.snapshot().at(0).resolvedPath, p);
}

TEST_F(XdgAutostartTest, MalformedEntriesDoNotResolveAndStay) {
  std::string p = program("thing");
  const std::string garbage("\x00\xff\xfe[[[=\n\x01", 9);
  entry("a.desktop", garbage);
  entry("b.desktop", "Exec=" + p + "\n");                           // no group
  entry("c.desktop", "[Desktop Entry]\nExec=\"" + p + "\n");        // broken quote
  entry("d.desktop", "[Desktop Entry]\nName=Thing\n");              // no Exec
  entry("e.desktop", "[Desktop Entry]\nExec=" + p + "\\q\n");       // bad escape
  mkdir((folder + "/f.desktop").c_str(), 0755);                     // a folder
  symlink("/nonexistent/target", (folder + "/g.desktop").c_str());  // dangling link
  auto list = items.snapshot();
  ASSERT_EQ(list.size(), 7u);
  for (const LoginItem& i : list) EXPECT_EQ(i.resolvedPath, std::nullopt) << i.token;
  EXPECT_EQ(readFile(folder + "/a.desktop"), garbage);
}

TEST_F(XdgAutostartTest, InsertWritesTheEntry) {
  rmdir(folder.c_str());
  ASSERT_TRUE(
      items.insertLast("Wrenfold Helper", "/opt/wf/wrenfold-helper", "org.ardel.WrenfoldHelper"));
  EXPECT_EQ(readFile(folder + "/org.ardel.WrenfoldHelper.desktop"),
            "[Desktop Entry]\n"
            "Type=Application\n"
            "Name=Wrenfold Helper\n"
            "Exec=/opt/wf/wrenfold-helper\n"
            "X-Bundle-Identifier=org.ardel.WrenfoldHelper\n");
}

TEST_F(XdgAutostartTest, InsertedEntryIsFoundAgainWithAnAwkwardPath) {
  mkdir((bin + "/My \"Apps\"").c_str(), 0755);
  std::string p = program("My \"Apps\"/wrenfold $helper\\100%");
  ASSERT_TRUE(items.insertLast("Wrenfold Helper", p, "org.ardel.WrenfoldHelper"));
  auto list = items.snapshot();
  ASSERT_EQ(list.size(), 1u);
  EXPECT_EQ(list[0].token, "org.ardel.WrenfoldHelper.desktop");
  EXPECT_EQ(list[0].displayName, "Wrenfold Helper");
  EXPECT_EQ(list[0].resolvedPath, p);
  EXPECT_EQ(list[0].bundleIdentifier, "org.ardel.WrenfoldHelper");
}

TEST_F(XdgAutostartTest, InsertLeavesNoTemporaryFiles) {
  ASSERT_TRUE(items.insertLast("Wrenfold Helper", "/opt/wf/h", "org.ardel.WrenfoldHelper"));
  std::string listing;
  for (const LoginItem& i : items.snapshot()) listing += i.token + ";";
  EXPECT_EQ(listing, "org.ardel.WrenfoldHelper.desktop;");
  // Any file at all, not only entries.
  int files = static_cast<int>(test::folderEntries(folder).size());
  EXPECT_EQ(files, 1);
}

TEST_F(XdgAutostartTest, InsertNeverOverwritesAnotherEntryOfTheSameName) {
  const std::string theirs = "[Desktop Entry]\nName=Theirs\nExec=/gone/program\n";
  entry("org.ardel.WrenfoldHelper.desktop", theirs);
  entry("org.ardel.WrenfoldHelper-2.desktop", theirs);
  ASSERT_TRUE(items.insertLast("Wrenfold Helper", "/opt/wf/h", "org.ardel.WrenfoldHelper"));
  EXPECT_EQ(readFile(folder + "/org.ardel.WrenfoldHelper.desktop"), theirs);
  EXPECT_EQ(readFile(folder + "/org.ardel.WrenfoldHelper-2.desktop"), theirs);
  EXPECT_NE(readFile(folder + "/org.ardel.WrenfoldHelper-3.desktop").find("Exec=/opt/wf/h\n"),
            std::string::npos);
}

TEST_F(XdgAutostartTest, InsertRefusesAPathThatIsNotUtf8) {
  EXPECT_FALSE(items.insertLast("Wrenfold Helper", "/opt/\xff/h", "org.ardel.WrenfoldHelper"));
  EXPECT_FALSE(exists(folder + "/org.ardel.WrenfoldHelper.desktop"));
}

TEST_F(XdgAutostartTest, WrittenEntryIsValid) {
  if (system("command -v desktop-file-validate >/dev/null 2>&1") != 0)
    GTEST_SKIP() << "desktop-file-validate (desktop-file-utils) is not installed";
  mkdir((bin + "/odd dir").c_str(), 0755);
  std::string p = program("odd dir/wrenfold$helper");
  ASSERT_TRUE(items.insertLast("Wrenfold Helper", p, "org.ardel.WrenfoldHelper"));
  std::string cmd = "desktop-file-validate '" + folder + "/org.ardel.WrenfoldHelper.desktop' 2>&1";
  std::string output;
  FILE* pipe = popen(cmd.c_str(), "r");
  ASSERT_NE(pipe, nullptr);
  char buf[512];
  while (size_t n = fread(buf, 1, sizeof buf, pipe)) output.append(buf, n);
  int status = pclose(pipe);
  EXPECT_EQ(status, 0) << output;
  EXPECT_EQ(output, "");
}

TEST_F(XdgAutostartTest, RemoveDeletesTheEntryOnly) {
  std::string p = program("thing");
  entry("a.desktop", desktop(p));
  entry("b.desktop", desktop(p));
  auto list = items.snapshot();
  ASSERT_TRUE(items.remove(list[0]));
  EXPECT_FALSE(exists(folder + "/a.desktop"));
  EXPECT_TRUE(exists(folder + "/b.desktop"));
  EXPECT_TRUE(exists(p));
  EXPECT_FALSE(items.remove(list[0]));  // already gone
}

TEST_F(XdgAutostartTest, RemovingALinkedEntryKeepsWhatItPointsTo) {
  std::string p = program("thing");
  std::string kept = home.path() + "/dotfiles-thing.desktop";
  writeFile(kept, desktop(p));
  ASSERT_EQ(symlink(kept.c_str(), (folder + "/a.desktop").c_str()), 0);
  auto list = items.snapshot();
  ASSERT_EQ(list.size(), 1u);
  EXPECT_EQ(list[0].resolvedPath, p);
  ASSERT_TRUE(items.remove(list[0]));
  EXPECT_FALSE(exists(folder + "/a.desktop"));
  EXPECT_EQ(readFile(kept), desktop(p));
}

TEST_F(XdgAutostartTest, RemoveRefusesTokensOutsideTheFolder) {
  writeFile(home.path() + "/victim.desktop", "x");
  EXPECT_FALSE(items.remove(LoginItem{"../victim.desktop", {}, {}, {}}));
  EXPECT_TRUE(exists(home.path() + "/victim.desktop"));
}

}  // namespace
}  // namespace wf::platform
