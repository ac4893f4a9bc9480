#include "agent/admin/stores.h"

#include <string>
#include <string_view>
#include <utility>

#include "agent/conversions/conversions.h"
#include "agent/failure.h"
#include "agent/store/sqlite/sqlite_engine.h"

namespace nox::agent {

std::unique_ptr<StoreEngine> openStores(const DataDirectory& directory, bool synchronousFull) {
  SqliteOptions options;
  options.synchronousFull = synchronousFull;
  options.conversion = [](std::string_view value, std::string_view code) {
    try {
      return convert(value, code, Direction::Output);
    } catch (const Failure&) {
      return std::string(value);
    }
  };
  return makeSqliteEngine(directory.accounts(), std::move(options));
}

}  // namespace nox::agent
