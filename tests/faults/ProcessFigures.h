// What a running process costs, read from /proc: resident memory, open
// descriptors, and a round trip of the helper timed from outside.
#pragma once

#include <sys/types.h>

#include <optional>
#include <string>

#include "support/Harness.h"

namespace wf::faults {

// Under AddressSanitizer freed memory waits in its quarantine and the C
// library's trim does not apply: resident sizes say nothing then.
#if defined(__SANITIZE_ADDRESS__)
inline constexpr bool kSanitizerAllocator = true;
#elif defined(__has_feature)
#if __has_feature(address_sanitizer)
inline constexpr bool kSanitizerAllocator = true;
#else
inline constexpr bool kSanitizerAllocator = false;
#endif
#else
inline constexpr bool kSanitizerAllocator = false;
#endif

// VmRSS of /proc/PID/status in KiB; -1 when the process is gone.
long residentKiB(pid_t pid);
// Entries of /proc/PID/fd; -1 when the process is gone.
int openDescriptors(pid_t pid);

// Seconds the helper took to answer one "WrenfoldPreferencesDidChange";
// nullopt when no answer came within `bound` seconds.
std::optional<double> timedRoundTrip(e2e::Session& s, double bound);

// Smallest, largest and last value of a figure watched over a while.
struct Range {
  long first = -1, peak = -1, last = -1;
  void add(long value) {
    if (first < 0) first = value;
    if (value > peak) peak = value;
    last = value;
  }
  std::string text() const;
};

}  // namespace wf::faults
