// NSLog on Linux: one record on standard error with the head
// "YYYY-MM-DD HH:MM:SS.mmm wrenfold-helper[PID:TID] " (local time, the
// kernel's thread id), the message with its own line breaks, a line break;
// and the same message to syslog (the journal on systemd machines).
#pragma once

#include <string>

#include "platform/Platform.h"

namespace wf::platform {

class SystemLog : public Log {
 public:
  SystemLog();
  void write(const std::string& message) override;
};

// The stderr record of a message at the current time.
std::string stderrRecord(const std::string& message);

}  // namespace wf::platform
