// Connection: a session with the server, from login to close.
//
//   Connection db = Connection::open("nox://anna@db.example/SALES?password_file=/home/anna/.nox");
//   File people = db.file("PERSON");
//   std::optional<Record> smith = people.read("4711");
#pragma once

#include <chrono>
#include <cstdint>
#include <map>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "nox/client/conversation.h"
#include "nox/client/export.h"
#include "nox/client/file.h"
#include "nox/client/listing.h"
#include "nox/client/options.h"
#include "nox/client/record.h"
#include "nox/client/select_list.h"
#include "nox/client/statement.h"
#include "nox/client/transaction.h"
#include "nox/client/value.h"

namespace nox::client {

namespace detail {
class Canceller;
class Link;
}  // namespace detail

/// The server's clock: days since 31 December 1967 and seconds since midnight, in its time zone.
struct DateTime {
  std::int32_t day = 0;
  std::int32_t second = 0;
};

/// What the server says about itself.
struct ServerInfo {
  std::string name;
  std::string version;
  int maxConnections = 0;
  std::string user;
};

/// How much a line for the server's log matters.
enum class LogLevel { Debug = 4, Info = 8, Warning = 32, Error = 128 };

/// What catalog() can list.
enum class Catalog { Tables, Columns, PrimaryKeys, Indexes, Procedures, Types };

/// Ends what a connection does, from another thread. Copies do the same; all of them may outlive
/// the connection. Safe for threads.
class NOX_CLIENT_EXPORT Canceller {
public:
  /// A request that waits fails with HY008 and an Unknown outcome, and the connection is unusable
  /// afterwards; so it is when none waits.
  void cancel() const noexcept;

private:
  friend class Connection;
  explicit Canceller(std::shared_ptr<detail::Canceller> impl) : impl_(std::move(impl)) {}
  std::shared_ptr<detail::Canceller> impl_;
};

/// A session. Moves only (what it was moved from may be assigned to or destroyed, as everywhere in
/// this library); closed by its destructor, and when another one is assigned. One thread at a time,
/// but for cancel(); several threads use several connections, or a Pool.
///
/// Every operation may throw Error. The library never sends a request again once a byte of it has
/// left. After an error whose outcome is Unknown, and after an answer that does not fit, the
/// connection is unusable: every further request throws sqlstate::kUnusable and names the reason.
/// So it is in a forked child, whose destructors leave the parent's session alone.
///
/// Files, lists, statements and the rest may outlive their connection; used then, they throw.
///
/// Names, ids and SQL with a NUL, or with more than 65,535 bytes, throw sqlstate::kBadArgument.
/// They and commands, which travel whole in any length, should be UTF-8: what is not is the
/// server's to judge, which refuses it where it matters.
class NOX_CLIENT_EXPORT Connection {
public:
  /// Finds a host, connects, verifies and logs in, within the options' connectTimeout. The hosts
  /// are tried in order, each for its share of the time that is left, those that are full or about
  /// to end being passed over; a login that was refused is not tried elsewhere. Errors: 08001,
  /// HYT01, HY024, and what the server says (28000, 08004). Where all hosts fail, the error is the
  /// last one's, and its message has them all.
  static Connection open(std::string_view uri = {});
  static Connection open(const Options& options);

  Connection(Connection&& other) noexcept;
  Connection& operator=(Connection&& other) noexcept;
  ~Connection();

  // Files. "NAME" is the file's data, "DICT NAME" its dictionary.

  /// Error IE005 where there is no such file.
  File file(std::string_view name);
  /// Gives every lock of the session back.
  void releaseLocks();

  // Commands.

