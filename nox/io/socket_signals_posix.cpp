#include "nox/io/socket_signals.h"

#include <ace/ACE.h>
#include <fcntl.h>
#include <sys/socket.h>
#include <sys/time.h>

#include <cerrno>
#include <ctime>

namespace nox {

const int kSendFlags = MSG_NOSIGNAL;

namespace {

sigset_t justSigpipe() {
  sigset_t signals;
  sigemptyset(&signals);
  sigaddset(&signals, SIGPIPE);
  return signals;
}

bool sigpipePending() {
  sigset_t pending;
  sigemptyset(&pending);
  return sigpending(&pending) == 0 && sigismember(&pending, SIGPIPE) == 1;
}

}  // namespace

bool sigpipeMatters() {
  struct sigaction action = {};
  return sigaction(SIGPIPE, nullptr, &action) != 0 || action.sa_handler != SIG_IGN;
}

SigpipeGuard::SigpipeGuard(bool active) : active_(active) {
  if (!active_) return;
  const sigset_t sigpipe = justSigpipe();
  pthread_sigmask(SIG_BLOCK, &sigpipe, &outer_);
  // One that was already waiting, which takes a thread that blocks it, is not ours to swallow.
  swallow_ = sigismember(&outer_, SIGPIPE) == 0 || !sigpipePending();
}

SigpipeGuard::~SigpipeGuard() {
  if (!active_) return;
  const int error = errno;
  const sigset_t sigpipe = justSigpipe();
  const timespec noWait = {0, 0};
  if (swallow_) {
    while (sigtimedwait(&sigpipe, nullptr, &noWait) == -1 && errno == EINTR) {
    }
  }
  pthread_sigmask(SIG_SETMASK, &outer_, nullptr);
  errno = error;
}

bool interruptedBySignal(const ACE_SOCK& socket, int error, int timeoutOption) {
  if (error == EINTR) return true;
  if (error != EWOULDBLOCK) return false;
  timeval limit = {};
  int size = sizeof limit;
  const int flags = ACE::get_flags(socket.get_handle());
  // A blocking socket without a limit of its own has no other reason to give up.
  return flags != -1 && (flags & O_NONBLOCK) == 0 &&
         socket.get_option(SOL_SOCKET, timeoutOption, &limit, &size) == 0 && limit.tv_sec == 0 &&
         limit.tv_usec == 0;
}

}  // namespace nox
