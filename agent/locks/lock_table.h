// Record locks: who holds which record, and who waits.
#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "agent/names.h"

namespace nox::agent {

/// A session or a branch. Never given twice while the agent runs.
using LockOwner = std::uint64_t;

struct RecordLock {
  std::string account;
  FilePart file;
  std::string id;
};

enum class LockKind { Shared, Update };

enum class LockOutcome {
  Granted,      // it was not held before, or only as shared
  HeldAlready,  // this owner had it, at least as strong
  Locked,       // another one keeps it
  Deadlock      // waiting would close a cycle; nothing was waited for
};

struct HeldLock {
  RecordLock record;
  LockKind kind;
  LockOwner owner;
  std::size_t waiting;  // how many wait for this record
};

/// Many may share a record's lock, or one has it for update. An owner may upgrade while alone.
/// Waiters are served in the order in which they came. Safe for threads.
class LockTable {
public:
  LockTable();
  ~LockTable();
  LockTable(const LockTable&) = delete;
  LockTable& operator=(const LockTable&) = delete;

  LockOwner newOwner();

  /// Waits up to `wait` (0: not at all). `cancel(owner)` from another thread ends the wait as
  /// Locked.
  LockOutcome acquire(LockOwner owner, const RecordLock& record, LockKind kind,
                      std::chrono::milliseconds wait);
  /// What `owner` holds on the record; nothing happens where it holds none.
  void release(LockOwner owner, const RecordLock& record);
  /// All that `owner` holds in the part.
  void release(LockOwner owner, const std::string& account, const FilePart& file);
  void releaseAll(LockOwner owner);
  /// Hands all locks of `from` to `to`, which holds none yet, without a moment between.
  void transfer(LockOwner from, LockOwner to);
  /// Ends the waits of `owner`, which is to end.
  void cancel(LockOwner owner);

  bool isHeldByOther(LockOwner owner, const RecordLock& record) const;
  /// Whether somebody else holds any record of the part.
  bool isAnyHeldByOther(LockOwner owner, const std::string& account, const FilePart& file) const;
  std::vector<HeldLock> heldBy(LockOwner owner) const;
  /// All locks of an account (or of one file of it), ordered by file, part and id.
  std::vector<HeldLock> list(const std::string& account, const std::string& file = {}) const;
  std::size_t size() const;

private:
  struct Impl;
  std::unique_ptr<Impl> impl_;
};

}  // namespace nox::agent
