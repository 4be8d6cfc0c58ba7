#include "platform/linux/SystemLog.h"

#include <sys/syscall.h>
#include <sys/time.h>
#include <syslog.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <ctime>

namespace wf::platform {

SystemLog::SystemLog() { openlog("wrenfold-helper", LOG_PID, LOG_USER); }

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
  // One write call per record, so that records of several processes sharing
  // a terminal or pipe do not interleave.
  std::string record = stderrRecord(message);
  const char* p = record.data();
  std::size_t left = record.size();
  while (left > 0) {
    ssize_t n = ::write(STDERR_FILENO, p, left);
    if (n < 0 && errno == EINTR) continue;
    if (n <= 0) break;
    p += n;
    left -= static_cast<std::size_t>(n);
  }
  syslog(LOG_NOTICE, "%s", message.c_str());
}

}  // namespace wf::platform
