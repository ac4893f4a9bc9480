#include "client/command/context.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/stat.h>
#include <termios.h>
#include <unistd.h>

#include <cerrno>
#include <charconv>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <utility>

#include "client/command/interrupt.h"
#include "client/command/output/text.h"

namespace nox::command {

namespace {

// How often whoever waits for input looks whether the user still wants to, in milliseconds.
constexpr int kLookEvery = 100;

// The data types of SQL that hold numbers, by their usual codes.
constexpr int kNumeric = 2;
constexpr int kInteger = 4;
constexpr int kReal = 8;

// By the one InputFile that may: it reads ahead, and another would miss what it has.
bool isInputTaken = false;

/// The terminal, whatever standard input and output are.
class Terminal {
public:
  Terminal() : descriptor_(open("/dev/tty", O_RDWR | O_CLOEXEC)) {}
  ~Terminal() {
    if (descriptor_ >= 0) close(descriptor_);
  }
  Terminal(const Terminal&) = delete;
  Terminal& operator=(const Terminal&) = delete;

  explicit operator bool() const { return descriptor_ >= 0; }

  std::optional<std::string> ask(const std::string& question, bool hidden) const {
    termios before{};
    const bool silent = hidden && tcgetattr(descriptor_, &before) == 0;
    if (silent) {
      termios quiet = before;
      quiet.c_lflag &= ~static_cast<tcflag_t>(ECHO);
      tcsetattr(descriptor_, TCSAFLUSH, &quiet);
    }
    put(question);
    std::string answer;
    bool whole = false;
    char c = 0;
    while (!whole && !Interrupt::pressed()) {
      // Ctrl-C is taken by another thread, and does not end a read.
      pollfd waited{descriptor_, POLLIN, 0};
      if (poll(&waited, 1, kLookEvery) == 0) continue;
      const ssize_t n = read(descriptor_, &c, 1);
      if (n < 0 && errno == EINTR) continue;
      if (n <= 0) break;
      if (c == '\n') {
        whole = true;
      } else {
        answer += c;
      }
    }
    if (silent) {
      tcsetattr(descriptor_, TCSAFLUSH, &before);
      put("\n");
    }
    if (Interrupt::pressed()) throw Interrupted();
    if (!whole && answer.empty()) return std::nullopt;
    return answer;
  }

private:
  void put(std::string_view text) const {
    while (!text.empty()) {
      const ssize_t n = ::write(descriptor_, text.data(), text.size());
      if (n <= 0) return;
      text.remove_prefix(static_cast<std::size_t>(n));
    }
  }

