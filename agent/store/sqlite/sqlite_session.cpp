#include "agent/store/sqlite/sqlite_session.h"

#include <algorithm>
#include <new>
#include <utility>

#include "agent/store/sqlite/changesets.h"
#include "agent/store/sqlite/records.h"
#include "agent/store/sqlite/scan_cursor.h"
#include "agent/store/sqlite/sqlite_branch.h"

namespace nox::agent {

SqliteSession::SqliteSession(SqliteStore& store) : store_(store) {}

SqliteSession::~SqliteSession() {
  endTransaction();
  SqliteSession::rest();
}

void SqliteSession::setDeadline(std::optional<std::chrono::steady_clock::time_point> deadline) {
  control_.deadline = deadline;
  control_.interrupted = false;
}

void SqliteSession::interrupt() {
  control_.interrupted = true;
  store_.writerPlace().wake(control_);
}

void SqliteSession::rest() noexcept { store_.connections().endSnapshots(); }

void SqliteSession::requireRunning() const {
  if (control_.interrupted) {
    throw StoreError(StoreError::Kind::Interrupted, "the work was interrupted");
  }
  if (lost_) {
    throw StoreError(StoreError::Kind::RolledBack, "the store has rolled the transaction back");
  }
}

void SqliteSession::requireTransaction() const {
  if (!open_) throw StoreError(StoreError::Kind::Failed, "no transaction is open");
}

ConnectionLease SqliteSession::readConnection() {
  requireRunning();
  return writing_ ? writing_ : store_.connections().borrow(&control_);
}

// Changes.

template <class Work>
void SqliteSession::change(StoreChange::Extent extent, Work work) {
  requireRunning();
  if (!open_) {
    ChangeBy<Work> together(extent, std::move(work));
    store_.make(together, patience());
    return;
  }
  SqliteConnection& connection = writing();
  detachCursors();
  try {
    if (extent == StoreChange::Simple) {
      work(connection);
    } else {
      SqliteConnection::Savepoint savepoint(connection);
      work(connection);
      savepoint.keep();
    }
  } catch (...) {
    noticeLoss();
    throw;
  }
}

WriterPlace::Hold SqliteSession::takePlace() {
  try {
    return store_.writerPlace().take(patience());
  } catch (const StoreError& error) {
    if (error.kind() == StoreError::Kind::RolledBack) lost_ = true;
    throw;
  }
}

SqliteConnection& SqliteSession::writing() {
  if (!writing_) {
    WriterPlace::Hold place = takePlace();
    ConnectionLease connection = store_.connections().borrow(&control_);
    connection->beginWriting(wait_);
    if (inBranch_) {
      recorder_ = std::make_unique<ChangeRecorder>(*connection);
      connection->setInBranch(true);
    }
    changesBefore_ = connection->totalChanges();
    if (watch_ != nullptr) watch_->writes();
    place_ = std::move(place);
    writing_ = std::move(connection);
  }
  return *writing_;
}

void SqliteSession::noticeLoss() noexcept {
  if (!writing_ || writing_->inTransaction()) return;
  lost_ = true;
  stopWriting();
}

SqliteSession::Write::Write(SqliteSession& session) : session_(session) {
  session_.requireRunning();
  if (session_.open_) {
    session_.writing();
    session_.detachCursors();
    lease_ = session_.writing_;
    savepoint_.emplace(*lease_);
    return;
  }
  place_ = session_.store_.writerPlace().take(session_.patience());
  lease_ = session_.store_.connections().borrow(&session_.control_);
  lease_->beginWriting(session_.wait_);
  changesBefore_ = lease_->totalChanges();
}

SqliteSession::Write::~Write() {
  if (finished_) return;
  if (savepoint_) {
    savepoint_.reset();
    session_.noticeLoss();
  } else {
    lease_->rollback();
  }
}

void SqliteSession::Write::finish() {
  if (savepoint_) {
    if (session_.recorder_) session_.recorder_->check();
    savepoint_->keep();
  } else {
    lease_->commit();
    session_.store_.countCommit(lease_->totalChanges() - changesBefore_);
  }
  finished_ = true;
}

// Files.

bool SqliteSession::hasFile(const std::string& file) {
  return readConnection()->fileNumber(file).has_value();
}

bool SqliteSession::createFile(const std::string& file) {
  if (inBranch_) {
    throw StoreError(StoreError::Kind::NotInBranch, "files cannot be made in a branch");
  }
  bool made = false;
  change(StoreChange::Compound,
         [&](SqliteConnection& connection) { made = addFile(connection, file); });
  return made;
}

bool SqliteSession::deleteFile(const std::string& file) {
  if (inBranch_) {
    throw StoreError(StoreError::Kind::NotInBranch, "files cannot be deleted in a branch");
  }
  bool deleted = false;
  change(StoreChange::Compound,
         [&](SqliteConnection& connection) { deleted = dropFile(connection, file); });
  return deleted;
}

std::vector<std::string> SqliteSession::files() { return listFiles(*readConnection()); }

std::uint64_t SqliteSession::clear(const FilePart& file) {
  std::uint64_t records = 0;
  change(StoreChange::Simple,
         [&](SqliteConnection& connection) { records = removeAllRecords(connection, file); });
  return records;
}

// Records.

namespace {

/// Finds records one after the other. Those that lie close behind the last one, as they do in a
/// list of a whole file, are walked to: a step takes a part of the time of a search.
class RecordWalk {
public:
  /// Of RecordAction::Walk.
  explicit RecordWalk(Statement& statement) : statement_(statement) {}

