#include "platform/linux/SystemLog.h"

#include <fcntl.h>
#include <glib-unix.h>
#include <glib.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/time.h>
#include <sys/un.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>

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
  // (or the journal) one datagram each, never by reconnecting.
  if (journal_)
    journalSocket_.reset(socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
  else
    syslogSocket_.reset(socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));

  struct stat st;
  if (fstat(STDERR_FILENO, &st) != 0) return;
  if (S_ISSOCK(st.st_mode)) {
    stderrIsSocket_ = true;  // sent with MSG_DONTWAIT
  } else if (S_ISFIFO(st.st_mode) || S_ISCHR(st.st_mode)) {
    // O_NONBLOCK on fd 2 itself would reach the shell or collector that
    // shares it; a description of our own leaves theirs alone. A regular
    // file keeps fd 2, whose offset (or O_APPEND) the parent may share.
    ownStderr_.reset(open("/proc/self/fd/2", O_WRONLY | O_NONBLOCK | O_CLOEXEC | O_NOCTTY));
    if (ownStderr_) stderrFd_ = ownStderr_.get();
  }
}

SystemLog::~SystemLog() {
  if (flushSource_) g_source_remove(flushSource_);
  // Whatever the reader takes now; the rest is lost with the process.
  flushBacklog();
}

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

std::string journalDatagram(const std::vector<std::pair<std::string, std::string>>& fields) {
  std::string d;
  for (const auto& [key, value] : fields) {
    d += key;
    if (value.find('\n') == std::string::npos) {
      d += '=';
      d += value;
    } else {
      d += '\n';
      std::uint64_t length = value.size();
      for (int i = 0; i < 8; ++i) d += static_cast<char>((length >> (8 * i)) & 0xff);
      d += value;
    }
    d += '\n';
  }
  return d;
}

void SystemLog::write(const std::string& message) {
  if (classifyRecord(message).priority <= LogPriority::Warning) {
    timeval tv;
    gettimeofday(&tv, nullptr);
    failures_.emplace_back(static_cast<double>(tv.tv_sec) + tv.tv_usec / 1e6 - 978307200.0,
                           message);
    if (failures_.size() > 20) failures_.pop_front();
  }
  if (!writeRecord(message)) {
    ++dropped_;
    return;
  }
  // The first record through after a stall says what the stall cost.
  if (dropped_ > droppedReported_) {
    std::uint64_t lost = dropped_ - droppedReported_;
    droppedReported_ = dropped_;
    (void)writeRecord(std::to_string(lost) +
                      " log lines were dropped: the log (standard error or the journal) was not "
                      "taking them without waiting");
  }
}

bool SystemLog::writeRecord(const std::string& message) {
  LogRecordKind kind = classifyRecord(message);
  // The journal keeps stderr as well; writing both would log each record
  // twice. Should the journal refuse the record, stderr still gets it; a
  // journal that is merely busy drops it.
  if (journal_) {
    Outcome outcome = writeToJournal(message, kind);
    if (outcome == Outcome::Written) return true;
    if (outcome == Outcome::WouldBlock) return false;
  }
  bool written = writeToStderr(message);
  if (!journal_) writeToSyslog(message, kind.priority);
  return written;
}

SystemLog::Outcome SystemLog::writeToJournal(const std::string& message,
                                             const LogRecordKind& kind) {
  if (!journalSocket_) return Outcome::Failed;
  std::vector<std::pair<std::string, std::string>> fields = {
      {"MESSAGE", message},
      {"PRIORITY", std::to_string(static_cast<int>(kind.priority))},
      {"SYSLOG_IDENTIFIER", kIdentifier}};
  if (!kind.key.empty()) fields.emplace_back("WRENFOLD_LOG_KEY", kind.key);
  std::string datagram = journalDatagram(fields);
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  std::strncpy(address.sun_path, "/run/systemd/journal/socket", sizeof address.sun_path - 1);
  for (;;) {
    if (sendto(journalSocket_.get(), datagram.data(), datagram.size(), MSG_NOSIGNAL | MSG_DONTWAIT,
               reinterpret_cast<const sockaddr*>(&address), sizeof address) >= 0)
      return Outcome::Written;
    if (errno == EINTR) continue;
    return errno == EAGAIN || errno == EWOULDBLOCK ? Outcome::WouldBlock : Outcome::Failed;
  }
}

bool SystemLog::writeToStderr(const std::string& message) {
  std::string record = stderrRecord(message);
  // Records wait behind the backlog so that they stay in order; a reader
  // that is slow for a moment (a test harness, a busy collector) loses
  // nothing, one that never reads loses what exceeds the backlog.
  if (!backlog_.empty()) flushBacklog();
  if (!backlog_.empty()) {
    if (backlog_.size() + record.size() > kBacklogLimit) return false;
    backlog_ += record;
    return true;
  }
  // One write call per record, so that records of several processes sharing
  // a terminal or pipe do not interleave; a pipe takes a record of up to
  // PIPE_BUF bytes whole or not at all.
  std::size_t written = 0;
  switch (writeSome(record.data(), record.size(), &written)) {
    case Outcome::Written:
      return true;
    case Outcome::Failed:
      return false;
    case Outcome::WouldBlock:
      break;
  }
  backlog_.assign(record, written, std::string::npos);
  if (!flushSource_) {
    flushSource_ = g_unix_fd_add(
        stderrFd_, G_IO_OUT,
        +[](gint, GIOCondition, gpointer self) -> gboolean {
          auto* log = static_cast<SystemLog*>(self);
          log->flushBacklog();
          if (!log->backlog_.empty()) return G_SOURCE_CONTINUE;
          log->flushSource_ = 0;
          return G_SOURCE_REMOVE;
        },
        this);
  }
  return true;
}

SystemLog::Outcome SystemLog::writeSome(const char* p, std::size_t size, std::size_t* written) {
  *written = 0;
  while (*written < size) {
    ssize_t n = stderrIsSocket_
                    ? send(stderrFd_, p + *written, size - *written, MSG_NOSIGNAL | MSG_DONTWAIT)
                    : ::write(stderrFd_, p + *written, size - *written);
    if (n < 0) {
      if (errno == EINTR) continue;
      return errno == EAGAIN || errno == EWOULDBLOCK ? Outcome::WouldBlock : Outcome::Failed;
    }
    *written += static_cast<std::size_t>(n);
  }
  return Outcome::Written;
}

void SystemLog::flushBacklog() {
  if (backlog_.empty()) return;
  std::size_t written = 0;
  Outcome outcome = writeSome(backlog_.data(), backlog_.size(), &written);
  if (outcome == Outcome::Failed) {
    // Nowhere to write any more: what waited is lost.
    dropped_ += static_cast<std::uint64_t>(std::count(backlog_.begin(), backlog_.end(), '\n'));
    backlog_.clear();
    return;
  }
  backlog_.erase(0, written);
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
