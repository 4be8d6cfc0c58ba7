// NSLog on Linux. Under a service manager whose journal is standard error
// (JOURNAL_STREAM names stderr's device and inode), each record goes to the
// journal once, natively: the whole message as one entry, with its priority,
// SYSLOG_IDENTIFIER=wrenfold-helper and, for keyed lines,
// WRENFOLD_LOG_KEY=<key>. Anywhere else: one record on standard error with
// the head "YYYY-MM-DD HH:MM:SS.mmm wrenfold-helper[PID:TID] " (local time,
// the kernel's thread id), the message with its own line breaks and a line
// break; and the same message once to syslog (/dev/log) over one socket.
#pragma once

#include <string>

#include "platform/Platform.h"
#include "platform/base/Owners.h"
#include "platform/linux/LogPriority.h"

namespace wf::platform {

class SystemLog : public Log {
 public:
  SystemLog();
  ~SystemLog() override;
  SystemLog(const SystemLog&) = delete;
  SystemLog& operator=(const SystemLog&) = delete;
  void write(const std::string& message) override;
  bool writesToJournal() const { return journal_; }

 private:
  bool writeToJournal(const std::string& message, const LogRecordKind& kind);
  void writeToStderr(const std::string& message);
  void writeToSyslog(const std::string& message, LogPriority priority);

  bool journal_ = false;
  sys::UniqueFd syslogSocket_;
};

// The stderr record of a message at the current time.
std::string stderrRecord(const std::string& message);

// Whether JOURNAL_STREAM ("device:inode") names the file open on `fd`.
bool streamIsJournal(int fd);

}  // namespace wf::platform
