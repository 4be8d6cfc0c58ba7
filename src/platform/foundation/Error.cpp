#include "platform/foundation/Error.h"

#include <cstring>

namespace wf {

Error Error::posix(int err) {
  Error e;
  e.domain = POSIXDomain;
  e.code = err;
  e.description = std::strerror(err);
  return e;
}

std::string Error::localizedDescription() const {
  if (!description.empty()) return description;
  if (domain == POSIXDomain) return std::strerror(static_cast<int>(code));
  return "The operation couldn\u2019t be completed. (" + domain + " error " + std::to_string(code) +
         ".)";
}

std::string Error::describe() const {
  return "Error Domain=" + domain + " Code=" + std::to_string(code) + " \"" +
         localizedDescription() + "\"";
}

}  // namespace wf
