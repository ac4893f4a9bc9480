// Session: everything that one connection owns between its login and its end.
#pragma once

#include <atomic>
#include <chrono>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>

#include <nox/nox.h>

#include "agent/locks/lock_table.h"
#include "agent/log/line_rate.h"
#include "agent/session/program.h"
#include "agent/session/settings.h"
#include "agent/session/writer_waits.h"
#include "agent/store/store.h"
#include "agent/users/users.h"

namespace nox::agent {

struct Agent;
class DataAccess;
class Queries;
class Reply;
class SelectLists;
class SqlStatements;
class Transactions;

using SessionId = std::uint64_t;

/// Belongs to its connection's thread, but for `interrupt`. What the parts of a session do lies in
/// their own classes; this one holds them together and ends them in the right order.
class Session {
public:
  using Clock = std::chrono::steady_clock;

  /// Logged in: `account` exists and `user` has `right` in it. `peer` is the client's address
  /// without its port, for the check of further passwords.
  Session(Agent& agent, SessionId id, std::string user, std::string account, Right right,
          std::string peer = {});
  /// Rolls back, releases every lock, closes lists, statements and programs. Prepared branches
  /// stay.
  ~Session();
  Session(const Session&) = delete;
  Session& operator=(const Session&) = delete;

  Agent& agent() { return agent_; }
  SessionId id() const { return id_; }
  const std::string& peer() const { return peer_; }
  const std::string& user() const { return user_; }
  const std::string& account() const { return account_; }
  Right right() const { return right_; }
  /// Throws Failure 42/000 where the user may only read.
  void requireWrite() const;
  LockOwner lockOwner() const { return lockOwner_; }

  StoreSession& store() { return *store_; }
  DataAccess& data() { return *data_; }
  Transactions& transactions() { return *transactions_; }
  SelectLists& lists() { return *lists_; }
  SqlStatements& statements() { return *statements_; }
  Queries& queries() { return *queries_; }

  Settings& settings() { return settings_; }
  /// Of the lines that the client has written to the log.
  LineRate& clientLines() { return clientLines_; }
  /// Named commons, as subroutines set them.
  std::map<std::string, std::string>& commons() { return commons_; }
  /// The code that the last command left; 0 at first.
  int lastCommandCode() const { return lastCommandCode_; }
  void setLastCommandCode(int code) { lastCommandCode_ = code; }

  /// Called by the session's thread before it waits for somebody else's lock.
  void setBeforeWait(std::function<void()> beforeWait) { beforeWait_ = std::move(beforeWait); }
  void beforeWait() const {
    if (beforeWait_) beforeWait_();
  }

  /// The largest frame a reply may be, in bytes.
  std::size_t frameCap() const;
  /// What its content may take of that, next to the fields that are always there.
  std::size_t roomInFrame() const;

  /// Moves the session to another account; everything of the old one ends first. The caller has
  /// checked that no transaction is open.
  void switchTo(std::string user, std::string account, Right right);

  /// Starts `program` and answers the request: with its prompt when it wants input, else with its
  /// end. The session keeps a program that waits.
  void start(std::unique_ptr<Program> program, Reply& reply);
  /// Hands input to the program that waits. Throws Failure IE/011 where none does.
  void resume(std::string_view input, Reply& reply);
  bool isPrompting() const { return program_ != nullptr; }
  /// Gives the waiting program up, and rolls its uncommitted work back: in an open transaction what
  /// was done since the program started.
  void abandonProgram();

  /// Before each request: throws Failure 40/000, once, when the open transaction was rolled back
  /// for its idleness since the last request; sets the store's deadline.
  void beginRequest();
  /// After each reply has gone out: prepares what the client is going to ask for next.
  void afterReply();
  /// When an idle session has something to end (a prompt, a transaction); nothing: never.
  std::optional<Clock::time_point> nextExpiry() const;
  void expire(Clock::time_point now);

  /// The session is to end: ends what it does now, and all that it would still begin, and its
  /// waits; from another thread.
  void interrupt();
  /// Whether it came: what takes long asks now and then.
  bool isInterrupted() const { return interrupted_.load(std::memory_order_relaxed); }
  /// When the request that runs must end; nothing: never.
  std::optional<Clock::time_point> deadline() const { return deadline_; }

private:
  void open();
  void close();
  void run(std::optional<std::string_view> input, Reply& reply);

  Agent& agent_;
  const SessionId id_;
  const std::string peer_;
  std::string user_;
  std::string account_;
  Right right_;
  LockOwner lockOwner_;
  Settings settings_;
  LineRate clientLines_;
  std::function<void()> beforeWait_;
  std::map<std::string, std::string> commons_;
  int lastCommandCode_ = 0;

  std::optional<WriterWaits> writerWaits_;
  std::mutex storeMutex_;  // while the store is replaced, for interrupt()
  std::unique_ptr<StoreSession> store_;
  std::unique_ptr<Transactions> transactions_;
  std::unique_ptr<DataAccess> data_;
  std::unique_ptr<SelectLists> lists_;
  std::unique_ptr<SqlStatements> statements_;
  std::unique_ptr<Queries> queries_;
  std::unique_ptr<Program> program_;  // waits for input
  Clock::time_point programSince_{};
  std::optional<Clock::time_point> deadline_;
  std::atomic<bool> interrupted_{false};
};

}  // namespace nox::agent
