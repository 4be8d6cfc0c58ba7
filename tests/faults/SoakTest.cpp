// Two minutes and more of everything at once against the running helper:
// messages rewritten and tagged, bursts of notices and pushes, edits and
// swaps of the sync folder, attribute floods. Resident memory and open
// descriptors must stay bounded and come back to where they started; the
// figures are printed at start, peak and end.
#include <fcntl.h>
#include <stdio.h>
#include <sys/wait.h>
#include <sys/xattr.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>

#include "ProcessFigures.h"
#include "StoreFixture.h"

namespace wf::faults {
namespace {

using test::readFile;
using test::writeFile;

constexpr double kSoakSeconds = 130;
constexpr int kMessages = 20;
constexpr long kLeftoverKiB = 16 * 1024;
constexpr long kPeakKiB = 256 * 1024;
constexpr int kSpareDescriptors = 32;
constexpr double kAnswerBound = 10;

double monotonicSeconds() {
  timespec t{};
  clock_gettime(CLOCK_MONOTONIC, &t);
  return static_cast<double>(t.tv_sec) + static_cast<double>(t.tv_nsec) / 1e9;
}

class Soak : public StoreFixture {
 protected:
  void sample() {
    rss.add(residentKiB(s.helperPid()));
    fds.add(openDescriptors(s.helperPid()));
  }
  void answer() {
    std::optional<double> took = timedRoundTrip(s, 60);
    slowest = std::max(slowest, took.value_or(60.0));
    sample();
  }
  void rewriteMessages(int round) {
    for (int i = 0; i < kMessages; ++i) {
      writeMessage(messages[i],
                   wrenfoldMessage("Subject: round " + std::to_string(round) + "\n\nb\n", {}));
      if (i % 2) tag(messages[i]);
    }
  }
  void noticeBurst() {
    for (int i = 0; i < 3000; ++i) {
      const char* name = i % 60 ? "WrenfoldPreferencesDidChange" : "WrenfoldKeywordListWasSaved";
      g_dbus_connection_emit_signal(s.bus(), nullptr, "/org/ardel/Wrenfold", "org.ardel.Wrenfold",
                                    name, nullptr, nullptr);
    }
    g_dbus_connection_flush_sync(s.bus(), nullptr, nullptr);
  }
  void syncChanges(int round) {
    writeFile(sync() + "/WrenfoldKeywords.plist", list("edit " + std::to_string(round)));
    for (int i = 0; i < 200; ++i) writeFile(sync() + "/scratch" + std::to_string(i), "x");
    for (int i = 0; i < 200; ++i) unlink((sync() + "/scratch" + std::to_string(i)).c_str());
  }
  // The sync folder swapped with a copy in one rename.
  void swapSyncFolder() {
    std::string other = s.home() + "/sync-swap";
    makeFolders(other);
    writeFile(other + "/WrenfoldKeywords.plist", readFile(sync() + "/WrenfoldKeywords.plist"));
    ASSERT_EQ(renameat2(AT_FDCWD, other.c_str(), AT_FDCWD, sync().c_str(), RENAME_EXCHANGE), 0);
  }
  void attributeFlood(double seconds) {
    pid_t pid = fork();
    if (pid == 0) {
      double end = monotonicSeconds() + seconds;
      for (unsigned long n = 0; (n & 1023) != 0 || monotonicSeconds() < end; ++n)
        lsetxattr(messages[n & 1].c_str(), "user.flood", &n, sizeof n, 0);
      _exit(0);
    }
    ASSERT_GT(pid, 0);
    int status = 0;
    while (waitpid(pid, &status, WNOHANG) == 0) answer();
  }

  std::vector<std::string> messages;
  Range rss, fds;
  double slowest = 0;
};

TEST_F(Soak, MemoryAndDescriptorsStayBoundedThroughTwoMinutesOfEverything) {
  for (int i = 0; i < kMessages; ++i)
    messages.push_back(message(mailbox(), std::to_string(i) + ".emlx"));
  // No keyed log: two minutes of it would be large and slow to search.
  s.startHelper();
  ASSERT_TRUE(s.waitForLaunch()) << s.stderrText();
  answer();
  long rssStart = rss.first;
  long fdsStart = fds.first;
  ASSERT_GT(rssStart, 0);

  double start = monotonicSeconds();
  int round = 0;
  while (monotonicSeconds() - start < kSoakSeconds) {
    switch (round % 5) {
      case 0:
        rewriteMessages(round);
        break;
      case 1:
        noticeBurst();
        break;
      case 2:
        syncChanges(round);
        break;
      case 3:
        attributeFlood(2.0);
        break;
      case 4:
        swapSyncFolder();
        break;
    }
    if (HasFatalFailure()) return;
    answer();
    ++round;
  }
  double soaked = monotonicSeconds() - start;

  // Settled: the descriptors back to where they were, the memory near it.
  bool fdsBack = s.waitForFiles([&] { return openDescriptors(s.helperPid()) <= fdsStart; }, 30);
  bool rssBack =
      s.waitForFiles([&] { return residentKiB(s.helperPid()) <= rssStart + kLeftoverKiB; },
                     kSanitizerAllocator ? 0 : 60);
  answer();
  std::printf("soak: %d rounds in %.0f s, slowest answer %.2f s\n", round, soaked, slowest);
  std::printf("soak: RSS KiB %s\n", rss.text().c_str());
  std::printf("soak: open descriptors %s\n", fds.text().c_str());

  EXPECT_GE(soaked, 120.0);
  EXPECT_LT(slowest, kAnswerBound);
  EXPECT_TRUE(fdsBack) << fds.text();
  EXPECT_LE(fds.peak, fdsStart + kSpareDescriptors) << fds.text();
  if (kSanitizerAllocator) {
    std::printf("soak: memory not judged: the sanitizer's allocator keeps freed memory\n");
  } else {
    EXPECT_TRUE(rssBack) << rss.text();
    EXPECT_LE(rss.peak, kPeakKiB) << rss.text();
  }
  EXPECT_EQ(readFile(ardel() + "/WrenfoldKeywords.plist"), list("local keywords"));
  EXPECT_TRUE(temporariesBelow(s.home()).empty());
  EXPECT_TRUE(s.helperRunning()) << s.stderrText().substr(0, 4000);
}

}  // namespace
}  // namespace wf::faults
