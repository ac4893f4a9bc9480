// Sort keys: what BY compares, as texts that sort bytewise.
#pragma once

#include <string>
#include <string_view>

namespace nox::agent {

/// Adds the values of one item to `key`, so that the keys of two records compare bytewise as their
/// values do, one value after the other. As numbers: nothing comes first, then the numbers, then
/// what is no number.
void appendSortKey(std::string& key, std::string_view values, bool asNumbers, bool descending);

}  // namespace nox::agent
