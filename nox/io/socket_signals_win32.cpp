#include "nox/io/socket_signals.h"

// Windows has no signals that reach a socket call.
namespace nox {

const int kSendFlags = 0;

bool sigpipeMatters() { return false; }

SigpipeGuard::SigpipeGuard(bool active) : active_(active) {}
SigpipeGuard::~SigpipeGuard() = default;

bool interruptedBySignal(const ACE_SOCK&, int, int) { return false; }

}  // namespace nox
