// Floods against the running helper: attribute changes on two messages as
// fast as a process can make them, and tens of thousands of preference
// notices. The helper keeps answering while they run (timed from outside:
// a notice and its answer line) and gives the memory back afterwards.
#include <signal.h>
#include <sys/wait.h>
#include <sys/xattr.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <cstdint>
#include <cstdio>

#include "ProcessFigures.h"
#include "StoreFixture.h"

namespace wf::faults {
namespace {

// Generous against the one second the helper allows itself: the machine
// running the tests may be busy.
constexpr double kAnswerBound = 5.0;
// What a burst may leave behind, over the idle size.
constexpr long kLeftoverKiB = 16 * 1024;

double monotonicSeconds() {
  timespec t{};
  clock_gettime(CLOCK_MONOTONIC, &t);
  return static_cast<double>(t.tv_sec) + static_cast<double>(t.tv_nsec) / 1e9;
}

// A child that changes an attribute of the files in turn for `seconds`,
// then ends; its exit status is 0 unless a change failed.
pid_t startAttributeFlood(const std::string& a, const std::string& b, double seconds) {
  pid_t pid = fork();
  if (pid != 0) return pid;
  double end = monotonicSeconds() + seconds;
  unsigned long n = 0;
  const std::string* files[] = {&a, &b};
  while ((n & 1023) != 0 || monotonicSeconds() < end) {
    if (lsetxattr(files[n & 1]->c_str(), "user.flood", &n, sizeof n, 0) != 0) _exit(1);
    ++n;
  }
  std::fprintf(stderr, "attribute flood: %lu changes in %.0f s\n", n, seconds);
  _exit(0);
}

class Flood : public StoreFixture {
 protected:
  // No keyed log: a flood would fill it. Idle size once launched.
  void launchQuietly() {
    s.startHelper();
    ASSERT_TRUE(s.waitForLaunch()) << s.stderrText();
    ASSERT_TRUE(s.roundTrip());
    idle = residentKiB(s.helperPid());
    ASSERT_GT(idle, 0);
  }
  // Waits (bounded) for the resident size to come back near idle.
  void expectMemoryBack(const char* what) {
    long last = 0;
    bool back = s.waitForFiles(
        [&] {
          last = residentKiB(s.helperPid());
          return last >= 0 && last <= idle + kLeftoverKiB;
        },
        kSanitizerAllocator ? 0 : 60);
    std::printf("%s: RSS idle %ld KiB, peak %ld KiB, after %ld KiB\n", what, idle, peak, last);
    if (kSanitizerAllocator) return;  // its quarantine keeps what was freed
    EXPECT_TRUE(back) << "RSS " << last << " KiB after the burst, " << idle << " KiB idle";
  }
  void notePeak() { peak = std::max(peak, residentKiB(s.helperPid())); }

