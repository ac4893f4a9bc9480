// What a record of a dictionary says about an item.
#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>

#include "agent/conversions/conversions.h"

namespace nox::agent {

enum class Justification { Left, Right };

/// A dictionary's record, taken apart. Its attributes:
///   1  D, or I for an expression
///   2  the number of the attribute (0: the id), or the expression
///   3  conversion codes
///   4  heading, a line per value; empty: the item's name
///   5  width and justification, as 10L or 8R; empty: as wide as the values, left
///   6  S or M: one value, or several
struct Definition {
  static constexpr std::size_t kMostAttributes = 65'535;
  static constexpr std::size_t kWidest = 1'000;  // columns

  std::size_t attribute = 0;
  std::optional<std::string> expression;
  Conversion conversion;
  std::string heading;
  std::optional<std::size_t> width;
  Justification justification = Justification::Left;
  bool multivalued = false;
};

/// Throws Failure IE/011, with a reason that ends the sentence "item X: ...", for a record that
/// defines no item.
Definition parseDefinition(std::string_view record);

}  // namespace nox::agent
