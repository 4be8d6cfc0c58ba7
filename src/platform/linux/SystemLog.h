// NSLog on Linux. Under a service manager whose journal is standard error
// (JOURNAL_STREAM names stderr's device and inode), each record goes to the
// journal once, natively: the whole message as one entry, with its priority,
// SYSLOG_IDENTIFIER=wrenfold-helper and, for keyed lines,
// WRENFOLD_LOG_KEY=<key>. Anywhere else: one record on standard error with
// the head "YYYY-MM-DD HH:MM:SS.mmm wrenfold-helper[PID:TID] " (local time,
// the kernel's thread id), the message with its own line breaks and a line
// break; and the same message once to syslog (/dev/log) over one socket.
//
// Writing a record never blocks the main loop: a journal, pipe or terminal
// that is not taking records right now makes the record dropped and
// counted, and once records go through again one line says how many were
// lost.
#pragma once

#include <cstdint>
#include <deque>
#include <string>
#include <utility>
#include <vector>

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
  // Records dropped since launch because their destination would have
  // blocked (or failed).
  std::uint64_t droppedRecords() const { return dropped_; }
  // The last 20 failure records (warnings and errors) with their times in
  // seconds since 2001-01-01, oldest first, whether or not they were written.
  const std::deque<std::pair<double, std::string>>& recentFailures() const { return failures_; }

 private:
  enum class Outcome { Written, WouldBlock, Failed };
  bool writeRecord(const std::string& message);
  Outcome writeToJournal(const std::string& message, const LogRecordKind& kind);
  bool writeToStderr(const std::string& message);
  Outcome writeSome(const char* p, std::size_t size, std::size_t* written);
  void flushBacklog();
  void writeToSyslog(const std::string& message, LogPriority priority);

  bool journal_ = false;
  sys::UniqueFd journalSocket_;
  sys::UniqueFd syslogSocket_;
  // Standard error as this process writes it: a description of its own in
  // non-blocking mode for a pipe or terminal (the shared one stays as the
  // parent left it), standard error itself otherwise.
  sys::UniqueFd ownStderr_;
  int stderrFd_ = 2;
  bool stderrIsSocket_ = false;
  // Standard error's records that the reader has not taken yet, written
  // out when it can take them; past the limit a record is dropped.
  static constexpr std::size_t kBacklogLimit = std::size_t{1} << 20;
  std::string backlog_;
  unsigned flushSource_ = 0;
  std::uint64_t dropped_ = 0;
  std::uint64_t droppedReported_ = 0;
  std::deque<std::pair<double, std::string>> failures_;
};

// The stderr record of a message at the current time.
std::string stderrRecord(const std::string& message);

// Whether JOURNAL_STREAM ("device:inode") names the file open on `fd`.
bool streamIsJournal(int fd);

// One datagram of the journal's native protocol for these fields: "KEY=value\n",
// or "KEY\n" + 64-bit little-endian length + value + "\n" when the value holds
// a line break.
std::string journalDatagram(const std::vector<std::pair<std::string, std::string>>& fields);

}  // namespace wf::platform
