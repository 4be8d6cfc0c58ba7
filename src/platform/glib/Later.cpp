#include "platform/glib/Later.h"

#include <glib.h>

#include "platform/glib/Owners.h"

namespace wf::sys {

void runAfterDelay(unsigned milliseconds, std::function<void()> fn) {
  GMainContext* context = g_main_context_get_thread_default();
  if (!context) context = g_main_context_default();
  GPtr<GSource> timeout(g_timeout_source_new(milliseconds));
  g_source_set_callback(
      timeout.get(),
      [](gpointer data) -> gboolean {
        (*static_cast<std::function<void()>*>(data))();
        return G_SOURCE_REMOVE;
      },
      new std::function<void()>(std::move(fn)),
      [](gpointer data) { delete static_cast<std::function<void()>*>(data); });
  g_source_attach(timeout.get(), context);
}

}  // namespace wf::sys
