#include "platform/linux/SystemdNotify.h"

#include <sys/socket.h>
#include <sys/un.h>

#include <cerrno>
#include <cstddef>
#include <cstdlib>
#include <cstring>

#include "platform/base/Owners.h"

namespace wf::platform {

bool systemdNotify(const std::string& state) {
  const char* path = std::getenv("NOTIFY_SOCKET");
  if (!path || !*path) return false;
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  std::size_t length = std::strlen(path);
  if (length >= sizeof address.sun_path) return false;
  // "@name" is a socket in the abstract namespace.
  std::memcpy(address.sun_path, path, length);
  if (path[0] == '@') address.sun_path[0] = '\0';
  if (path[0] != '/' && path[0] != '@') return false;
  // One socket per message: states are rare (STATUS= at most once a second).
  sys::UniqueFd fd(socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
  if (!fd) return false;
  auto size =
      static_cast<socklen_t>(offsetof(sockaddr_un, sun_path) + length + (path[0] == '/' ? 1 : 0));
  while (sendto(fd.get(), state.data(), state.size(), MSG_NOSIGNAL,
                reinterpret_cast<const sockaddr*>(&address), size) < 0) {
    if (errno != EINTR) return false;
  }
  return true;
}

}  // namespace wf::platform
