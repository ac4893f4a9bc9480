#include "tests/client/support/scratch.h"

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <cerrno>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <system_error>

namespace nox::client::test {

Scratch::Scratch() {
  path_ = (std::filesystem::temp_directory_path() / "nox-client-XXXXXX").string();
  if (!::mkdtemp(path_.data())) throw std::system_error(errno, std::generic_category(), path_);
}

Scratch::~Scratch() {
  std::error_code ignored;
  std::filesystem::remove_all(path_, ignored);
}

std::string Scratch::write(const std::string& name, std::string_view content, unsigned mode) const {
  const std::string whole = file(name);
  std::ofstream(whole, std::ios::binary) << content;
  EXPECT_EQ(::chmod(whole.c_str(), mode), 0) << whole;
  return whole;
}

std::string contentOf(const std::string& file) {
  std::ifstream in(file, std::ios::binary);
  EXPECT_TRUE(in.good()) << file;
  return {std::istreambuf_iterator<char>(in), {}};
}

}  // namespace nox::client::test
