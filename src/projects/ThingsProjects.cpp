// Things and Things 3: twin imports that ask a running application for its
// active projects with a fixed script. Both keep "ThingsProjects.plist".
#include "app/WFHelperAppDelegate.h"
#include "platform/LogKeys.h"
#include "projects/ListFile.h"
#include "projects/ProjectImportState.h"
#include "projects/ScriptImport.h"
#include "projects/ThingsScripts.h"

namespace wf {
namespace {

// What tells the two imports apart.
struct ThingsFlavour {
  std::vector<std::string> identifiers;  // in order of preference
  const char* script;
  const char* readingFormat;  // the log line naming the file read
};

const ThingsFlavour& things() {
  static const ThingsFlavour flavour{
      {"com.culturedcode.things", "com.culturedcode.things_beta"},
      kThingsProjectsScript,
      // Names OmniFocus, as it always has.
      "Reading current OF projects from %@",
  };
  return flavour;
}

const ThingsFlavour& things3() {
  static const ThingsFlavour flavour{
      {"com.culturedcode.ThingsMac"},
      kThings3ProjectsScript,
      "Reading current Things projects from %@",
  };
  return flavour;
}

#define THINGS_LOG(...) \
  delegate.logForKey(kLogExternalProjects, __FILE__, function.c_str(), __LINE__, __VA_ARGS__)

void importThingsProjects(WFHelperAppDelegate& delegate, ScriptImportState& import,
                          const ThingsFlavour& flavour, const std::string& function) {
  auto& state = projectImportState(delegate);
  auto& services = delegate.services();
  Array projects;

  const auto running = services.workspace->runningApplicationIdentifiers();
  THINGS_LOG("runningApps %@", stringArray(running));
  const auto found = firstRunning(flavour.identifiers, running);
  if (found) THINGS_LOG("%@ is Running", Value(*found));

  // A new application (or none) starts afresh; the link is left alone.
  if (!found || found != import.runningIdentifier) {
    import._static_script.reset();
    import.runningIdentifier = found;
  }

  if (import.runningIdentifier && !import._static_script) {
    const std::string& identifier = *import.runningIdentifier;
    THINGS_LOG("Building Things Script");
    import.link = services.scripting
                      ? services.scripting->applicationWithBundleIdentifier(identifier)
                      : nullptr;
    if (!import.link) {
      THINGS_LOG("could not initiate a link to any Things app");
    } else {
      THINGS_LOG("Linked to application: %@", Value(identifier));
      // Not compiled here: the application compiles it when it runs it.
      import._static_script =
          services.scripting->scriptWithSource(identifier, std::string(flavour.script));
    }
  }

  if (!import._static_script) {
    THINGS_LOG("Things is not running");
    return;
  }

  state.sThingsState = true;
  THINGS_LOG("Things is running -- sending Script");
  try {
    std::string errorDescription;
    auto result = import._static_script->execute(&errorDescription);
    if (!result) NSLog("Error requesting Things: %@", Value(errorDescription));
    appendItemTexts(result.get(), projects);
  } catch (const NSException&) {
    NSLog("Couldn't get Things projects");
  }

  // Also after a failed exchange: what was gathered (perhaps nothing) is kept.
  const Value list(std::move(projects));
  THINGS_LOG("found projects: %@", list);
  const auto path = externalProjectFilePath(kThingsProjectsFile);
  THINGS_LOG(flavour.readingFormat, optionalString(path));
  const Value current = readListFile(path);
  THINGS_LOG("Current Projects %@", current);
  if (listFileDiffers(current, list)) {
    THINGS_LOG("writing to File: %@", optionalString(path));
    writeListFile(path, list);
  }
  THINGS_LOG("retrieved Things Projects: %@", list);
}

#undef THINGS_LOG

}  // namespace

void WFHelperAppDelegate::_fetchThingsProjects() {
  static const std::string function = delegateMethodName(__func__);
  importThingsProjects(*this, projectImportState(*this).things, things(), function);
}

void WFHelperAppDelegate::_fetchThings3Projects() {
  static const std::string function = delegateMethodName(__func__);
  importThingsProjects(*this, projectImportState(*this).things3, things3(), function);
}

}  // namespace wf
