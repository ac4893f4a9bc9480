#include "agent/session/data_access.h"

#include <algorithm>
#include <chrono>
#include <optional>
#include <utility>

#include "agent/failure.h"
#include "agent/session/agent.h"
#include "agent/session/session.h"
#include "agent/session/transactions.h"

namespace nox::agent {

namespace {

constexpr std::chrono::milliseconds kNoWait{0};

/// The SQLSTATE with which a request fails.
constexpr StateCode kOpen{"IE", "005"};
constexpr StateCode kClear{"IE", "006"};
constexpr StateCode kSelect{"IE", "007"};
constexpr StateCode kRead{"IE", "008"};
constexpr StateCode kWrite{"IE", "009"};
constexpr StateCode kDelete{"IE", "010"};

/// Runs `work` and gives its result; what the store throws becomes a Failure of this code.
template <class Work>
auto inStore(const StateCode& code, Work work) {
  try {
    return work();
  } catch (const StoreError& error) {
    throwAsFailure(error, code.sqlClass, code.sqlSubClass);
  }
}

[[noreturn]] void failWithoutFile(const FilePart& file, const StateCode& code) {
  throw Failure(code.sqlClass, code.sqlSubClass, "there is no file " + file.file);
}

}  // namespace

void throwAsFailure(const StoreError& error, const char* sqlClass, const char* sqlSubClass) {
  const std::optional<std::int32_t> status =
      error.status() != 0 ? std::optional(error.status()) : std::nullopt;
  switch (error.kind()) {
    case StoreError::Kind::Busy:
      throw Failure("IE", "024", "another session keeps writing", status);
    case StoreError::Kind::RolledBack:
      throw Failure("40", "000", error.what(), status);
    case StoreError::Kind::NotInBranch:
      throw Failure("0A", "000", error.what(), status);
    case StoreError::Kind::Interrupted:
      throw Failure(sqlClass, sqlSubClass, "the request took too long, or was ended", status);
    default:
      throw Failure(sqlClass, sqlSubClass, error.what(), status);
  }
}

/// The update lock of one that writes. Unless it is kept, its end releases what was not locked
/// before; inside a transaction at the transaction's end, where something was `done`.
class DataAccess::WriteLock {
public:
  WriteLock(DataAccess& data, RecordLock record, const StateCode& code)
      : data_(data), record_(std::move(record)) {
    Session& session = data_.session_;
    const LockOutcome outcome = data_.lock(record_, LockKind::Update, session.settings().lockWait,
                                           code.sqlClass, code.sqlSubClass);
    held_ = outcome != LockOutcome::Locked;
    if (!held_) return;
    const bool wasDue = session.transactions().claim(record_);
    isNew_ = outcome == LockOutcome::Granted;
    release_ = isNew_ || wasDue;
  }
  WriteLock(WriteLock&& other) noexcept
      : data_(other.data_),
        record_(std::move(other.record_)),
        held_(other.held_),
        isNew_(other.isNew_),
        isDone_(other.isDone_),
        release_(std::exchange(other.release_, false)) {}
  WriteLock(const WriteLock&) = delete;
  WriteLock& operator=(const WriteLock&) = delete;
  ~WriteLock() {
    if (!release_) return;
    Session& session = data_.session_;
    if (isNew_ && !isDone_) {
      session.agent().locks.release(session.lockOwner(), record_);
    } else {
      session.transactions().release(record_);
    }
  }

