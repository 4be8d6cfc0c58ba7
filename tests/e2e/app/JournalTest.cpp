// Under a service manager whose journal is standard error (JOURNAL_STREAM
// names it), each record reaches the journal once, natively, with its
// priority, the helper's identifier and its log key.
//
// The journal is a socket this test owns: the helper runs in a user and
// mount namespace of its own in which the test's folder is mounted on
// /run/systemd/journal, where the journal's socket is looked for.
#include <fcntl.h>
#include <glib.h>
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <cstdlib>
#include <cstring>
#include <fstream>
#include <map>
#include <sstream>

#include "support/Copies.h"
#include "support/Harness.h"

namespace wf::e2e {
namespace {

constexpr double kWait = 20;
using Entry = std::map<std::string, std::string>;

// One datagram of the journal's native protocol: "KEY=value\n" fields, or
// "KEY\n" + 64-bit little-endian length + bytes + "\n" for values holding
// line breaks.
Entry parseEntry(const std::string& d) {
  Entry entry;
  std::size_t at = 0;
  while (at < d.size()) {
    std::size_t nl = d.find('\n', at);
    if (nl == std::string::npos) break;
    std::string line = d.substr(at, nl - at);
    std::size_t eq = line.find('=');
    if (eq != std::string::npos) {
      entry[line.substr(0, eq)] = line.substr(eq + 1);
      at = nl + 1;
      continue;
    }
    if (nl + 9 > d.size()) break;
    std::uint64_t length = 0;
    for (int i = 7; i >= 0; --i)
      length = (length << 8) | static_cast<unsigned char>(d[nl + 1 + static_cast<std::size_t>(i)]);
    if (nl + 9 + length > d.size()) break;
    entry[line] = d.substr(nl + 9, length);
    at = nl + 9 + length + 1;
  }
  return entry;
}

class Journal {
 public:
  explicit Journal(const std::string& folder, const std::string& name = "socket") {
    fd_ = socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    std::string path = folder + "/" + name;
    std::strncpy(address.sun_path, path.c_str(), sizeof address.sun_path - 1);
    bound_ = fd_ >= 0 && bind(fd_, reinterpret_cast<sockaddr*>(&address), sizeof address) == 0;
    int size = 4 << 20;
    setsockopt(fd_, SOL_SOCKET, SO_RCVBUF, &size, sizeof size);
  }
  ~Journal() {
    if (fd_ >= 0) close(fd_);
  }
  bool bound() const { return bound_; }
  // Takes in what has arrived.
  void drain() {
    char buf[1 << 16];
    while (true) {
      ssize_t n = recv(fd_, buf, sizeof buf, 0);
      if (n <= 0) break;
      datagrams.emplace_back(buf, static_cast<std::size_t>(n));
      entries.push_back(parseEntry(datagrams.back()));
    }
  }
  std::vector<std::string> datagrams;
  int countWithMessage(const std::string& prefix) const {
    int n = 0;
    for (const Entry& e : entries)
      if (e.count("MESSAGE") && e.at("MESSAGE").rfind(prefix, 0) == 0) ++n;
    return n;
  }
  const Entry* withMessage(const std::string& prefix) const {
    for (const Entry& e : entries)
      if (e.count("MESSAGE") && e.at("MESSAGE").rfind(prefix, 0) == 0) return &e;
    return nullptr;
  }
  std::vector<Entry> entries;

