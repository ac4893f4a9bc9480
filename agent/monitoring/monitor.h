// The monitoring commands: one line of text in, lines of tab-separated fields out.
#pragma once

#include <string>
#include <string_view>

namespace nox::agent {

class Session;

/// The answer, at most 65,535 bytes: a heading line and one line per item, or "error: ...". Never
/// throws for what the command says.
std::string monitor(Session& session, std::string_view command);

}  // namespace nox::agent
