// Named commons: values that a session's programs and its client share under a name.
#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>

namespace nox::agent {

class Session;

/// @USER, @ACCOUNT, @SESSION (its id), @DATE (the day's number), @TIME (seconds since midnight),
/// both in the session's time zone, @LAST (the code of the last command), or what a subroutine set.
/// Empty for a name that was never set.
std::string namedCommon(Session& session, std::string_view name);

constexpr std::size_t kMostCommonBytes =
    1024 * 1024;                                 // of all that a session has, with their names
constexpr std::size_t kLongestCommonName = 255;  // bytes

/// Sets one; nothing takes it away. Throws Failure 22/003 for a name that is empty, too long or the
/// agent's own (it begins with "@"), and where there would be more bytes than the session may have.
void setNamedCommon(Session& session, std::string_view name, std::optional<std::string_view> value);

}  // namespace nox::agent
