#include "client/command/output/output.h"

#include <sys/ioctl.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

namespace nox::command {

Output::Output(int descriptor) : descriptor_(descriptor) { pending_.reserve(kBlock); }

Output::~Output() {
  try {
    flush();
  } catch (const OutputError&) {  // whoever cares has flushed before
  }
}

void Output::flush() {
  std::string_view rest = pending_;
  while (!rest.empty()) {
    const ssize_t n = ::write(descriptor_, rest.data(), rest.size());
    if (n < 0 && errno == EINTR) continue;
    if (n < 0) {
      const int error = errno;
      pending_.clear();
      throw OutputError(std::string("cannot write the output: ") + std::strerror(error),
                        error == EPIPE);
    }
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
