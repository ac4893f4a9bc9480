// The library's lock.
#pragma once

#include <mutex>

#include "nox/core/export.h"

namespace nox {

/// A lock that its owning thread may take again; it is free after as many Unlocks as Locks.
/// Destroying a locked one is the caller's error.
class NOX_EXPORT Mutex {
public:
  Mutex();
  ~Mutex();
  Mutex(const Mutex&) = delete;
  Mutex& operator=(const Mutex&) = delete;

  void Lock();
  void Unlock();

private:
  std::recursive_mutex lock_;
};

/// Holds a Mutex for the length of a scope.
class MutexGuard {
public:
  explicit MutexGuard(Mutex& mutex) : mutex_(mutex) { mutex_.Lock(); }
  ~MutexGuard() { mutex_.Unlock(); }
  MutexGuard(const MutexGuard&) = delete;
  MutexGuard& operator=(const MutexGuard&) = delete;

private:
  Mutex& mutex_;
};

}  // namespace nox
