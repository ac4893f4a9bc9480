// What SQLite reports, as the store's own errors.
#pragma once

#include <string>

#include "agent/store/store.h"

struct sqlite3;

namespace nox::agent {

/// The part of an extended result code that names its family.
constexpr int kPrimaryCode = 0xFF;

/// The kind that SQLite's extended result code stands for. SQLITE_ERROR, which covers everything
/// that is wrong with the text of a statement, is Failed here.
StoreError::Kind storeErrorKind(int extendedCode, int systemError);

/// The error that the last call on `db` left; `db` may be null when not even that could be made.
StoreError storeError(sqlite3* db, int code, const std::string& what = {});

}  // namespace nox::agent
