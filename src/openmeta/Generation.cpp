// Which platform generation the store behaves as: it decides the value
// format and whether the Finder tags are mirrored.
#include <cmath>
#include <string>

#include "openmeta/OpenMeta.h"
#include "platform/foundation/AppKitVersion.h"

namespace wf {

// The public header spells the number out so that it needs no private one.
static_assert(OpenMeta::kDefaultAppKitVersionNumber == kCurrentAppKitVersionNumber);

bool gAllowOpenMetaAuthenticationDialogs = true;

namespace {

// 0 until first use, then 8, 9 or 10; computed once.
int static_osVersion = 0;

}  // namespace

double OpenMeta::appKitVersionNumber() { return NSAppKitVersionNumber(); }

void OpenMeta::setAppKitVersionNumberForTesting(double version) {
  wf::setAppKitVersionNumberForTesting(version);
  static_osVersion = 0;
}

bool OpenMeta::MavericksOrLater() {
  if (static_osVersion == 0) {
    const double v = std::floor(NSAppKitVersionNumber());
    if (v <= 1187)
      static_osVersion = 8;
    else if (v <= 1265)
      static_osVersion = 9;
    else
      static_osVersion = 10;
  }
  return static_osVersion >= 9;
}

std::string OpenMeta::tagsToSearchFor() {
  return MavericksOrLater() ? kFinderTagsSearchKey : kUserTagsKey;
}

}  // namespace wf
