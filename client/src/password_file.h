// The file that holds a password.
#pragma once

#include <string>

namespace nox::client::detail {

/// Its first line. Throws Error HY024 where it cannot be read, where anybody but its owner, who is
/// the user that runs this process, has a permission, and where that line is empty.
std::string readPasswordFile(const std::string& file);

}  // namespace nox::client::detail
