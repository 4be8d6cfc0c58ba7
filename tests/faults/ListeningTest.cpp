// The running helper listens on nothing: its only socket is its connection
// to the session bus.
#include <gtest/gtest.h>

#include "SystemFaults.h"
#include "support/Harness.h"

namespace wf {
namespace {

TEST(Listening, TheRunningHelperHasNoListeningOrNetworkSocket) {
  e2e::Session s;
  s.writePreferences(
      {{"settingsSyncMethod", Value(2)}, {"syncFolderPath", Value(s.home() + "/sync")}});
  s.startHelper();
  ASSERT_TRUE(s.waitForLaunch()) << s.stderrText();
  std::vector<std::string> sockets = faults::listeningSockets(s.helperPid());
  EXPECT_TRUE(sockets.empty()) << sockets.front();
  ASSERT_TRUE(s.roundTrip());
  EXPECT_TRUE(s.helperRunning());
}

}  // namespace
}  // namespace wf
