#include "app/StatusCommand.h"

#include <cstdio>
#include <cstdlib>
#include <memory>
#include <string>

#include "app/StatusReport.h"
#include "platform/linux/SessionBus.h"
#include "platform/linux/StatusInterface.h"
#include "platform/linux/SystemdNotify.h"

namespace wf {
namespace {

constexpr int kAnswerTimeoutMs = 10000;

struct ServiceStatus {
  platform::MainLoop* loop;
  std::function<Value()> report;
  std::string sent;
  void tick() {
    std::string line = statusSummaryLine(report());
    if (line != sent && platform::systemdNotify("STATUS=" + line)) sent = line;
    loop->performAfterDelay(1.0, [this] { tick(); });
  }
};

}  // namespace

int runStatusCommand(bool json) {
  auto connected = platform::connectSessionBus();
  if (!connected) {
    std::fprintf(stderr, "wrenfold-helper: cannot connect to the session bus: %s\n",
                 connected.error().message.c_str());
    return 1;
  }
  platform::StatusAnswer answer = platform::askHelperStatus(*connected, kAnswerTimeoutMs);
  switch (answer.outcome) {
    case platform::StatusAnswer::Outcome::NoHelper:
      std::fputs("wrenfold-helper: no helper is running on this session bus\n", stderr);
      return 3;
    case platform::StatusAnswer::Outcome::Failed:
      std::fprintf(stderr, "wrenfold-helper: the helper did not answer: %s\n",
                   answer.error.c_str());
      return 1;
    case platform::StatusAnswer::Outcome::Answered:
      break;
  }
  std::string out = json ? statusJson(answer.report) : statusText(answer.report);
  std::fputs(out.c_str(), stdout);
  return 0;
}

void publishServiceStatus(platform::MainLoop& loop, std::function<Value()> report) {
  if (!platform::systemdNotify("READY=1")) return;  // nobody listens
  // Lives as long as the process.
  auto* status = new ServiceStatus{&loop, std::move(report), {}};
  status->tick();
}

}  // namespace wf
