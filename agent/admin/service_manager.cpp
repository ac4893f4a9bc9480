#include "agent/admin/service_manager.h"

#include <sys/socket.h>
#include <sys/un.h>

#include <chrono>
#include <cstddef>
#include <cstdlib>
#include <cstring>

#include "agent/admin/files.h"

namespace nox::agent {

void notifyServiceManager(const std::string& lines) {
  const char* path = std::getenv("NOTIFY_SOCKET");
  sockaddr_un address{};
  if (!path || *path == '\0' || std::strlen(path) >= sizeof address.sun_path) return;
  address.sun_family = AF_UNIX;
  std::memcpy(address.sun_path, path, std::strlen(path));
  if (*path == '@') address.sun_path[0] = '\0';  // a name that is no file
  const auto size = static_cast<socklen_t>(offsetof(sockaddr_un, sun_path) + std::strlen(path));
  const Descriptor descriptor(socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0));
  if (!descriptor) return;
  sendto(descriptor.get(), lines.data(), lines.size(), MSG_NOSIGNAL,
         reinterpret_cast<const sockaddr*>(&address), size);
}

std::string reloadingNotice() {
  // The clock of the steady time points is CLOCK_MONOTONIC.
  const auto now = std::chrono::steady_clock::now().time_since_epoch();
  return "RELOADING=1\nMONOTONIC_USEC=" +
         std::to_string(std::chrono::duration_cast<std::chrono::microseconds>(now).count());
}

}  // namespace nox::agent
