// Numbers as text, whatever the locale.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace nox::client::detail {

/// The value of a hexadecimal digit in either case; -1 for any other character.
int hexDigit(char c);

/// Decimal, with an optional sign and nothing around it.
std::optional<std::int64_t> parseInt64(std::string_view text);
std::optional<double> parseDouble(std::string_view text);
/// The shortest text that reads back as the same number.
std::string shortestText(double number);

/// The same; Error 22018, which names the text, where it is no such number.
std::int64_t requireInt64(std::string_view text);
double requireDouble(std::string_view text);

}  // namespace nox::client::detail
