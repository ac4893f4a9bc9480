// Signals at known dispositions, for tests of calls that meet them.
#pragma once

#include <pthread.h>

#include <atomic>
#include <csignal>
#include <thread>

namespace nox::test {

/// Sets a signal's disposition until it is destroyed.
class Disposition {
public:
  Disposition(int signal, void (*handler)(int)) : signal_(signal) {
    struct sigaction action = {};
    action.sa_handler = handler;  // without SA_RESTART: system calls return EINTR
    sigaction(signal, &action, &outer_);
  }
  ~Disposition() { sigaction(signal_, &outer_, nullptr); }
  Disposition(const Disposition&) = delete;
  Disposition& operator=(const Disposition&) = delete;

private:
  int signal_;
  struct sigaction outer_ = {};
};

inline std::atomic<int> signalsSeen{0};
inline void countSignal(int) { ++signalsSeen; }

inline bool isBlocked(int signal) {
  sigset_t mask;
  pthread_sigmask(SIG_SETMASK, nullptr, &mask);
  return sigismember(&mask, signal) == 1;
}

inline bool isPending(int signal) {
  sigset_t pending;
  sigpending(&pending);
  return sigismember(&pending, signal) == 1;
}

/// Blocks SIGPIPE in this thread until it is destroyed, and takes away what is pending then.
class SigpipeBlocked {
public:
  SigpipeBlocked() {
    sigemptyset(&sigpipe_);
    sigaddset(&sigpipe_, SIGPIPE);
    pthread_sigmask(SIG_BLOCK, &sigpipe_, nullptr);
  }
  ~SigpipeBlocked() {
    const timespec noWait = {0, 0};
    sigtimedwait(&sigpipe_, nullptr, &noWait);
    pthread_sigmask(SIG_UNBLOCK, &sigpipe_, nullptr);
  }
  SigpipeBlocked(const SigpipeBlocked&) = delete;
  SigpipeBlocked& operator=(const SigpipeBlocked&) = delete;

private:
  sigset_t sigpipe_;
};

/// Interrupts `thread` with SIGUSR1 until it has handled so many that one must have met the call it
/// waits in, or `done` is set.
inline void interrupt(std::thread& thread, const std::atomic<bool>& done) {
  constexpr int kEnough = 200;
  const Disposition counting(SIGUSR1, countSignal);
  const int enough = signalsSeen + kEnough;
  while (signalsSeen < enough && !done) {
    // Again and again: a sanitizer may put off the handler until the thread's call returns.
    pthread_kill(thread.native_handle(), SIGUSR1);
    std::this_thread::yield();
  }
}

}  // namespace nox::test
