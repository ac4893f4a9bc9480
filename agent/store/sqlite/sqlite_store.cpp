#include "agent/store/sqlite/sqlite_store.h"

#include <filesystem>
#include <system_error>

#include "agent/store/sqlite/sqlite_branch.h"
#include "agent/store/sqlite/sqlite_session.h"
#include "agent/store/sqlite/store_layout.h"

namespace nox::agent {

namespace {

// Writers of other processes (an administrator's shell) are waited for so long; those of the agent
// wait for each other before they come here.
constexpr std::chrono::seconds kForeignWait{5};

std::uint64_t sizeOf(const std::string& file) {
  std::error_code missing;
  const std::uintmax_t size = std::filesystem::file_size(file, missing);
  return missing ? 0 : size;
}

}  // namespace

SqliteStore::SqliteStore(std::string account, const ConnectionOptions& options)
    : account_(std::move(account)),
      connections_(options),
      place_([this](const std::vector<WriterPlace::Change*>& changes) { makeChanges(changes); }),
      writer_(connections_.open()) {
  requireLayout(*writer_, account_);
}

std::unique_ptr<StoreSession> SqliteStore::openSession() {
  return std::make_unique<SqliteSession>(*this);
}

std::vector<std::unique_ptr<StoreBranch>> SqliteStore::takePreparedBranches() {
  if (branchesTaken_.exchange(true)) return {};
  try {
    return SqliteBranch::load(*this);
  } catch (...) {
    branchesTaken_ = false;
    throw;
  }
}

StoreStatistics SqliteStore::statistics() {
  StoreStatistics statistics;
  statistics.commits = commits_;
  statistics.writes = writes_;
  statistics.busySeconds = place_.secondsWaited();
  const std::string& file = connections_.options().file;
  statistics.bytes = sizeOf(file) + sizeOf(file + "-wal");
  return statistics;
}

SqliteConnection& SqliteStore::branchConnection() {
  if (!branches_) {
    branches_ = connections_.open();
    branches_->disableTriggers();
  }
  return *branches_;
}

void SqliteStore::countCommit(std::int64_t rows) {
  if (rows <= 0) return;
  ++commits_;
  writes_ += static_cast<std::uint64_t>(rows);
}

void SqliteStore::makeChanges(const std::vector<WriterPlace::Change*>& changes) {
  const auto fail = [&](StoreError::Kind kind, const char* reason, std::int32_t status) {
    // An error for each: exceptions are not shared between threads.
    for (WriterPlace::Change* change : changes) {
      if (!change->error) change->error = std::make_exception_ptr(StoreError(kind, reason, status));
    }
  };
  try {
    const std::int64_t before = writer_->totalChanges();
    writer_->beginWriting(kForeignWait);
    for (WriterPlace::Change* change : changes) {
      auto& one = static_cast<StoreChange&>(*change);
      try {
        if (one.extent() == StoreChange::Compound) {
          SqliteConnection::Savepoint savepoint(*writer_);
          one.run(*writer_);
          savepoint.keep();
        } else {
          one.run(*writer_);
        }
      } catch (...) {
        // It fails alone, unless the engine has given the whole transaction up.
        if (!writer_->inTransaction()) throw;
        one.error = std::current_exception();
      }
    }
    writer_->commit();
    countCommit(writer_->totalChanges() - before);
  } catch (const StoreError& error) {
    writer_->rollback();
    fail(error.kind(), error.what(), error.status());
  } catch (const std::exception& error) {
    writer_->rollback();
    fail(StoreError::Kind::Failed, error.what(), 0);
  }
}

}  // namespace nox::agent
