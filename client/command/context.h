// Context: what a subcommand works with: the connection, the output, and the user's wishes.
#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

#include <nox/client/client.h>

#include "client/command/commands.h"
#include "client/command/interrupt.h"
#include "client/command/output/output.h"
#include "client/command/output/rows.h"
#include "client/command/progress.h"

namespace nox::command {

/// The command line is wrong. Thrown by value.
class UsageError : public std::runtime_error {
public:
  using std::runtime_error::runtime_error;
};

/// There is no connection, or no login. Thrown by value.
class ConnectionError : public std::runtime_error {
public:
  using std::runtime_error::runtime_error;
};

/// The user has had enough. Thrown by value.
class Interrupted : public std::runtime_error {
public:
  Interrupted() : std::runtime_error("interrupted") {}
};

/// What is wrong with the input, or with what was asked. Thrown by value.
class Refused : public std::runtime_error {
public:
  using std::runtime_error::runtime_error;
};

/// One per process: at the prompt all subcommands share it, and its connection.
class Context {
public:
  /// `common` holds the common options.
  explicit Context(const Arguments& common);
  ~Context();
  Context(const Context&) = delete;
  Context& operator=(const Context&) = delete;

  /// The connection, opened when it is first asked for. A password that no file gives is asked for
  /// on the terminal, without echo. Throws ConnectionError.
  client::Connection& connection();
  bool isConnected() const { return connection_.has_value() && connection_->isUsable(); }
  /// A further connection of the same kind.
  client::Connection openAnother();
  void disconnect() { connection_.reset(); }
  /// A transaction that was begun at the prompt.
  std::optional<client::Transaction>& transaction() { return transaction_; }
  /// A branch that was started at the prompt.
  std::optional<client::XaBranch>& branch() { return branch_; }

  Output& out() { return *output_; }
  /// A line on standard error.
  void say(const std::string& line) const;
  /// The format of rows: as chosen, else a table on a terminal and tsv elsewhere.
  Format format() const;
  std::optional<Format> chosenFormat() const { return format_; }
  void setFormat(std::optional<Format> format) { format_ = format; }
  bool isColourful() const;
  std::unique_ptr<RowWriter> rows(std::vector<client::Column> columns);
  std::unique_ptr<RowWriter> rows(std::vector<OutputColumn> columns);
  std::unique_ptr<RowWriter> rows(Format format, std::vector<OutputColumn> columns);
  /// `printsData`: whether data is printed meanwhile, beside which no bar can stand.
  std::unique_ptr<Progress> progress(const std::string& what, std::optional<std::uint64_t> total,
                                     bool printsData = true);

  /// Throws Interrupted once the user has pressed Ctrl-C.
  void checkInterrupt() const;
  /// At the prompt, and in scripts, a session lives on behind a subcommand.
  bool isSession() const { return isSession_; }
  void setSession() { isSession_ = true; }

  /// What is asked on the terminal: the answer, without its line feed; nothing at the end of input,
  /// or where there is no terminal.
  std::optional<std::string> ask(const std::string& question, bool hidden);

private:
  client::Options options() const;

  const Arguments common_;
  std::optional<std::string> password_;  // as it was typed
  std::optional<client::Connection> connection_;
  bool wasConnected_ = false;
  std::optional<Interrupt::Watch> watch_;
  std::optional<client::Transaction> transaction_;
  std::optional<client::XaBranch> branch_;
  std::unique_ptr<Output> output_;
  std::optional<Format> format_;
  bool isSession_ = false;
};

/// A file, or standard input for "" and "-", as it is read: without more waiting than the user has
/// patience for. One at a time reads standard input, a script for example.
class InputFile {
public:
  /// Throws Refused, and UsageError where another one reads standard input.
  explicit InputFile(const std::string& path);
  ~InputFile();
  InputFile(const InputFile&) = delete;
  InputFile& operator=(const InputFile&) = delete;

  /// What is there of up to `most` bytes; 0 at the end. Throws Refused, and Interrupted.
  std::size_t read(char* to, std::size_t most);
  /// Of a plain file, in bytes; 0 for others.
  std::uint64_t size() const;
  /// Whether `path` is this file, under whatever name. Only plain files can be lost that way.
  bool is(const std::string& path) const;
  /// As messages name it.
  const std::string& name() const { return name_; }

private:
  std::string name_;
  int descriptor_;
};

/// The whole of PATH, or of standard input for "" and "-". Throws what InputFile throws.
std::string readAll(const std::string& path);
/// A number from 1 to `most`. Throws UsageError that names the option.
std::uint64_t numberOf(const std::string& text, const char* option, std::uint64_t most);

/// Runs `action` and turns what it throws into an exit status, and a line on standard error.
template <class Action>
int guarded(Context& context, Action action);
/// The handlers of `guarded`, for the exception that is being handled.
int reportFailure(const Context& context);

template <class Action>
int guarded(Context& context, Action action) {
  try {
    return action();
  } catch (...) {
    return reportFailure(context);
  }
}

}  // namespace nox::command
