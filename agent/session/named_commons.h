// Named commons: values that a session's programs and its client share under a name.
#pragma once

#include <string>
#include <string_view>

namespace nox::agent {

class Session;

/// @USER, @ACCOUNT, @SESSION (its id), @DATE (the day's number), @TIME (seconds since midnight),
/// both in the session's time zone, @LAST (the code of the last command), or what a subroutine set.
/// Empty for a name that was never set.
std::string namedCommon(Session& session, std::string_view name);

}  // namespace nox::agent
