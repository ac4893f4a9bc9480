// MC, MX and G: text in another case, parts of a text, and numbers in hexadecimal.
#include <array>
#include <charconv>
#include <cstdint>
#include <limits>
#include <utility>

#include "agent/conversions/characters.h"
#include "agent/conversions/conversion_code.h"
#include "agent/failure.h"

namespace nox::agent {

namespace {

/// Changes or picks characters. What is gone cannot be put back, so that input does the same as
/// output.
template <class Function>
class OneWayCode : public ConversionCode {
public:
  explicit OneWayCode(Function function) : function_(std::move(function)) {}
  std::string output(std::string_view value) const override { return function_(value); }
  std::string input(std::string_view value) const override { return function_(value); }

private:
  Function function_;
};

template <class Function>
CodePointer oneWay(Function function) {
  return std::make_unique<OneWayCode<Function>>(std::move(function));
}

/// Each character as `change` makes it; stray bytes stay.
template <class Change>
std::string changed(std::string_view text, Change change) {
  std::string result;
  result.reserve(text.size());
  for (Characters c(text); c; c.next()) {
    if (c.value() == Characters::kNone) {
      result += c.bytes();
      change(c.value());
    } else {
      append(result, change(c.value()));
    }
  }
  return result;
}

std::string titleCase(std::string_view text) {
  bool inWord = false;
  return changed(text, [&](char32_t c) {
    const bool begins = !inWord;
    inWord = isLetter(c) || (inWord && columnsOf(c) == 0);  // marks belong to their letter
    return begins ? toUpper(c) : toLower(c);
  });
}

std::string digitsOf(std::string_view text) {
  std::string digits;
  for (const char c : text) {
    if (isAsciiDigit(c)) digits += c;
  }
  return digits;
}

std::string lettersOf(std::string_view text) {
  std::string letters;
  for (Characters c(text); c; c.next()) {
    if (isLetter(c.value())) letters += c.bytes();
  }
  return letters;
}

/// Whole numbers whose magnitude has up to 64 bits.
class HexCode : public ConversionCode {
public:
  std::string output(std::string_view value) const override { return rewrite(value, 10, 16); }
  std::string input(std::string_view value) const override { return rewrite(value, 16, 10); }

private:
  static std::string rewrite(std::string_view value, int from, int to) {
    std::string_view digits = value;
    const bool negative = digits.front() == '-';
    if (negative || digits.front() == '+') digits.remove_prefix(1);
    std::uint64_t number = 0;
    const char* const end = digits.data() + digits.size();
    const auto [stopped, error] = std::from_chars(digits.data(), end, number, from);
    if (error != std::errc() || stopped != end) {
      throw Failure("22", "018",
                    quoted(value) + (from == 10 ? " is no whole number" : " is no hexadecimal") +
                        " of up to 64 bits");
    }
    std::array<char, std::numeric_limits<std::uint64_t>::digits10 + 1> text{};
    const auto written = std::to_chars(text.data(), text.data() + text.size(), number, to);
    std::string result = negative && number != 0 ? "-" : "";
    for (const char* c = text.data(); c != written.ptr; ++c) {
      result += *c >= 'a' ? static_cast<char>(*c - 'a' + 'A') : *c;
    }
    return result;
  }
};

/// `count` fields behind the first `skip`, with their separators.
std::string fieldsOf(std::string_view text, std::size_t skip, std::string_view separator,
                     std::size_t count) {
  std::size_t begin = 0;
  for (; skip > 0; --skip) {
    const std::size_t found = text.find(separator, begin);
    if (found == std::string_view::npos) return {};
    begin = found + separator.size();
  }
  std::size_t end = begin;
  for (; count > 0; --count) {
    end = text.find(separator, end);
    if (end == std::string_view::npos) return std::string(text.substr(begin));
    end += separator.size();
  }
  return std::string(text.substr(begin, end - separator.size() - begin));
}

/// Takes the digits at the front of `text`; false where their number is beyond any count of fields.
bool takeCount(std::string_view& text, std::size_t& count) {
  std::uint32_t number = 0;
  const auto [stopped, error] = std::from_chars(text.data(), text.data() + text.size(), number);
  if (error == std::errc::result_out_of_range) return false;
  text.remove_prefix(static_cast<std::size_t>(stopped - text.data()));
  count = number;
  return true;
}

}  // namespace

CodePointer makeTextCode(std::string_view options) {
  if (options == "U") {
    return oneWay([](std::string_view text) { return changed(text, toUpper); });
  }
  if (options == "L") {
    return oneWay([](std::string_view text) { return changed(text, toLower); });
  }
  if (options == "T") return oneWay(titleCase);
  if (options == "N") return oneWay(digitsOf);
  if (options == "A") return oneWay(lettersOf);
  if (options == "X") return makeHexCode({});
  return nullptr;
}

CodePointer makeHexCode(std::string_view options) {
  return options.empty() ? std::make_unique<HexCode>() : nullptr;
}

CodePointer makeGroupCode(std::string_view options) {
  std::size_t skip = 0;
  std::size_t count = 0;
  if (!takeCount(options, skip)) return nullptr;
  const Characters separator(options);
  if (!separator) return nullptr;
  std::string between(separator.bytes());
  options.remove_prefix(between.size());
  if (!takeCount(options, count) || count == 0 || !options.empty()) return nullptr;
  return oneWay([=](std::string_view text) { return fieldsOf(text, skip, between, count); });
}

}  // namespace nox::agent
