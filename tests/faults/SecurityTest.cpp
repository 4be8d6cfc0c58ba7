// Security properties of the helper's file handling, against the real code
// in a temporary home: nothing is deleted outside the folders the system
// names, symbolic links are not followed into other places, temporary files
// are made exclusively with the user's permissions, and no shell ever runs.
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <regex>

#include "FaultSupport.h"
#include "app/WFHelperAppDelegate.h"
#include "openmeta/OpenMeta.h"
#include "platform/foundation/FileManager.h"
#include "platform/linux/InotifyFileEventStream.h"
#include "platform/plist/PropertyList.h"
#include "support/Fakes.h"
#include "support/MainLoopPump.h"

namespace fs = std::filesystem;

namespace wf {
namespace {

using faults::filesBelow;
using test::exists;
using test::readFile;
using test::writeFile;

bool isLink(const std::string& path) {
  struct stat st;
  return lstat(path.c_str(), &st) == 0 && S_ISLNK(st.st_mode);
}

// ---- No shell -------------------------------------------------------------

TEST(NoShell, NoSourceFileRunsAShellOrACommandLine) {
  // Calls that hand a string to a shell, or split one like a shell would.
  const std::regex shellCall(
      R"((^|[^_A-Za-z0-9.>])(system|popen|execl|execlp|wordexp)\s*\(|g_spawn_command_line|g_shell_parse_argv|"/bin/sh"|"sh",\s*"-c")");
  std::vector<std::string> found;
  int files = 0;
  for (const auto& entry : fs::recursive_directory_iterator(std::string(WF_SOURCE_DIR) + "/src")) {
    std::string ext = entry.path().extension().string();
    if (ext != ".cpp" && ext != ".h") continue;
    ++files;
    std::ifstream in(entry.path());
    std::string line;
    for (int number = 1; std::getline(in, line); ++number) {
      std::string code = line.substr(0, line.find("//"));
      if (std::regex_search(code, shellCall))
        found.push_back(entry.path().string() + ":" + std::to_string(number) + ": " + line);
    }
  }
  EXPECT_GT(files, 20) << "the sources were not found";
  EXPECT_TRUE(found.empty()) << found.front();
}

// ---- Deletion stays in the named folders ----------------------------------

class SchemaRemoval : public ::testing::Test {
 protected:
  test::TempDir dir;
  std::string registerFolder() const {
    return dir.path() + "/Library/Application Support/OpenMeta/schemaregister";
  }
};

TEST_F(SchemaRemoval, APathOutsideTheRegisterIsLeftAlone) {
  writeFile(dir / "victim", "keep");
  OpenMeta::removeSchemaFile(dir / "victim");
  EXPECT_EQ(readFile(dir / "victim"), "keep");
}

TEST_F(SchemaRemoval, AFileInTheRegisterIsRemoved) {
  faults::makeFolders(registerFolder());
  writeFile(registerFolder() + "/App.openmetaschema", "x");
  OpenMeta::removeSchemaFile(registerFolder() + "/App.openmetaschema");
  EXPECT_FALSE(exists(registerFolder() + "/App.openmetaschema"));
  EXPECT_TRUE(exists(registerFolder()));
}

// The guard is on whole path components: a path that climbs out of the
// register with ".." is left alone.
TEST_F(SchemaRemoval, APathThatClimbsOutOfTheRegisterIsLeftAlone) {
  faults::makeFolders(registerFolder());
  writeFile(dir / "victim", "keep");
  OpenMeta::removeSchemaFile(registerFolder() + "/../../../../victim");
  EXPECT_TRUE(exists(dir / "victim"));
}

// A folder whose name merely begins like the register's is not the register.
TEST_F(SchemaRemoval, AFolderNamedLikeTheRegisterIsLeftAlone) {
  std::string sibling = registerFolder() + "-old";
  faults::makeFolders(sibling);
  writeFile(sibling + "/user-file", "keep");
  OpenMeta::removeSchemaFile(sibling + "/user-file");
  EXPECT_TRUE(exists(sibling + "/user-file"));
}

// ---- Stub names -------------------------------------------------------------

class StubNames : public ::testing::Test {
 protected:
  void SetUp() override {
    p.defaults.arguments["WFrecognizeOpenMetaTags"] = Value("YES");
    faults::makeFolders(store());
  }
  std::string store() const { return p.library() + "/Mail/V2/Mailbox.mbox/Messages"; }
  // A message another application tagged after the plug-in's stamp.
  void importTagged(const std::string& path) {
    writeFile(path, test::wrenfoldMessage("body", {}));
    Dictionary attributes{{"kMDItemWrenfoldTimeStamp", Value(Date{100.0})},
                          {"kMDItemOMUserTagTime", Value(Date{200.0})},
                          {"kMDItemOMUserTags", Value(Array{Value("tag")})}};
    d.importWrenfoldMetadataAtPath(path, Value(attributes));
  }
  test::FakePlatform p;
  WFHelperAppDelegate d{p.services()};
};

TEST_F(StubNames, MessageNamesThatSpellDotsWriteNothingOutsideTheStubFolder) {
  std::string ardel = p.library() + "/Mail/Ardel";
  faults::makeFolders(ardel + "/OpenMetaUpdates");
  writeFile(ardel + "/WrenfoldKeywords.plist", "local list");
  auto before = filesBelow(p.environment.home);
  for (const char* name : {"...emlx", "..emlx", ".emlx", "..\\.emlx", "a\nb.emlx"})
    importTagged(store() + "/" + name);
  auto after = filesBelow(p.environment.home);
  for (const auto& [path, bytes] : after) {
    if (before.count(path)) {
      EXPECT_EQ(bytes, before.at(path)) << path << " changed";
      continue;
    }
    bool inStubFolder = path.rfind(ardel + "/OpenMetaUpdates/", 0) == 0;
    bool message = path.rfind(store() + "/", 0) == 0;
    EXPECT_TRUE(inStubFolder || message) << "written outside the stub folder: " << path;
  }
  bool isDirectory = false;
  EXPECT_TRUE(
      FileManager::defaultManager().fileExistsAtPath(ardel + "/OpenMetaUpdates", &isDirectory));
  EXPECT_TRUE(isDirectory);
}

// ---- Symbolic links ---------------------------------------------------------

TEST(SymbolicLinks, ASyncPushReplacesALinkAndLeavesItsTargetAlone) {
  test::FakePlatform p;
  std::string sync = p.environment.home + "/sync";
  faults::makeFolders(sync);
  faults::makeFolders(p.environment.home + "/outside");
  faults::makeFolders(p.library() + "/Mail/Ardel");
  writeFile(p.environment.home + "/outside/victim", "victim bytes");
  writeFile(p.library() + "/Mail/Ardel/WrenfoldKeywords.plist", test::list("new list"));
  ASSERT_EQ(symlink((p.environment.home + "/outside/victim").c_str(),
                    (sync + "/WrenfoldKeywords.plist").c_str()),
            0);
  p.defaults.arguments = {{"WFsettingsSyncMethod", Value("2")}, {"WFsyncFolderPath", Value(sync)}};
  WFHelperAppDelegate d(p.services());
  EXPECT_TRUE(d.pushSyncFile("WrenfoldKeywords.plist"));
  EXPECT_EQ(readFile(p.environment.home + "/outside/victim"), "victim bytes");
  EXPECT_FALSE(isLink(sync + "/WrenfoldKeywords.plist"));
  EXPECT_EQ(readFile(sync + "/WrenfoldKeywords.plist"), test::list("new list"));
}

TEST(SymbolicLinks, AListFileWriteReplacesALinkAndLeavesItsTargetAlone) {
  test::FakePlatform p;
  std::string projects = p.library() + "/Mail/Ardel/ExternalProjects";
  faults::makeFolders(projects);
  faults::makeFolders(p.library() + "/SyncedPreferences");
  faults::makeFolders(p.environment.home + "/outside");
  writeFile(p.environment.home + "/outside/victim", "victim bytes");
  ASSERT_EQ(symlink((p.environment.home + "/outside/victim").c_str(),
                    (projects + "/FinderTags.plist").c_str()),
            0);
  Dictionary tag{{"n", Value("Red")}, {"l", Value(6)}};
  Dictionary finder{
      {"values",
       Value(Dictionary{
           {"FinderTagDict",
            Value(Dictionary{
                {"value", Value(Dictionary{{"FinderTags", Value(Array{Value(tag)})}})}})}})}};
  ASSERT_TRUE(plist::writeToFile(Value(finder),
                                 p.library() + "/SyncedPreferences/com.apple.finder.plist", true));
  WFHelperAppDelegate d(p.services());
  d._fetchFinderTags();
  EXPECT_EQ(readFile(p.environment.home + "/outside/victim"), "victim bytes");
  EXPECT_FALSE(isLink(projects + "/FinderTags.plist"));
  Value written = plist::arrayWithContentsOfFile(projects + "/FinderTags.plist");
  ASSERT_TRUE(written.isArray());
  EXPECT_EQ(written.asArray().size(), 1u);
}

TEST(SymbolicLinks, AMessageLinkDoesNotCarryAttributesToItsTarget) {
  test::FakePlatform p;
  std::string store = p.library() + "/Mail/V2/Box.mbox";
  std::string outside = p.environment.home + "/outside";
  faults::makeFolders(store);
  faults::makeFolders(outside);
  std::string bytes = test::wrenfoldMessage("Subject: x\n\nbody\n",
                                            {{"wrenfoldKeyWords", Value(Array{Value("secret")})}});
  faults::writeMessage(outside + "/victim.emlx", bytes);
  ASSERT_EQ(symlink((outside + "/victim.emlx").c_str(), (store + "/1.emlx").c_str()), 0);
  WFHelperAppDelegate d(p.services());
  d.delayedImport({store + "/1.emlx"});
  EXPECT_EQ(readFile(outside + "/victim.emlx"), bytes);
  EXPECT_FALSE(faults::hasSpotlightAttribute(outside + "/victim.emlx", "kMDItemKeywords"));
  EXPECT_EQ(faults::spotlightAttribute(outside + "/victim.emlx", "kMDItemWrenfoldTimeStamp"),
            Value(Date{100.0}));
}

TEST(SymbolicLinks, TheMessageStoreWatcherDoesNotEnterALinkedFolder) {
  test::TempDir dir;
  std::string store = dir / "V2";
  faults::makeFolders(store + "/Box.mbox");
  faults::makeFolders(dir / "outside");
  ASSERT_EQ(symlink((dir / "outside").c_str(), (store + "/Linked.mbox").c_str()), 0);

  test::FakeLog log;
  platform::InotifyFileEventStreamFactory factory(log);
  std::vector<std::string> seen;
  platform::FileEventStreamParams params;
  params.paths = {store};
  params.latency = 0.05;
  auto stream = factory.create(params, [&](const std::vector<std::string>& paths) {
    seen.insert(seen.end(), paths.begin(), paths.end());
  });
  ASSERT_TRUE(stream && stream->start());
  writeFile(dir / "outside/1.emlx", "through the link");
  writeFile(store + "/Box.mbox/2.emlx", "marker");
  auto sawMarker = [&] {
    return std::find(seen.begin(), seen.end(), store + "/Box.mbox/2.emlx") != seen.end();
  };
  ASSERT_TRUE(test::runUntil(sawMarker, 5));
  for (const auto& path : seen) EXPECT_EQ(path.find("1.emlx"), std::string::npos) << path;
}

// ---- Temporary files ----------------------------------------------------------

class PrivateUmask : public ::testing::Test {
 protected:
  void SetUp() override { old_ = umask(077); }
  void TearDown() override { umask(old_); }
  mode_t old_ = 0;
  test::TempDir dir;
};

TEST_F(PrivateUmask, AnAtomicWriteMakesItsFileWithTheUsersPermissions) {
  ASSERT_TRUE(plist::writeToFile(Value(Array{Value("a")}), dir / "list.plist", true));
  struct stat st;
  ASSERT_EQ(stat((dir / "list.plist").c_str(), &st), 0);
  EXPECT_EQ(st.st_mode & 0777, 0600u);
  EXPECT_EQ(st.st_uid, geteuid());
  EXPECT_TRUE(faults::temporariesBelow(dir.path()).empty());
}

TEST_F(PrivateUmask, AnAtomicWriteReplacesALinkAndLeavesItsTargetAlone) {
  writeFile(dir / "victim", "victim bytes");
  ASSERT_EQ(symlink((dir / "victim").c_str(), (dir / "list.plist").c_str()), 0);
  ASSERT_TRUE(plist::writeToFile(Value(Array{Value("a")}), dir / "list.plist", true));
  EXPECT_EQ(readFile(dir / "victim"), "victim bytes");
  EXPECT_FALSE(isLink(dir / "list.plist"));
}

TEST_F(PrivateUmask, ACopyIsNoMoreOpenThanItsSource) {
  writeFile(dir / "source", "private list");
  ASSERT_EQ(chmod((dir / "source").c_str(), 0600), 0);
  ASSERT_TRUE(FileManager::defaultManager().copyItemAtPath(dir / "source", dir / "copy"));
  struct stat st;
  ASSERT_EQ(stat((dir / "copy").c_str(), &st), 0);
  EXPECT_EQ(st.st_mode & 0077, 0u);
  EXPECT_TRUE(faults::temporariesBelow(dir.path()).empty());
}

}  // namespace
}  // namespace wf
