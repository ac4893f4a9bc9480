// The types of SQL by the words in which they are declared.
#pragma once

#include <string_view>

#include "agent/store/store.h"

namespace nox::agent {

/// What a declaration such as "DECIMAL(10,2)" says; an empty one is text, as all values travel.
SqlColumn columnOfType(std::string_view declaration);

}  // namespace nox::agent
