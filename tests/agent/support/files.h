// Whole files, read and written as tests do.
#pragma once

#include <fstream>
#include <iterator>
#include <string>
#include <string_view>

namespace nox::agent::test {

/// Empty for a file that is not there.
inline std::string contentOfFile(const std::string& file) {
  std::ifstream stream(file, std::ios::binary);
  return {std::istreambuf_iterator<char>(stream), {}};
}

inline void writeFile(const std::string& file, std::string_view content) {
  std::ofstream(file, std::ios::binary | std::ios::trunc) << content;
}

}  // namespace nox::agent::test
