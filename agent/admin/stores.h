// The store engine that a data directory is kept in.
#pragma once

#include <memory>

#include "agent/admin/data_directory.h"
#include "agent/store/store.h"

namespace nox::agent {

/// `synchronousFull`: see SqliteOptions.
std::unique_ptr<StoreEngine> openStores(const DataDirectory& directory, bool synchronousFull);

}  // namespace nox::agent
