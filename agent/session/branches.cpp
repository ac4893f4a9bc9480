#include "agent/session/branches.h"

#include <condition_variable>
#include <map>
#include <mutex>
#include <optional>
#include <utility>

#include "agent/failure.h"
#include "agent/log/log.h"

namespace nox::agent {

namespace {

enum class State { Started, Ended, Prepared };

const char* nameOf(State state) {
  switch (state) {
    case State::Started:
      return "started";
    case State::Ended:
      return "ended";
    case State::Prepared:
      return "prepared";
  }
  return "";
}

struct Branch {
  State state = State::Started;
  LockOwner session = 0;  // until it is prepared
  LockOwner locks = 0;    // who has its locks: the session while it is started, then itself
  std::unique_ptr<StoreBranch> changes;
  std::chrono::system_clock::time_point since = std::chrono::system_clock::now();
  bool busy = false;  // somebody works on it, without the mutex; it stays where it is then
};

/// The SQLSTATE with which a request about a branch fails.
constexpr StateCode kStart{"IE", "012"};
constexpr StateCode kPrepare{"IE", "013"};
constexpr StateCode kCommit{"2D", "000"};
constexpr StateCode kRollback{"40", "000"};
constexpr StateCode kWrongOrder{"25", "000"};

[[noreturn]] void fail(const StateCode& code, const std::string& reason, std::int32_t status) {
  throw Failure(code.sqlClass, code.sqlSubClass, reason, status);
}

[[noreturn]] void failUnknown(const StateCode& code) {
  fail(code, "there is no such branch", kXaUnknown);
}

[[noreturn]] void failOutOfOrder(State state) {
  fail(kWrongOrder, std::string("the branch is ") + nameOf(state), kXaOutOfOrder);
}

}  // namespace

struct Branches::Impl {
  using Key = std::pair<std::string, BranchId>;

  Impl(StoreEngine& storeEngine, LockTable& lockTable) : stores(storeEngine), locks(lockTable) {}

  StoreEngine& stores;
  LockTable& locks;
  mutable std::mutex mutex;
  std::condition_variable idle;  // a branch is no longer busy, or gone
  std::map<Key, Branch> branches;

  /// Waits until nobody works on the branch, and takes it.
  Branch& take(std::unique_lock<std::mutex>& lock, const Key& key, const StateCode& code,
               std::chrono::milliseconds wait) {
    const auto deadline = std::chrono::steady_clock::now() + wait;
    auto found = branches.find(key);
    while (found != branches.end() && found->second.busy) {
      if (idle.wait_until(lock, deadline) == std::cv_status::timeout) {
        throw Failure("IE", "024", "another session works on the branch");
      }
      found = branches.find(key);
    }
    if (found == branches.end()) failUnknown(code);
    if (found->second.state == State::Started) failOutOfOrder(State::Started);
    return found->second;
  }

  /// Lets `work` do what the store has to do for a branch that is not started any more, without
  /// the mutex. Where it fails the branch is as it was.
  template <class Work>
  void workOn(std::unique_lock<std::mutex>& lock, Branch& branch, const StateCode& code,
              Work work) {
    branch.busy = true;
    lock.unlock();
    std::optional<StoreError> error;
    try {
      work(branch);
    } catch (const StoreError& thrown) {
      error = thrown;
    } catch (...) {
      lock.lock();
      branch.busy = false;
      idle.notify_all();
      throw;
    }
    lock.lock();
    branch.busy = false;
    idle.notify_all();
    if (!error) return;
    if (error->kind() == StoreError::Kind::Busy) throw Failure("IE", "024", error->what());
    fail(code, error->what(), kXaStoreFailed);
  }

