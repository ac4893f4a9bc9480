#include "agent/admin/stores.h"

#include <utility>

#include "agent/sql/sql_conversions.h"
#include "agent/store/sqlite/sqlite_engine.h"

namespace nox::agent {

std::unique_ptr<StoreEngine> openStores(const DataDirectory& directory, bool synchronousFull) {
  SqliteOptions options;
  options.synchronousFull = synchronousFull;
  options.conversions = sqlConversions;
  return makeSqliteEngine(directory.accounts(), std::move(options));
}

}  // namespace nox::agent
