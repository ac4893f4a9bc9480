// What an account's database looks like inside, and how one is made.
#pragma once

#include <string>

#include "agent/store/sqlite/sqlite_connection.h"

namespace nox::agent {

/// Goes up with every change of the layout that an older agent would not understand.
constexpr int kLayoutVersion = 1;

/// Makes the tables of an account in an empty database. Nothing is durable before the file was
/// synchronised.
void makeLayout(SqliteConnection& connection);

/// Throws StoreError when the database is not an account's (Damaged), or one that a newer agent has
/// made (Failed).
void requireLayout(SqliteConnection& connection, const std::string& account);

}  // namespace nox::agent
