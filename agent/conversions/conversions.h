// Conversion codes: values as they are stored, and as people read and write them.
//
//   D[y][sep][E]    dates: 31 DEC 2026, or 12-31-2026 with a separator (E: the day first)
//   DI DW DM DQ DJ  2026-12-31; the day of the week, the month, the quarter, the day of the year
//   MT[H][S]        times: 23:59, 23:59:59, 11:59PM
//   MDn[m][,][$][Z] numbers with n decimals that are stored with m implied ones
//   MCU MCL MCT     text in upper, lower and title case;  MCN MCA  its digits, its letters
//   MX, MCX         whole numbers in hexadecimal
//   Gn sep m        m fields of a text behind its first n
//
// docs/commands.md describes them for users. Nothing here depends on a locale.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

namespace nox::agent {

enum class Direction { Output = 0, Input = 1 };  // internal to external, and back

class ConversionCode;

/// Codes that were taken apart once, to be applied to many values. Safe for threads.
class Conversion {
public:
  static constexpr std::size_t kMostCodes = 16;

  /// Leaves values alone.
  Conversion();
  /// Throws Failure 42/S72 for a code that is unknown, and for more than kMostCodes.
  explicit Conversion(std::string_view codes);
  Conversion(Conversion&&) noexcept;
  Conversion& operator=(Conversion&&) noexcept;
  ~Conversion();

  /// Converts each value of `data`; marks stay where they are, and an empty value stays empty.
  /// Throws Failure 22/007 for a date or time, and 22/018 for other data that a code cannot take.
  std::string apply(std::string_view data, Direction direction) const;
  /// The same, but a value that cannot be converted stays as it is.
  std::string applyWherePossible(std::string_view data, Direction direction) const;
  bool empty() const { return codes_.empty(); }

private:
  std::vector<std::unique_ptr<const ConversionCode>> codes_;
};

/// Applies `codes`, several joined by value marks, from left to right. Throws what Conversion does.
std::string convert(std::string_view data, std::string_view codes, Direction direction);

/// Days since 31 December 1967 and seconds since midnight, now, in the named zone ("UTC", or one of
/// the tz database). An unknown zone counts as UTC.
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
