#include "support/MainLoopPump.h"

namespace wf::test {

namespace {
gboolean setFlag(gpointer flag) {
  *static_cast<bool*>(flag) = true;
  return G_SOURCE_REMOVE;
}
}  // namespace

bool runUntil(const std::function<bool()>& done, double seconds, GMainContext* context) {
  bool expired = false;
  GSource* timer = g_timeout_source_new(static_cast<guint>(seconds * 1000));
  g_source_set_callback(timer, setFlag, &expired, nullptr);
  g_source_attach(timer, context);
  while (!done() && !expired) g_main_context_iteration(context, TRUE);
  g_source_destroy(timer);
  g_source_unref(timer);
  return done();
}

void runFor(double seconds) {
  runUntil([] { return false; }, seconds);
}

}  // namespace wf::test
