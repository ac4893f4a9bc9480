#include "tests/client/command/wire/nox_program.h"

#include <fcntl.h>
#include <poll.h>
#include <pty.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <chrono>
#include <csignal>
#include <fstream>
#include <sstream>
#include <stdexcept>
#include <thread>

namespace nox::command::test {

namespace {

using Clock = std::chrono::steady_clock;

// Sanitizers and a busy machine make everything slower; this is only the end of patience.
constexpr std::chrono::seconds kPatience{60};
constexpr int kLook = 50;  // milliseconds

/// What exec takes, made before the fork.
class Vectors {
public:
  Vectors(const Words& words, const Environment& environment) {
    words_.emplace_back(NOX_BINARY);
    words_.insert(words_.end(), words.begin(), words.end());
    for (const auto& [name, value] : environment) variables_.push_back(name + "=" + value);
    for (std::string& word : words_) arguments_.push_back(word.data());
    for (std::string& variable : variables_) environment_.push_back(variable.data());
    arguments_.push_back(nullptr);
    environment_.push_back(nullptr);
  }
  [[noreturn]] void execute() {
    execve(arguments_[0], arguments_.data(), environment_.data());
    _exit(127);
  }

private:
  Words words_;
  Words variables_;
  std::vector<char*> arguments_;
  std::vector<char*> environment_;
};

int statusOf(int waited) {
  return WIFSIGNALED(waited) ? 128 + WTERMSIG(waited) : WEXITSTATUS(waited);
}

int waitFor(pid_t pid, Clock::time_point deadline) {
  for (;;) {
    int status = 0;
    if (waitpid(pid, &status, WNOHANG) == pid) return statusOf(status);
    if (Clock::now() > deadline) {
      kill(pid, SIGKILL);
      waitpid(pid, &status, 0);
      throw std::runtime_error("nox does not end");
    }
    std::this_thread::sleep_for(std::chrono::milliseconds(5));
  }
}

class Pipe {
public:
  Pipe() {
    if (pipe2(ends_.data(), O_CLOEXEC) != 0) throw std::runtime_error("no pipe");
  }
  ~Pipe() {
    closeEnd(0);
    closeEnd(1);
  }
  Pipe(const Pipe&) = delete;
  Pipe& operator=(const Pipe&) = delete;
  int end(std::size_t i) const { return ends_[i]; }
  void closeEnd(std::size_t i) {
    if (ends_[i] >= 0) close(ends_[i]);
    ends_[i] = -1;
  }

private:
  std::array<int, 2> ends_{-1, -1};
};

}  // namespace

Outcome runNox(const Words& words, const Environment& environment, const std::string& input) {
  Vectors vectors(words, environment);
  std::array<Pipe, 3> pipes;  // standard input, output and error
  const pid_t pid = fork();
  if (pid == 0) {
    setsid();  // so that there is no terminal to ask
    dup2(pipes[0].end(0), STDIN_FILENO);
    dup2(pipes[1].end(1), STDOUT_FILENO);
    dup2(pipes[2].end(1), STDERR_FILENO);
    vectors.execute();
  }
  pipes[0].closeEnd(0);
  pipes[1].closeEnd(1);
  pipes[2].closeEnd(1);
  std::thread writer([&] {
    std::string_view rest = input;
    while (!rest.empty()) {
      const ssize_t n = ::write(pipes[0].end(1), rest.data(), rest.size());
      if (n <= 0) break;
      rest.remove_prefix(static_cast<std::size_t>(n));
    }
    pipes[0].closeEnd(1);
  });
  Outcome outcome;
  const auto deadline = Clock::now() + kPatience;
  std::array<pollfd, 2> waited{pollfd{pipes[1].end(0), POLLIN, 0},
                               pollfd{pipes[2].end(0), POLLIN, 0}};
  int open = 2;
  while (open > 0 && Clock::now() < deadline) {
    if (poll(waited.data(), waited.size(), kLook) <= 0) continue;
    for (std::size_t i = 0; i < waited.size(); ++i) {
      if (waited[i].fd < 0 || waited[i].revents == 0) continue;
      std::array<char, 65536> piece;
      const ssize_t n = read(waited[i].fd, piece.data(), piece.size());
      if (n > 0) {
        (i == 0 ? outcome.out : outcome.err).append(piece.data(), static_cast<std::size_t>(n));
      } else {
        waited[i].fd = -1;
        --open;
      }
    }
  }
  if (open > 0) kill(pid, SIGKILL);
  writer.join();
  outcome.status = waitFor(pid, deadline);
  return outcome;
}

Terminal::Terminal(const Words& words, const Environment& environment) {
  Vectors vectors(words, environment);
  winsize size{};
  size.ws_col = 120;
  size.ws_row = 40;
  pid_ = forkpty(&terminal_, nullptr, nullptr, &size);
  if (pid_ < 0) throw std::runtime_error("no pseudo-terminal");
  if (pid_ == 0) vectors.execute();
}

Terminal::~Terminal() {
  if (pid_ > 0) {
    kill(pid_, SIGKILL);
    waitpid(pid_, nullptr, 0);
  }
  close(terminal_);
}

void Terminal::type(const std::string& text) {
  if (::write(terminal_, text.data(), text.size()) != static_cast<ssize_t>(text.size())) {
    throw std::runtime_error("cannot type");
  }
}

/// False at the end.
bool Terminal::readMore() {
  pollfd waited{terminal_, POLLIN, 0};
  if (poll(&waited, 1, kLook) <= 0) return true;
  std::array<char, 4096> piece;
  const ssize_t n = read(terminal_, piece.data(), piece.size());
  if (n <= 0) return false;
  shown_.append(piece.data(), static_cast<std::size_t>(n));
  return true;
}

std::string Terminal::waitFor(const std::string& text) {
  const auto deadline = Clock::now() + kPatience;
  for (;;) {
    const std::size_t at = shown_.find(text, seen_);
    if (at != std::string::npos) {
      const std::size_t end = at + text.size();
      std::string piece = shown_.substr(seen_, end - seen_);
      seen_ = end;
      return piece;
    }
    if (!readMore() || Clock::now() > deadline) {
      throw std::runtime_error("\"" + text + "\" did not come; this did: " + shown_.substr(seen_));
    }
  }
}

int Terminal::wait() {
  const auto deadline = Clock::now() + kPatience;
  while (readMore() && Clock::now() < deadline) {
    int status = 0;
    if (waitpid(pid_, &status, WNOHANG) == pid_) {
      pid_ = 0;
      return statusOf(status);
    }
  }
  const pid_t pid = pid_;
  pid_ = 0;
  return test::waitFor(pid, deadline);
}

std::unique_ptr<agent::test::NoxdProcess> NoxTest::noxd_;

void NoxTest::SetUpTestSuite() {
  noxd_ = std::make_unique<agent::test::NoxdProcess>();
  noxd_->withTls().start();
  write("nox-password", std::string(agent::test::NoxdProcess::kPassword) + "\n");
  chmod(file("nox-password").c_str(), S_IRUSR | S_IWUSR);
}

void NoxTest::TearDownTestSuite() { noxd_.reset(); }

Environment NoxTest::environment() {
  Environment environment;
  environment["NOX_URI"] = std::string("nox://") + agent::test::NoxdProcess::kUser +
                           "@localhost:" + std::to_string(noxd_->tlsPort()) +
                           "/MAIN?ca=" + noxd_->tlsAuthority();
  environment["NOX_PASSWORD_FILE"] = file("nox-password");
  environment["HOME"] = file("");
  environment["TERM"] = "dumb";
  environment["NO_COLOR"] = "1";
  for (const char* name : {"LANG", "LC_ALL", "ASAN_OPTIONS", "UBSAN_OPTIONS", "TSAN_OPTIONS"}) {
    if (const char* const value = std::getenv(name)) environment[name] = value;
  }
  return environment;
}

std::string NoxTest::write(const std::string& name, const std::string& text) {
  std::ofstream(file(name), std::ios::binary | std::ios::trunc) << text;
  return file(name);
}

std::string NoxTest::contentOf(const std::string& name) {
  std::ifstream in(file(name), std::ios::binary);
  std::ostringstream text;
  text << in.rdbuf();
  return text.str();
}

std::string NoxTest::done(const Words& words, const std::string& input) {
  const Outcome outcome = nox(words, input);
  EXPECT_EQ(outcome.status, 0) << words[0] << ": " << outcome.err;
  return outcome.out;
}

}  // namespace nox::command::test