  long idle = 0, peak = 0;
};

TEST_F(Flood, AttributeFloodOnTwoMessagesNeitherBlocksTheHelperNorKeepsItsMemory) {
  std::string a = message(mailbox(), "1.emlx"), b = message(mailbox(), "2.emlx");
  launchQuietly();
  if (HasFatalFailure()) return;
  constexpr double kFloodSeconds = 5.0;
  pid_t flood = startAttributeFlood(a, b, kFloodSeconds);
  ASSERT_GT(flood, 0);
  // Answers timed while the flood runs and while the helper works off
  // what it left; an answer that never came counts as the whole bound.
  double slowest = 0;
  int answers = 0, status = -1;
  double until = monotonicSeconds() + kFloodSeconds + 12;
  while (monotonicSeconds() < until) {
    std::optional<double> took = timedRoundTrip(s, 60);
    slowest = std::max(slowest, took.value_or(60.0));
    ++answers;
    notePeak();
    if (status < 0 && waitpid(flood, &status, WNOHANG) == 0) status = -1;
  }
  if (status < 0) waitpid(flood, &status, 0);
  std::printf("attribute flood: %d answers, slowest %.2f s\n", answers, slowest);
  EXPECT_EQ(status, 0) << "the flood's changes failed";
  EXPECT_LT(slowest, kAnswerBound);
  expectMemoryBack("attribute flood");
  EXPECT_TRUE(s.helperRunning()) << s.stderrText().substr(0, 4000);
}

// Log lines the helper could not write at once and dropped (they are
// counted in its status); -1 when the status did not answer in time.
std::int64_t droppedLogLines(e2e::Session& s) {
  GError* error = nullptr;
  GVariant* reply = g_dbus_connection_call_sync(
      s.bus(), "org.ardel.WrenfoldHelper", "/org/ardel/WrenfoldHelper",
      "org.ardel.WrenfoldHelper.Status", "GetStatus", nullptr, G_VARIANT_TYPE("(a{sv})"),
      G_DBUS_CALL_FLAGS_NO_AUTO_START, 2000, nullptr, &error);
  if (!reply) {
    if (error) g_error_free(error);
    return -1;
  }
  GVariant* status = g_variant_get_child_value(reply, 0);
  std::int64_t dropped = -1;
  if (GVariant* v = g_variant_lookup_value(status, "droppedLogLines", nullptr)) {
    if (g_variant_is_of_type(v, G_VARIANT_TYPE_INT64))
      dropped = g_variant_get_int64(v);
    else if (g_variant_is_of_type(v, G_VARIANT_TYPE_UINT64))
      dropped = static_cast<std::int64_t>(g_variant_get_uint64(v));
    else if (g_variant_is_of_type(v, G_VARIANT_TYPE_INT32))
      dropped = g_variant_get_int32(v);
    g_variant_unref(v);
  }
  g_variant_unref(status);
  g_variant_unref(reply);
  return dropped;
}

TEST_F(Flood, TensOfThousandsOfPreferenceNoticesGiveTheirMemoryBack) {
  launchQuietly();
  if (HasFatalFailure()) return;
  constexpr int kNotices = 40000;
  double start = monotonicSeconds();
  GMainContext* context = g_main_context_get_thread_default();
  for (int i = 0; i < kNotices; ++i) {
    g_dbus_connection_emit_signal(s.bus(), nullptr, "/org/ardel/Wrenfold", "org.ardel.Wrenfold",
                                  "WrenfoldPreferencesDidChange", nullptr, nullptr);
    if (i % 1000 == 999) {
      g_dbus_connection_flush_sync(s.bus(), nullptr, nullptr);
      notePeak();
    }
    // The helper's answers are read while the notices go out: a standard
    // error nobody reads would fill, and the helper drops what does not fit.
    if (i % 100 == 99)
      while (g_main_context_iteration(context, FALSE)) {
      }
  }
  g_dbus_connection_flush_sync(s.bus(), nullptr, nullptr);
  // Notices are handled in order: the answer to one more comes after all.
  // A line dropped because this test read too slowly (a busy machine) is
  // counted by the helper, and counts as handled here.
  const char* answer = "External OpenMeta Scanning";
  std::int64_t dropped = 0;
  double lastAsked = 0;
  bool handled = s.waitForFiles(
      [&] {
        notePeak();
        if (s.countInStderr(answer) + dropped >= kNotices) return true;
        if (monotonicSeconds() - lastAsked >= 5) {
          lastAsked = monotonicSeconds();
          dropped = std::max<std::int64_t>(dropped, droppedLogLines(s));
        }
        return s.countInStderr(answer) + dropped >= kNotices;
      },
      240);
  ASSERT_TRUE(handled) << s.countInStderr(answer) << " answers and " << dropped
                       << " dropped lines of " << kNotices << " notices";
  std::printf("%d notices handled in %.1f s (%lld log lines dropped)\n", kNotices,
              monotonicSeconds() - start, static_cast<long long>(dropped));
  ASSERT_TRUE(s.roundTrip(60));
  expectMemoryBack("preference notices");
  EXPECT_TRUE(s.helperRunning());
}

}  // namespace
}  // namespace wf::faults
