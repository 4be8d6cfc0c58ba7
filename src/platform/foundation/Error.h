// NSError stand-in: a domain, a code and a user-info dictionary.
#pragma once

#include <optional>
#include <string>

#include "platform/plist/Value.h"

namespace wf {

struct Error {
  std::string domain;
  long code = 0;
  Dictionary userInfo;
  // What localizedDescription returns; empty means the generic text.
  std::string description;

  static constexpr const char* POSIXDomain = "NSPOSIXErrorDomain";
  static constexpr const char* CocoaDomain = "NSCocoaErrorDomain";

  static Error posix(int err);  // description: strerror(err)
  std::string localizedDescription() const;
  // "Error Domain=DOMAIN Code=N "DESCRIPTION"", as %@ prints it.
  std::string describe() const;
};

using OptError = std::optional<Error>;

// Whether a call that returns its error as an OptError (the OpenMeta store's
// shape: nothing on success) failed, so that a call site reads the way it
// means: if (failed(OpenMeta::setXAttr(...))) return;
inline bool failed(const OptError& error) { return error.has_value(); }
inline bool succeeded(const OptError& error) { return !error.has_value(); }

}  // namespace wf
