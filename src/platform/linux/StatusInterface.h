// org.ardel.WrenfoldHelper.Status on /org/ardel/WrenfoldHelper: one method,
// GetStatus() → a{sv}, that answers from what the helper holds in memory and
// changes nothing. And the other side: asking the helper of this session.
#pragma once

#include <gio/gio.h>

#include <functional>
#include <string>

#include "platform/plist/Value.h"

namespace wf::platform {

inline constexpr const char* kStatusInterface = "org.ardel.WrenfoldHelper.Status";

// Exports the interface; `report` is called for every GetStatus.
void exportStatusInterface(GDBusConnection* bus, std::function<Value()> report);

// A property-list value as a GVariant and back: dictionaries as a{sv},
// arrays as av, integers as x (t above the signed range), reals as d.
GVariant* variantOf(const Value& value);
Value valueOf(GVariant* variant);

struct StatusAnswer {
  enum class Outcome { Answered, NoHelper, Failed };
  Outcome outcome = Outcome::Failed;
  Value report;
  std::string error;
};

// Calls GetStatus on the owner of org.ardel.WrenfoldHelper, never starting
// one (no bus activation).
StatusAnswer askHelperStatus(GDBusConnection* bus, int timeoutMs);

}  // namespace wf::platform
