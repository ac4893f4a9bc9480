#include "client/src/password_file.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>

#include "client/src/descriptor.h"
#include "client/src/socket.h"
#include "client/src/uri.h"

namespace nox::client::detail {

namespace {

constexpr std::size_t kLongest = 4096;  // bytes of the line
constexpr mode_t kForbidden = 0177;     // everything but reading and writing by the owner

[[noreturn]] void refuse(const std::string& file, const std::string& why) {
  throwBadOption("the password file " + file + ' ' + why);
}

}  // namespace

std::string readPasswordFile(const std::string& file) {
  // Not to be held up by a pipe that somebody put there.
  const Descriptor descriptor(::open(file.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK));
  if (!descriptor) refuse(file, "cannot be opened: " + systemText(errno));
  struct stat status {};
  if (::fstat(descriptor.get(), &status) != 0) refuse(file, "cannot be read: " + systemText(errno));
  if (!S_ISREG(status.st_mode)) refuse(file, "is no plain file");
  if (status.st_uid != ::geteuid()) refuse(file, "belongs to somebody else");
  if ((status.st_mode & kForbidden) != 0) {
    char permissions[8];
    std::snprintf(permissions, sizeof permissions, "%04o", status.st_mode & 07777u);
    refuse(file, std::string("has the permissions ") + permissions + "; they must be 0600");
  }

  std::string text(kLongest + 1, '\0');
  std::size_t size = 0;
  while (size < text.size()) {
    const ssize_t count = ::read(descriptor.get(), text.data() + size, text.size() - size);
    if (count < 0 && errno == EINTR) continue;
    if (count < 0) refuse(file, "cannot be read: " + systemText(errno));
    if (count == 0) break;
    size += static_cast<std::size_t>(count);
  }
  text.resize(size);
  text.resize(std::min(text.find('\n'), text.size()));
  if (!text.empty() && text.back() == '\r') text.pop_back();
  if (text.empty()) refuse(file, "has an empty first line");
  if (text.size() > kLongest) refuse(file, "has a first line of more than 4096 bytes");
  if (text.find('\0') != std::string::npos) refuse(file, "has a NUL in its first line");
  return text;
}

}  // namespace nox::client::detail