  /// `id` stays until the next call.
  bool find(std::string_view id) {
    if (!walkTo(id)) {
      isNear_ = false;
      statement_.reset();
      statement_.bindText(0, id);
      step();
    }
    last_ = id;
    return isRow_ && id_ == id;
  }
  std::string_view body() const { return statement_.bytes(1); }

private:
  static constexpr int kNear = 4;  // steps

  /// Where nothing lies between the last id and the row, an id between them is not there. False
  /// where the id has to be searched for.
  bool walkTo(std::string_view id) {
    if (!isRow_ || id <= last_) return false;
    for (int steps = isNear_ ? kNear : 1; id_ < id; --steps) {
      if (steps == 0) return false;
      step();
      if (!isRow_) return true;
    }
    isNear_ = true;
    return true;
  }
  void step() {
    isRow_ = statement_.step();
    if (isRow_) id_ = statement_.bytes(0);
  }

  Statement& statement_;
  bool isRow_ = false;
  bool isNear_ = false;  // the last one was walked to
  std::string_view id_;  // of the row
  std::string_view last_;
};

}  // namespace

template <class Use>
bool SqliteSession::lookUp(const FilePart& file, RecordAction action, Use use) {
  const ConnectionLease connection = readConnection();
  if (!writing_) connection->snapshot().keep();
  return connection->onRecord(file, action, use);
}

bool SqliteSession::read(const FilePart& file, std::string_view id, NOXPBlob& body) {
  return lookUp(file, RecordAction::Read, [&](Statement& statement) {
    statement.bindText(0, id);
    if (!statement.step()) return false;
    const std::string_view bytes = statement.bytes(0);
    body.assign(bytes.data(), bytes.size());
    if (body.length() != bytes.size()) throw std::bad_alloc();
    return true;
  });
}

void SqliteSession::readEach(const FilePart& file, const std::vector<std::string>& ids,
                             RecordTaker& taker) {
  std::size_t place = 0;  // goes on where a statement that is out of date has stopped
  lookUp(file, RecordAction::Walk, [&](Statement& statement) {
    RecordWalk walk(statement);
    for (; place < ids.size(); ++place) {
      requireRunning();
      const bool isThere = walk.find(ids[place]);
      const std::string_view body = isThere ? walk.body() : std::string_view();
      if (!taker.take(place, isThere ? &body : nullptr)) break;
    }
    return true;
  });
}

bool SqliteSession::exists(const FilePart& file, std::string_view id) {
  return lookUp(file, RecordAction::Exists, [&](Statement& statement) {
    statement.bindText(0, id);
    return statement.step();
  });
}

void SqliteSession::write(const FilePart& file, std::string_view id, std::string_view body) {
  change(StoreChange::Simple,
         [&](SqliteConnection& connection) { putRecord(connection, file, id, body); });
}

bool SqliteSession::writeNew(const FilePart& file, std::string_view id, std::string_view body) {
  bool written = false;
  change(StoreChange::Simple,
         [&](SqliteConnection& connection) { written = putNewRecord(connection, file, id, body); });
  return written;
}

bool SqliteSession::remove(const FilePart& file, std::string_view id) {
  bool removed = false;
  change(StoreChange::Simple,
         [&](SqliteConnection& connection) { removed = removeRecord(connection, file, id); });
  return removed;
}

void SqliteSession::writeAll(const std::vector<RecordWrite>& writes) {
  change(StoreChange::Compound, [&](SqliteConnection& connection) {
    for (const RecordWrite& one : writes) putRecord(connection, one.file, one.id, one.body);
  });
}

std::unique_ptr<RecordCursor> SqliteSession::scan(const FilePart& file, bool withBodies,
                                                  std::string_view from) {
  ConnectionLease connection = readConnection();
  SqliteSession* sharing = writing_ ? this : nullptr;
  return std::make_unique<ScanCursor>(std::move(connection), sharing, file, withBodies, from);
}

void SqliteSession::removeCursor(ScanCursor& cursor) {
  cursors_.erase(std::remove(cursors_.begin(), cursors_.end(), &cursor), cursors_.end());
}

void SqliteSession::detachCursors() noexcept {
  while (!cursors_.empty()) cursors_.back()->detach();
}

// Transactions.

void SqliteSession::begin(int /*isolationLevel*/) {
  // Whatever the level, writers take turns and see each other's work whole.
  if (open_) throw StoreError(StoreError::Kind::Failed, "a transaction is open already");
  open_ = true;
}

void SqliteSession::commit() {
  requireTransaction();
  if (inBranch_) {
    throw StoreError(StoreError::Kind::Failed, "a branch is ended before it is committed");
  }
  if (lost_) {
    endTransaction();
    throw StoreError(StoreError::Kind::RolledBack, "the store has rolled the transaction back");
  }
  if (writing_) {
    endQueries();
    // Once begun, a commit ends by itself.
    writing_->setControl(nullptr);
    try {
      writing_->commit();
    } catch (...) {
      endTransaction();
      throw;
    }
    writing_->setControl(&control_);
    store_.countCommit(writing_->totalChanges() - changesBefore_);
    // What they read is what was committed, and nobody writes on their connection any more.
    for (ScanCursor* cursor : cursors_) cursor->forgetSession();
    cursors_.clear();
  }
  endTransaction();
}

void SqliteSession::rollback() {
  requireTransaction();
  endTransaction();
}

void SqliteSession::setMark() {
  requireTransaction();
  requireRunning();
  if (writing_) {
    writing_->setMark();
    mark_ = Mark::Savepoint;
  } else {
    mark_ = Mark::BeforeWriting;
  }
}

void SqliteSession::rollbackToMark() {
  requireTransaction();
  if (mark_ == Mark::None) throw StoreError(StoreError::Kind::Failed, "no mark was set");
  if (lost_) {
    throw StoreError(StoreError::Kind::RolledBack, "the store has rolled the transaction back");
  }
  if (!writing_) return;
  if (mark_ == Mark::BeforeWriting) {
    stopWriting();
  } else {
    detachCursors();
    writing_->rollbackToMark();
  }
}

void SqliteSession::leave(Query& query) noexcept {
  queries_.erase(std::remove(queries_.begin(), queries_.end(), &query), queries_.end());
}

void SqliteSession::endQueries() noexcept {
  const std::vector<Query*> ended = std::exchange(queries_, {});
  for (Query* const query : ended) query->endWithTransaction();
}

void SqliteSession::stopWriting() noexcept {
  endQueries();
  detachCursors();
  recorder_.reset();
  if (writing_) {
    writing_->setControl(nullptr);
    writing_->rollback();
    if (inBranch_) writing_->setInBranch(false);
  }
  writing_ = ConnectionLease();
  if (place_ && watch_ != nullptr) watch_->hasWritten();
  place_ = WriterPlace::Hold();
}

void SqliteSession::endTransaction() noexcept {
  stopWriting();
  open_ = false;
  inBranch_ = false;
  lost_ = false;
  mark_ = Mark::None;
}

// Branches.

void SqliteSession::beginBranch() {
  begin(0);
  inBranch_ = true;
}

std::unique_ptr<StoreBranch> SqliteSession::endBranch(const BranchId& id) {
  requireTransaction();
  if (!inBranch_) throw StoreError(StoreError::Kind::Failed, "no branch is open");
  try {
    if (lost_) {
      throw StoreError(StoreError::Kind::RolledBack, "the store has rolled the branch back");
    }
    std::string changes = recorder_ ? recorder_->changes() : std::string();
    endTransaction();
    return std::make_unique<SqliteBranch>(store_, id, std::move(changes), wait_);
  } catch (...) {
    endTransaction();
    throw;
  }
}

}  // namespace nox::agent
