#include "platform/base/HomeFolder.h"

#include <pwd.h>
#include <unistd.h>

#include <cstdlib>

namespace wf::sys {

std::string homeFolder() {
  if (const char* home = std::getenv("HOME"); home && *home) return home;
  if (const passwd* pw = getpwuid(getuid()); pw && pw->pw_dir && *pw->pw_dir) return pw->pw_dir;
  return {};
}

}  // namespace wf::sys
