// A directory that is a test's own and goes with it.
#pragma once

#include <string>

namespace nox::agent::test {

class TempDirectory {
public:
  TempDirectory();
  /// Removes it with all that is in it.
  ~TempDirectory();
  TempDirectory(const TempDirectory&) = delete;
  TempDirectory& operator=(const TempDirectory&) = delete;

  const std::string& path() const { return path_; }
  std::string file(const std::string& name) const { return path_ + "/" + name; }

private:
  std::string path_;
};

}  // namespace nox::agent::test
