// The environment of a test.
#pragma once

#include <map>
#include <string>

namespace nox::client::test {

/// Takes every NOX_ variable out of the environment, sets those given, and puts all back at its
/// end.
class Environment {
public:
  using Variables = std::map<std::string, std::string>;

  explicit Environment(const Variables& variables = {});
  ~Environment();
  Environment(const Environment&) = delete;
  Environment& operator=(const Environment&) = delete;

private:
  Variables outer_;
};

}  // namespace nox::client::test
