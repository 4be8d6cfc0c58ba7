#include "platform/base/Result.h"

#include <glib.h>

#include <cstring>

namespace wf::sys {

SysError SysError::fromErrno(int err) { return SysError{kErrnoDomain, err, std::strerror(err)}; }

SysError SysError::fromGError(const GError* error) {
  if (!error) return SysError{"GLib", 0, "unknown error"};
  return SysError{g_quark_to_string(error->domain), error->code,
                  error->message ? error->message : ""};
}

std::string SysError::describe() const {
  return message + " (" + domain + " " + std::to_string(code) + ")";
}

}  // namespace wf::sys
