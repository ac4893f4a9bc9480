#include "bench/workloads.h"

namespace nox::bench {

namespace {

std::string numbered(const char* prefix, std::size_t number, std::size_t width) {
  std::string digits = std::to_string(number);
  const std::size_t used = std::string_view(prefix).size() + digits.size();
  return prefix + std::string(width - used, '0') + digits;
}

/// Bytes of every value, so that no participant can treat them as text.
std::string binary(std::size_t n) {
  std::string bytes(n, '\0');
  unsigned int state = 1;
  for (char& byte : bytes) {
    state = state * 1103515245U + 12345U;
    byte = static_cast<char>(state >> 16);
  }
  return bytes;
}

RowSet rowsOf(std::size_t width) {
  RowSet set;
  for (std::size_t row = 0; row < 1000; ++row) {
    std::vector<std::string>& values = set.rows.emplace_back();
    for (std::size_t column = 0; column < 8; ++column) {
      values.push_back(numbered("V", row * 8 + column, width));
    }
  }
  return set;
}

}  // namespace

Workloads makeWorkloads() {
  Workloads all;
  all.w1 = {2, "CUSTOMERS", "C-2022-00042"};
  all.w2 = {2, "CUSTOMERS", "C-2022-00042", binary(200)};
  all.w2b = {2, "CUSTOMERS", "C-2022-00042", binary(64 * 1024)};
  for (std::size_t i = 0; i < 10000; ++i) all.w4.keys.push_back(numbered("K", i, 8));
  all.w3 = rowsOf(12);
  all.w3x = rowsOf(24);
  return all;
}

}  // namespace nox::bench
