// What commands and subroutines give, and Conversation for those that ask something first.
//
//   Conversation talk = connection.converse("DELETE-FILE OLD");
//   while (talk.isWaiting()) talk.answer(ask(talk.prompt(), talk.hidden()));
#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "nox/client/export.h"
#include "nox/client/record.h"
#include "nox/client/select_list.h"
#include "nox/client/value.h"

namespace nox::client {

namespace detail {
class Link;
}

/// What a command printed, set and left.
struct NOX_CLIENT_EXPORT CommandResult {
  Record output;                   ///< a line per attribute
  Record setting;                  ///< attribute 1 the code, attribute 2 the number of items
  std::optional<SelectList> list;  ///< what a SELECT or GET-LIST leaves

  /// The output with a line feed behind each line.
  std::string text() const;
  /// 0 when it went well.
  std::int64_t code() const;
  /// How many items it listed, selected or counted.
  std::int64_t items() const;
};

/// The parameters as a subroutine left them.
struct CallResult {
  bool aborted = false;  ///< the subroutine ended itself with an abort
  std::vector<Value> parameters;
};

/// A command or subroutine that runs on the server and may stop to ask. While it waits, any other
/// request but an echo, a log line or monitoring abandons it, and so does this object's destructor:
/// what it did and did not commit is rolled back. Moves only. Belongs to its connection: use it in
/// the thread that uses the connection.
class NOX_CLIENT_EXPORT Conversation {
public:
  Conversation(Conversation&& other) noexcept;
  Conversation& operator=(Conversation&& other) noexcept;
  ~Conversation();

  /// Whether the program asks for input; otherwise it is done.
  bool isWaiting() const;
  /// What it printed since the last answer, a line per attribute; the last line is the question.
  /// Once it is done: the rest of what it printed, for a command.
  const Record& output() const;
  /// The question: the last line of the output.
  std::string prompt() const;
  /// Whether the answer must not be shown.
  bool hidden() const;
  /// Text (UTF-8) up to 65,535 bytes without a NUL.
  void answer(std::string_view text);

  /// What the command gave. Throws std::logic_error while it waits, and for a subroutine.
  CommandResult& command();
  /// What the subroutine gave. Throws std::logic_error while it waits, and for a command.
  CallResult& call();

private:
  friend class Connection;
  friend class Subroutine;
  struct NOX_CLIENT_HIDDEN State;
  explicit Conversation(std::unique_ptr<State> state);

  std::unique_ptr<State> state_;
};

/// A subroutine of the account, called by name; it holds nothing on the server. Moves only. Belongs
/// to its connection: use it in the thread that uses the connection.
class NOX_CLIENT_EXPORT Subroutine {
public:
  Subroutine(Subroutine&& other) noexcept;
  Subroutine& operator=(Subroutine&& other) noexcept;
  ~Subroutine();

  const std::string& name() const { return name_; }
  /// Error IE004 where there is none, IE003 when it failed, sqlstate::kPrompts when it asks for
  /// input, after which it is abandoned.
  CallResult call(const std::vector<Value>& parameters = {});
  CallResult operator()(const std::vector<Value>& parameters = {}) { return call(parameters); }
  /// For one that may ask.
  Conversation start(const std::vector<Value>& parameters = {});

private:
  friend class Connection;
  Subroutine(std::shared_ptr<detail::Link> link, std::string name);

  std::shared_ptr<detail::Link> link_;
  std::string name_;
};

}  // namespace nox::client
