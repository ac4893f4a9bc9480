// Reading the whole of an account to find what is wrong with it.
#pragma once

#include <string>
#include <vector>

#include "agent/store/sqlite/sqlite_connection.h"

namespace nox::agent {

/// A line for each mistake, the first hundred of each kind; empty: the account is sound. Reads one
/// state while others work.
std::vector<std::string> findMistakes(SqliteConnection& connection);

}  // namespace nox::agent
