// wrenfold-helper: the process entry. Wires the Linux platform to the
// delegate, runs the launch sequence and then the GLib main loop.
#include <unistd.h>

#include <cstdio>
#include <string>
#include <vector>

#include "app/CommandLine.h"
#include "app/StatusCommand.h"
#include "app/StatusReport.h"
#include "app/Usage.h"
#include "app/WFHelperAppDelegate.h"
#include "platform/linux/ApplicationName.h"
#include "platform/linux/DBusScripting.h"
#include "platform/linux/Dispatch.h"
#include "platform/linux/GLibMainLoop.h"
#include "platform/linux/InotifyFileEventStream.h"
#include "platform/linux/LinuxRemoteFolders.h"
#include "platform/linux/MemoryRelease.h"
#include "platform/linux/MimeAppsUrlHandlers.h"
#include "platform/linux/ProcessDefaults.h"
#include "platform/linux/ProcessEnvironment.h"
#include "platform/linux/SessionBus.h"
#include "platform/linux/StatusInterface.h"
#include "platform/linux/SystemClock.h"
#include "platform/linux/SystemLog.h"
#include "platform/linux/XdgAutostartLoginItems.h"

int main(int argc, char** argv) {
  using namespace wf;
  using namespace wf::platform;
  restartWithMallocSlices(argv);

  std::vector<std::string> arguments(argv + (argc > 0 ? 1 : 0), argv + argc);
  ProcessEnvironment environment;
  CommandLine line = readCommandLine(arguments);
  switch (line.action) {
    case CommandLine::Action::Help:
      std::fputs(kUsage, stdout);
      return 0;
    case CommandLine::Action::Version: {
      Value version = environment.infoValue("CFBundleVersion");
      std::printf("wrenfold-helper %s\n", version.isString() ? version.asString().c_str() : "");
      return 0;
    }
    case CommandLine::Action::Misuse:
      std::fputs(misuseLine(line.offending).c_str(), stderr);
      return 2;
    case CommandLine::Action::Status:
      return runStatusCommand(line.json);
    case CommandLine::Action::Launch:
      break;
  }

  SystemLog log;
  setNSLogSink(&log);

  auto connected = connectSessionBus();
  if (!connected) {
    NSLogMessage("cannot connect to the session bus: " + connected.error().message);
    endProcess(1);
  }
  GDBusConnection* bus = *connected;

  // Before anything acts: the first owner of the name is the helper of this
  // session, and a later copy leaves mimeapps.list, the autostart entry,
  // the watchers and the sync folder to it.
  NameClaim claim = claimApplicationName(bus, environment.bundleIdentifier());
  if (claim.outcome == NameClaim::Outcome::HeldByAnother) {
    NSLogMessage(alreadyRunningMessage(claim.ownerPid));
    endProcess(0);
  }
  if (claim.outcome == NameClaim::Outcome::Failed) {
    NSLogMessage("cannot own " + environment.bundleIdentifier() +
                 " on the session bus: " + claim.error);
    endProcess(1);
  }

  SystemClock clock;
  GLibMainLoop loop;
  BusNotificationCenter notifications(bus);
  BusWorkspace workspace(bus);
  InotifyFileEventStreamFactory fileEvents(log);
  DBusScripting scripting(bus, workspace);
  XdgAutostartLoginItems loginItems(environment);
  MimeAppsUrlHandlers urlHandlers(environment, workspace);
  LinuxRemoteFolders remoteFolders;
  ProcessDefaults defaults(parseArgumentDomain(argumentDomainWords(line)),
                           ProcessEnvironment::ownDefaultsFile());

  Services services{.clock = clock,
                    .loop = loop,
                    .log = log,
                    .notifications = notifications,
                    .workspace = workspace,
                    .defaults = defaults,
                    .environment = environment,
                    .fileEvents = fileEvents,
                    .scripting = &scripting,
                    .loginItems = &loginItems,
                    .urlHandlers = &urlHandlers,
                    .remoteFolders = &remoteFolders};

  WFHelperAppDelegate delegate(services);
  double launchedAt = clock.now();
  auto report = [&] {
    ProcessFacts facts;
    facts.pid = static_cast<long>(getpid());
    Value version = environment.infoValue("CFBundleVersion");
    facts.version = version.isString() ? version.asString() : std::string();
    facts.launched = launchedAt;
    const gchar* unique = g_dbus_connection_get_unique_name(bus);
    facts.bus = unique ? unique : "";
    facts.log = log.writesToJournal() ? "journal" : "stderr";
    facts.droppedLogLines = log.droppedRecords();
    facts.recentFailures.assign(log.recentFailures().begin(), log.recentFailures().end());
    return statusReport(delegate, facts);
  };
  exportStatusInterface(bus, report);
  loop.terminateOnSignals();
  loop.onHangup([&] {
    NSLogMessage("SIGHUP: reading the preferences and the helper's own defaults again");
    delegate.preferencesDidChange(nullptr);
  });
  dispatchGuarded([&] { delegate.applicationDidFinishLaunching(); });
  announceLaunched(bus);
  publishServiceStatus(loop, report);
  loop.run();
  return 0;
}
