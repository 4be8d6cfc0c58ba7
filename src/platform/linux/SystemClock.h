// The wall clock as Foundation's reference-date seconds.
#pragma once

#include "platform/Platform.h"

namespace wf::platform {

class SystemClock : public Clock {
 public:
  double now() const override;
};

}  // namespace wf::platform