  /// Runs a command line. Error IE011 for one that is not understood; sqlstate::kPrompts for one
  /// that asks for input, after which it is abandoned: see converse().
  CommandResult execute(std::string_view command);
  /// With an active list: an open one of this connection (Error 22023 for another's), or keys.
  CommandResult execute(std::string_view command, const SelectList& active);
  CommandResult execute(std::string_view command, const std::vector<std::string>& keys);
  /// For a command that may ask.
  Conversation converse(std::string_view command);
  /// A SELECT, SSELECT or GET-LIST; a list without entries where it selects nothing. The list ends
  /// on the server when another command leaves one; until a command uses it up it is also the
  /// session's active list.
  SelectList select(std::string_view command);
  /// A LIST, SORT, SELECT or SSELECT as rows.
  Listing listing(std::string_view query);

  // Subroutines.

  Subroutine subroutine(std::string_view name);
  CallResult call(std::string_view name, const std::vector<Value>& parameters = {});
  /// A named common; empty where it was never set.
  Record common(std::string_view name);

  // SQL, in the store's own dialect.

  SqlResult sql(std::string_view text, const std::vector<Value>& values = {});
  /// Error 07005 for a statement that answers no rows; it has been executed then.
  Rows query(std::string_view text, const std::vector<Value>& values = {});
  /// How many rows it changed. Error 07005 for a statement that answers rows.
  std::int64_t update(std::string_view text, const std::vector<Value>& values = {});
  Statement prepare(std::string_view text);
  /// `patterns`: LIKE patterns for the names, outermost first. The rows end with the next call.
  Rows catalog(Catalog what, const std::vector<std::string>& patterns = {});

  // Transactions.

  /// Error 25000 where one is open.
  Transaction begin(Isolation isolation = Isolation::StoreDefault);
  XaBranch startBranch(const Xid& xid);
  /// A prepared branch, to be committed or rolled back here.
  XaBranch preparedBranch(const Xid& xid);
  /// The branches of the account that are neither committed nor rolled back; needs the right
  /// `admin`.
  std::vector<XaBranchInfo> recover();

  // The session.

  /// Internal to external form, and back. The code is the server's: "D4/", "MD2,".
  std::string convertOutput(std::string_view data, std::string_view code);
  std::string convertInput(std::string_view data, std::string_view code);
  void setProperty(const std::string& key, const std::string& value);
  /// All or none.
  void setProperties(const std::map<std::string, std::string>& properties);
  /// False when it was refused; the session is then as it was. Files, lists and statements of the
  /// old account are gone when it was not.
  [[nodiscard]] bool switchAccount(std::string_view user, std::string_view account,
                                   std::string_view password);
  DateTime dateTime();
  ServerInfo serverInfo();
  /// The same bytes from the other side.
  std::string echo(std::string_view bytes);
  /// The time that a small echo takes.
  std::chrono::nanoseconds ping();
  /// A line for the server's log.
  void log(std::string_view line, LogLevel level = LogLevel::Info);
  /// The text that a monitoring command gives: one item per line, fields separated by tabs, the
  /// first line the heading. Error 42000 with the server's words where it answers "error: ...".
  std::string monitor(std::string_view command);

  // This side.

  /// For the requests that follow. Zero: none. Error HY024 for less.
  void setRequestTimeout(std::chrono::milliseconds timeout);
  std::chrono::milliseconds requestTimeout() const;
  /// As it stands now; a lost connection is noticed by the next request.
  bool isUsable() const;
  /// Why it is not; empty where it is.
  std::string unusableReason() const;
  /// Whether the server has said nothing unasked for and has not closed, at this moment.
  bool isAlive();
  /// See Canceller.
  void cancel() const noexcept { canceller().cancel(); }
  Canceller canceller() const;
  /// Ends the session before the destructor would.
  void close();

  /// Whom the session belongs to; `account` is empty for the server's default one.
  const std::string& user() const;
  const std::string& account() const;
  /// The host that answered, and its port.
  const Host& host() const;
  bool isEncrypted() const;

private:
  friend class Batch;
  friend class Pool;
  explicit Connection(std::shared_ptr<detail::Link> link);

  std::shared_ptr<detail::Link> link_;
};

}  // namespace nox::client
