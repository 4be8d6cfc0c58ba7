#include "platform/linux/SystemLog.h"

#include <glib.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/time.h>
#include <sys/un.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>

#include "platform/base/Files.h"

namespace wf::platform {
namespace {

constexpr const char* kIdentifier = "wrenfold-helper";
constexpr int kFacilityUser = 1 << 3;

}  // namespace

bool streamIsJournal(int fd) {
  const char* stream = std::getenv("JOURNAL_STREAM");
  if (!stream || !*stream) return false;
  unsigned long long device = 0, inode = 0;
  char end = 0;
  if (std::sscanf(stream, "%llu:%llu%c", &device, &inode, &end) != 2) return false;
  struct stat st;
  if (fstat(fd, &st) != 0) return false;
  return static_cast<unsigned long long>(st.st_dev) == device &&
         static_cast<unsigned long long>(st.st_ino) == inode;
}

SystemLog::SystemLog() : journal_(streamIsJournal(STDERR_FILENO)) {
  // One socket for the life of the process; records are sent to /dev/log
  // one datagram each, never by reconnecting.
  if (!journal_) syslogSocket_.reset(socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0));
}

SystemLog::~SystemLog() = default;

std::string stderrRecord(const std::string& message) {
  timeval tv;
  gettimeofday(&tv, nullptr);
  tm local;
  localtime_r(&tv.tv_sec, &local);
  char head[96];
  char date[32];
  std::strftime(date, sizeof date, "%Y-%m-%d %H:%M:%S", &local);
  std::snprintf(head, sizeof head, "%s.%03ld wrenfold-helper[%ld:%ld] ", date,
                static_cast<long>(tv.tv_usec / 1000), static_cast<long>(getpid()),
                static_cast<long>(syscall(SYS_gettid)));
  return head + message + "\n";
}

void SystemLog::write(const std::string& message) {
  LogRecordKind kind = classifyRecord(message);
  // The journal keeps stderr as well; writing both would log each record
  // twice. Should the journal refuse the record, stderr still gets it.
  if (journal_ && writeToJournal(message, kind)) return;
  writeToStderr(message);
  if (!journal_) writeToSyslog(message, kind.priority);
}

bool SystemLog::writeToJournal(const std::string& message, const LogRecordKind& kind) {
  // GLib's journald writer speaks the journal's native protocol (a field
  // holding line breaks is sent length-prefixed, so the message stays one
  // entry) over one socket it keeps open.
  std::string priority = std::to_string(static_cast<int>(kind.priority));
  GLogField fields[4] = {
      {"MESSAGE", message.c_str(), static_cast<gssize>(message.size())},
      {"PRIORITY", priority.c_str(), -1},
      {"SYSLOG_IDENTIFIER", kIdentifier, -1},
      {"WRENFOLD_LOG_KEY", kind.key.c_str(), -1},
  };
  gsize count = kind.key.empty() ? 3 : 4;
  return g_log_writer_journald(G_LOG_LEVEL_MESSAGE, fields, count, nullptr) == G_LOG_WRITER_HANDLED;
}

void SystemLog::writeToStderr(const std::string& message) {
  // One write call per record, so that records of several processes sharing
  // a terminal or pipe do not interleave.
  // A log line that cannot be written has nowhere else to go.
  (void)sys::writeAll(STDERR_FILENO, stderrRecord(message));
}

void SystemLog::writeToSyslog(const std::string& message, LogPriority priority) {
  if (!syslogSocket_) return;
  // RFC 3164 as syslog(3) writes it: "<PRI>Mmm dd hh:mm:ss ident[pid]: message".
  time_t now = time(nullptr);
  tm local;
  localtime_r(&now, &local);
  char stamp[32];
  std::strftime(stamp, sizeof stamp, "%h %e %T", &local);
  std::string datagram = "<" + std::to_string(kFacilityUser | static_cast<int>(priority)) + ">" +
                         stamp + " " + kIdentifier + "[" + std::to_string(getpid()) +
                         "]: " + message;
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  std::strncpy(address.sun_path, "/dev/log", sizeof address.sun_path - 1);
  // No syslog daemon is no failure worth a record: the stderr record stands.
  while (sendto(syslogSocket_.get(), datagram.data(), datagram.size(), MSG_NOSIGNAL,
                reinterpret_cast<const sockaddr*>(&address), sizeof address) < 0 &&
         errno == EINTR) {
  }
}

}  // namespace wf::platform
