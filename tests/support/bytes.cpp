#include "tests/support/bytes.h"

#include <gtest/gtest.h>

#include <cctype>

namespace nox::test {

namespace {

int digit(char c) {
  if (c >= '0' && c <= '9') return c - '0';
  if (c >= 'A' && c <= 'F') return c - 'A' + 10;
  if (c >= 'a' && c <= 'f') return c - 'a' + 10;
  return -1;
}

}  // namespace

std::string bytes(std::string_view hex) {
  std::string out;
  int high = -1;
  for (const char c : hex) {
    if (std::isspace(static_cast<unsigned char>(c))) continue;
    const int value = digit(c);
    if (value < 0) {
      ADD_FAILURE() << "not hexadecimal: '" << c << "' in " << hex;
      return out;
    }
    if (high < 0) {
      high = value;
    } else {
      out.push_back(static_cast<char>(high << 4 | value));
      high = -1;
    }
  }
  if (high >= 0) ADD_FAILURE() << "odd number of digits in " << hex;
  return out;
}

std::string hex(std::string_view data) {
  static constexpr char kDigits[] = "0123456789ABCDEF";
  std::string out;
  for (const char c : data) {
    const auto byte = static_cast<unsigned char>(c);
    if (!out.empty()) out.push_back(' ');
    out.push_back(kDigits[byte >> 4]);
    out.push_back(kDigits[byte & 15]);
  }
  return out;
}

}  // namespace nox::test
