// A session's transaction, and the branches of distributed ones that all sessions share.
#pragma once

#include <chrono>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "agent/locks/lock_table.h"
#include "agent/store/store.h"

namespace nox::agent {

class Log;
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

  void startBranch(const BranchId& id);
  void endBranch(const BranchId& id);
  void prepareBranch(const BranchId& id);
  void commitBranch(const BranchId& id);
  void rollbackBranch(const BranchId& id);

  /// Notes that a request came; when the next expiry is due.
  void touch(Clock::time_point now);
  std::optional<Clock::time_point> expiry() const;
  /// Rolls the idle transaction back; the next request is told.
  void expire();
  /// Throws Failure 40/000 once after `expire`.
  void tellExpired();

private:
  struct Impl;
  std::unique_ptr<Impl> impl_;
};

struct BranchInfo {
  std::string account;
  BranchId id;
  std::string state;  // "started", "ended", "prepared"
  LockOwner owner = 0;  // whose locks are the branch's
  std::size_t locks = 0;
  std::chrono::system_clock::time_point since;
};

/// The branches of all accounts. Safe for threads.
class Branches {
public:
  Branches(StoreEngine& stores, LockTable& locks);
  ~Branches();

  /// Before the port opens: takes the prepared branches of every account over, and their locks.
  void recover(Log& log);
  std::vector<BranchInfo> list(const std::string& account) const;
  /// What an administrator does with a forgotten branch. Failures as for the requests.
  void commit(const std::string& account, const BranchId& id);
  void rollback(const std::string& account, const BranchId& id);

private:
  friend class Transactions;
  struct Impl;
  std::unique_ptr<Impl> impl_;
};

}  // namespace nox::agent
