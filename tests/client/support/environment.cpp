#include "tests/client/support/environment.h"

#include <unistd.h>

#include <cstdlib>

namespace nox::client::test {

namespace {

std::map<std::string, std::string> noxVariables() {
  std::map<std::string, std::string> found;
  for (char** entry = environ; *entry; ++entry) {
    const std::string text = *entry;
    const std::size_t equals = text.find('=');
    if (text.compare(0, 4, "NOX_") == 0) {
      found.emplace(text.substr(0, equals), text.substr(equals + 1));
    }
  }
  return found;
}

void replaceBy(const std::map<std::string, std::string>& variables) {
  for (const auto& [name, value] : noxVariables()) ::unsetenv(name.c_str());
  for (const auto& [name, value] : variables) ::setenv(name.c_str(), value.c_str(), 1);
}

}  // namespace

Environment::Environment(const std::map<std::string, std::string>& variables)
    : outer_(noxVariables()) {
  replaceBy(variables);
}

Environment::~Environment() { replaceBy(outer_); }

}  // namespace nox::client::test
