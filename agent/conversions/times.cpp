// MT, the conversion of times.
#include <array>
#include <charconv>
#include <cstddef>
#include <optional>

#include "agent/conversions/calendar.h"
#include "agent/conversions/characters.h"
#include "agent/conversions/conversion_code.h"
#include "agent/failure.h"

namespace nox::agent {

namespace {

/// One or two digits at the front of `text`, which are taken from it.
std::optional<int> takeNumber(std::string_view& text) {
  std::size_t length = 0;
  int number = 0;
  while (length < text.size() && isAsciiDigit(text[length])) {
    if (length == 2) return {};
    number = number * 10 + (text[length++] - '0');
  }
  if (length == 0) return {};
  text.remove_prefix(length);
  return number;
}

std::string_view withoutBlanks(std::string_view text) {
  while (!text.empty() && text.front() == ' ') text.remove_prefix(1);
  while (!text.empty() && text.back() == ' ') text.remove_suffix(1);
  return text;
}

/// "9:30", "21:30:15", "9:30PM", "9 pm": hours alone need AM or PM behind them.
std::optional<int> readTime(std::string_view text) {
  text = withoutBlanks(text);
  std::array<int, 3> numbers{};
  std::size_t count = 0;
  do {
    if (count == numbers.size()) return {};
    if (count > 0) text.remove_prefix(1);
    const std::optional<int> number = takeNumber(text);
    if (!number) return {};
    numbers[count++] = *number;
  } while (!text.empty() && text.front() == ':');

  auto& [hour, minute, second] = numbers;
  const std::string_view half = withoutBlanks(text);
  if (equalsIgnoringCase(half, "AM") || equalsIgnoringCase(half, "PM")) {
    if (hour < 1 || hour > 12) return {};
    hour = hour % 12 + (equalsIgnoringCase(half, "PM") ? 12 : 0);
  } else if (!half.empty() || count < 2) {
    return {};
  }
  if (hour > 23 || minute > 59 || second > 59) return {};
  return (hour * 60 + minute) * 60 + second;
}

std::string twoDigits(int number) {
  return {static_cast<char>('0' + number / 10), static_cast<char>('0' + number % 10)};
}

class TimeCode : public ConversionCode {
public:
  TimeCode(bool twelveHours, bool seconds) : twelveHours_(twelveHours), seconds_(seconds) {}

  std::string output(std::string_view value) const override {
    int time = 0;
    const char* const end = value.data() + value.size();
    const auto [stopped, error] = std::from_chars(value.data(), end, time);
    if (error != std::errc() || stopped != end || time < 0 || time >= kSecondsPerDay) {
      throw Failure("22", "007", quoted(value) + " is no second of a day");
    }
    const int hour = time / 3600;
    std::string text =
        twoDigits(twelveHours_ ? (hour + 11) % 12 + 1 : hour) + ":" + twoDigits(time / 60 % 60);
    if (seconds_) text += ":" + twoDigits(time % 60);
    if (twelveHours_) text += hour < 12 ? "AM" : "PM";
    return text;
  }

  std::string input(std::string_view value) const override {
    const std::optional<int> time = readTime(value);
    if (!time) throw Failure("22", "007", quoted(value) + " is no time");
    return std::to_string(*time);
  }

private:
  bool twelveHours_;
  bool seconds_;
};

}  // namespace

CodePointer makeTimeCode(std::string_view options) {
  const bool twelveHours = !options.empty() && options.front() == 'H';
  if (twelveHours) options.remove_prefix(1);
  const bool seconds = options == "S";
  if (!seconds && !options.empty()) return nullptr;
  return std::make_unique<TimeCode>(twelveHours, seconds);
}

}  // namespace nox::agent