  /// Finishes a branch by `work`: it is gone then, and its locks are free.
  template <class Work>
  void finish(const Key& key, const StateCode& code, std::chrono::milliseconds wait, Work work) {
    std::unique_lock<std::mutex> lock(mutex);
    Branch& branch = take(lock, key, code, wait);
    workOn(lock, branch, code, work);
    const LockOwner owner = branch.locks;
    branches.erase(key);
    lock.unlock();
    locks.releaseAll(owner);
  }
};

Branches::Branches(StoreEngine& stores, LockTable& locks)
    : impl_(std::make_unique<Impl>(stores, locks)) {}

Branches::~Branches() = default;

void Branches::recover(Log& log) {
  for (const std::string& account : impl_->stores.accounts()) {
    for (std::unique_ptr<StoreBranch>& prepared :
         impl_->stores.open(account).takePreparedBranches()) {
      Branch branch;
      branch.state = State::Prepared;
      branch.locks = impl_->locks.newOwner();
      for (const LockedRecord& locked : prepared->locks()) {
        const LockOutcome outcome = impl_->locks.acquire(
            branch.locks, {account, locked.file, locked.id},
            locked.update ? LockKind::Update : LockKind::Shared, std::chrono::milliseconds(0));
        if (outcome == LockOutcome::Locked) {
          log.error("account " + account + ": two prepared branches lock \"" + locked.id +
                    "\" of " + locked.file.text());
        }
      }
      const BranchId id = prepared->id();
      log.info("account " + account + ": took over the prepared branch " +
               std::to_string(id.format) + ":" + id.id + " with " +
               std::to_string(prepared->locks().size()) + " locks");
      branch.changes = std::move(prepared);
      const std::lock_guard<std::mutex> lock(impl_->mutex);
      impl_->branches[{account, id}] = std::move(branch);
    }
  }
}

std::vector<BranchInfo> Branches::list(const std::string& account) const {
  std::vector<BranchInfo> infos;
  const std::lock_guard<std::mutex> lock(impl_->mutex);
  for (const auto& [key, branch] : impl_->branches) {
    if (!account.empty() && key.first != account) continue;
    infos.push_back({key.first, key.second, nameOf(branch.state), branch.locks,
                     impl_->locks.heldBy(branch.locks).size(), branch.since});
  }
  return infos;
}

void Branches::start(const std::string& account, const BranchId& id, LockOwner session) {
  const std::lock_guard<std::mutex> lock(impl_->mutex);
  const auto [found, added] = impl_->branches.try_emplace({account, id});
  if (!added) fail(kStart, "there is such a branch already", kXaDuplicate);
  found->second.session = session;
  found->second.locks = session;
}

void Branches::checkStarted(const std::string& account, const BranchId& id,
                            LockOwner session) const {
  const std::lock_guard<std::mutex> lock(impl_->mutex);
  const auto found = impl_->branches.find({account, id});
  if (found == impl_->branches.end()) failUnknown(kWrongOrder);
  const Branch& branch = found->second;
  if (branch.state != State::Started) failOutOfOrder(branch.state);
  if (branch.session != session) {
    fail(kWrongOrder, "another session started the branch", kXaOutOfOrder);
  }
}

void Branches::end(const std::string& account, const BranchId& id,
                   std::unique_ptr<StoreBranch> changes, LockOwner locks) {
  const std::lock_guard<std::mutex> lock(impl_->mutex);
  Branch& branch = impl_->branches.at({account, id});
  branch.state = State::Ended;
  branch.changes = std::move(changes);
  branch.locks = locks;
}

void Branches::forget(const std::string& account, const BranchId& id) {
  const std::lock_guard<std::mutex> lock(impl_->mutex);
  impl_->branches.erase({account, id});
}

void Branches::prepare(const std::string& account, const BranchId& id,
                       std::chrono::milliseconds wait) {
  std::unique_lock<std::mutex> lock(impl_->mutex);
  Branch& branch = impl_->take(lock, {account, id}, kPrepare, wait);
  if (branch.state == State::Prepared) failOutOfOrder(State::Prepared);
  impl_->workOn(lock, branch, kPrepare, [this](Branch& ended) {
    std::vector<LockedRecord> locked;
    for (HeldLock& held : impl_->locks.heldBy(ended.locks)) {
      locked.push_back(
          {std::move(held.record.file), std::move(held.record.id), held.kind == LockKind::Update});
    }
    ended.changes->prepare(locked);
  });
  branch.state = State::Prepared;
  branch.session = 0;
}

void Branches::commit(const std::string& account, const BranchId& id,
                      std::chrono::milliseconds wait) {
  impl_->finish({account, id}, kCommit, wait,
                [wait](Branch& branch) { branch.changes->commit(wait); });
}

void Branches::rollback(const std::string& account, const BranchId& id,
                        std::chrono::milliseconds wait) {
  impl_->finish({account, id}, kRollback, wait,
                [wait](Branch& branch) { branch.changes->rollback(wait); });
}

bool Branches::isEndedBy(const std::string& account, const BranchId& id, LockOwner session) const {
  const std::lock_guard<std::mutex> lock(impl_->mutex);
  const auto found = impl_->branches.find({account, id});
  return found != impl_->branches.end() && found->second.state == State::Ended &&
         found->second.session == session;
}

void Branches::sessionEnds(LockOwner session) noexcept {
  std::unique_lock<std::mutex> lock(impl_->mutex);
  for (auto next = impl_->branches.begin(); next != impl_->branches.end();) {
    Branch& branch = next->second;
    if (branch.session != session) {
      ++next;
    } else if (branch.busy) {
      // Another session prepares, commits or rolls it back: what it leaves decides.
      impl_->idle.wait(lock);
      next = impl_->branches.begin();
    } else {
      const LockOwner owner = branch.locks;
      // Nothing of it is in the store: dropping the changes is all that a rollback would do.
      next = impl_->branches.erase(next);
      if (owner != session) impl_->locks.releaseAll(owner);
    }
  }
}

}  // namespace nox::agent
