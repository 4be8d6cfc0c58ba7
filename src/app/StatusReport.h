// The helper's status as one dictionary: what `GetStatus` answers on the
// bus and what `wrenfold-helper --status --json` prints. Built from what the
// delegate already holds, never from the disk. Every field is named here
// and nowhere else, one line each.
#pragma once

#include <cstdint>
#include <string>
#include <utility>
#include <vector>

#include "platform/plist/Value.h"

namespace wf {

class WFHelperAppDelegate;

// What only the process around the delegate knows.
struct ProcessFacts {
  long pid = 0;
  std::string version;
  double launched = 0;  // seconds since 2001-01-01
  std::string bus;      // the unique name on the session bus
  std::string log;      // "journal" or "stderr"
  std::uint64_t droppedLogLines = 0;
  std::vector<std::pair<double, std::string>> recentFailures;  // time, line; oldest first
};

Value statusReport(WFHelperAppDelegate& delegate, const ProcessFacts& facts);

// "2026-11-25T04:20:00Z" for a time in seconds since 2001-01-01; "" for 0.
std::string isoTime(double since2001);

// One line for a glance (and for the service manager's STATUS=): "Watching
// 1,204 mail folders (inotify) and ~/Sync (poll: fuse.sshfs); 12 imports,
// 0 failures".
std::string statusSummaryLine(const Value& report);

// The report as one JSON object (UTF-8, keys in order).
std::string statusJson(const Value& report);

// A few lines a person reads at a glance.
std::string statusText(const Value& report);

}  // namespace wf
