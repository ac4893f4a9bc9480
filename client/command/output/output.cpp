#include "client/command/output/output.h"

#include <fcntl.h>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <utility>

namespace nox::command {

Output::Output(int descriptor) : descriptor_(descriptor) { pending_.reserve(kBlock); }

Output::Output(std::string path) : path_(std::move(path)) {
  pending_.reserve(kBlock);
  struct stat status {};
  const bool exists = stat(path_.c_str(), &status) == 0;
  // Terminals and pipes have nothing to lose, and may be asked what they are.
  if (exists && !S_ISREG(status.st_mode)) {
    openFile();
    return;
  }
  const std::string folder = path_.substr(0, path_.rfind('/') + 1);
  const bool writable = exists ? access(path_.c_str(), W_OK) == 0
                               : access(folder.empty() ? "." : folder.c_str(), W_OK | X_OK) == 0;
  if (!writable) fail(path_, errno);
}

Output::~Output() {
  try {
    flush();
  } catch (const OutputError&) {  // whoever cares has flushed before
  }
  if (!path_.empty() && descriptor_ >= 0) close(descriptor_);
}

void Output::openFile() {
  descriptor_ = open(path_.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0666);
  if (descriptor_ < 0) fail(path_, errno);
}

void Output::fail(const std::string& what, int error) {
  pending_.clear();
  throw OutputError("cannot write " + what + ": " + std::strerror(error), error == EPIPE);
}

void Output::finish() {
  if (!path_.empty() && descriptor_ < 0) openFile();
  flush();
}

void Output::flush() {
  if (pending_.empty()) return;
  if (!path_.empty() && descriptor_ < 0) openFile();
  std::string_view rest = pending_;
  while (!rest.empty()) {
    const ssize_t n = ::write(descriptor_, rest.data(), rest.size());
    if (n < 0 && errno == EINTR) continue;
    if (n < 0) fail("the output", errno);
    rest.remove_prefix(static_cast<std::size_t>(n));
  }
  pending_.clear();
}

bool Output::isTerminal() const { return isatty(descriptor_) == 1; }

int Output::width() const {
  winsize size{};
  return ioctl(descriptor_, TIOCGWINSZ, &size) == 0 ? size.ws_col : 0;
}

}  // namespace nox::command
