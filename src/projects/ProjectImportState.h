// What the imports of external projects keep between interval runs, for the
// life of the process. Nothing of it is saved; across launches only the
// list files persist.
#pragma once

#include <memory>
#include <optional>
#include <string>

#include "platform/Scripting.h"

namespace wf {

class WFHelperAppDelegate;

// One script-driven import (OmniFocus, Things, Things 3).
struct ScriptImportState {
  // Bundle identifier of the application found running in the latest run.
  std::optional<std::string> runningIdentifier;
  // The project script, made for runningIdentifier.
  std::unique_ptr<platform::AppleScript> _static_script;
  // Link made to the current application; only a check that it can be
  // addressed. It outlives the application and is replaced at the next build.
  std::shared_ptr<platform::SBApplication> link;
};

struct ProjectImportState {
  ScriptImportState omniFocus;  // link: _static_OmniFocusApplicationInstance
  // After a compile failure against OmniFocus 2 or any execution error:
  // no fetching until the running OmniFocus changes.
  bool _sCantCompileForOF2 = false;
  bool sOmniFocusState = false;  // set each time a script is sent

  std::shared_ptr<platform::SBApplication> _static_hitListApplicationInstance;
  bool sHitListState = false;  // set each time the application is read

  ScriptImportState things;   // link: _static_thingsApplicationInstance
  ScriptImportState things3;  // link: _static_things3ApplicationInstance
  bool sThingsState = false;  // shared by both Things imports
};

// The delegate's import state, made on first use.
ProjectImportState& projectImportState(WFHelperAppDelegate& delegate);

}  // namespace wf