  bool isHeld() const { return held_; }
  /// The store did what it was asked to.
  void done() { isDone_ = true; }
  void keep() { release_ = false; }
  /// Also where it was locked before.
  void releaseInAnyCase() { release_ = true; }

private:
  DataAccess& data_;
  RecordLock record_;
  bool held_ = false;
  bool isNew_ = false;
  bool isDone_ = false;
  bool release_ = false;
};

const FilePart& DataAccess::part(std::string_view text, const char* sqlClass,
                                 const char* sqlSubClass) {
  for (const KnownFile& known : known_) {
    if (known.text == text && !text.empty()) return known.file;
  }
  KnownFile& known = known_[nextKnown_];
  FilePart file = parseFilePart(text, sqlClass, sqlSubClass);
  known = {std::string(text), std::move(file)};
  nextKnown_ = (nextKnown_ + 1) % known_.size();
  return known.file;
}

RecordLock DataAccess::lockOf(const FilePart& file, std::string_view id) const {
  return {session_.account(), file, std::string(id)};
}

LockOutcome DataAccess::lock(const RecordLock& record, LockKind kind,
                             std::chrono::milliseconds wait, const char* sqlClass,
                             const char* sqlSubClass) {
  LockTable& locks = session_.agent().locks;
  LockOutcome outcome = locks.acquire(session_.lockOwner(), record, kind, kNoWait);
  if (outcome != LockOutcome::Locked) return outcome;
  // A file that is gone may have left locks behind; nobody needs to wait for them.
  const StateCode code{sqlClass, sqlSubClass};
  if (!inStore(code, [&] { return session_.store().hasFile(record.file.file); })) {
    failWithoutFile(record.file, code);
  }
  if (wait == kNoWait) return outcome;
  session_.beforeWait();
  outcome = locks.acquire(session_.lockOwner(), record, kind, wait);
  if (outcome == LockOutcome::Deadlock) {
    session_.transactions().giveUp();
    throw Failure("40", "000", "the session that keeps the record waits for this one");
  }
  return outcome;
}

void DataAccess::open(std::string_view file) {
  const FilePart& opened = part(file, kOpen.sqlClass, kOpen.sqlSubClass);
  if (!inStore(kOpen, [&] { return session_.store().hasFile(opened.file); })) {
    failWithoutFile(opened, kOpen);
  }
}

void DataAccess::clear(std::string_view file) {
  session_.requireWrite();
  const FilePart& cleared = part(file, kClear.sqlClass, kClear.sqlSubClass);
  WriteLock lock(*this, lockOf(cleared, {}), kClear);
  if (!lock.isHeld()) {
    throw Failure("IE", "024", "another session keeps a record of the file locked");
  }
  inStore(kClear, [&] { session_.store().clear(cleared); });
  lock.done();
}

bool DataAccess::deleteFile(const std::string& file) {
  session_.requireWrite();
  WriteLock data(*this, lockOf({file, Part::Data}, {}), kDelete);
  WriteLock dictionary(*this, lockOf({file, Part::Dict}, {}), kDelete);
  if (!data.isHeld() || !dictionary.isHeld()) {
    throw Failure("IE", "024", "another session keeps a record of the file locked");
  }
  const bool deleted = inStore(kDelete, [&] { return session_.store().deleteFile(file); });
  data.done();
  dictionary.done();
  return deleted;
}

DataAccess::Status DataAccess::read(std::string_view file, std::string_view id, int mode,
                                    NOXPBlob& body) {
  const bool waits = (mode & kDoNotWait) == 0;
  const int kind = mode & ~kDoNotWait;
  if (kind < kReadPlain || kind > kReadUpdate) {
    throw Failure("22", "003", "a read mode is 0, 1 or 2, or 4 more");
  }
  const FilePart& from = part(file, kRead.sqlClass, kRead.sqlSubClass);
  checkRecordId(id);
  const auto readRecord = [&] {
    return inStore(kRead, [&] {
      return session_.store().read(from, id, body) ? Status::Done : Status::NotDone;
    });
  };
  if (kind == kReadPlain) return readRecord();

  const RecordLock record = lockOf(from, id);
  const LockOutcome outcome =
      lock(record, kind == kReadShared ? LockKind::Shared : LockKind::Update,
           waits ? session_.settings().lockWait : kNoWait, kRead.sqlClass, kRead.sqlSubClass);
  if (outcome == LockOutcome::Locked) return Status::Locked;
  session_.transactions().claim(record);
  try {
    return readRecord();
  } catch (...) {
    if (outcome == LockOutcome::Granted) session_.transactions().release(record);
    throw;
  }
}

DataAccess::Status DataAccess::write(std::string_view file, std::string_view id,
                                     std::string_view body, int mode) {
  if (mode < kWriteAndRelease || mode > kWriteNew) {
    throw Failure("22", "003", "a write mode is 0, 1 or 2");
  }
  session_.requireWrite();
  const FilePart& to = part(file, kWrite.sqlClass, kWrite.sqlSubClass);
  checkRecordId(id);
  checkRecord(body);
  WriteLock lock(*this, lockOf(to, id), kWrite);
  if (!lock.isHeld()) return Status::Locked;
  return inStore(kWrite, [&] {
    if (mode == kWriteNew) {
      const bool written = session_.store().writeNew(to, id, body);
      lock.done();
      return written ? Status::Done : Status::NotDone;
    }
    session_.store().write(to, id, body);
    lock.done();
    if (mode == kWriteAndKeep) {
      lock.keep();
    } else {
      lock.releaseInAnyCase();
    }
    return Status::Done;
  });
}

DataAccess::Status DataAccess::remove(std::string_view file, std::string_view id) {
  session_.requireWrite();
  const FilePart& from = part(file, kDelete.sqlClass, kDelete.sqlSubClass);
  checkRecordId(id);
  WriteLock lock(*this, lockOf(from, id), kDelete);
  if (!lock.isHeld()) return Status::Locked;
  return inStore(kDelete, [&] {
    const bool removed = session_.store().remove(from, id);
    lock.done();
    lock.releaseInAnyCase();
    return removed ? Status::Done : Status::NotDone;
  });
}

DataAccess::Status DataAccess::exists(std::string_view file, std::string_view id) {
  const FilePart& in = part(file, kRead.sqlClass, kRead.sqlSubClass);
  checkRecordId(id);
  return inStore(kRead,
                 [&] { return session_.store().exists(in, id) ? Status::Done : Status::NotDone; });
}

void DataAccess::release(int mode, std::string_view file, std::string_view id) {
  Transactions& transactions = session_.transactions();
  if (mode == kReleaseAll) return transactions.releaseAll();
  if (mode != kReleaseRecord && mode != kReleaseFile) {
    throw Failure("22", "003", "a release mode is 0, 1 or 2");
  }
  if (mode == kReleaseRecord) checkRecordId(id);
  if (!isFilePart(file)) return;  // nothing of such a name is locked
  const FilePart& in = part(file, kRead.sqlClass, kRead.sqlSubClass);
  if (mode == kReleaseFile) return transactions.release(in);
  transactions.release(lockOf(in, id));
}

void DataAccess::writeAll(std::vector<RecordWrite> writes) {
  if (writes.empty()) return;
  session_.requireWrite();
  std::vector<const RecordWrite*> order;
  order.reserve(writes.size());
  for (const RecordWrite& write : writes) {
    checkRecordId(write.id);
    checkRecord(write.body);
    order.push_back(&write);
  }
  // In one order for all sessions, so that two that write the same records do not meet crosswise.
  std::sort(order.begin(), order.end(),
            [](const RecordWrite* a, const RecordWrite* b) { return a->id < b->id; });
  std::vector<WriteLock> locks;
  locks.reserve(order.size());
  for (const RecordWrite* const write : order) {
    locks.emplace_back(*this, lockOf(write->file, write->id), kWrite);
    if (!locks.back().isHeld()) {
      throw Failure("IE", "024", "another session keeps \"" + write->id + "\" locked");
    }
  }
  inStore(kWrite, [&] { session_.store().writeAll(writes); });
  for (WriteLock& lock : locks) {
    lock.done();
    lock.releaseInAnyCase();
  }
}

std::unique_ptr<RecordCursor> DataAccess::scan(const FilePart& file, bool withBodies) {
  return inStore(kSelect, [&] { return session_.store().scan(file, withBodies); });
}

}  // namespace nox::agent
