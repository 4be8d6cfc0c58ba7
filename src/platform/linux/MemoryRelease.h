// Giving memory back to the system after a burst. The C library keeps the
// memory of freed blocks for reuse; after a flood of events (tens of
// thousands of notices or paths) that can be a hundred megabytes that the
// idle helper never needs again. malloc_trim(0) returns the free pages of
// every arena, the bus's worker thread's included.
#pragma once

#include <cstddef>

namespace wf::platform {

// Counts units of work (notices, event paths). Once `kBurstUnits` of them
// came in, the burst is over when no unit came for `kQuietSeconds`; then
// the free memory is returned, once. Cheap enough to call for each unit.
void noteBurstWork(std::size_t units = 1);
// The same at once for a burst known to be one (an overflowing queue).
void noteBurst();

// GLib before 2.76 keeps the memory of its small blocks (GSlice) for good:
// after a flood of bus messages, tens of megabytes that no trim can give
// back. With G_SLICE=always-malloc they are plain malloc blocks. GLib reads
// the variable as it loads, before main, so a process started without it
// starts itself once more, with it set, from the first line of main. Does
// nothing when G_SLICE is set already (the user's choice) or GLib is newer.
void restartWithMallocSlices(char** argv);

inline constexpr std::size_t kBurstUnits = 1024;
inline constexpr double kQuietSeconds = 1.0;

}  // namespace wf::platform
