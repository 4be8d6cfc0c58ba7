// The dispatcher of the interval run's imports: task managers first, in a
// fixed order, then the Finder's tags.
#include <cmath>

#include "app/WFHelperAppDelegate.h"
#include "platform/foundation/AppKitVersion.h"
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

void WFHelperAppDelegate::fetchExternalProjects() {
  // An absent preference counts as NO.
  if (defaultForKey("showOmniFocusProjects").boolValue()) _fetchOmniFocusProjects();
  if (defaultForKey("showHitListProjects").boolValue()) _fetchHitListProjects();
  if (defaultForKey("showThingsProjects").boolValue()) {
    // One switch serves both Things imports; both write the same file.
    _fetchThingsProjects();
    _fetchThings3Projects();
  }
  if (std::floor(NSAppKitVersionNumber()) > kAppKitVersionNumber10_8) _fetchFinderTags();
}

}  // namespace wf
