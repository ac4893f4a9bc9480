#include "agent/session/transactions.h"

#include <algorithm>
#include <string>
#include <string_view>
#include <unordered_set>
#include <utility>
#include <vector>

#include "agent/config/configuration.h"
#include "agent/failure.h"
#include "agent/names.h"
#include "agent/session/agent.h"
#include "agent/session/data_access.h"
#include "agent/session/session.h"

namespace nox::agent {

namespace {

struct RecordLockHash {
  std::size_t operator()(const RecordLock& lock) const {
    const std::hash<std::string> hash;
    constexpr std::size_t kSpread = 0x9E3779B97F4A7C15u;
    return hash(lock.id) * kSpread + hash(lock.file.file);
  }
};
using RecordLocks = std::unordered_set<RecordLock, RecordLockHash>;

/// What the store is asked for, of a level as clients send it.
int checkedIsolationLevel(int level) {
  constexpr int kReadUncommitted = 1;
  constexpr int kReadCommitted = 2;
  switch (level) {
    case kReadUncommitted:
      return kReadCommitted;
    case 0:
    case kReadCommitted:
    case 4:
    case 8:
      return level;
    default:
      throw Failure("22", "003", "an isolation level is 0, 1, 2, 4 or 8");
  }
}

/// Throws Failure with the given code for a name that is none.
void checkBranchId(const BranchId& id, const char* sqlClass, const char* sqlSubClass) {
  constexpr std::size_t kLongest = 128;
  const bool isText = isUtf8(id.id) && std::none_of(id.id.begin(), id.id.end(), [](char c) {
                        const auto byte = static_cast<unsigned char>(c);
                        return byte < 0x20 || byte == 0x7F;
                      });
  if (id.id.empty() || id.id.size() > kLongest || !isText) {
    throw Failure(sqlClass, sqlSubClass, "a branch's id is a text of 1 to 128 bytes", kXaInvalid);
  }
}

}  // namespace

struct Transactions::Impl {
  enum class Kind { None, Local, Branch };

  explicit Impl(Session& owner) : session(owner) {}

  Session& session;
  Kind kind = Kind::None;
  BranchId branch;
  RecordLocks released;    // but kept until the end
  RecordLocks fromBefore;  // held when the branch started, and not used in it yet
  Clock::time_point lastRequest = Clock::now();
  bool hasExpired = false;

  LockTable& locks() const { return session.agent().locks; }
  Branches& branches() const { return session.agent().branches; }

  /// The transaction is over, whichever way; what was released in it is released now.
  void end() {
    kind = Kind::None;
    fromBefore.clear();
    const RecordLocks due = std::exchange(released, {});
    for (const RecordLock& lock : due) locks().release(session.lockOwner(), lock);
  }

  void rollBack() {
    const bool wasBranch = kind == Kind::Branch;
    try {
      if (session.store().inTransaction()) session.store().rollback();
    } catch (const StoreError&) {
      // The store has given the changes up, or will when the session ends: nobody can see them.
    }
    end();
    if (wasBranch) branches().forget(session.account(), branch);
  }

  void requireNone() const {
    if (kind == Kind::None) return;
    throw Failure("25", "000", "a transaction is open", kXaOutOfOrder);
  }

