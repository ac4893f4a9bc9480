#include "client/src/numbers.h"

#include <charconv>
#include <system_error>

#include "nox/client/error.h"

namespace nox::client::detail {

namespace {

constexpr std::size_t kShownText = 40;  // of a text that is no number

template <class Number>
std::optional<Number> parse(std::string_view text) {
  if (!text.empty() && text.front() == '+') {
    text.remove_prefix(1);
    if (!text.empty() && text.front() == '-') return std::nullopt;
  }
  Number number{};
  const char* const end = text.data() + text.size();
  const auto [stopped, error] = std::from_chars(text.data(), end, number);
  if (error != std::errc() || stopped != end) return std::nullopt;
  return number;
}

[[noreturn]] void throwNoNumber(std::string_view text) {
  std::string shown(text.substr(0, kShownText));
  if (shown.size() < text.size()) shown += "...";
  throw Error(sqlstate::kNotANumber, "no number: \"" + shown + "\"", Outcome::NotSent);
}

}  // namespace

int hexDigit(char c) {
  if (c >= '0' && c <= '9') return c - '0';
  if (c >= 'A' && c <= 'F') return c - 'A' + 10;
  if (c >= 'a' && c <= 'f') return c - 'a' + 10;
  return -1;
}

std::optional<std::int64_t> parseInt64(std::string_view text) { return parse<std::int64_t>(text); }

std::optional<double> parseDouble(std::string_view text) {
  // Not the names of infinities and of what is no number at all.
  if (text.find_first_of("nNiI") != std::string_view::npos) return std::nullopt;
  return parse<double>(text);
}

std::string shortestText(double number) {
  char text[32];
  const auto [end, error] = std::to_chars(std::begin(text), std::end(text), number);
  static_cast<void>(error);  // 32 characters hold every double
  return std::string(text, end);
}

std::int64_t requireInt64(std::string_view text) {
  if (const std::optional<std::int64_t> number = parseInt64(text)) return *number;
  throwNoNumber(text);
}

double requireDouble(std::string_view text) {
  if (const std::optional<double> number = parseDouble(text)) return *number;
  throwNoNumber(text);
}

}  // namespace nox::client::detail
