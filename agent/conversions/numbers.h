// Decimal numbers as text: exact, however long.
#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>

namespace nox::agent {

/// A sign, digits, and how many of them stand behind the point.
struct Decimal {
  bool negative = false;     // never for zero
  std::string digits;        // without leading zeros; empty for zero
  std::size_t decimals = 0;  // of `digits`, which may be fewer

  bool isZero() const { return digits.empty(); }
};

/// Nothing for a text that is no number (see isNumber).
std::optional<Decimal> parseDecimal(std::string_view text);

/// Cuts to at most `decimals` places; halves are rounded away from zero.
void roundTo(Decimal& number, std::size_t decimals);
/// Times ten to the power of `places`.
void multiply(Decimal& number, std::size_t places);
/// Divided by it.
void divide(Decimal& number, std::size_t places);

/// The digits in front of the point, at least one, and those behind it.
std::string wholeDigits(const Decimal& number);
std::string fractionDigits(const Decimal& number);

/// A text that sorts bytewise as the numbers do: equal for equal numbers, and no such text is the
/// beginning of another.
std::string sortableNumber(std::string_view number);

}  // namespace nox::agent
