// A copy of an account while it is used.
#pragma once

#include <filesystem>

#include "agent/store/sqlite/sqlite_connection.h"

namespace nox::agent {

/// Copies the database as it is at this moment into `file`, which must not exist; it is complete
/// and durable when it appears. Writers go on meanwhile. Throws StoreError.
void copyDatabase(SqliteConnection& connection, const std::filesystem::path& file);

}  // namespace nox::agent
