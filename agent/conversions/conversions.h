// Conversion codes: values as they are stored, and as people read and write them.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

namespace nox::agent {

enum class Direction { Output = 0, Input = 1 };  // internal to external, and back

/// Applies `codes`, several joined by value marks, to each value of `data` (marks stay where they
/// are). Throws Failure 42/S72 for a code that is unknown, 22/007 for a date or time, and 22/018
/// for other data that the code cannot take.
std::string convert(std::string_view data, std::string_view codes, Direction direction);

/// Days since 31 December 1967 and seconds since midnight, now, in the named zone ("UTC", or one of
/// the system's zones).
struct DayAndSecond {
  std::int32_t day = 0;
  std::int32_t second = 0;
};
DayAndSecond now(const std::string& timezone);
bool isTimezone(const std::string& name);

/// Whether `text` is a decimal number: sign, digits, point. What WITH, BY and MD compare as one.
bool isNumber(std::string_view text);
/// -1, 0 or 1, exact whatever the length. Both must be numbers.
int compareNumbers(std::string_view a, std::string_view b);

}  // namespace nox::agent
