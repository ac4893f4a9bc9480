// The branches of distributed transactions, which all sessions share.
#pragma once

#include <chrono>
#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "agent/locks/lock_table.h"
#include "agent/store/store.h"

namespace nox::agent {

class Log;

// What went wrong with a branch, in the codes of the X/Open interface; the status of a Failure.
constexpr std::int32_t kXaUnknown = -4;      // NOTA
constexpr std::int32_t kXaInvalid = -5;      // INVAL
constexpr std::int32_t kXaOutOfOrder = -6;   // PROTO
constexpr std::int32_t kXaStoreFailed = -3;  // RMERR
constexpr std::int32_t kXaDuplicate = -8;    // DUPID

struct BranchInfo {
  std::string account;
  BranchId id;
  std::string state;    // "started", "ended", "prepared"
  LockOwner owner = 0;  // whose locks are the branch's
  std::size_t locks = 0;
  std::chrono::system_clock::time_point since;
};

/// The branches of all accounts. A branch is started in a session, and ended there; then it keeps
/// its changes and its locks without one, but only a prepared one outlives the session that ended
/// it. Failures carry the codes of the requests. Safe for threads: of two that finish a branch at
/// once, one does it and the other finds it gone.
class Branches {
public:
  Branches(StoreEngine& stores, LockTable& locks);
  ~Branches();

  /// Before the port opens: takes the prepared branches of every account over, and their locks.
  void recover(Log& log);
  /// Ordered by account and id; of one account, or of all (empty).
  std::vector<BranchInfo> list(const std::string& account) const;

  /// `session` stands for the session that owns the branch until it is prepared.
  void start(const std::string& account, const BranchId& id, LockOwner session);
  /// Throws unless the branch is a started one of this session.
  void checkStarted(const std::string& account, const BranchId& id, LockOwner session) const;
  /// A started branch is ended: its changes, and the owner to whom its locks went.
  void end(const std::string& account, const BranchId& id, std::unique_ptr<StoreBranch> changes,
           LockOwner locks);
  /// A started branch goes, with what its session did in it.
  void forget(const std::string& account, const BranchId& id);
  void prepare(const std::string& account, const BranchId& id, std::chrono::milliseconds wait);
  // Also what an administrator does with a forgotten branch.
  void commit(const std::string& account, const BranchId& id,
              std::chrono::milliseconds wait = kPatience);
  void rollback(const std::string& account, const BranchId& id,
                std::chrono::milliseconds wait = kPatience);
  /// Whether the branch is one that this session ended and did not prepare.
  bool isEndedBy(const std::string& account, const BranchId& id, LockOwner session) const;
  /// Drops the branches that the session ended and nobody prepared.
  void sessionEnds(LockOwner session) noexcept;

private:
  static constexpr std::chrono::milliseconds kPatience{5000};

  struct Impl;
  std::unique_ptr<Impl> impl_;
};

}  // namespace nox::agent
