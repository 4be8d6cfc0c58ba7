#include "platform/linux/SystemClock.h"

#include <glib.h>

namespace wf::platform {

// Seconds from 1970-01-01 to 2001-01-01.
constexpr double kReferenceDateOffset = 978307200.0;

double SystemClock::now() const {
  return static_cast<double>(g_get_real_time()) / 1e6 - kReferenceDateOffset;
}

}  // namespace wf::platform
