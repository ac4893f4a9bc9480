// A directory that is a test's own and goes with it.
#pragma once

#include <string>
#include <string_view>

namespace nox::client::test {

class Scratch {
public:
  Scratch();
  /// Removes it with all that is in it.
  ~Scratch();
  Scratch(const Scratch&) = delete;
  Scratch& operator=(const Scratch&) = delete;

  std::string file(const std::string& name) const { return path_ + "/" + name; }
  /// Makes a file of this content with these permissions, and returns its whole name.
  std::string write(const std::string& name, std::string_view content, unsigned mode = 0600) const;

private:
  std::string path_;
};

/// The whole content of a file; fails the test where there is none.
std::string contentOf(const std::string& file);

}  // namespace nox::client::test
