// What signals do to socket calls, and how the socket streams keep them out.
#pragma once

#include <ace/SOCK.h>

#include <csignal>

namespace nox {

/// The flags that keep a plain send from raising SIGPIPE.
extern const int kSendFlags;

/// Whether a send to a closed peer raises a SIGPIPE that somebody would notice: false once the
/// process ignores it.
bool sigpipeMatters();

/// Keeps a SIGPIPE that this thread's calls raise from being delivered, for TLS, whose sends and
/// receives both write to the socket and take no flags. Leaves errno alone.
class SigpipeGuard {
public:
  /// Does nothing unless `active`.
  explicit SigpipeGuard(bool active);
  ~SigpipeGuard();
  SigpipeGuard(const SigpipeGuard&) = delete;
  SigpipeGuard& operator=(const SigpipeGuard&) = delete;

private:
  bool active_;
#if !defined(_WIN32)
  bool swallow_ = false;
  sigset_t outer_;
#endif
};

/// Whether a TLS call on `socket` that ended with this errno was cut short by a signal. The TLS
/// layer reports that as "would block", as it does an expired `timeoutOption` (SO_RCVTIMEO or
/// SO_SNDTIMEO) and a non-blocking socket.
bool interruptedBySignal(const ACE_SOCK& socket, int error, int timeoutOption);

}  // namespace nox
