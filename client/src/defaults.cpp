#include "client/src/defaults.h"

#include <pwd.h>
#include <unistd.h>

namespace nox::client::detail {

std::string loginName() {
  std::string room(4096, '\0');
  passwd entry{};
  passwd* found = nullptr;
  if (getpwuid_r(geteuid(), &entry, room.data(), room.size(), &found) != 0 || !found) return {};
  return found->pw_name;
}

}  // namespace nox::client::detail
