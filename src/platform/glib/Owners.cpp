#include "platform/glib/Owners.h"

namespace wf::sys {

SysError fromGError(const GError* error) {
  if (!error) return SysError{"GLib", 0, "unknown error"};
  return SysError{g_quark_to_string(error->domain), error->code,
                  error->message ? error->message : ""};
}

}  // namespace wf::sys
