// WriterWaits: a session's waits for other writers, as the lock table knows them.
#pragma once

#include <string>
#include <utility>

#include "agent/locks/lock_table.h"
#include "agent/store/store.h"

namespace nox::agent {

/// Lives as long as the store's session that it watches.
class WriterWaits : public WriterWatch {
public:
  WriterWaits(LockTable& locks, LockOwner owner, std::string account)
      : locks_(locks), owner_(owner), account_(std::move(account)) {}

  bool mayWait() override {
    if (locks_.beginWaitForWriter(owner_, account_)) return true;
    hasMetCycle_ = true;
    return false;
  }
  void hasWaited() noexcept override { locks_.endWaitForWriter(owner_); }
  void writes() override { locks_.setWriter(account_, owner_); }
  void hasWritten() noexcept override { locks_.clearWriter(account_, owner_); }

  /// Whether a wait was refused since this was asked last.
  bool takeCycle() { return std::exchange(hasMetCycle_, false); }

private:
  LockTable& locks_;
  const LockOwner owner_;
  const std::string account_;
  bool hasMetCycle_ = false;
};

}  // namespace nox::agent
