// OmniFocus's project names, asked of a running OmniFocus with a script
// shipped as a resource beside the program.

#include "app/WFHelperAppDelegate.h"
#include "platform/LogKeys.h"
#include "platform/base/Files.h"
#include "platform/foundation/Strings.h"
#include "projects/ListFile.h"
#include "projects/ProjectImportState.h"
#include "projects/ScriptImport.h"

namespace wf {
namespace {

// In order of preference.
const std::vector<std::string>& omniFocusIdentifiers() {
  static const std::vector<std::string> ids{
      "com.omnigroup.OmniFocus2",
      "com.omnigroup.OmniFocus2.MacAppStore",
      "com.omnigroup.OmniFocus.MacAppStore",
      "com.omnigroup.OmniFocus",
  };
  return ids;
}

// OmniFocus 2's standard edition offers no scripting at all.
bool isOmniFocus2(const std::string& identifier) {
  return ns::hasPrefix(identifier, "com.omnigroup.OmniFocus2");
}

constexpr const char* kOmniFocus2Message =
    "Cannot access OmniFocus 2 projects.\n"
    "\t\tWrenfold can only fetch projects from OmniFocus 2 Pro.\n"
    "\t\tOmniFocus 2 regular edition is not AppleScriptable.\n"
    "\t\tThis message will only be shown once.";

// The script's text, UTF-8; nullopt when missing or unreadable.
std::optional<std::string> projectsScriptSource(const platform::Environment& environment) {
  auto path = environment.pathForResource("OFProjectsScript", "txt");
  if (!path) return std::nullopt;
  auto read = sys::readRegularFile(*path, sys::kMaxPropertyListFileBytes);
  if (!read) return std::nullopt;
  std::string text = std::move(read.value());
  if (!ns::isValidUTF8(text)) return std::nullopt;
  return text;
}

}  // namespace

void WFHelperAppDelegate::_fetchOmniFocusProjects() {
  auto& state = projectImportState(*this);
  auto& omniFocus = state.omniFocus;
  Array projects;

  const auto running = services().workspace->runningApplicationIdentifiers();
  WFLogKeyed(kLogOmniFocusProjects, "runningApps %@", stringArray(running));
  const auto found = firstRunning(omniFocusIdentifiers(), running);
  if (found) WFLogKeyed(kLogOmniFocusProjects, "%@ is Running", Value(*found));

  // A new OmniFocus (or none) starts afresh; the link is left alone.
  if (!found || found != omniFocus.runningIdentifier) {
    omniFocus._static_script.reset();
    omniFocus.runningIdentifier = found;
    state._sCantCompileForOF2 = false;
  }

  if (omniFocus.runningIdentifier && !omniFocus._static_script &&
      !(isOmniFocus2(*omniFocus.runningIdentifier) && state._sCantCompileForOF2)) {
    const std::string& identifier = *omniFocus.runningIdentifier;
    WFLogKeyed(kLogOmniFocusProjects, "Building OF Script");
    omniFocus.link = services().scripting
                         ? services().scripting->applicationWithBundleIdentifier(identifier)
                         : nullptr;
    if (!omniFocus.link) {
      WFLogKeyed(kLogOmniFocusProjects, "could not initiate a link to any OmniFocus app");
    } else {
      WFLogKeyed(kLogOmniFocusProjects, "Linked to application: %@", Value(identifier));
      const auto source = projectsScriptSource(*services().environment);
      NSLog("scriptSource: %@", optionalString(source));
      omniFocus._static_script = services().scripting->scriptWithSource(identifier, source);
      std::string compileError;  // deliberately not written anywhere
      if (!omniFocus._static_script || !omniFocus._static_script->compile(&compileError)) {
        if (isOmniFocus2(identifier)) {
          state._sCantCompileForOF2 = true;
          NSLog(kOmniFocus2Message);
        } else {
          NSLog("Can't compile applescript to access OmniFocus projects");
        }
        omniFocus._static_script.reset();
        omniFocus.link.reset();
      }
    }
  }

  if (!omniFocus._static_script || state._sCantCompileForOF2) {
    WFLogKeyed(kLogOmniFocusProjects, "OmniFocus is not running");
    return;
  }

  state.sOmniFocusState = true;
  WFLogKeyed(kLogOmniFocusProjects, "OF is running -- sending Script");
  try {
    std::string errorDescription;
    auto result = omniFocus._static_script->execute(&errorDescription);
    if (!result) {
      NSLog("Error requesting OmniFocus projects: %@", Value(errorDescription));
      state._sCantCompileForOF2 = true;
    }
    appendItemTexts(result.get(), projects);
  } catch (const NSException&) {
    NSLog("Couldn't get OF projects");
  }
  // An execution error silences the import until OmniFocus is restarted.
  if (state._sCantCompileForOF2) return;

  const Value list(std::move(projects));
  WFLogKeyed(kLogOmniFocusProjects, "found projects: %@", list);
  const auto path = externalProjectFilePath(kOmniFocusProjectsFile);
  WFLogKeyed(kLogOmniFocusProjects, "Reading current OF projects from %@", optionalString(path));
  const Value current = readListFile(path);
  WFLogKeyed(kLogOmniFocusProjects, "Current Projects %@", current);
  if (listFileDiffers(current, list)) {
    WFLogKeyed(kLogOmniFocusProjects, "writing to File: %@", optionalString(path));
    writeListFile(path, list);
  }
  WFLogKeyed(kLogOmniFocusProjects, "retrieved OF Projects: %@", list);
}

}  // namespace wf
