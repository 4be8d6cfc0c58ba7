// Which priority a record of the helper has in the journal and in syslog,
// and which log key a keyed line carries. Read from the record's text: the
// helper's texts are fixed, and keeping the classification here leaves
// every caller of NSLog as it is.
#pragma once

#include <string>
#include <vector>

namespace wf::platform {

// syslog(3) priorities.
enum class LogPriority { Error = 3, Warning = 4, Notice = 5, Info = 6, Debug = 7 };

struct LogRecordKind {
  LogPriority priority = LogPriority::Notice;
  std::string key;  // the log key of a keyed line, "" for others
};

// Keyed lines "(key)…": Info with their key. Failures: Warning, or Error
// where the helper cannot go on. Unconditional diagnostic lines: Info.
// Launch, switch states and the rest: Notice.
LogRecordKind classifyRecord(const std::string& message);

}  // namespace wf::platform
