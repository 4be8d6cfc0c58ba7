// Running a GLib main context in tests: bounded waits for events.
#pragma once

#include <glib.h>

#include <functional>

namespace wf::test {

// Iterates `context` (the default one when null) until `done` holds or
// `seconds` pass; returns whether it holds. Woken by a timeout on the same
// context, so it never spins.
bool runUntil(const std::function<bool()>& done, double seconds, GMainContext* context = nullptr);
// Iterates the default main context for `seconds` (for showing that
// nothing arrives), woken by a timeout rather than by polling.
void runFor(double seconds);

}  // namespace wf::test
