// `wrenfold-helper --status [--json]` against the real helper on a private
// bus, and the readiness messages a service manager gets.
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <cstdlib>
#include <cstring>
#include <fstream>
#include <sstream>

#include "support/Copies.h"
#include "support/Fakes.h"
#include "support/Harness.h"

namespace wf::e2e {
namespace {

constexpr double kWait = 20;

using test::readFile;

std::string shellQuoted(const std::string& s) { return "'" + s + "'"; }

// Runs `--status --json` into a file and checks it with python3's json
// module: `check` is a Python expression over `d`, the parsed object.
bool statusHolds(Session& s, const std::string& check, std::string* shown = nullptr) {
  std::string out = s.home() + "/status.json";
  std::string command = "DBUS_SESSION_BUS_ADDRESS=" + shellQuoted(s.busAddress()) + " " +
                        shellQuoted(helperBinary()) + " --status --json > " + shellQuoted(out);
  if (std::system(command.c_str()) != 0) return false;
  if (shown) *shown = readFile(out);
  std::string script = s.home() + "/check.py";
  std::ofstream(script) << "import json, sys\nd = json.load(open(sys.argv[1]))\n"
                        << "sys.exit(0 if (" << check << ") else 1)\n";
  return std::system(("python3 " + shellQuoted(script) + " " + shellQuoted(out)).c_str()) == 0;
}

TEST(Status, WithoutAHelperOnTheBusItSaysSoAndExits3) {
  Session s;
  Copy status = startCopy(s, {helperBinary(), "--status"});
  EXPECT_EQ(waitForCopy(s, status, kWait), 3) << status.output();
  EXPECT_EQ(countOf(status.output(), "no helper is running on this session bus\n"), 1)
      << status.output();
  EXPECT_EQ(nameOwnerPid(s), 0);  // it never started one
}

TEST(Status, WithoutABusItExits1WithTheBusError) {
  Session s(false);
  Copy status = startCopy(s, {helperBinary(), "--status", "--json"});
  EXPECT_EQ(waitForCopy(s, status, kWait), 1) << status.output();
  EXPECT_EQ(countOf(status.output(), "cannot connect to the session bus"), 1) << status.output();
}

TEST(Status, TheJsonHasEveryNameAndFollowsWhatHappened) {
  Session s;
  s.writePreferences({{"settingsSyncMethod", Value(2)},
                      {"syncFolderPath", Value(s.home() + "/Sync")},
                      {"recognizeOpenMetaTags", Value(true)}});
  s.startHelper({"-WFlogSettingsSync", "YES"});
  ASSERT_TRUE(s.waitForLaunch()) << s.stderrText();
  std::string json;
  ASSERT_TRUE(statusHolds(s,
                          "all(k in d for k in ['pid', 'version', 'launched', 'bus', "
                          "'preferences', 'syncFolder', 'mailStore', 'intervalRun', "
                          "'recentFailures', 'droppedLogLines'])",
                          &json))
      << json;
  EXPECT_TRUE(statusHolds(s, "d['pid'] == " + std::to_string(s.helperPid()))) << json;
  EXPECT_TRUE(statusHolds(s, "d['launched'].endswith('Z') and d['bus'].startswith(':')")) << json;
  EXPECT_TRUE(statusHolds(s,
                          "d['preferences']['settingsSyncMethod'] == {'value': '2', "
                          "'source': 'plug-in file'} and "
                          "d['preferences']['disableOpenMetaScanning']['source'] == 'absent'"))
      << json;
  EXPECT_TRUE(statusHolds(s,
                          "d['preferences']['logSettingsSync']['source'] == 'command line' "
                          "if 'logSettingsSync' in d['preferences'] else True"));
  // The interval run has run once, at launch.
  EXPECT_TRUE(statusHolds(s,
                          "d['intervalRun']['lastRun'] != '' and "
                          "d['intervalRun']['sources']['Finder tags']['outcome'] in "
                          "('written', 'unchanged')"))
      << json;
  // The sync folder is watched; the mail store is missing: a failure.
  EXPECT_TRUE(statusHolds(s,
                          "d['syncFolder']['watch'] != 'off' and "
                          "d['syncFolder']['path'].endswith('/Sync')"))
      << json;
  EXPECT_TRUE(statusHolds(s,
                          "d['mailStore']['watch'] == 'off' and "
                          "'No such file' in d['mailStore']['reason'] and "
                          "any(f['line'].startswith('Cannot watch the mail store') and "
                          "f['time'].endswith('Z') for f in d['recentFailures'])"))
      << json;
  EXPECT_EQ(s.countInStderr("Cannot watch the mail store"), 1) << s.stderrText();

  // Made later: the next interval run (here: Mail starting) finds it.
  ASSERT_EQ(std::system(("mkdir -p " + shellQuoted(s.library() + "/Mail/V2")).c_str()), 0);
  ASSERT_TRUE(s.ownName("com.apple.mail"));
  ASSERT_TRUE(s.waitForLine("The mail store is watched again", kWait)) << s.stderrText();
  EXPECT_TRUE(statusHolds(s,
                          "d['mailStore']['watch'] == 'inotify' and "
                          "'reason' not in d['mailStore']",
                          &json))
      << json;
  EXPECT_EQ(s.countInStderr("Cannot watch the mail store"), 1) << s.stderrText();

  // The short form: a few lines, the summary among them.
  Copy text = startCopy(s, {helperBinary(), "--status"});
  EXPECT_EQ(waitForCopy(s, text, kWait), 0) << text.output();
  EXPECT_EQ(countOf(text.output(), "Watching "), 1) << text.output();
}

// The test is the service manager: a datagram socket named by NOTIFY_SOCKET.
TEST(Status, AServiceManagerHearsReadyAStatusLineAndStopping) {
  Session s;
  std::string path = s.home() + "/notify";
  int fd = socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
  ASSERT_GE(fd, 0);
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  ASSERT_LT(path.size(), sizeof address.sun_path);
  std::memcpy(address.sun_path, path.c_str(), path.size());
  ASSERT_EQ(bind(fd, reinterpret_cast<sockaddr*>(&address), sizeof address), 0);
  std::vector<std::string> got;
  auto drain = [&] {
    char buf[4096];
    ssize_t n;
    while ((n = recv(fd, buf, sizeof buf, 0)) > 0) got.emplace_back(buf, static_cast<size_t>(n));
    return false;
  };
  auto seen = [&](const std::string& prefix) {
    drain();
    for (const auto& m : got)
      if (m.rfind(prefix, 0) == 0) return true;
    return false;
  };
  s.startHelper(HelperOptions{{}, {{"NOTIFY_SOCKET", path}}, {}});
  ASSERT_TRUE(s.waitForLaunch()) << s.stderrText();
  ASSERT_TRUE(s.waitForFiles([&] { return seen("STATUS="); }, kWait));
  EXPECT_TRUE(seen("READY=1"));
  EXPECT_EQ(got.front(), "READY=1");
  std::string status;
  for (const auto& m : got)
    if (m.rfind("STATUS=", 0) == 0) status = m;
  EXPECT_EQ(status.find('\n'), std::string::npos) << status;
  EXPECT_NE(status.find(" imports, "), std::string::npos) << status;
  s.signalHelper(SIGTERM);
  EXPECT_EQ(s.waitForExit(kWait), 0);
  EXPECT_TRUE(seen("STOPPING=1"));
  EXPECT_EQ(got.back(), "STOPPING=1");
  close(fd);
}

TEST(Status, WithoutNotifySocketNothingIsSent) {
  Session s;
  s.startHelper(HelperOptions{{}, {}, {"NOTIFY_SOCKET"}});
  ASSERT_TRUE(s.waitForLaunch()) << s.stderrText();
  ASSERT_TRUE(s.roundTrip());
  EXPECT_TRUE(s.helperRunning());
}

}  // namespace
}  // namespace wf::e2e
