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

/// What is locked: one record, or with an empty id the part as a whole, which only `Update` knows.
/// Who has the part keeps others from locking records in it, and gets it when none of them does;
/// those who want a record never wait for somebody who only waits for the part.
struct RecordLock {
  std::string account;
  FilePart file;
  std::string id;

  bool operator==(const RecordLock& other) const {
    return id == other.id && file == other.file && account == other.account;
  }
};

enum class LockKind { Shared, Update };

enum class LockOutcome {
  Granted,      // it was not held before
  Upgraded,     // it was held as shared, and is for update now
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

  /// Waits up to `wait` (0: not at all, and nothing is a deadlock then). An owner has one thread
  /// at a time here.
  LockOutcome acquire(LockOwner owner, const RecordLock& record, LockKind kind,
                      std::chrono::milliseconds wait);
  /// What `owner` holds on the record; nothing happens where it holds none.
  void release(LockOwner owner, const RecordLock& record);
  /// All that `owner` holds in the part.
  void release(LockOwner owner, const std::string& account, const FilePart& file);
  /// The last that is done for an owner: it leaves no trace then, not even of `cancel`.
  void releaseAll(LockOwner owner);
  /// Hands the locks of `from` to `to`, which holds none yet, without a moment between. Those of
  /// `keep` that `from` holds stay with it.
  void transfer(LockOwner from, LockOwner to, const std::vector<RecordLock>& keep = {});
  // Those who write to an account in a transaction take turns, in the store. Who has the turn, and
  // who waits for it, is told here, so that cycles are found which lead through it.
  void setWriter(const std::string& account, LockOwner owner);
  /// Nothing happens where it is another one by now.
  void clearWriter(const std::string& account, LockOwner owner);
  /// False, and nothing was noted, where the wait would close a cycle. `account` is borrowed until
  /// the wait ends.
  bool beginWaitForWriter(LockOwner owner, const std::string& account);
  void endWaitForWriter(LockOwner owner);

  /// Ends the wait of `owner`, which is to end, as Locked, and all that it would wait for later.
  void cancel(LockOwner owner);

  std::vector<HeldLock> heldBy(LockOwner owner) const;
  /// All locks of an account (or of one file of it), ordered by file, part, id and owner.
  std::vector<HeldLock> list(const std::string& account, const std::string& file = {}) const;
  std::size_t size() const;

private:
  struct Impl;
  std::unique_ptr<Impl> impl_;
};

}  // namespace nox::agent
