// A push that cannot finish (a full disk, the helper killed between two
// system calls) keeps the shared copy of the list whole: the new copy is
// written beside it and renamed over it, and what a killed helper left
// behind is cleared at its next launch.
#include <signal.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <memory>

#include "StoreFixture.h"
#include "SystemFaults.h"

namespace fs = std::filesystem;

namespace wf::faults {
namespace {

using test::exists;
using test::readFile;
using test::writeFile;

// The process `pid` is being traced.
bool traced(pid_t pid) {
  std::string status = readFile("/proc/" + std::to_string(pid) + "/status");
  auto at = status.find("TracerPid:");
  return at != std::string::npos && std::strtol(status.c_str() + at + 10, nullptr, 10) != 0;
}

// strace attached to a running process, killing it with SIGKILL at its next
// call of one of `calls`; detached and ended when the object goes.
class KillAtCall {
 public:
  KillAtCall(pid_t pid, const std::string& calls) {
    std::string p = std::to_string(pid);
    std::vector<std::string> argv{"strace",
                                  "-qq",
                                  "-f",
                                  "-o",
                                  "/dev/null",
                                  "-p",
                                  p,
                                  "-e",
                                  "trace=" + calls,
                                  "-e",
                                  "inject=" + calls + ":signal=SIGKILL"};
    std::vector<char*> args;
    for (auto& a : argv) args.push_back(a.data());
    args.push_back(nullptr);
    GError* error = nullptr;
    started_ = g_spawn_async(nullptr, args.data(), nullptr,
                             GSpawnFlags(G_SPAWN_SEARCH_PATH | G_SPAWN_DO_NOT_REAP_CHILD |
                                         G_SPAWN_STDOUT_TO_DEV_NULL | G_SPAWN_STDERR_TO_DEV_NULL),
                             nullptr, nullptr, &strace_, &error);
    if (error) {
      reason_ = error->message;
      g_error_free(error);
    }
  }
  ~KillAtCall() {
    if (started_) {
      kill(strace_, SIGKILL);
      waitpid(strace_, nullptr, 0);
    }
  }
  bool started() const { return started_; }
  const std::string& reason() const { return reason_; }

 private:
  bool started_ = false;
  GPid strace_ = 0;
  std::string reason_;
};

class PushFaults : public StoreFixture {
 protected:
  std::string shared() const { return sync() + "/WrenfoldKeywords.plist"; }
  std::string local() const { return ardel() + "/WrenfoldKeywords.plist"; }
};

TEST_F(PushFaults, FullDiskKeepsTheSharedCopyAndTheNextSaveStillPushes) {
  auto disk = std::make_unique<TmpfsMount>(sync(), 256 * 1024);
  if (!disk->mounted()) GTEST_SKIP() << "needs root for a small tmpfs: " << disk->reason();
  writeFile(shared(), list("shared keywords"));
  writeFile(local(), list(std::string(512 * 1024, 'k')));  // cannot fit
  std::string filler = disk->fill();
  launch();
  s.emit("WrenfoldKeywordListWasSaved");
  ASSERT_TRUE(s.waitForLine("error ", 10)) << s.stderrText();
  ASSERT_TRUE(s.roundTrip());
  ASSERT_TRUE(s.waitForLine("couldn\u2019t be copied", 10)) << s.stderrText();
  EXPECT_EQ(readFile(shared()), list("shared keywords"));
  EXPECT_EQ(readFile(local()), list(std::string(512 * 1024, 'k')));
  EXPECT_TRUE(temporariesBelow(sync()).empty()) << temporariesBelow(sync()).front();

  // Once it fits, the next save replaces the copy: syncing goes on.
  fs::remove(filler);
  writeFile(local(), list("new keywords"));
  s.emit("WrenfoldKeywordListWasSaved");
  ASSERT_TRUE(s.waitForLine("copy success", 10)) << s.stderrText();
  EXPECT_EQ(readFile(shared()), list("new keywords"));
  EXPECT_EQ(s.countInStderr("Problem removing old file"), 0) << s.stderrText();
}

TEST_F(PushFaults, KilledBeforeTheCopyIsInPlaceKeepsTheSharedCopyAndTheNextLaunchClearsUp) {
  writeFile(shared(), list("shared keywords"));
  writeFile(local(), list("new keywords"));
  launch();
  KillAtCall killer(s.helperPid(), "rename,renameat,renameat2");
  if (!killer.started()) GTEST_SKIP() << "strace cannot be started: " << killer.reason();
  if (!s.waitForFiles([&] { return traced(s.helperPid()); }, 10))
    GTEST_SKIP() << "strace cannot attach to the helper (ptrace not allowed here)";
  s.emit("WrenfoldKeywordListWasSaved");
  // Killed by the injected signal (GLib may report a traced child's status oddly).
  ASSERT_TRUE(s.waitForExit(20).has_value()) << s.stderrText();
  EXPECT_EQ(readFile(shared()), list("shared keywords"));

  s.startHelper({"-WFlogSettingsSync", "YES"});
  ASSERT_TRUE(s.waitForLaunch()) << s.stderrText();
  EXPECT_TRUE(s.waitForFiles([&] { return temporariesBelow(sync()).empty(); }, 10))
      << temporariesBelow(sync()).front();
  s.emit("WrenfoldKeywordListWasSaved");
  ASSERT_TRUE(s.waitForLine("copy success", 10)) << s.stderrText();
  EXPECT_EQ(readFile(shared()), list("new keywords"));
}

TEST_F(PushFaults, AMissingLocalListStillRemovesTheSharedCopy) {
  writeFile(shared(), list("shared keywords"));
  fs::remove(local());
  launch();
  s.emit("WrenfoldKeywordListWasSaved");
  ASSERT_TRUE(s.waitForLine("error ", 10)) << s.stderrText();
  ASSERT_TRUE(s.roundTrip());
  EXPECT_FALSE(exists(shared()));
}

TEST_F(PushFaults, AListNotYetSharedIsNeverPushed) {
  fs::remove(shared());
  launch();
  s.emit("WrenfoldKeywordListWasSaved");
  ASSERT_TRUE(s.waitForLine("Problem removing old file: ", 10)) << s.stderrText();
  ASSERT_TRUE(s.roundTrip());
  EXPECT_FALSE(exists(shared()));
}

}  // namespace
}  // namespace wf::faults
