// The store engine that a data directory is kept in.
#pragma once

#include <memory>
#include <string>

#include "agent/admin/data_directory.h"
#include "agent/store/store.h"

namespace nox::agent {

/// `synchronousFull`: see SqliteOptions.
std::unique_ptr<StoreEngine> openStores(const DataDirectory& directory, bool synchronousFull);

/// Makes an account that is not there. What is thrown names it.
void createAccount(const DataDirectory& directory, const std::string& account);

}  // namespace nox::agent
