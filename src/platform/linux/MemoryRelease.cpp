#include "platform/linux/MemoryRelease.h"

#include <glib.h>
#include <malloc.h>
#include <stdlib.h>
#include <unistd.h>

#include <cstdlib>

namespace wf::platform {
namespace {

constexpr gint64 kQuietMicroseconds = static_cast<gint64>(kQuietSeconds * G_USEC_PER_SEC);

std::size_t gUnits = 0;
gint64 gLastWork = 0;
guint gTimer = 0;

gboolean onQuietCheck(gpointer);

void armTimer(gint64 microseconds) {
  gTimer = g_timeout_add(static_cast<guint>(microseconds / 1000 + 1), onQuietCheck, nullptr);
}

// Still busy: look again when the quiet time after the last unit is over.
gboolean onQuietCheck(gpointer) {
  gTimer = 0;
  gint64 quietFor = g_get_monotonic_time() - gLastWork;
  if (quietFor < kQuietMicroseconds) {
    armTimer(kQuietMicroseconds - quietFor);
  } else {
    gUnits = 0;
    malloc_trim(0);
  }
  return G_SOURCE_REMOVE;
}

}  // namespace

void noteBurstWork(std::size_t units) {
  gUnits += units;
  if (gUnits < kBurstUnits) return;
  noteBurst();
}

void restartWithMallocSlices(char** argv) {
  if (std::getenv("G_SLICE") || !glib_check_version(2, 76, 0)) return;
  setenv("G_SLICE", "always-malloc", 1);
  execv("/proc/self/exe", argv);
  unsetenv("G_SLICE");  // cannot start again: go on as it is
}

void noteBurst() {
  gLastWork = g_get_monotonic_time();
  if (!gTimer) armTimer(kQuietMicroseconds);
}

}  // namespace wf::platform
