#include "platform/foundation/AppKitVersion.h"

namespace wf {
namespace {
double gVersion = kCurrentAppKitVersionNumber;
}  // namespace

double NSAppKitVersionNumber() { return gVersion; }

void setAppKitVersionNumberForTesting(double version) { gVersion = version; }

}  // namespace wf
