// wf-test-scripting-app: a stand-in for an application that offers
// scripting (OmniFocus, The Hit List, Things), for tests.
//
//   wf-test-scripting-app --name ID [--description FILE] [--compile-error TEXT]
//       [--execute-error TEXT] [--result ITEM]... [--misbehave hang|crash|flood]
//       [--misbehave-after N]
//
// It owns ID on the session bus, prints "ready" once it does, and serves
// org.ardel.OpenScripting on "/" and org.ardel.ScriptingBridge objects as
// the description says (see Description.h). org.ardel.TestDouble.Calls on
// "/" returns the calls received so far as (method, argument) pairs.
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

#include "Description.h"
#include "ScriptingApp.h"

int main(int argc, char** argv) {
  wf::test::Options options;
  wf::Array results;
  bool haveResults = false;
  for (int i = 1; i < argc; ++i) {
    std::string arg = argv[i];
    auto next = [&]() -> std::string {
      if (i + 1 >= argc) {
        std::fprintf(stderr, "wf-test-scripting-app: %s needs a value\n", arg.c_str());
        std::exit(64);
      }
      return argv[++i];
    };
    if (arg == "--name") {
      options.name = next();
    } else if (arg == "--description") {
      options.descriptionFile = next();
    } else if (arg == "--compile-error") {
      options.overrides["compile"] = wf::Value(next());
    } else if (arg == "--execute-error") {
      options.overrides["execute"] = wf::Value(wf::Dictionary{{"error", wf::Value(next())}});
    } else if (arg == "--result") {
      results.emplace_back(next());
      haveResults = true;
    } else if (arg == "--misbehave") {
      options.overrides["misbehave"] = wf::Value(next());
    } else if (arg == "--misbehave-after") {
      options.overrides["misbehaveAfter"] = wf::Value(std::stol(next()));
    } else {
      std::fprintf(stderr, "wf-test-scripting-app: unknown argument %s\n", arg.c_str());
      return 64;
    }
  }
  if (haveResults)
    options.overrides["execute"] = wf::Value(wf::Dictionary{{"result", wf::Value(results)}});
  if (options.name.empty()) {
    std::fprintf(stderr, "wf-test-scripting-app: --name is required\n");
    return 64;
  }
  return wf::test::ScriptingApp(options).run();
}
