#include "agent/store/sqlite/connection_pool.h"

#include <algorithm>

namespace nox::agent {

ConnectionLease::~ConnectionLease() {
  if (connection_ == nullptr || --connection_->uses_ > 0) return;
  ConnectionPool& pool = *connection_->pool_;
  pool.giveBack(std::unique_ptr<SqliteConnection>(connection_));
}

ConnectionLease ConnectionPool::borrow(const RunControl* control) {
  std::unique_ptr<SqliteConnection> connection;
  {
    const std::lock_guard<std::mutex> lock(mutex_);
    ++borrowed_;
    if (!idle_.empty()) {
      connection = std::move(idle_.back());
      idle_.pop_back();
    }
  }
  if (!connection) {
    try {
      connection = open();
    } catch (...) {
      const std::lock_guard<std::mutex> lock(mutex_);
      --borrowed_;
      throw;
    }
  }
  connection->snapshot().endIfOutdated();
  connection->setControl(control);
  return ConnectionLease(connection.release());
}

void ConnectionPool::giveBack(std::unique_ptr<SqliteConnection> connection) noexcept {
  if (connection->inTransaction()) connection->rollback();
  connection->snapshot().endIfOutdated();
  connection->setControl(nullptr);
  const std::lock_guard<std::mutex> lock(mutex_);
  --borrowed_;
  // Room for all was reserved by the constructor. What is not kept closes behind the lock.
  if (idle_.size() < kMostIdle) idle_.push_back(std::move(connection));
}

std::unique_ptr<SqliteConnection> ConnectionPool::open() {
  return std::make_unique<SqliteConnection>(options_, this);
}

void ConnectionPool::endSnapshots() noexcept {
  const std::lock_guard<std::mutex> lock(mutex_);
  for (const auto& connection : idle_) connection->snapshot().end();
}

std::size_t ConnectionPool::snapshots() const {
  const std::lock_guard<std::mutex> lock(mutex_);
  return static_cast<std::size_t>(
      std::count_if(idle_.begin(), idle_.end(),
                    [](const auto& connection) { return connection->snapshot().isKept(); }));
}

std::size_t ConnectionPool::idle() const {
  const std::lock_guard<std::mutex> lock(mutex_);
  return idle_.size();
}

std::size_t ConnectionPool::borrowed() const {
  const std::lock_guard<std::mutex> lock(mutex_);
  return borrowed_;
}

}  // namespace nox::agent
