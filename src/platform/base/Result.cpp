#include "platform/base/Result.h"

#include <cstring>

namespace wf::sys {

SysError SysError::fromErrno(int err) { return SysError{kErrnoDomain, err, std::strerror(err)}; }

std::string SysError::describe() const {
  return message + " (" + domain + " " + std::to_string(code) + ")";
}

}  // namespace wf::sys
