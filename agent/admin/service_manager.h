// What the service manager wants to know about the agent's life.
#pragma once

#include <string>

namespace nox::agent {

/// Sends lines of "KEY=value" to the socket that NOTIFY_SOCKET names; without one nothing happens.
/// Nobody waits for an answer, and failures are nobody's business.
void notifyServiceManager(const std::string& lines);

/// "RELOADING=1" with the moment that the manager orders it by.
std::string reloadingNotice();

}  // namespace nox::agent
