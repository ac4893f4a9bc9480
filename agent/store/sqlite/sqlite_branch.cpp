#include "agent/store/sqlite/sqlite_branch.h"

#include <utility>

#include "agent/store/sqlite/changesets.h"

namespace nox::agent {

namespace {

void insertBranch(SqliteConnection& connection, const BranchId& id, const std::string& changes,
                  const std::vector<LockedRecord>& locks) {
  {
    const StatementUse insert(
        connection.kept("INSERT INTO nox_xa(format, id, changes) VALUES(?1, ?2, ?3)"));
    insert->bindInteger(0, id.format);
    insert->bindText(1, id.id);
    insert->bindBytes(2, changes);
    insert->step();
  }
  for (const LockedRecord& lock : locks) {
    const StatementUse insert(connection.kept(
        "INSERT OR REPLACE INTO nox_xa_locks(format, branch, file, part, record, for_update)"
        " VALUES(?1, ?2, ?3, ?4, ?5, ?6)"));
    insert->bindInteger(0, id.format);
    insert->bindText(1, id.id);
    insert->bindText(2, lock.file.file);
    insert->bindInteger(3, lock.file.part == Part::Dict ? 1 : 0);
    insert->bindText(4, lock.id);
    insert->bindInteger(5, lock.update ? 1 : 0);
    insert->step();
  }
}

void deleteBranch(SqliteConnection& connection, const BranchId& id) {
  for (const char* sql : {"DELETE FROM nox_xa WHERE format = ?1 AND id = ?2",
                          "DELETE FROM nox_xa_locks WHERE format = ?1 AND branch = ?2"}) {
    const StatementUse remove(connection.kept(sql));
    remove->bindInteger(0, id.format);
    remove->bindText(1, id.id);
    remove->step();
  }
}

std::vector<LockedRecord> loadLocks(SqliteConnection& connection, const BranchId& id) {
  std::vector<LockedRecord> locks;
  const StatementUse find(
      connection.kept("SELECT file, part, record, for_update FROM nox_xa_locks"
                      " WHERE format = ?1 AND branch = ?2"));
  find->bindInteger(0, id.format);
  find->bindText(1, id.id);
  while (find->step()) {
    LockedRecord lock;
    lock.file.file = find->bytes(0);
    lock.file.part = find->integer(1) != 0 ? Part::Dict : Part::Data;
    lock.id = find->bytes(2);
    lock.update = find->integer(3) != 0;
    locks.push_back(std::move(lock));
  }
  return locks;
}

}  // namespace

SqliteBranch::SqliteBranch(SqliteStore& store, BranchId id, std::string changes,
                           std::chrono::milliseconds wait)
    : store_(store), id_(std::move(id)), changes_(std::move(changes)), wait_(wait) {}

std::vector<std::unique_ptr<StoreBranch>> SqliteBranch::load(SqliteStore& store) {
  const ConnectionLease connection = store.connections().borrow(nullptr);
  std::vector<std::unique_ptr<StoreBranch>> branches;
  const StatementUse find(connection->kept("SELECT format, id FROM nox_xa"));
  while (find->step()) {
    BranchId id{static_cast<std::int32_t>(find->integer(0)), std::string(find->bytes(1))};
    auto branch = std::make_unique<SqliteBranch>(store, std::move(id), std::string(),
                                                 std::chrono::milliseconds(0));
    branch->prepared_ = true;
    branch->locks_ = loadLocks(*connection, branch->id_);
    branches.push_back(std::move(branch));
  }
  return branches;
}

void SqliteBranch::prepare(const std::vector<LockedRecord>& locks) {
  if (prepared_) throw StoreError(StoreError::Kind::Failed, "the branch is prepared already");
  std::vector<LockedRecord> kept = locks;
  ChangeBy insert(StoreChange::Compound, [&](SqliteConnection& connection) {
    insertBranch(connection, id_, changes_, locks);
  });
  store_.make(insert, {wait_, nullptr});
  // Durable: from here on they are read from there.
  locks_ = std::move(kept);
  prepared_ = true;
  std::string().swap(changes_);
}

std::string SqliteBranch::loadChanges(SqliteConnection& connection) const {
  const StatementUse find(
      connection.kept("SELECT changes FROM nox_xa WHERE format = ?1 AND id = ?2"));
  find->bindInteger(0, id_.format);
  find->bindText(1, id_.id);
  if (!find->step()) {
    throw StoreError(StoreError::Kind::Failed, "the branch is not in the store any more");
  }
  return std::string(find->bytes(0));
}

void SqliteBranch::commit(std::chrono::milliseconds wait) {
  if (!prepared_ && changes_.empty()) return;
  const WriterPlace::Hold place = store_.writerPlace().take({wait, nullptr});
  SqliteConnection& connection = store_.branchConnection();
  const std::int64_t before = connection.totalChanges();
  connection.beginWriting(wait);
  try {
    if (prepared_) {
      const std::string changes = loadChanges(connection);
      if (!changes.empty()) applyChanges(connection, changes);
      deleteBranch(connection, id_);
    } else {
      applyChanges(connection, changes_);
    }
    connection.commit();
  } catch (...) {
    connection.rollback();
    throw;
  }
  store_.countCommit(connection.totalChanges() - before);
}

void SqliteBranch::rollback(std::chrono::milliseconds wait) {
  if (prepared_) {
    ChangeBy remove(StoreChange::Compound,
                    [&](SqliteConnection& connection) { deleteBranch(connection, id_); });
    store_.make(remove, {wait, nullptr});
  }
  std::string().swap(changes_);
}

}  // namespace nox::agent