  void requireLocal() const {
    if (kind == Kind::None) throw Failure("25", "000", "no transaction is open");
    if (kind == Kind::Branch) {
      throw Failure("25", "000", "the open transaction is a branch of a distributed one",
                    kXaOutOfOrder);
    }
  }
};

Transactions::Transactions(Session& session) : impl_(std::make_unique<Impl>(session)) {}

Transactions::~Transactions() {
  giveUp();
  impl_->branches().sessionEnds(impl_->session.lockOwner());
}

bool Transactions::isOpen() const { return impl_->kind != Impl::Kind::None; }

void Transactions::begin(int isolationLevel) {
  const int level = checkedIsolationLevel(isolationLevel);
  if (isOpen()) throw Failure("25", "000", "a transaction is open already");
  try {
    impl_->session.store().begin(level);
  } catch (const StoreError& error) {
    throwAsFailure(error, "IE", "012");
  }
  impl_->kind = Impl::Kind::Local;
}

void Transactions::commit() {
  impl_->requireLocal();
  try {
    impl_->session.store().commit();
  } catch (const StoreError& error) {
    impl_->rollBack();
    throw Failure("2D", "000", error.what(),
                  error.status() != 0 ? std::optional(error.status()) : std::nullopt);
  }
  impl_->end();
}

void Transactions::rollback() {
  impl_->requireLocal();
  impl_->rollBack();
}

void Transactions::giveUp() noexcept {
  if (isOpen()) impl_->rollBack();
}

void Transactions::release(const RecordLock& record) {
  if (isOpen()) {
    impl_->released.insert(record);
  } else {
    impl_->locks().release(impl_->session.lockOwner(), record);
  }
}

void Transactions::release(const FilePart& file) {
  const Session& session = impl_->session;
  if (!isOpen()) return impl_->locks().release(session.lockOwner(), session.account(), file);
  for (HeldLock& held : impl_->locks().heldBy(session.lockOwner())) {
    if (held.record.file == file) impl_->released.insert(std::move(held.record));
  }
}

void Transactions::releaseAll() {
  const LockOwner owner = impl_->session.lockOwner();
  if (!isOpen()) return impl_->locks().releaseAll(owner);
  for (HeldLock& held : impl_->locks().heldBy(owner)) {
    impl_->released.insert(std::move(held.record));
  }
}

bool Transactions::claim(const RecordLock& record) {
  if (!isOpen()) return false;
  impl_->fromBefore.erase(record);
  return impl_->released.erase(record) > 0;
}

void Transactions::startBranch(const BranchId& id) {
  checkBranchId(id, "IE", "012");
  impl_->requireNone();
  Session& session = impl_->session;
  impl_->branches().start(session.account(), id, session.lockOwner());
  try {
    session.store().beginBranch();
  } catch (const StoreError& error) {
    impl_->branches().forget(session.account(), id);
    if (error.kind() == StoreError::Kind::Busy) throwAsFailure(error, "IE", "012");
    throw Failure("IE", "012", error.what(), kXaStoreFailed);
  }
  impl_->kind = Impl::Kind::Branch;
  impl_->branch = id;
  for (HeldLock& held : impl_->locks().heldBy(session.lockOwner())) {
    impl_->fromBefore.insert(std::move(held.record));
  }
}

void Transactions::endBranch(const BranchId& id) {
  checkBranchId(id, "25", "000");
  Session& session = impl_->session;
  impl_->branches().checkStarted(session.account(), id, session.lockOwner());
  std::unique_ptr<StoreBranch> changes;
  try {
    changes = session.store().endBranch(id);
  } catch (const StoreError& error) {
    impl_->rollBack();
    throw Failure("40", "000", error.what(), kXaStoreFailed);
  }
  const LockOwner heir = impl_->locks().newOwner();
  impl_->locks().transfer(session.lockOwner(), heir,
                          {impl_->fromBefore.begin(), impl_->fromBefore.end()});
  impl_->branches().end(session.account(), id, std::move(changes), heir);
  impl_->end();
}

void Transactions::prepareBranch(const BranchId& id) {
  checkBranchId(id, "IE", "013");
  impl_->requireNone();
  const Session& session = impl_->session;
  impl_->branches().prepare(session.account(), id, impl_->session.settings().lockWait);
}

void Transactions::commitBranch(const BranchId& id) {
  impl_->session.requireWrite();
  checkBranchId(id, "2D", "000");
  impl_->requireNone();
  const Session& session = impl_->session;
  impl_->branches().commit(session.account(), id, impl_->session.settings().lockWait);
}

void Transactions::rollbackBranch(const BranchId& id) {
  checkBranchId(id, "40", "000");
  impl_->requireNone();
  const Session& session = impl_->session;
  // Who may only read has nothing to lose in a branch of its own.
  if (!impl_->branches().isEndedBy(session.account(), id, session.lockOwner())) {
    session.requireWrite();
  }
  impl_->branches().rollback(session.account(), id, impl_->session.settings().lockWait);
}

void Transactions::touch(Clock::time_point now) {
  impl_->lastRequest = now;
  // The store may roll back on its own, as it does where the disk is full. The request that met it
  // was told.
  if (isOpen() && !impl_->session.store().inTransaction()) impl_->rollBack();
}

std::optional<Transactions::Clock::time_point> Transactions::expiry() const {
  if (!isOpen()) return std::nullopt;
  return impl_->lastRequest + impl_->session.agent().configuration.values()->transactionIdle;
}

void Transactions::expire() {
  if (!isOpen()) return;
  impl_->rollBack();
  impl_->hasExpired = true;
}

void Transactions::tellExpired() {
  if (!std::exchange(impl_->hasExpired, false)) return;
  throw Failure("40", "000", "the transaction was idle for too long");
}

}  // namespace nox::agent
