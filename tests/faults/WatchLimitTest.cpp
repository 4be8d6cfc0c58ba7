// The per-user inotify watch limit below the Mail store's folder count. The
// limit is lowered in a user namespace of this test's own, so that nothing
// else on the machine feels it; the helper and its bus live in it.
#include <fcntl.h>
#include <sched.h>
#include <unistd.h>

#include <cstring>
#include <filesystem>
#include <fstream>

#include "StoreFixture.h"
#include "SystemFaults.h"

namespace wf::faults {
namespace {

bool writeText(const std::string& file, const std::string& text) {
  int fd = open(file.c_str(), O_WRONLY | O_CLOEXEC);
  if (fd < 0) return false;
  bool ok = write(fd, text.data(), text.size()) == static_cast<ssize_t>(text.size());
  close(fd);
  return ok;
}

int threadCount() {
  int n = 0;
  for ([[maybe_unused]] const auto& e : std::filesystem::directory_iterator("/proc/self/task")) ++n;
  return n;
}

// Enters a user namespace of our own (the same ids inside as outside), in
// which the inotify limits can be set. Must run before any thread exists.
bool enterOwnUserNamespace(std::string* reason) {
  if (threadCount() != 1) {
    *reason = "the test process has threads already; run the test on its own (ctest does)";
    return false;
  }
  uid_t uid = geteuid();
  gid_t gid = getegid();
  if (unshare(CLONE_NEWUSER) != 0) {
    *reason = std::string("unshare(CLONE_NEWUSER): ") + std::strerror(errno);
    return false;
  }
  if (!writeText("/proc/self/setgroups", "deny") ||
      !writeText("/proc/self/uid_map", std::to_string(uid) + " " + std::to_string(uid) + " 1") ||
      !writeText("/proc/self/gid_map", std::to_string(gid) + " " + std::to_string(gid) + " 1")) {
    *reason = "cannot map the ids in the new user namespace";
    return false;
  }
  return true;
}

TEST(WatchLimit, AStoreWithMoreFoldersThanTheLimitIsReportedAndTheRootStillWatched) {
  std::string reason;
  if (!enterOwnUserNamespace(&reason)) GTEST_SKIP() << reason;
  e2e::Session s;
  std::string store = s.library() + "/Mail/V2";
  for (int i = 0; i < 40; ++i) makeFolders(store + "/Box" + std::to_string(i) + ".mbox/Messages");
  s.writePreferences({{"recognizeOpenMetaTags", Value(true)}});
  s.writeHelperDefaults({{"disableExternalProjectScanning", Value(true)}});

  // What the namespace uses already (the bus daemon watches its own
  // configuration), plus room for a quarter of the store's folders.
  std::optional<pid_t> bus = privateBusDaemon();
  int used = bus ? inotifyWatchCount(*bus) : 0;
  if (!writeText("/proc/sys/user/max_inotify_watches", std::to_string(used + 20)))
    GTEST_SKIP() << "cannot set the namespace's inotify watch limit";

  std::string message = store + "/7.emlx";
  writeMessage(message, wrenfoldMessage("Subject: root\n\nbody\n", {}));
  s.startHelper({"-WFlogOpenMeta", "YES"});
  ASSERT_TRUE(s.waitForLaunch()) << s.stderrText();
  EXPECT_TRUE(s.waitForLine("fs.inotify.max_user_watches", 10)) << s.stderrText();
  EXPECT_LE(inotifyWatchCount(s.helperPid()), 20);

  // Changes in the watched part still arrive.
  std::string bytes = test::readFile(message);
  setSpotlightAttribute(message, "kMDItemOMUserTags", Value(Array{Value("urgent")}));
  setSpotlightAttribute(message, "kMDItemOMUserTagTime",
                        Value(Date{static_cast<double>(std::time(nullptr)) - 978307200.0 - 1}));
  std::string stub = s.library() + "/Mail/Ardel/OpenMetaUpdates/7";
  EXPECT_TRUE(
      s.waitForFiles([&] { return plist::dictionaryWithContentsOfFile(stub).isDictionary(); }, 30))
      << s.stderrText();
  EXPECT_EQ(test::readFile(message), bytes);
  ASSERT_TRUE(s.roundTrip());
  EXPECT_TRUE(s.helperRunning());
}

}  // namespace
}  // namespace wf::faults