 private:
  int fd_ = -1;
  bool bound_ = false;
};

std::string deviceAndInode(const std::string& path) {
  struct stat st;
  if (stat(path.c_str(), &st) != 0) return "";
  return std::to_string(st.st_dev) + ":" + std::to_string(st.st_ino);
}

// unshare(1) with --map-user, or "" where it is missing.
std::string unsharePath() {
  gchar* path = g_find_program_in_path("unshare");
  std::string out = path ? path : "";
  g_free(path);
  return out;
}

// The helper, in namespaces where `folder` is /run/systemd/journal and
// standard error is `folder`/stderr. The inner user namespace maps the
// caller's own user again, so the bus sees the user it expects.
std::vector<std::string> inJournalNamespace(const std::string& folder,
                                            const std::vector<std::string>& helperArguments) {
  std::string script =
      "set -e; mount -t tmpfs none /run/systemd 2>/dev/null || "
      "{ mkdir -p /run/systemd; mount -t tmpfs none /run/systemd; }; "
      "mkdir /run/systemd/journal; mount --bind \"$1\" /run/systemd/journal; "
      "exec 2>>\"$1/stderr\"; shift; "
      "exec unshare -U --map-user=" +
      std::to_string(getuid()) + " --map-group=" + std::to_string(getgid()) + " \"$@\"";
  std::vector<std::string> argv{unsharePath(), "-Urm", "sh",   "-c",
                                script,        "sh",   folder, helperBinary()};
  argv.insert(argv.end(), helperArguments.begin(), helperArguments.end());
  return argv;
}

bool namespacesWork() {
  std::string cmd = unsharePath() +
                    " -Urm sh -c 'mount -t tmpfs none /run/systemd && exec unshare -U --map-user=" +
                    std::to_string(getuid()) + " --map-group=" + std::to_string(getgid()) +
                    " true' >/dev/null 2>&1";
  return !unsharePath().empty() && system(cmd.c_str()) == 0;
}

TEST(Journal, EachRecordOnceNativelyWithPriorityIdentifierAndKey) {
  if (!namespacesWork())
    GTEST_SKIP() << "unprivileged user and mount namespaces (unshare -Urm) are not available "
                    "here, so the journal's socket cannot be the test's own";
  Session s;
  std::string folder = s.home() + "/journal";
  ASSERT_EQ(mkdir(folder.c_str(), 0700), 0);
  Journal journal(folder);
  ASSERT_TRUE(journal.bound());
  std::ofstream(folder + "/stderr").close();
  std::string stream = deviceAndInode(folder + "/stderr");

  Copy helper = startCopy(s, inJournalNamespace(folder, {"-WFlogExternalProjects", "YES"}),
                          {{"JOURNAL_STREAM", stream}});
  ASSERT_TRUE(waitForLaunchOf(s, helper, kWait)) << helper.output();
  s.emit("WrenfoldWillUninstall");
  ASSERT_EQ(waitForCopy(s, helper, kWait), 0) << helper.output();
  journal.drain();

  // The banner: two lines, one entry, a notice.
  std::string banner = "WrenfoldHelper 1.0.0 Launched";
  ASSERT_EQ(journal.countWithMessage(banner), 1);
  const Entry& launched = *journal.withMessage(banner);
  EXPECT_NE(launched.at("MESSAGE").find(" Launched \nWrenfoldHelper supports Wrenfold "
                                        "interfacing with other applications and automatic "
                                        "updating"),
            std::string::npos)
      << launched.at("MESSAGE");
  EXPECT_EQ(launched.at("PRIORITY"), "5");
  EXPECT_EQ(launched.at("SYSLOG_IDENTIFIER"), "wrenfold-helper");
  EXPECT_EQ(launched.count("WRENFOLD_LOG_KEY"), 0u);

  // A keyed line carries its key as a field of its own.
  const char* keyed = "(logExternalProjects)-[WFHelperAppDelegate applicationDidFinishLaunching:]";
  ASSERT_EQ(journal.countWithMessage(keyed), 1);
  const Entry& line = *journal.withMessage(keyed);
  EXPECT_EQ(line.at("WRENFOLD_LOG_KEY"), "logExternalProjects");
  EXPECT_EQ(line.at("PRIORITY"), "6");

  // A failure: no mail client's desktop entry here.
  const char* failure = "Couldn't set handler for Wrenfold wfdefaults: -10814";
  ASSERT_EQ(journal.countWithMessage(failure), 1);
  EXPECT_EQ(journal.withMessage(failure)->at("PRIORITY"), "4");
  EXPECT_EQ(journal.countWithMessage("Wrenfold is uninstalling!"), 1);

  // Nothing went to standard error besides: the journal has it already.
  std::ifstream err(folder + "/stderr");
  std::stringstream text;
  text << err.rdbuf();
  EXPECT_EQ(text.str(), "");
}

TEST(Journal, AStreamThatIsNotStderrIsNoJournal) {
  // JOURNAL_STREAM inherited from a parent whose stderr went elsewhere: the
  // record stays on stderr as it always was.
  Session s;
  std::string other = s.home() + "/other";
  std::ofstream(other).close();
  s.startHelper(HelperOptions{{}, {{"JOURNAL_STREAM", deviceAndInode(other)}}, {}});
  ASSERT_TRUE(s.waitForLaunch()) << s.stderrText();
  EXPECT_EQ(s.countInStderr(" Launched \nWrenfoldHelper supports"), 1);
}

// The helper where /dev/log is the test's socket `folder`/dev-log and
// standard error a pipe as usual (no journal).
std::vector<std::string> inSyslogNamespace(const std::string& folder) {
  std::string script =
      "set -e; mount -t tmpfs none /dev; ln -s \"$1/dev-log\" /dev/log; shift; "
      "exec unshare -U --map-user=" +
      std::to_string(getuid()) + " --map-group=" + std::to_string(getgid()) + " \"$@\"";
  return {unsharePath(), "-Urm", "sh", "-c", script, "sh", folder, helperBinary()};
}

int countIn(const std::vector<std::string>& datagrams, const std::string& text) {
  int n = 0;
  for (const std::string& d : datagrams)
    if (d.find(text) != std::string::npos) ++n;
  return n;
}

TEST(Syslog, OneDatagramPerRecordWithItsPriority) {
  if (!namespacesWork())
    GTEST_SKIP() << "unprivileged user and mount namespaces (unshare -Urm) are not available "
                    "here, so /dev/log cannot be the test's own socket";
  Session s;
  std::string folder = s.home() + "/syslog";
  ASSERT_EQ(mkdir(folder.c_str(), 0700), 0);
  Journal syslog(folder, "dev-log");
  ASSERT_TRUE(syslog.bound());
  // A mail store to watch: a missing one would add its own failure line.
  ASSERT_EQ(std::system(("mkdir -p '" + s.library() + "/Mail/V2'").c_str()), 0);
  Copy helper = startCopy(s, inSyslogNamespace(folder));
  ASSERT_TRUE(waitForLaunchOf(s, helper, kWait)) << helper.output();
  s.emit("WrenfoldWillUninstall");
  ASSERT_EQ(waitForCopy(s, helper, kWait), 0) << helper.output();
  syslog.drain();

  // Standard error keeps its records; syslog gets each once.
  std::string banner = "WrenfoldHelper 1.0.0 Launched \nWrenfoldHelper supports Wrenfold";
  EXPECT_EQ(countOf(helper.output(), banner), 1) << helper.output();
  EXPECT_EQ(countIn(syslog.datagrams, banner), 1);
  EXPECT_EQ(static_cast<int>(syslog.datagrams.size()),
            countOf(helper.output(), " wrenfold-helper["))
      << helper.output();
  // Facility user (8) plus the priority.
  std::string pid = std::to_string(helper.pid);
  EXPECT_EQ(countIn(syslog.datagrams, "<13>"),
            countIn(syslog.datagrams, "]: WrenfoldHelper 1.0.0") +
                countIn(syslog.datagrams, "]: External OpenMeta") +
                countIn(syslog.datagrams, "]: Wrenfold is uninstalling"));
  EXPECT_EQ(countIn(syslog.datagrams, "<12>"), 5);  // the four handler failures and their line
  for (const std::string& d : syslog.datagrams)
    EXPECT_NE(d.find(" wrenfold-helper[" + pid + "]: "), std::string::npos) << d;
}

}  // namespace
}  // namespace wf::e2e
