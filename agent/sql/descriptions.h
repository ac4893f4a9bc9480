// The description of columns and parameters as clients read it.
#pragma once

#include <memory>
#include <vector>

#include <nox/nox.h>

#include "agent/store/store.h"

namespace nox::agent {

/// Columns and parameters, with the class version that makes both travel. Flags are "1" and "0",
/// numbers decimal, the data type a code of SqlType. A comma or a colon in a name, which would
/// shift what follows it, is shown as "_".
std::unique_ptr<noxp::sql::ResultSetMetaDataProt> describe(
    const std::vector<SqlColumn>& columns, const std::vector<SqlColumn>& parameters);

}  // namespace nox::agent
