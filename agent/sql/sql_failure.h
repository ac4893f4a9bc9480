// What a store's failure is to a client of SQL.
#pragma once

#include "agent/store/store.h"

namespace nox::agent {

/// 42/000 for what cannot be understood or is not allowed, 42/S02 and 42/S22 for a table and a
/// column that is not there, 23/000 for a constraint, 22/018 for text that is no number, each with
/// the engine's status; what is no matter of SQL as for other requests, with IE/001.
[[noreturn]] void throwAsSqlFailure(const StoreError& error);

}  // namespace nox::agent
