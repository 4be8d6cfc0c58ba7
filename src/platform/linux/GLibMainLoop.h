// The main loop on the GLib default main context: delayed calls are one-shot
// timeout sources removed by their source id; terminate flushes the log and
// ends the process at once.
#pragma once

#include <glib.h>

#include <functional>

#include "platform/Platform.h"
#include "platform/glib/Owners.h"

namespace wf::platform {

class GLibMainLoop : public MainLoop {
 public:
  GLibMainLoop();
  ~GLibMainLoop() override;
  TimerId performAfterDelay(double seconds, std::function<void()> fn) override;
  void cancel(TimerId id) override;
  [[noreturn]] void terminate() override;

  // Runs the default main context until terminate().
  void run();
  // SIGTERM and SIGINT end the helper as terminate() does.
  void terminateOnSignals();
  // SIGHUP calls `fn` on the loop (and so never ends the helper): a closed
  // terminal or a `kill -HUP` asks a daemon to read its settings again.
  void onHangup(std::function<void()> fn);

 private:
  sys::GPtr<GMainLoop> loop_;
  std::function<void()> hangup_;
};

// Flushes standard error and the system log, then ends the process with
// `status` without running anything else.
[[noreturn]] void endProcess(int status);

}  // namespace wf::platform
