#include "tests/agent/support/temp_directory.h"

#include <cerrno>
#include <cstdlib>
#include <filesystem>
#include <system_error>

namespace nox::agent::test {

TempDirectory::TempDirectory()
    : path_((std::filesystem::temp_directory_path() / "noxd-test-XXXXXX").string()) {
  if (!mkdtemp(path_.data())) {
    throw std::system_error(errno, std::generic_category(), "mkdtemp " + path_);
  }
}

TempDirectory::~TempDirectory() {
  std::error_code ignored;
  std::filesystem::remove_all(path_, ignored);
}

}  // namespace nox::agent::test
