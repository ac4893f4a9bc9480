// A session's transaction: a local one, or a branch of a distributed one while it runs here.
#pragma once

#include <chrono>
#include <memory>
#include <optional>

#include "agent/locks/lock_table.h"
#include "agent/session/branches.h"
#include "agent/store/store.h"

namespace nox::agent {

class Session;

/// One local transaction, or one started branch, at a time. Failures carry the codes of the
/// requests. The locks that are released inside a transaction are kept until its end.
class Transactions {
public:
  using Clock = std::chrono::steady_clock;

  explicit Transactions(Session& session);
  /// Rolls back.
  ~Transactions();

  bool isOpen() const;
  void begin(int isolationLevel);
  void commit();
  void rollback();
  /// Rolls back what is open, if anything is, without an error: the session ends, or its asker was
  /// refused a lock.
  void giveUp() noexcept;
  /// Remembers to release at the end of the transaction; outside of one releases at once.
  void release(const RecordLock& record);
  void release(const FilePart& file);
  void releaseAll();
  /// The open transaction uses a lock that the session holds: it belongs to a branch then, also
  /// where the session had it before, and its release is not due any more. Whether one was due.
  bool claim(const RecordLock& record);

  void startBranch(const BranchId& id);
  void endBranch(const BranchId& id);
  void prepareBranch(const BranchId& id);
  void commitBranch(const BranchId& id);
  void rollbackBranch(const BranchId& id);

  /// Notes that the client is not idle; finds out whether the store gave the transaction up.
  void touch(Clock::time_point now);
  /// When the open transaction has been idle for too long.
  std::optional<Clock::time_point> expiry() const;
  /// Rolls the idle transaction back; the next request is told.
  void expire();
  /// Throws Failure 40/000 once after `expire`.
  void tellExpired();

private:
  struct Impl;
  std::unique_ptr<Impl> impl_;
};

}  // namespace nox::agent
