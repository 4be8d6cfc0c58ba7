#include "app/WFHelperAppDelegate.h"
#include "platform/foundation/Strings.h"

namespace wf {

// The file name is accepted and left out: the line is the same from any file.
void WFHelperAppDelegate::writeKeyedLine(const std::string& key, const char*, const char* function,
                                         long line, const std::string& message) {
  // A name that is not UTF-8 makes no string (nil), as NSString would.
  std::string name = function ? function : "";
  Value functionName = ns::isValidUTF8(name) ? Value(name) : Value();
  NSLog("(%@)%@: %ld: %@", key, functionName, line, message);
}

}  // namespace wf
