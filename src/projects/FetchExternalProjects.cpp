// The dispatcher of the interval run's imports: task managers first, in a
// fixed order, then the Finder's tags.
#include <cmath>

#include "app/WFHelperAppDelegate.h"
#include "platform/foundation/AppKitVersion.h"
#include "prefs/PreferenceKeys.h"
#include "projects/ProjectImportState.h"

namespace wf {

ProjectImportState& projectImportState(WFHelperAppDelegate& delegate) {
  if (!delegate.projectState) delegate.projectState = std::make_shared<ProjectImportState>();
  return *delegate.projectState;
}

namespace {
// The AppKit version of OS X 10.8: Finder tags exist on later systems only.
constexpr double kAppKitVersionNumber10_8 = 1187;
}  // namespace

namespace {
// Runs one source's import and records its outcome for the status; an
// exception still ends the run, as it always did.
template <class Fetch>
void runSource(WFHelperAppDelegate& self, const std::string& source, Fetch fetch) {
  self.beginSourceRun();
  try {
    fetch();
  } catch (const std::exception& e) {
    self.endSourceRun(source, e.what());
    throw;
  }
  self.endSourceRun(source);
}
}  // namespace

void WFHelperAppDelegate::fetchExternalProjects() {
  // An absent preference counts as NO.
  if (defaultForKey(kShowOmniFocusProjects).boolValue())
    runSource(*this, "OmniFocus", [this] { _fetchOmniFocusProjects(); });
  if (defaultForKey(kShowHitListProjects).boolValue())
    runSource(*this, "The Hit List", [this] { _fetchHitListProjects(); });
  if (defaultForKey(kShowThingsProjects).boolValue()) {
    // One switch serves both Things imports; both write the same file.
    runSource(*this, "Things", [this] { _fetchThingsProjects(); });
    runSource(*this, "Things 3", [this] { _fetchThings3Projects(); });
  }
  if (std::floor(NSAppKitVersionNumber()) > kAppKitVersionNumber10_8)
    runSource(*this, "Finder tags", [this] { _fetchFinderTags(); });
}

}  // namespace wf
