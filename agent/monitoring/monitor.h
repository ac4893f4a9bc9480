// The monitoring commands: one line of text in, lines of tab-separated fields out.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

namespace nox::agent {

class Session;

constexpr std::size_t kMostMonitoringBytes = 65'535;

/// The answer to a command (see MonitorCommand): a heading line and one line per item, cut behind
/// the last line that fits, or "error: ...". Control characters in fields are escaped as in the
/// log. Needs the right `admin` in the session's account, and is about that account alone. Never
/// throws for what the command says.
std::string monitor(Session& session, std::string_view command);

}  // namespace nox::agent
