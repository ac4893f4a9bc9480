#include "agent/admin/passwords.h"

#include <fcntl.h>
#include <sodium.h>
#include <sys/stat.h>
#include <termios.h>
#include <unistd.h>

#include <cerrno>
#include <iostream>
#include <utility>

#include "agent/admin/exit_status.h"
#include "agent/admin/files.h"
#include "agent/users/users.h"

namespace nox::agent {

namespace {

void wipe(std::string& text) {
  // What the text does not use of its memory may hold a moved or shortened part of it.
  text.resize(text.capacity());
  sodium_memzero(text.data(), text.size());
  text.clear();
}

/// The terminal shows nothing of what is typed while this lives. Ctrl-C comes as a character, so
/// that nobody is left with a terminal like that.
class HiddenInput {
public:
  HiddenInput() {
    tcgetattr(STDIN_FILENO, &before_);
    termios hidden = before_;
    hidden.c_lflag &= ~static_cast<tcflag_t>(ECHO | ISIG);
    tcsetattr(STDIN_FILENO, TCSAFLUSH, &hidden);
  }
  ~HiddenInput() { tcsetattr(STDIN_FILENO, TCSAFLUSH, &before_); }
  HiddenInput(const HiddenInput&) = delete;
  HiddenInput& operator=(const HiddenInput&) = delete;

private:
  termios before_{};
};

/// One line without its end. Byte by byte: a stream would keep a copy, and take more than the line.
Secret readLine(int descriptor) {
  std::string line;
  line.reserve(kLongestPassword + 2);  // never moved to other memory
  while (line.size() <= kLongestPassword) {
    char c = 0;
    const ssize_t got = read(descriptor, &c, 1);
    if (got < 0 && errno == EINTR) continue;
    if (got <= 0 || c == '\n') break;
    line += c;
  }
  if (!line.empty() && line.back() == '\r') line.pop_back();
  return Secret(std::move(line));
}

Secret ask(const std::string& question) {
  constexpr char kCtrlC = 3;
  constexpr char kCtrlBackslash = 28;
  // Hidden before the question appears: somebody who answers at once is not seen either.
  const HiddenInput hidden;
  std::cerr << question << std::flush;
  Secret answer = readLine(STDIN_FILENO);
  std::cerr << '\n';
  if (answer.view().find(kCtrlC) != std::string_view::npos ||
      answer.view().find(kCtrlBackslash) != std::string_view::npos) {
    throw AdminError(ExitStatus::Failed, "given up; nothing was changed");
  }
  return answer;
}

Secret checked(Secret password) {
  if (password.view().empty()) {
    throw AdminError(ExitStatus::Failed, "the password is empty; nothing was changed");
  }
  if (password.view().size() > kLongestPassword) {
    throw AdminError(ExitStatus::Failed,
                     "the password is longer than " + std::to_string(kLongestPassword) + " bytes");
  }
  return password;
}

Secret readPasswordFile(const std::string& file) {
  const Descriptor descriptor(open(file.c_str(), O_RDONLY | O_CLOEXEC));
  if (!descriptor) failWithErrno(file + " cannot be read");
  struct stat status {};
  if (fstat(descriptor.get(), &status) != 0) failWithErrno(file + " cannot be read");
  constexpr mode_t kOthers = 077;
  if (!S_ISREG(status.st_mode) || (status.st_mode & kOthers) != 0) {
    throw AdminError(ExitStatus::Failed, file +
                                             " must be a file that only its owner can read; "
                                             "chmod 600 " +
                                             file);
  }
  return readLine(descriptor.get());
}

}  // namespace

Secret::~Secret() { wipe(text_); }

Secret::Secret(Secret&& other) noexcept : text_(std::move(other.text_)) { wipe(other.text_); }

Secret readNewPassword(const std::string& file, const std::string& who) {
  if (!file.empty()) return checked(readPasswordFile(file));
  if (isatty(STDIN_FILENO) == 0) return checked(readLine(STDIN_FILENO));
  Secret password = checked(ask("New password of " + who + ": "));
  const Secret again = ask("The same again: ");
  if (password.view() != again.view()) {
    throw AdminError(ExitStatus::Failed, "the two are not the same; nothing was changed");
  }
  return password;
}

}  // namespace nox::agent
