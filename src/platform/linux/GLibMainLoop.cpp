#include "platform/linux/GLibMainLoop.h"

#include <glib-unix.h>
#include <unistd.h>

#include <cmath>
#include <csignal>
#include <cstdio>

#include "platform/linux/Dispatch.h"
#include "platform/linux/SystemdNotify.h"

namespace wf::platform {
namespace {

struct DelayedCall {
  std::function<void()> fn;
};

gboolean fireDelayedCall(gpointer data) {
  auto* call = static_cast<DelayedCall*>(data);
  // One-shot: the source is removed when this returns, and the call is
  // freed by destroyDelayedCall; take the function out first so that it may
  // schedule or cancel freely.
  std::function<void()> fn = std::move(call->fn);
  dispatchGuarded(fn);
  return G_SOURCE_REMOVE;
}

void destroyDelayedCall(gpointer data) { delete static_cast<DelayedCall*>(data); }

gboolean onTerminatingSignal(gpointer data) {
  static_cast<GLibMainLoop*>(data)->terminate();
  return G_SOURCE_REMOVE;
}

gboolean onHangupSignal(gpointer data) {
  auto* fn = static_cast<std::function<void()>*>(data);
  if (*fn) dispatchGuarded(*fn);
  return G_SOURCE_CONTINUE;
}

}  // namespace

[[noreturn]] void endProcess(int status) {
  systemdNotify("STOPPING=1");
  std::fflush(stdout);
  std::fflush(stderr);
  _exit(status);
}

GLibMainLoop::GLibMainLoop() : loop_(g_main_loop_new(nullptr, FALSE)) {}

GLibMainLoop::~GLibMainLoop() = default;

TimerId GLibMainLoop::performAfterDelay(double seconds, std::function<void()> fn) {
  double ms = seconds > 0 ? std::ceil(seconds * 1000.0) : 0.0;
  if (ms > static_cast<double>(G_MAXUINT)) ms = static_cast<double>(G_MAXUINT);
  auto* call = new DelayedCall{std::move(fn)};
  // Long delays in whole seconds (the interval runs) use the coarse timer,
  // which the system batches with others' wake-ups.
  guint id;
  if (ms >= 10000.0 && std::fmod(ms, 1000.0) == 0.0)
    id = g_timeout_add_seconds_full(G_PRIORITY_DEFAULT, static_cast<guint>(ms / 1000.0),
                                    fireDelayedCall, call, destroyDelayedCall);
  else
    id = g_timeout_add_full(G_PRIORITY_DEFAULT, static_cast<guint>(ms), fireDelayedCall, call,
                            destroyDelayedCall);
  return id;
}

void GLibMainLoop::cancel(TimerId id) {
  if (id == 0) return;
  if (GSource* source = g_main_context_find_source_by_id(nullptr, id)) g_source_destroy(source);
}

void GLibMainLoop::terminate() { endProcess(0); }

void GLibMainLoop::run() { g_main_loop_run(loop_.get()); }

void GLibMainLoop::terminateOnSignals() {
  g_unix_signal_add(SIGTERM, onTerminatingSignal, this);
  g_unix_signal_add(SIGINT, onTerminatingSignal, this);
}

void GLibMainLoop::onHangup(std::function<void()> fn) {
  bool first = !hangup_;
  hangup_ = std::move(fn);
  if (first) g_unix_signal_add(SIGHUP, onHangupSignal, &hangup_);
}

}  // namespace wf::platform
