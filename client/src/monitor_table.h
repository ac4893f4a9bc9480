// What monitoring commands answer, taken apart.
#pragma once

#include <string_view>
#include <vector>

#include "nox/client/transaction.h"

namespace nox::client::detail {

/// The branches in the answer to "xa list". Lines that are none are left out.
std::vector<XaBranchInfo> branchesIn(std::string_view text);

}  // namespace nox::client::detail
