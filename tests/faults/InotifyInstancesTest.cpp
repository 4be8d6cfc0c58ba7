// No inotify instance left for the helper (the per-user limit used up by
// other programs): it says so once, shows the watch off in its status, and
// watches as soon as an interval run finds an instance again. The limit is
// lowered in a user namespace of this test's own, so that nothing else on
// the machine feels it.
#include <fcntl.h>
#include <sched.h>
#include <unistd.h>

#include <cstdlib>
#include <cstring>
#include <filesystem>

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

// Inotify instances open in process `pid`.
int inotifyInstances(pid_t pid) {
  int n = 0;
  std::error_code ec;
  for (const auto& e :
       std::filesystem::directory_iterator("/proc/" + std::to_string(pid) + "/fd", ec)) {
    std::error_code ignored;
    if (std::filesystem::read_symlink(e.path(), ignored).string() == "anon_inode:inotify") ++n;
  }
  return n;
}

TEST(InotifyInstances, NoneLeftIsSaidOnceAndTheWatchComesUpAtTheNextRun) {
  std::string reason;
  if (!enterOwnUserNamespace(&reason)) GTEST_SKIP() << reason;
  e2e::Session s;
  std::string store = s.library() + "/Mail/V2";
  makeFolders(store + "/Box.mbox/Messages");
  s.writePreferences({{"recognizeOpenMetaTags", Value(true)}});

  // Exactly what the namespace uses already (the bus daemon's): none left.
  std::optional<pid_t> bus = privateBusDaemon();
  int used = bus ? inotifyInstances(*bus) : 0;
  const std::string limit = "/proc/sys/user/max_inotify_instances";
  if (!writeText(limit, std::to_string(used)))
    GTEST_SKIP() << "cannot set the namespace's inotify instance limit";

  s.startHelper();
  ASSERT_TRUE(s.waitForLaunch()) << s.stderrText();
  EXPECT_EQ(s.countInStderr("Cannot watch the mail store"), 1) << s.stderrText();
  EXPECT_EQ(s.countInStderr("no inotify instance could be made"), 1) << s.stderrText();
  EXPECT_EQ(inotifyInstances(s.helperPid()), 0);

  ASSERT_TRUE(writeText(limit, "128"));
  // Mail starting makes an interval run at once.
  ASSERT_TRUE(s.ownName("com.apple.mail"));
  ASSERT_TRUE(s.waitForLine("The mail store is watched again", 20)) << s.stderrText();
  EXPECT_GE(inotifyInstances(s.helperPid()), 1);
  EXPECT_EQ(s.countInStderr("Cannot watch the mail store"), 1) << s.stderrText();
  ASSERT_TRUE(s.roundTrip());
  EXPECT_TRUE(s.helperRunning());
}

}  // namespace
}  // namespace wf::faults