  int descriptor_;
};

client::Tls tlsOf(const std::string& mode) {
  if (mode == "off") return client::Tls::Off;
  if (mode == "insecure-no-verify") return client::Tls::InsecureNoVerify;
  return client::Tls::VerifyFull;
}

}  // namespace

Context::Context(const Arguments& common) : common_(common) {
  const std::string path = common_.get("--output");
  if (path.empty() || path == "-") {
    output_ = std::make_unique<Output>(STDOUT_FILENO);
  } else {
    output_ = std::make_unique<Output>(path);
  }
  if (common_.has("--format")) format_ = parseFormat(common_.get("--format"));
}

Context::~Context() {
  watch_.reset();
  branch_.reset();
  transaction_.reset();
}

client::Options Context::options() const {
  try {
    // What the command line says goes into the same grammar as the URI, so that it means the same.
    client::Options options = client::Options::fromUri(common_.get("--uri"));
    if (common_.has("--host")) {
      options.hosts = client::Options::fromUri("nox://" + common_.get("--host")).hosts;
    }
    if (common_.has("--user")) options.user = common_.get("--user");
    if (common_.has("--account")) options.account = common_.get("--account");
    if (common_.has("--password-file")) options.passwordFile = common_.get("--password-file");
    if (common_.has("--tls")) options.tls = tlsOf(common_.get("--tls"));
    if (common_.has("--ca")) options.ca = common_.get("--ca");
    if (common_.has("--connect-timeout")) {
      options.connectTimeout =
          client::Options::fromUri("nox:///?connect_timeout=" + common_.get("--connect-timeout"))
              .connectTimeout;
    }
    if (common_.has("--timeout")) {
      options.requestTimeout =
          client::Options::fromUri("nox:///?request_timeout=" + common_.get("--timeout"))
              .requestTimeout;
    }
    if (options.clientName.empty()) options.clientName = "nox";
    return options;
  } catch (const client::Error& error) {
    throw UsageError(error.message());
  }
}

client::Connection Context::openAnother() {
  client::Options options = this->options();
  if (options.password.empty() && options.passwordFile.empty()) {
    if (!password_) {
      password_ = ask("Password of " + visible(options.user) + ": ", true);
      if (!password_) {
        throw ConnectionError(
            "no password: there is no terminal to ask for it; use --password-file or "
            "NOX_PASSWORD_FILE");
      }
    }
    options.password = *password_;
  }
  // A session that has lost its connection has more to lose than a first one.
  std::optional<Interrupt::Exit> impatience;
  if (!wasConnected_) impatience.emplace();
  try {
    return client::Connection::open(options);
  } catch (const client::Error& error) {
    if (error.sqlState() == client::sqlstate::kBadOption) throw UsageError(error.message());
    throw ConnectionError(error.what());
  }
}

client::Connection& Context::connection() {
  if (connection_ && !connection_->isUsable()) {
    if (transaction_ || branch_) say("what was not committed is rolled back");
    branch_.reset();
    transaction_.reset();
    connection_.reset();
    say("the connection is gone; connecting again");
  }
  if (!connection_) {
    connection_ = openAnother();
    wasConnected_ = true;
    watch_.reset();
    watch_.emplace(connection_->canceller());
    // Whoever pressed it before there was something to cancel meant what comes now.
    checkInterrupt();
  }
  return *connection_;
}

void Context::say(const std::string& line) const {
  std::fprintf(stderr, "nox: %s\n", visible(line, true).c_str());
}

Format Context::format() const {
  if (format_) return *format_;
  return output_->isTerminal() ? Format::Table : Format::Tsv;
}

bool Context::isColourful() const {
  const std::string when = common_.get("--color", "auto");
  if (when != "auto") return when == "always";
  const char* const refused = std::getenv("NO_COLOR");
  return output_->isTerminal() && (!refused || *refused == '\0');
}

std::unique_ptr<RowWriter> Context::rows(std::vector<client::Column> columns) {
  std::vector<OutputColumn> described;
  described.reserve(columns.size());
  for (client::Column& column : columns) {
    const bool isNumber =
        column.dataType == kNumeric || column.dataType == kInteger || column.dataType == kReal;
    described.push_back({std::move(column.name), isNumber, isNumber});
  }
  return rows(std::move(described));
}

std::unique_ptr<RowWriter> Context::rows(std::vector<OutputColumn> columns) {
  return rows(format(), std::move(columns));
}

std::unique_ptr<RowWriter> Context::rows(Format format, std::vector<OutputColumn> columns) {
  OutputStyle style;
  style.header = !common_.has("--no-header");
  style.colour = isColourful();
  auto writer = makeRowWriter(format, *output_, style);
  writer->begin(std::move(columns));
  return writer;
}

std::unique_ptr<Progress> Context::progress(const std::string& what,
                                            std::optional<std::uint64_t> total, bool printsData) {
  const std::string how = common_.get("--progress", "auto");
  Progress::Style style = Progress::Style::None;
  if (how == "plain") style = Progress::Style::Lines;
  // Not beside data on the same terminal.
  if (how == "auto" && isatty(STDERR_FILENO) == 1 && !(printsData && output_->isTerminal())) {
    style = Progress::Style::Bar;
  }
  return std::make_unique<Progress>(style, what, total);
}

void Context::checkInterrupt() const {
  if (Interrupt::pressed()) throw Interrupted();
}

std::optional<std::string> Context::ask(const std::string& question, bool hidden) {
  const Terminal terminal;
  if (!terminal) return std::nullopt;
  return terminal.ask(question, hidden);
}

InputFile::InputFile(const std::string& path)
    : name_(path.empty() || path == "-" ? "standard input" : path),
      descriptor_(path.empty() || path == "-" ? STDIN_FILENO
                                              : open(path.c_str(), O_RDONLY | O_CLOEXEC)) {
  if (descriptor_ < 0) throw Refused("cannot read " + name_ + ": " + std::strerror(errno));
  if (descriptor_ != STDIN_FILENO) return;
  if (isInputTaken) {
    throw UsageError("standard input is the script that runs; give the content itself, or a file");
  }
  isInputTaken = true;
}

InputFile::~InputFile() {
  if (descriptor_ == STDIN_FILENO) {
    isInputTaken = false;
  } else {
    close(descriptor_);
  }
}

std::size_t InputFile::read(char* to, std::size_t most) {
  for (;;) {
    if (Interrupt::pressed()) throw Interrupted();
    // Ctrl-C is taken by another thread, and does not end a read.
    pollfd waited{descriptor_, POLLIN, 0};
    if (poll(&waited, 1, kLookEvery) == 0) continue;
    const ssize_t n = ::read(descriptor_, to, most);
    if (n >= 0) return static_cast<std::size_t>(n);
    if (errno != EINTR && errno != EAGAIN) {
      throw Refused("cannot read " + name_ + ": " + std::strerror(errno));
    }
  }
}

std::uint64_t InputFile::size() const {
  struct stat status {};
  if (fstat(descriptor_, &status) != 0 || !S_ISREG(status.st_mode)) return 0;
  return static_cast<std::uint64_t>(status.st_size);
}

bool InputFile::is(const std::string& path) const {
  struct stat mine {};
  struct stat other {};
  return fstat(descriptor_, &mine) == 0 && S_ISREG(mine.st_mode) &&
         stat(path.c_str(), &other) == 0 && mine.st_dev == other.st_dev &&
         mine.st_ino == other.st_ino;
}

std::string readAll(const std::string& path) {
  InputFile file(path);
  std::string text;
  std::string block(64 * 1024, '\0');
  std::size_t n = 0;
  while ((n = file.read(block.data(), block.size())) > 0) text.append(block, 0, n);
  return text;
}

std::uint64_t numberOf(const std::string& text, const char* option, std::uint64_t most) {
  std::uint64_t number = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
  if (error != std::errc() || end != text.data() + text.size() || number < 1 || number > most) {
    throw UsageError(std::string(option) + ": a number from 1 to " + std::to_string(most) +
                     " was expected, not \"" + text + "\"");
  }
  return number;
}

int reportFailure(const Context& context) {
  try {
    throw;
  } catch (const UsageError& error) {
    context.say(error.what());
    return kUsage;
  } catch (const ConnectionError& error) {
    if (Interrupt::pressed()) return kInterrupted;
    context.say(error.what());
    return kNoConnection;
  } catch (const Interrupted& error) {
    context.say(error.what());
    return kInterrupted;
  } catch (const client::Error& error) {
    if (Interrupt::pressed()) {
      context.say("interrupted");
      return kInterrupted;
    }
    context.say(error.what());
    const bool lost =
        error.outcome() != client::Outcome::Rejected && error.sqlState().compare(0, 2, "08") == 0;
    return lost ? kNoConnection : kRefused;
  } catch (const OutputError& error) {
    if (!error.closed()) context.say(error.what());
    return kRefused;
  } catch (const std::exception& error) {
    context.say(error.what());
    return kRefused;
  }
}

}  // namespace nox::command
