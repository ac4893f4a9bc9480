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

void createAccount(const DataDirectory& directory, const std::string& account) {
  try {
    openStores(directory, true)->createAccount(account);
  } catch (const StoreError& error) {
    throw StoreError(error.kind(), "account " + account + " cannot be made: " + error.what(),
                     error.status());
  }
}

}  // namespace nox::agent
