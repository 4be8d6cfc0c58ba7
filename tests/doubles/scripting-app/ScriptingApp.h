// The double's bus side: owns the well-known name and answers every method
// call addressed to it from the main loop.
#pragma once

#include <gio/gio.h>

#include <string>
#include <utility>
#include <vector>

#include "Description.h"

namespace wf::test {

class ScriptingApp {
 public:
  explicit ScriptingApp(Options options) : options_(std::move(options)) {}
  // Connects, owns the name, prints "ready" on standard output once it owns
  // it, and serves until SIGTERM or SIGINT. Returns the exit status.
  int run();

  // Called on the main context for each method call addressed to the name.
  void handle(GDBusMessage* call);

 private:
  void reply(GDBusMessage* call, GVariant* body);
  void replyError(GDBusMessage* call, const char* name, const std::string& message);
  // Whether a misbehaviour consumed the call (nothing else is to be done).
  bool misbehave(GDBusMessage* call, const Value& description);
  void compile(GDBusMessage* call, const Value& description);
  void execute(GDBusMessage* call, const Value& description);
  void getProperty(GDBusMessage* call, const Value& description);
  void calls(GDBusMessage* call);

  Options options_;
  GDBusConnection* bus_ = nullptr;
  GMainLoop* loop_ = nullptr;
  long answered_ = 0;  // scripting calls seen, for "misbehaveAfter"
  std::vector<std::pair<std::string, std::string>> calls_;  // method, argument
  std::vector<GDBusMessage*> unanswered_;                   // hung calls, kept alive
  int status_ = 0;
};

}  // namespace wf::test
