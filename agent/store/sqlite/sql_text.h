// The text of SQL statements: as much of it as the agent has to understand itself.
#pragma once

#include <string>
#include <string_view>

namespace nox::agent {

/// `text` without the blanks, comments and semicolons that it begins with.
std::string_view withoutLeadingBlanks(std::string_view text);

/// The word that `text` begins with, in capitals; empty where it begins with something else.
std::string firstWord(std::string_view text);

/// `name` as an identifier of SQL, whatever characters it has.
std::string quotedName(std::string_view name);

}  // namespace nox::agent
