// What other programs, or bad luck, can leave at the names the helper reads,
// writes and removes: FIFOs and devices that would block or never end,
// folders and links where files belong, property lists that describe more
// than they hold. The helper never blocks, never fills memory and never
// deletes or writes outside the file it means.
#include <fcntl.h>
#include <signal.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <cstdio>
#include <filesystem>
#include <thread>

#include "ProcessFigures.h"
#include "StoreFixture.h"
#include "support/HostilePlist.h"
#include "support/RunTool.h"

namespace fs = std::filesystem;

namespace wf::faults {
namespace {

using test::exists;
using test::readFile;
using test::writeFile;

void makeFifo(const std::string& path) {
  fs::remove(path);
  ASSERT_EQ(mkfifo(path.c_str(), 0600), 0) << path;
}

bool isFifo(const std::string& path) {
  struct stat st;
  return lstat(path.c_str(), &st) == 0 && S_ISFIFO(st.st_mode);
}

class HostileFiles : public StoreFixture {
 protected:
  std::string finderTagFile() const {
    return s.library() + "/SyncedPreferences/com.apple.finder.plist";
  }

  // The helper answers and ends on SIGTERM at once: its one thread is free.
  void expectResponsiveAndEndsOnTerm() {
    EXPECT_TRUE(s.roundTrip(10)) << s.stderrText();
    s.signalHelper(SIGTERM);
    EXPECT_EQ(s.waitForExit(10), std::optional<int>(0)) << s.stderrText();
  }
  // Launch with the interval runs (the Finder's tag file is read in them).
  void launchWithIntervalRuns() {
    s.writeHelperDefaults({});
    launch();
  }
};

// ---- FIFOs and devices never block the one thread

TEST_F(HostileFiles, AFifoAtAListNameInTheSyncFolderNeitherBlocksNorStopsTheHelper) {
  makeFifo(sync() + "/WrenfoldKeywords.plist");
  launch();
  s.emit("WrenfoldKeywordListWasSaved");
  expectResponsiveAndEndsOnTerm();
}

TEST_F(HostileFiles, AFifoAtThePlugInsPreferencesLetsLaunchFinish) {
  makeFifo(s.preferencesFile());
  s.startHelper();
  EXPECT_TRUE(s.waitForLaunch(20)) << s.stderrText();
  expectResponsiveAndEndsOnTerm();
}

TEST_F(HostileFiles, AFifoAtTheHelpersOwnDefaultsLetsLaunchFinish) {
  makeFifo(s.helperDefaultsFile());
  s.startHelper();
  EXPECT_TRUE(s.waitForLaunch(20)) << s.stderrText();
  expectResponsiveAndEndsOnTerm();
}

TEST_F(HostileFiles, AFifoAtTheFinderTagFileLetsTheIntervalRunEnd) {
  makeFolders(s.library() + "/SyncedPreferences");
  makeFifo(finderTagFile());
  launchWithIntervalRuns();
  expectResponsiveAndEndsOnTerm();
}

TEST_F(HostileFiles, ALinkToAnEndlessDeviceAsTheFinderTagFileCostsNoMemory) {
  makeFolders(s.library() + "/SyncedPreferences");
  fs::create_symlink("/dev/zero", finderTagFile());
  launchWithIntervalRuns();
  ASSERT_TRUE(s.roundTrip(10)) << s.stderrText();
  long rss = residentKiB(s.helperPid());
  EXPECT_GT(rss, 0);
  // The sanitizer's quarantine keeps every freed read buffer resident.
  if (kSanitizerAllocator)
    std::printf("memory not judged: the sanitizer's allocator keeps freed memory\n");
  else
    EXPECT_LT(rss, 64 * 1024) << "resident KiB after reading /dev/zero as a tag file";
  expectResponsiveAndEndsOnTerm();
}

TEST_F(HostileFiles, AFifoAtAStubNameNeitherBlocksTheImportNorBecomesAFile) {
  makeFolders(stubFolder());
  makeFifo(stubFolder() + "/20");
  std::string path = message(mailbox(), "20.emlx");
  launch();
  tag(path);
  ASSERT_TRUE(s.waitForFiles([&] { return imported(path); }, 30)) << s.stderrText();
  EXPECT_TRUE(isFifo(stubFolder() + "/20"));
  expectResponsiveAndEndsOnTerm();
}

TEST_F(HostileFiles, PlutilLintOnAFifoOrADeviceReportsItAndEnds) {
  std::string fifo = s.home() + "/fifo.plist";
  makeFifo(fifo);
  for (const std::string& path : {fifo, std::string("/dev/null"), std::string("/dev/zero")}) {
    test::ToolRun run = test::runTool(WF_PLUTIL_BINARY, {"-lint", path}, {}, "", 10);
    EXPECT_NE(run.status, 124) << path << ": the time limit ended it";
    EXPECT_EQ(run.status, 1) << path << ": " << run.out << run.err;
    EXPECT_NE((run.out + run.err).find(path), std::string::npos) << run.out << run.err;
  }
}

// ---- Removal stays with the file it means

TEST_F(HostileFiles, AFolderAtAListNameInTheSyncFolderIsNeverDeleted) {
  std::string folder = sync() + "/WrenfoldKeywords.plist";
  fs::remove(folder);
  makeFolders(folder + "/inner");
  writeFile(folder + "/inner/keep", "keep me");
  launch();
  s.emit("WrenfoldKeywordListWasSaved");
  ASSERT_TRUE(s.waitForLine("Problem removing old file: ", 10)) << s.stderrText();
  ASSERT_TRUE(s.roundTrip());
  EXPECT_EQ(readFile(folder + "/inner/keep"), "keep me");
  EXPECT_TRUE(s.helperRunning());
}

// A racer keeps swapping the list's name between a folder and a link to a
// folder outside the sync folder while the plug-in saves 3,000 times.
TEST_F(HostileFiles, AFolderSwappedForALinkDuringPushesNeverCostsAFileOutside) {
  std::string outside = s.home() + "/outside";
  makeFolders(outside);
  for (int i = 0; i < 2000; ++i) writeFile(outside + "/f" + std::to_string(i), "x");
  std::string name = sync() + "/WrenfoldKeywords.plist";
  std::string spare = sync() + "/spare";
  fs::remove(name);
  makeFolders(name);
  writeFile(name + "/inside", "inside");
  fs::create_symlink(outside, spare);
  launch();

  std::atomic<bool> stop{false};
  std::thread racer([&] {
    while (!stop) {
      if (renameat2(AT_FDCWD, name.c_str(), AT_FDCWD, spare.c_str(), RENAME_EXCHANGE) != 0) {
        // Whatever the helper removed comes back, so the race goes on.
        if (!exists(name)) mkdir(name.c_str(), 0755);
        if (!exists(spare)) symlink(outside.c_str(), spare.c_str());
      }
      // Paced, so that the sync folder's own event stream is not the flood.
      std::this_thread::sleep_for(std::chrono::microseconds(200));
    }
  });
  for (int i = 0; i < 3000; ++i) s.emit("WrenfoldKeywordListWasSaved");
  bool answered = s.roundTrip(120);
  stop = true;
  racer.join();
  ASSERT_TRUE(answered) << s.stderrText().substr(0, 2000);
  int left = 0;
  for (int i = 0; i < 2000; ++i) left += exists(outside + "/f" + std::to_string(i)) ? 1 : 0;
  EXPECT_EQ(left, 2000);
}

TEST_F(HostileFiles, AStubNameThatIsALinkIsNeverWrittenThrough) {
  std::string victim = s.home() + "/victim";
  writeFile(victim, "precious");
  makeFolders(stubFolder());
  fs::create_symlink(victim, stubFolder() + "/42");
  std::string path = message(mailbox(), "42.emlx");
  launch();
  tag(path);
  ASSERT_TRUE(s.waitForFiles([&] { return imported(path); }, 30)) << s.stderrText();
  ASSERT_TRUE(s.roundTrip());
  EXPECT_EQ(readFile(victim), "precious");
  EXPECT_TRUE(s.helperRunning());
}

// ---- Property lists that expand without bound

TEST_F(HostileFiles, AnExpandingTagListAttributeNeitherFreezesNorKillsTheHelper) {
  std::string path = message(mailbox(), "30.emlx");
  launch();
  setRawSpotlightAttribute(path, "kMDItemOMUserTags", wf::test::hostileExpansionPlist());
  setSpotlightAttribute(path, "kMDItemOMUserTagTime", Value(Date{now() - 1}));
  ASSERT_TRUE(s.waitForFiles([&] { return imported(path); }, 30)) << s.stderrText();
  EXPECT_TRUE(s.roundTrip(10)) << s.stderrText();
  if (kSanitizerAllocator)
    std::printf("memory not judged: the sanitizer's allocator keeps freed memory\n");
  else
    EXPECT_LT(residentKiB(s.helperPid()), 64 * 1024);
  EXPECT_TRUE(s.helperRunning());
}

TEST_F(HostileFiles, AnExpandingTrailerNeitherFreezesTheHelperNorStrandsTheMessage) {
  launch();
  std::string path = mailbox() + "/31.emlx";
  std::string body = "Subject: 31\n\nbody\n";
  writeMessage(
      path, std::to_string(body.size()) + "\n" + body + wf::test::hostileExpansionTrailerPlist());
  ASSERT_TRUE(s.waitForLine("emlx file changed: " + path, 30)) << s.stderrText();
  EXPECT_TRUE(s.roundTrip(10)) << s.stderrText();
  EXPECT_TRUE(s.helperRunning());
  Value stamp = spotlightAttribute(path, "kMDItemWrenfoldTimeStamp");
  EXPECT_FALSE(stamp.isDate() && stamp.asDate() == Date::distantFuture());
}

}  // namespace
}  // namespace wf::faults
