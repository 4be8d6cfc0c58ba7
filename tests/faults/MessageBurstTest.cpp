// 20,000 message files tagged in one burst while the helper cannot read its
// event queue: when the queue holds every event nothing is missed; when it
// overflows the loss is reported and the rescan still finds every message.
// The queue length is a machine-wide value; it is changed only around the
// helper's start (the kernel fixes it when the queue is made) and restored.
#include <signal.h>

#include <filesystem>

#include "StoreFixture.h"
#include "SystemFaults.h"

namespace fs = std::filesystem;

namespace wf::faults {
namespace {

using test::readFile;

constexpr int kMailboxes = 20;
constexpr int kPerMailbox = 1000;
constexpr int kMessages = kMailboxes * kPerMailbox;
constexpr const char* kQueueLength = "/proc/sys/fs/inotify/max_queued_events";
constexpr const char* kLost = "File events were lost in ";

class MessageBurst : public StoreFixture {
 protected:
  void SetUp() override {
    StoreFixture::SetUp();
    for (int box = 0; box < kMailboxes; ++box) {
      std::string folder = store() + "/Box" + std::to_string(box) + ".mbox/Messages";
      makeFolders(folder);
      for (int i = 0; i < kPerMailbox; ++i) {
        std::string path = folder + "/" + std::to_string(box * kPerMailbox + i) + ".emlx";
        writeMessage(path,
                     wrenfoldMessage("Subject: burst " + std::to_string(i) + "\n\nbody\n", {}));
        paths.push_back(path);
      }
    }
  }
  // Starts the helper with the queue length `length` (nullopt: as it is).
  void launchWithQueue(std::optional<long> length) {
    ProcSysValue queue(kQueueLength);
    if (length && !queue.set(*length)) GTEST_SKIP() << queue.reason();
    // The queue is made during launch and keeps its length; the value is
    // restored right after. No keyed log: 20,000 imports would flood it.
    s.startHelper();
    ASSERT_TRUE(s.waitForLaunch()) << s.stderrText();
  }
  // Tags every message while the helper is stopped, then lets it go on.
  void tagAllWhileStopped() {
    s.signalHelper(SIGSTOP);
    double when = now() - 1;
    for (const std::string& path : paths) tag(path, when);
    s.signalHelper(SIGCONT);
  }
  int stubCount() const {
    int n = 0;
    std::error_code ec;
    for (const auto& e : fs::directory_iterator(stubFolder(), ec)) {
      (void)e;
      ++n;
    }
    return n;
  }
  void expectEveryMessageHandled() {
    EXPECT_TRUE(s.waitForFiles([&] { return stubCount() >= kMessages; }, 300))
        << stubCount() << " stubs of " << kMessages;
    int missing = 0;
    for (const std::string& path : paths)
      if (!stubWritten(path)) ++missing;
    EXPECT_EQ(missing, 0);
    for (std::size_t i = 0; i < paths.size(); i += 997)
      EXPECT_EQ(
          readFile(paths[i]),
          wrenfoldMessage("Subject: burst " + std::to_string(i % kPerMailbox) + "\n\nbody\n", {}));
    ASSERT_TRUE(s.roundTrip(30));
    EXPECT_TRUE(temporariesBelow(s.home()).empty());
    EXPECT_TRUE(s.helperRunning());
  }
  std::vector<std::string> paths;
};

TEST_F(MessageBurst, NothingIsMissedWhenTheQueueHoldsTheWholeBurst) {
  ProcSysValue probe(kQueueLength);
  if (!probe.original()) GTEST_SKIP() << "no " << kQueueLength;
  long needed = 4L * kMessages;  // two attribute events per message, and room
  launchWithQueue(*probe.original() < needed ? std::optional<long>(needed) : std::nullopt);
  if (IsSkipped()) return;
  tagAllWhileStopped();
  expectEveryMessageHandled();
  EXPECT_EQ(s.countInStderr(kLost), 0);
}

TEST_F(MessageBurst, AnOverflowIsReportedAndTheRescanFindsEveryMessage) {
  ProcSysValue probe(kQueueLength);
  if (!probe.original()) GTEST_SKIP() << "no " << kQueueLength;
  long tooFew = kMessages / 4;
  launchWithQueue(*probe.original() > tooFew ? std::optional<long>(tooFew) : std::nullopt);
  if (IsSkipped()) return;
  tagAllWhileStopped();
  EXPECT_TRUE(s.waitForLine(kLost, 60)) << s.stderrText().substr(0, 4000);
  expectEveryMessageHandled();
}

}  // namespace
}  // namespace wf::faults
